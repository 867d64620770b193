// What the processor (and the operating system's saving of its registers) allows.
#pragma once

namespace tessaline {

// Whether there are code for wider vectors than the smallest and processors to choose it by: not in the
// browser's build, whose vectors have 16 bytes on every machine, and not under ThreadSanitizer, for which the
// code of all widths is the same.
#if defined(__x86_64__) && !defined(TESSALINE_ONE_VECTOR_WIDTH)
inline constexpr bool kHasWiderVectors = true;
#else
inline constexpr bool kHasWiderVectors = false;
#endif

// Whether the program is fetched before it is used, and left small for that: the browser's build.
#if defined(__wasm__)
inline constexpr bool kIsFetched = true;
#else
inline constexpr bool kIsFetched = false;
#endif

enum class VectorLevel {
  kBaseline,  // any x86-64: SSE2, 16-byte vectors
  kAvx2,      // 32-byte vectors
  kAvx512,    // 64-byte vectors (AVX-512 F, DQ, VL and BW)
};

// The widest level this machine can run. Constant for the life of the process.
VectorLevel DetectVectorLevel();

}  // namespace tessaline
