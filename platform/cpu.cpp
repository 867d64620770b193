#include "platform/cpu.h"

namespace tessaline {

#if defined(__x86_64__)
namespace {

VectorLevel AskProcessor() {
  __builtin_cpu_init();
  if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq") &&
      __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512bw")) {
    return VectorLevel::kAvx512;
  }
  if (__builtin_cpu_supports("avx2")) return VectorLevel::kAvx2;
  return VectorLevel::kBaseline;
}

}  // namespace

VectorLevel DetectVectorLevel() {
  static const VectorLevel level = AskProcessor();
  return level;
}
#else
VectorLevel DetectVectorLevel() {
  return VectorLevel::kBaseline;
}
#endif

}  // namespace tessaline
