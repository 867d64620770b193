#include "restoration/local_notches.h"

#include <algorithm>
#include <cmath>

#include "restoration/local_spectrum.h"

namespace tessaline {

namespace {

constexpr int32_t kSide = LocalSpectrum::kSide, kHop = LocalSpectrum::kHop;
constexpr int32_t kRowsInOrder = 16;  // are given by one thread, so that blocks of rows come together
static_assert(kHop % kRowsInOrder == 0);
// Heights of a peak in a tile that is filtered; on the axes lines of text have high ones too. A tile at the
// corner of what is printed has less, and the gate knows there what is text.
constexpr double kSurePeak = 2.0, kSurePeakOfParts = 1.4, kSurePeakOnAxis = 3.5;
constexpr double kRulingsApart = 0.25;  // at most, as a share: a page that is warped stretches

// Whether a peak of a tile says that it has the screen.
bool IsOfScreen(const LocalPeak& peak, const Findings& findings) {
  return std::any_of(findings.peaks.begin(), findings.peaks.end(), [&](const SpectrumPeak& licensed) {
    const double ruling = std::hypot(licensed.dx, licensed.dy) / LocalSpectrum::kCells;
    const double sure = peak.IsNearAxis()                     ? kSurePeakOnAxis
                        : licensed.scale == PeakScale::kParts ? kSurePeakOfParts
                                                              : kSurePeak;
    return licensed.isLicensed && peak.height >= sure &&
           std::abs(peak.Ruling() - ruling) <= kRulingsApart * ruling;
  });
}

// Marks with 1 what is printed of a tile, where the gate is clearly open; 0 the rest, rows of kSide.
struct Printed {
  bool isAny = false, isAll = true;

  Printed(const Gate& gate, int32_t x, int32_t y, int32_t width, int32_t height, float* marks) {
    constexpr float kClearlyOpen = 0.65f;
    const int32_t first = std::max(x, 0), columns = std::min(x + kSide, width) - first;
    std::fill_n(marks, kSide * kSide, 0.0f);
    for (int32_t row = 0; row < kSide; ++row) {
      const bool isInside = y + row >= 0 && y + row < height;
      isAll = isAll && isInside && columns == kSide;
      if (!isInside) continue;
      float open[kSide];
      gate.Row(y + row, first / Gate::kReduction, ReducedSide(columns, Gate::kReduction), open);
      for (int32_t column = 0; column < columns; ++column) {
        const bool isPrinted = open[column] >= kClearlyOpen;
        marks[row * kSide + first - x + column] = isPrinted ? 1.0f : 0.0f;
        isAny = isAny || isPrinted;
        isAll = isAll && isPrinted;
      }
    }
  }
};

}  // namespace

bool IsLocal(const Findings& findings) {
  return std::any_of(findings.peaks.begin(), findings.peaks.end(), [](const SpectrumPeak& peak) {
    return peak.isLicensed && (peak.scale == PeakScale::kLocal || peak.scale == PeakScale::kParts);
  });
}

bool LocalNotches::Prepare(const PictureView& from, int32_t threads, std::span<float> lent) {
  width_ = from.width;
  channels_ = from.channels;
  strips_ = threads + 1;
  spectra_.resize(static_cast<size_t>(threads));
  const auto width = static_cast<size_t>(width_);
  taken_ = AllocateBlock<float>(width * kSide * static_cast<size_t>(channels_ * strips_));
  rows_ = AllocateBlock<float>(3 * width * static_cast<size_t>(threads));
  printed_ = AllocateBlock<float>(size_t{kSide} * kSide * static_cast<size_t>(threads));
  last_ = lent.data();
  return taken_ && rows_ && printed_ &&
         std::all_of(spectra_.begin(), spectra_.end(),
                     [](LocalSpectrum& spectrum) { return spectrum.Prepare(); });
}

float* LocalNotches::StripOf(int32_t row) const {
  return taken_.get() +
         static_cast<size_t>(row % strips_) * static_cast<size_t>(width_ * channels_) * size_t{kSide};
}

// What a row of tiles takes; the first one begins half a tile above the picture.
void LocalNotches::MeasureStrip(const PictureView& from, const Findings& findings, const ConstImageView& mask,
                                const Gate& gate, int32_t row, int32_t worker) {
  LocalSpectrum& spectrum = spectra_[static_cast<size_t>(worker)];
  const auto width = static_cast<size_t>(width_);
  float* const strip = StripOf(row);
  float* const marks = printed_.get() + static_cast<size_t>(worker) * kSide * kSide;
  std::fill_n(strip, width * kSide * static_cast<size_t>(channels_), 0.0f);
  for (int32_t x = -kHop; x < width_; x += kHop) {
    const int32_t y = (row - 1) * kHop;
    // What lies beyond the borders is a mirror image, with other peaks: the nearest tile inside has the
    // peaks.
    const int32_t insideX = std::clamp(x, 0, std::max(width_ - kSide, 0)),
                  insideY = std::clamp(y, 0, std::max(from.height - kSide, 0));
    const Printed printed(gate, x, y, width_, from.height, marks);
    if (!printed.isAny) continue;
    spectrum.Load(from, insideX, insideY);
    const std::vector<LocalPeak>& peaks = spectrum.FindPeaks();
    if (std::none_of(peaks.begin(), peaks.end(),
                     [&](const LocalPeak& peak) { return IsOfScreen(peak, findings); })) {
      continue;
    }
    for (const LocalPeak& peak : peaks) spectrum.Take(peak);
    spectrum.ShareOut(mask);
    if (!printed.isAll) spectrum.LoadPrinted(from, x, y, marks);
    const int32_t skipped = std::max(-x, 0);
    spectrum.AddTaken(skipped, std::min(kSide, width_ - x), width, width * kSide, strip + x + skipped);
  }
}

// The last channel's rows stay, two to a line as everywhere.
float* LocalNotches::RowToGive(int32_t channel, int32_t y, int32_t worker) const {
  const auto width = static_cast<size_t>(width_);
  if (channel == channels_ - 1) return last_ + static_cast<size_t>(y / 2) * 2 * width + y % 2;
  return rows_.get() + static_cast<size_t>(worker) * 3 * width + width;
}

void LocalNotches::GiveRow(const PictureView& from, int32_t y, int32_t worker, FilteredRows& rows) {
  const auto width = static_cast<size_t>(width_);
  float* const levels = rows_.get() + static_cast<size_t>(worker) * 3 * width;
  const int32_t row = y / kHop;
  for (int32_t c = 0; c < channels_; ++c) {
    const auto line = static_cast<size_t>(c) * kSide + static_cast<size_t>(y % kHop);
    const float* const upper = StripOf(row) + (line + kHop) * width;
    const float* const lower = StripOf(row + 1) + line * width;
    LoadPart(from, {c, y, 0, width_}, levels);
    float* const filtered = RowToGive(c, y, worker);
    for (int32_t x = 0; x < width_; ++x) filtered[2 * x] = levels[x] - (upper[x] + lower[x]);
    rows.Take(c, y, filtered);
  }
}

int32_t LocalNotches::Filter(const PictureView& from, const Findings& findings, const ConstImageView& mask,
                             const Gate& gate, Parallel& parallel, const Progress& progress,
                             FilteredRows& rows) {
  const int32_t bands = (from.height + kHop - 1) / kHop;  // each between two rows of tiles
  MeasureStrip(from, findings, mask, gate, 0, 0);
  for (int32_t band = 0; band < bands; band += strips_ - 1) {
    if (progress.Advance(band, bands)) return kUserCancelled;
    const int32_t count = std::min(strips_ - 1, bands - band);
    const auto never = [](int32_t) { return false; };
    ForEachTask(
        parallel, count,
        [&](int32_t i, int32_t worker) { MeasureStrip(from, findings, mask, gate, band + 1 + i, worker); },
        never);
    const int32_t firstRow = band * kHop, lastRow = std::min((band + count) * kHop, from.height);
    const auto give = [&](int32_t part, int32_t worker) {
      const int32_t first = firstRow + part * kRowsInOrder;
      for (int32_t y = first; y < std::min(first + kRowsInOrder, lastRow); ++y) {
        GiveRow(from, y, worker, rows);
      }
    };
    ForEachTask(parallel, (lastRow - firstRow + kRowsInOrder - 1) / kRowsInOrder, give, never);
  }
  return kSuccess;
}

}  // namespace tessaline
