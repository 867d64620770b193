#include "fft/fft_kernels.h"

#include "fft/butterflies.h"
#include "fft/fft_dispatch.h"
#include "fft/unit_roots.h"
#include "fft/vector_engine.h"

namespace tessaline {

namespace {

void LoadValues(const double* data, int first, int step, Complex<double>* values, int count) {
  for (int i = 0; i < count; ++i)
    values[i] = {data[2 * (first + i * step)], data[2 * (first + i * step) + 1]};
}

void StoreResults(const Complex<double>* values, int first, int step, int count) {
  for (int i = 0; i < count; ++i) {
    FftResultArray[2 * (first + i * step)] = values[i].re;
    FftResultArray[2 * (first + i * step) + 1] = values[i].im;
  }
}

template <int N, int Sign>
int32_t StraightLineKernel(const double* data) {
  Complex<double> x[N];
  LoadValues(data, 0, 1, x, N);
  Dft<N, Sign, double>(x);
  StoreResults(x, 0, 1, N);
  return 0;
}

// 32 = 4 x 8.
template <int Sign>
int32_t Kernel32(const double* data) {
  Complex<double> columns[4][8];
  for (int j = 0; j < 4; ++j) {
    LoadValues(data, j, 4, columns[j], 8);
    Dft<8, Sign, double>(columns[j]);
  }
  for (int k = 0; k < 8; ++k) {
    Complex<double> x[4];
    for (int j = 0; j < 4; ++j) {
      const UnitRootValue w = UnitRoot(32, j * k);
      x[j] = Rotate<Sign>(columns[j][k], w.cosine, w.sine);
    }
    Dft<4, Sign, double>(x);
    StoreResults(x, k, 8, 4);
  }
  return 0;
}

// The longer ones exist once per instruction set.
template <int Log2N, int Sign>
int32_t VectorKernel(const double* data) {
  activeVectorEngine->transform[Log2N - kShortestVectorLog2][Sign < 0](data, FftResultArray);
  return 0;
}

}  // namespace

int32_t FftKernel4Pos(const double* data) {
  return StraightLineKernel<4, +1>(data);
}
int32_t FftKernel4Neg(const double* data) {
  return StraightLineKernel<4, -1>(data);
}
int32_t FftKernel8Pos(const double* data) {
  return StraightLineKernel<8, +1>(data);
}
int32_t FftKernel8Neg(const double* data) {
  return StraightLineKernel<8, -1>(data);
}
int32_t FftKernel16Pos(const double* data) {
  return StraightLineKernel<16, +1>(data);
}
int32_t FftKernel16Neg(const double* data) {
  return StraightLineKernel<16, -1>(data);
}
int32_t FftKernel32Pos(const double* data) {
  return Kernel32<+1>(data);
}
int32_t FftKernel32Neg(const double* data) {
  return Kernel32<-1>(data);
}
int32_t FftKernel64Pos(const double* data) {
  return VectorKernel<6, +1>(data);
}
int32_t FftKernel64Neg(const double* data) {
  return VectorKernel<6, -1>(data);
}
int32_t FftKernel128Pos(const double* data) {
  return VectorKernel<7, +1>(data);
}
int32_t FftKernel128Neg(const double* data) {
  return VectorKernel<7, -1>(data);
}
int32_t FftKernel256Pos(const double* data) {
  return VectorKernel<8, +1>(data);
}
int32_t FftKernel256Neg(const double* data) {
  return VectorKernel<8, -1>(data);
}
int32_t FftKernel512Pos(const double* data) {
  return VectorKernel<9, +1>(data);
}
int32_t FftKernel512Neg(const double* data) {
  return VectorKernel<9, -1>(data);
}
int32_t FftKernel1024Pos(const double* data) {
  return VectorKernel<10, +1>(data);
}
int32_t FftKernel1024Neg(const double* data) {
  return VectorKernel<10, -1>(data);
}
int32_t FftKernel2048Pos(const double* data) {
  return VectorKernel<11, +1>(data);
}
int32_t FftKernel2048Neg(const double* data) {
  return VectorKernel<11, -1>(data);
}
int32_t FftKernel4096Pos(const double* data) {
  return VectorKernel<12, +1>(data);
}
int32_t FftKernel4096Neg(const double* data) {
  return VectorKernel<12, -1>(data);
}
int32_t FftKernel8192Pos(const double* data) {
  return VectorKernel<13, +1>(data);
}
int32_t FftKernel8192Neg(const double* data) {
  return VectorKernel<13, -1>(data);
}

}  // namespace tessaline
