#include "removal/notch_filter.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

#include "removal/spectrum_grid.h"

namespace tessaline {

namespace {

constexpr int32_t kFullyTaken = 2 * 255;

constexpr std::array<double, kFullyTaken + 1> kFactors = [] {
  std::array<double, kFullyTaken + 1> factors{};
  for (int32_t taken = 0; taken <= kFullyTaken; ++taken) factors[taken] = 1.0 - taken / double{kFullyTaken};
  return factors;
}();

}  // namespace

bool NotchFilter::Prepare(int32_t transformSize, int32_t workers) {
  size_ = transformSize;
  taken_ = AllocateBlock<uint16_t>(static_cast<size_t>(transformSize) * static_cast<size_t>(workers));
  columns_ = AllocateBlock<uint8_t>(size_t{kSpectrumCells} * kSpectrumCells);
  return taken_ && columns_;
}

void NotchFilter::Begin(const ConstImageView& mask) {
  constexpr int32_t kBlock = 16;  // rows that are read along with a cache line of each
  std::fill_n(columnInUse_, kSpectrumCells + 1, false);
  for (int32_t top = 0; top < kSpectrumCells; top += kBlock) {
    for (int32_t column = 0; column < kSpectrumCells; ++column) {
      uint8_t* const cells = columns_.get() + column * kSpectrumCells;
      uint8_t any = 0;
      for (int32_t y = top; y < top + kBlock; ++y) any |= cells[y] = mask.Row(y)[column];
      columnInUse_[column] |= any != 0;
    }
  }
  columnInUse_[kSpectrumCells] = columnInUse_[kSpectrumCells - 1];
}

bool NotchFilter::IsWanted(int32_t first, int32_t count) const {
  const int32_t blockSide = size_ / kSpectrumCells;
  const auto isInUse = [&](int32_t place) {
    const int32_t column = (place & (size_ - 1)) / blockSide;
    return columnInUse_[column] || columnInUse_[column + 1];
  };
  for (int32_t kx = first; kx < first + count; ++kx) {
    if (isInUse(size_ / 2 + kx) || isInUse(size_ / 2 - kx)) return true;
  }
  return false;
}

void NotchFilter::AddMaskColumn(int32_t place, bool isMirrored, uint16_t* taken) const {
  const int32_t blockSide = size_ / kSpectrumCells;
  const int32_t column = place / blockSide;
  const int32_t next = std::min(column + 1, kSpectrumCells - 1);
  if (!columnInUse_[column] && !columnInUse_[next]) return;
  const int32_t weight = place % blockSide;
  const uint8_t* const cells = columns_.get() + column * kSpectrumCells;
  const uint8_t* const nextCells = columns_.get() + next * kSpectrumCells;
  // Whole numbers of 1 / D, as in the enlarged mask.
  const auto blend = [&](int32_t y) { return cells[y] * (blockSide - weight) + nextCells[y] * weight; };
  const int32_t wholeBits = 2 * std::countr_zero(static_cast<uint32_t>(blockSide));
  int32_t upper = blend(0);
  for (int32_t y = 0; y < kSpectrumCells; ++y) {
    const int32_t lower = blend(std::min(y + 1, kSpectrumCells - 1));
    if ((upper | lower) != 0) {
      for (int32_t i = 0; i < blockSide; ++i) {
        const int32_t ky = y * blockSide + i - size_ / 2;
        taken[(isMirrored ? -ky : ky) & (size_ - 1)] +=
            static_cast<uint16_t>((upper * (blockSide - i) + lower * i) >> wholeBits);
      }
    }
    upper = lower;
  }
}

uint16_t* NotchFilter::TakenOf(int32_t kx, int32_t worker) {
  uint16_t* const taken = taken_.get() + static_cast<size_t>(worker) * static_cast<size_t>(size_);
  AddMaskColumn((size_ / 2 + kx) & (size_ - 1), false, taken);
  AddMaskColumn((size_ / 2 - kx) & (size_ - 1), true, taken);
  return taken;
}

void NotchFilter::Shares(int32_t kx, float* shares, int32_t worker) {
  uint16_t* const taken = TakenOf(kx, worker);
  for (int32_t ky = 0; ky < size_; ++ky) {
    shares[ky] = static_cast<float>(taken[ky]) / kFullyTaken;
    taken[ky] = 0;
  }
}

void NotchFilter::Visit(int32_t kx, float* column, int32_t worker) {
  uint16_t* const taken = TakenOf(kx, worker);
  for (int32_t ky = 0; ky < size_; ky += 4) {
    uint64_t four;
    std::memcpy(&four, taken + ky, sizeof four);
    if (four == 0) continue;
    for (int32_t i = ky; i < ky + 4; ++i) {
      const double factor = kFactors[taken[i]];
      column[2 * i] = static_cast<float>(column[2 * i] * factor);
      column[2 * i + 1] = static_cast<float>(column[2 * i + 1] * factor);
      taken[i] = 0;
    }
  }
}

double NotchFilter::FactorOnRowZero(int32_t kx) const {
  const int32_t blockSide = size_ / kSpectrumCells;
  const uint8_t* const row = columns_.get() + kSpectrumCentre;
  const auto taken = [&](int32_t place) {
    const int32_t column = (place & (size_ - 1)) / blockSide;
    const int32_t weight = place % blockSide;
    const int32_t next = std::min(column + 1, kSpectrumCells - 1);
    return (row[column * kSpectrumCells] * (blockSide - weight) + row[next * kSpectrumCells] * weight) /
           blockSide;
  };
  return kFactors[taken(size_ / 2 + kx) + taken(size_ / 2 - kx)];
}

}  // namespace tessaline
