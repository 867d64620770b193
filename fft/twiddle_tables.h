// The constant tables of the double-precision kernels, shared by the code for all instruction sets.
#pragma once

#include "fft/unit_roots.h"

namespace tessaline {

// Factors exp(2 pi i p k / N) of a first pass of radix R, whose vectors run over p: for every eight p and
// every k = 1 .. R - 1 eight cosines, then eight sines, in the lane order of doubles (0, 2, 1, 3 in every
// four).
template <int N, int R>
struct LaneTwiddles {
  static constexpr int kBlock = 16;  // doubles per eight p and one k
  static constexpr int Offset(int p, int k) { return (p / 8 * (R - 1) + k - 1) * kBlock + p % 8; }
  alignas(64) static const struct Values { double value[N / R * (R - 1) * 2]; } kValues;
};

// Factors exp(2 pi i j k / M) of an inner pass, the same for all lanes: for every j = 0 .. M / R - 1 those of
// k = 1 .. R - 1.
template <int M, int R>
struct ScalarTwiddles {
  alignas(64) static const struct Values { UnitRootValue value[M / R][R - 1]; } kValues;
};

// How each length is split into radices; the first one's results are the lanes of all later passes.
//   64 = 8 x 8         512 = 8 x 8 x 8          4096 = 16 x 16 x 16
//   128 = 16 x 8      1024 = 16 x 8 x 8         8192 = 16 x 8 x 8 x 8
//   256 = 16 x 16     2048 = 16 x 16 x 8
extern template struct LaneTwiddles<64, 8>;
extern template struct LaneTwiddles<128, 16>;
extern template struct LaneTwiddles<256, 16>;
extern template struct LaneTwiddles<512, 8>;
extern template struct LaneTwiddles<1024, 16>;
extern template struct LaneTwiddles<2048, 16>;
extern template struct LaneTwiddles<4096, 16>;
extern template struct LaneTwiddles<8192, 16>;
extern template struct ScalarTwiddles<64, 8>;
extern template struct ScalarTwiddles<128, 16>;
extern template struct ScalarTwiddles<256, 16>;
extern template struct ScalarTwiddles<512, 8>;

}  // namespace tessaline
