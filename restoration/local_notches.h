// Notches for pages so warped that no line of their spectrum stands alone: every tile takes its own.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "removal/steps.h"
#include "restoration/gate.h"
#include "restoration/local_spectrum.h"

namespace tessaline {

// Whether the licences were given by tiles.
bool IsLocal(const Findings& findings);

// As Filter, for such findings: of what the mask takes, each tile of 128 x 128 takes out the peaks of its own
// spectrum, and nothing where none of them has about the ruling of a licensed one. What the gate is closed to
// is not looked at; where it closes, the print ends. The last channel's levels stay in the memory that was
// lent.
class LocalNotches {
 public:
  // `lent` has at least as many floats as a plane of the picture's rows and columns, each rounded up to
  // an even number, and holds the last channel from Filter on. False: no memory. May throw std::bad_alloc.
  bool Prepare(const PictureView& from, int32_t threads, std::span<float> lent);

  // With a gate that is measured. Returns 0 or kUserCancelled.
  int32_t Filter(const PictureView& from, const Findings& findings, const ConstImageView& mask,
                 const Gate& gate, Parallel& parallel, const Progress& progress, FilteredRows& rows);

 private:
  float* StripOf(int32_t row) const;
  void MeasureStrip(const PictureView& from, const Findings& findings, const ConstImageView& mask,
                    const Gate& gate, int32_t row, int32_t worker);
  void GiveRow(const PictureView& from, int32_t y, int32_t worker, FilteredRows& rows);
  float* RowToGive(int32_t channel, int32_t y, int32_t worker) const;

  int32_t width_ = 0, channels_ = 0, strips_ = 0;
  std::vector<LocalSpectrum> spectra_;  // a thread's each
  OwnedBlock<float> taken_;             // strips of rows of tiles, of which neighbours overlap by half
  OwnedBlock<float> rows_;              // a thread's each: levels, filtered
  OwnedBlock<float> printed_;           // a thread's each: marks of a tile
  float* last_ = nullptr;               // the last channel, two rows to a line
};

}  // namespace tessaline
