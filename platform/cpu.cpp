#include "platform/cpu.h"

namespace tessaline {

VectorLevel DetectVectorLevel() {
  static const VectorLevel level = [] {
    __builtin_cpu_init();
    if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq") &&
        __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512bw")) {
      return VectorLevel::kAvx512;
    }
    if (__builtin_cpu_supports("avx2")) return VectorLevel::kAvx2;
    return VectorLevel::kBaseline;
  }();
  return level;
}

}  // namespace tessaline
