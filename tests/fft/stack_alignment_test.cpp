// GCC for Windows aligns a function's frame to 16 bytes only, yet spills 32- and 64-byte vectors into it with
// moves that demand their full alignment. Whether that crashes depends on where the frame happens to lie.
// Here every kernel is called from frames at all four places modulo 64, so a build that has lost the
// assembler option against it (cmake/TessalineRooms.cmake) dies in this test.
#include <gtest/gtest.h>

#include <vector>

#include "fft/vector_engine.h"
#include "tests/fft/slow_dft.h"

namespace tessaline {
namespace {

// Calls `work` from a frame moved down by `bytes`.
template <typename Work>
[[gnu::noinline]] void CallFromLowerFrame(size_t bytes, const Work& work) {
  void* const gap = __builtin_alloca(bytes + 1);
  asm volatile("" : : "r"(gap) : "memory");  // keeps the gap
  work();
}

TEST(StackAlignment, KernelsRunFromEveryFrame) {
  const std::vector<double> data = test::NoiseRow<double>(8192);
  const std::vector<float> table(8192 / 4 + 1);
  std::vector<double> result(2 * 8192);
  std::vector<float> row(2 * 8192);
  int calls = 0;
  for (const VectorLevel level : {VectorLevel::kBaseline, VectorLevel::kAvx2, VectorLevel::kAvx512}) {
    if (level > DetectVectorLevel()) continue;
    for (int index = 0; index < kVectorLengths; ++index) {
      for (const int direction : {0, 1}) {
        for (size_t shift = 0; shift < 64; shift += 16) {
          CallFromLowerFrame(shift, [&] {
            VectorEngineFor(level).transform[index][direction](data.data(), result.data());
            VectorEngineFor(level).transformFloat[index][direction](row.data(), table.data());
            ++calls;
          });
        }
      }
    }
  }
  EXPECT_GE(calls, kVectorLengths * 2 * 4);
}

}  // namespace
}  // namespace tessaline
