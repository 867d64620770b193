#include "fft/fft_kernels.h"

#include <array>

#include "fft/butterflies.h"
#include "fft/fft_dispatch.h"
#include "fft/unit_roots.h"

namespace tessaline {

namespace {

// exp(2 pi i p k / n) for p = 0 .. n/r - 1, k = 1 .. r - 1.
template <int N, int R>
consteval std::array<UnitRootValue, N / R*(R - 1)> MakeTwiddles() {
  std::array<UnitRootValue, N / R*(R - 1)> twiddles{};
  for (int p = 0; p < N / R; ++p) {
    for (int k = 1; k < R; ++k) twiddles[p * (R - 1) + k - 1] = UnitRoot(N, int64_t{p} * k);
  }
  return twiddles;
}

template <int N, int R>
constexpr std::array<UnitRootValue, N / R*(R - 1)> kTwiddles = MakeTwiddles<N, R>();

// One pass of the self-sorting transform: Stride interleaved sequences of length N, split by radix R.
template <int N, int R, int Stride, int Sign>
void Pass(const double* in, double* out) {
  constexpr int kGroups = N / R;
  for (int p = 0; p < kGroups; ++p) {
    for (int q = 0; q < Stride; ++q) {
      Complex<double> x[R];
      for (int j = 0; j < R; ++j) {
        const double* const source = in + 2 * (q + Stride * (p + kGroups * j));
        x[j] = {source[0], source[1]};
      }
      Dft<R, Sign, double>(x);
      for (int k = 0; k < R; ++k) {
        if constexpr (kGroups > 1) {
          if (k > 0) {
            const UnitRootValue& w = kTwiddles<N, R>[p * (R - 1) + k - 1];
            x[k] = Rotate<Sign>(x[k], w.cosine, w.sine);
          }
        }
        double* const destination = out + 2 * (q + Stride * (R * p + k));
        destination[0] = x[k].re;
        destination[1] = x[k].im;
      }
    }
  }
}

template <int N, int Stride, int Sign, int R, int... Rest>
void Passes(const double* in, double* work, double* otherWork) {
  if constexpr (sizeof...(Rest) == 0) {
    static_assert(N == R);
    Pass<N, R, Stride, Sign>(in, FftResultArray);
  } else {
    Pass<N, R, Stride, Sign>(in, work);
    Passes<N / R, Stride * R, Sign, Rest...>(work, otherWork, work);
  }
}

template <int N, int Sign, int... Radices>
int32_t Kernel(const double* data) {
  if constexpr (sizeof...(Radices) == 1) {
    Passes<N, 1, Sign, Radices...>(data, nullptr, nullptr);
  } else {
    double scratch[2][2 * N];
    Passes<N, 1, Sign, Radices...>(data, scratch[0], scratch[1]);
  }
  return 0;
}

}  // namespace

int32_t FftKernel4Pos(const double* data) {
  return Kernel<4, +1, 4>(data);
}
int32_t FftKernel4Neg(const double* data) {
  return Kernel<4, -1, 4>(data);
}
int32_t FftKernel8Pos(const double* data) {
  return Kernel<8, +1, 8>(data);
}
int32_t FftKernel8Neg(const double* data) {
  return Kernel<8, -1, 8>(data);
}
int32_t FftKernel16Pos(const double* data) {
  return Kernel<16, +1, 16>(data);
}
int32_t FftKernel16Neg(const double* data) {
  return Kernel<16, -1, 16>(data);
}
int32_t FftKernel32Pos(const double* data) {
  return Kernel<32, +1, 8, 4>(data);
}
int32_t FftKernel32Neg(const double* data) {
  return Kernel<32, -1, 8, 4>(data);
}
int32_t FftKernel64Pos(const double* data) {
  return Kernel<64, +1, 8, 8>(data);
}
int32_t FftKernel64Neg(const double* data) {
  return Kernel<64, -1, 8, 8>(data);
}
int32_t FftKernel128Pos(const double* data) {
  return Kernel<128, +1, 16, 8>(data);
}
int32_t FftKernel128Neg(const double* data) {
  return Kernel<128, -1, 16, 8>(data);
}
int32_t FftKernel256Pos(const double* data) {
  return Kernel<256, +1, 16, 16>(data);
}
int32_t FftKernel256Neg(const double* data) {
  return Kernel<256, -1, 16, 16>(data);
}
int32_t FftKernel512Pos(const double* data) {
  return Kernel<512, +1, 8, 8, 8>(data);
}
int32_t FftKernel512Neg(const double* data) {
  return Kernel<512, -1, 8, 8, 8>(data);
}
int32_t FftKernel1024Pos(const double* data) {
  return Kernel<1024, +1, 16, 8, 8>(data);
}
int32_t FftKernel1024Neg(const double* data) {
  return Kernel<1024, -1, 16, 8, 8>(data);
}
int32_t FftKernel2048Pos(const double* data) {
  return Kernel<2048, +1, 16, 16, 8>(data);
}
int32_t FftKernel2048Neg(const double* data) {
  return Kernel<2048, -1, 16, 16, 8>(data);
}
int32_t FftKernel4096Pos(const double* data) {
  return Kernel<4096, +1, 16, 16, 16>(data);
}
int32_t FftKernel4096Neg(const double* data) {
  return Kernel<4096, -1, 16, 16, 16>(data);
}
int32_t FftKernel8192Pos(const double* data) {
  return Kernel<8192, +1, 16, 8, 8, 8>(data);
}
int32_t FftKernel8192Neg(const double* data) {
  return Kernel<8192, -1, 16, 8, 8, 8>(data);
}

}  // namespace tessaline
