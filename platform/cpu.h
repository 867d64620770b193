// What the processor (and the operating system's saving of its registers) allows.
#pragma once

namespace tessaline {

enum class VectorLevel {
  kBaseline,  // any x86-64: SSE2, 16-byte vectors
  kAvx2,      // 32-byte vectors
  kAvx512,    // 64-byte vectors (AVX-512 F, DQ, VL and BW)
};

// The widest level this machine can run. Constant for the life of the process.
VectorLevel DetectVectorLevel();

}  // namespace tessaline
