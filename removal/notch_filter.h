// The notch mask at work: multiplies the columns of a spectrum by what the mask leaves of them.
#pragma once

#include <cstdint>

#include "fft/real_transform.h"
#include "image/image_view.h"

namespace tessaline {

// Each value of an N x N spectrum times 1 - m / 255, m being the mean of the enlarged mask (as by
// EnlargeMask) at its frequency and at the opposite one: that is what the real part of the result owes to the
// mask, and it keeps the plane real.
class NotchFilter final : public SpectrumColumns {
 public:
  // False: no memory.
  bool Prepare(int32_t transformSize, int32_t workers);
  // `mask`: 512 x 512 bytes.
  void Begin(const ConstImageView& mask);

  bool IsWanted(int32_t first, int32_t count) const override;
  void Visit(int32_t kx, float* column, int32_t worker) override;

  // What the mask takes of column kx by ky, as shares of 1: what Visit does not leave.
  void Shares(int32_t kx, float* shares, int32_t worker);

  // The factor of frequency (kx, 0), kx = 0 .. N/2, as Visit multiplies by it.
  double FactorOnRowZero(int32_t kx) const;

 private:
  // Twice what is taken of column kx, 0 .. 510 by ky; whoever reads it clears it.
  uint16_t* TakenOf(int32_t kx, int32_t worker);
  // Adds the enlarged mask's column at `place` (0 .. N - 1 from the left of the centred spectrum), rows going
  // up with ky or, mirrored, down.
  void AddMaskColumn(int32_t place, bool isMirrored, uint16_t* taken) const;

  int32_t size_ = 0;
  OwnedBlock<uint8_t> columns_;     // of the mask, top to bottom, one after the other
  bool columnInUse_[512 + 1] = {};  // grid columns with anything but 0; the last one repeats its neighbour
  OwnedBlock<uint16_t>
      taken_;  // one column a worker: twice what the mask takes, 0 .. 510, all 0 between visits
};

}  // namespace tessaline
