// The fixed-size kernels behind FftDispatch: one per length and direction (Pos: exp(+2 pi i m k / n), Neg:
// exp(-)). Each reads n complex values, leaves the n results in FftResultArray and returns 0. Scratch is in
// the call's own stack frame (up to 280 KB).
#pragma once

#include <cstdint>

namespace tessaline {

int32_t FftKernel4Pos(const double* data);
int32_t FftKernel4Neg(const double* data);
int32_t FftKernel8Pos(const double* data);
int32_t FftKernel8Neg(const double* data);
int32_t FftKernel16Pos(const double* data);
int32_t FftKernel16Neg(const double* data);
int32_t FftKernel32Pos(const double* data);
int32_t FftKernel32Neg(const double* data);
int32_t FftKernel64Pos(const double* data);
int32_t FftKernel64Neg(const double* data);
int32_t FftKernel128Pos(const double* data);
int32_t FftKernel128Neg(const double* data);
int32_t FftKernel256Pos(const double* data);
int32_t FftKernel256Neg(const double* data);
int32_t FftKernel512Pos(const double* data);
int32_t FftKernel512Neg(const double* data);
int32_t FftKernel1024Pos(const double* data);
int32_t FftKernel1024Neg(const double* data);
int32_t FftKernel2048Pos(const double* data);
int32_t FftKernel2048Neg(const double* data);
int32_t FftKernel4096Pos(const double* data);
int32_t FftKernel4096Neg(const double* data);
int32_t FftKernel8192Pos(const double* data);
int32_t FftKernel8192Neg(const double* data);

}  // namespace tessaline
