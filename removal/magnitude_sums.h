// From the spectra of a picture's channels to the 512 x 512 spectrum image that detection and display work
// on.
#pragma once

#include <cstdint>

#include "fft/real_transform.h"
#include "image/image_view.h"

namespace tessaline {

// Adds the magnitudes of one channel's spectrum to 512 x 512 doubles: every cell takes the D x D block of the
// N x N spectrum that it stands for, D = N / 512, the zero frequency at the first corner of cell (256, 256).
// Square roots in single precision, sums in double.
class MagnitudeSums final : public SpectrumColumns {
 public:
  // False: no memory.
  bool Prepare(int32_t transformSize, int32_t strips, int32_t workers);
  // `sums`: 512 x 512 doubles, added to by End.
  // `powers`, if given: likewise, receives the squares of the magnitudes.
  void Begin(const ImageView& sums, const ImageView& powers = {});
  // After the last column.
  void End(Parallel& parallel);

  bool IsWanted(int32_t, int32_t) const override { return true; }
  void Visit(int32_t kx, float* column, int32_t worker) override;

 private:
  template <bool WithPowers>
  void VisitColumn(int32_t kx, const float* column, int32_t worker);
  void AddTo(int32_t row, int32_t column, double magnitude, double power);

  int32_t size_ = 0;
  int32_t strips_ = 0;
  int32_t workers_ = 0;
  ImageView sums_, powers_;
  // The mirror image of a strip's first column falls into a grid column that another strip adds to: it waits
  // here, 512 sums a strip,
  // and as many of squares.
  OwnedBlock<double> edges_;
  // The grid column by column, pairs of magnitude and square: a spectrum's column falls into neighbouring
  // memory.
  OwnedBlock<double> gathered_;
  OwnedBlock<float> magnitudes_;  // one column a worker, in the grid's order
};

// Scales the sums by their logarithm to 0..32768 in the 16-bit image. Minimum and maximum are those outside
// row and column 256, the cross through the zero frequency; every cell is scaled. Returns the natural log of
// maximum over minimum; when that is 0 (nothing to scale by) the image becomes all zero. A minimum of 0
// counts as the smallest normal double. Both images are 512 x 512.
double ScaleSpectrumByLog(const ConstImageView& sums, const ImageView& gray16);

}  // namespace tessaline
