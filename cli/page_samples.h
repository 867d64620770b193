// One picture's samples on their way from the file to the run and back: colour planes in buffers that the
// run works on, alpha and other extra channels beside them, untouched.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "removal/picture.h"

namespace tessaline::cli {

enum class ColourModel { kGrey, kRgb, kLab, kCmyk };

constexpr int32_t kInks = 4;
constexpr const char* kInkNames[kInks] = {"cyan", "magenta", "yellow", "black"};

// How the samples of a page stand in a row: pixel after pixel, `colours` of them, then `extras`.
struct PageKind {
  int32_t width = 0;
  int32_t height = 0;
  ColourModel model = ColourModel::kGrey;
  int32_t extras = 0;        // alpha and other channels
  int32_t bits = 8;          // per sample: 8, or 16 in full range and the machine's byte order, or 32: floats
  bool isLong = false;       // of 32 bits: unsigned numbers over their whole range, not floats
  bool hasSignedAb = false;  // Lab whose a and b are two's complement round 0
  bool isSigned = false;     // all samples are, of 16 bits
  int32_t colours() const {
    return model == ColourModel::kGrey ? 1 : model == ColourModel::kCmyk ? kInks : 3;
  }
  // Pictures that are looked at and cleaned each for itself: dot screens live in the inks.
  int32_t parts() const { return model == ColourModel::kCmyk ? kInks : 1; }
  bool isFloat() const { return bits == 32 && !isLong; }
  bool IsSignedColour(int32_t colour) const { return isSigned || (hasSignedAb && colour > 0); }
  int32_t channels() const { return colours() + extras; }
  size_t RowBytes() const {
    return static_cast<size_t>(width) * static_cast<size_t>(channels()) * static_cast<size_t>(bits / 8);
  }
  friend bool operator==(const PageKind&, const PageKind&) = default;
};

constexpr uint64_t PixelsOf(const PageKind& kind) {
  return static_cast<uint64_t>(kind.width) * static_cast<uint64_t>(kind.height);
}

class PageSamples {
 public:
  // Memory for a page of that kind; what was held before is released. False when there is none.
  bool Create(const PageKind& kind);

  const PageKind& kind() const { return kind_; }
  // The colour planes of a part, of kind 1, 2, 3 or 6, or floats (also for samples of 32 bits that are none);
  // without channels before Create.
  PictureView picture(int32_t part = 0);
  // Says that the run has changed a part. Of one that is not changed every sample comes back exactly; of the
  // others 16-bit colours are scaled from the run's range, and 32-bit ones changed by what the run changed.
  void SetChanged(int32_t part) { isChanged_[static_cast<size_t>(part)] = true; }

  // A row as it stands in the file. 16-bit colours are scaled to the run's range.
  void TakeRow(int32_t y, const void* fileRow);

  // The row for the file.
  void FillRow(int32_t y, void* fileRow) const;

 private:
  template <typename Sample>
  void TakeRowAs(int32_t y, const Sample* in);
  template <typename Sample>
  void FillRowAs(int32_t y, Sample* out) const;

  PageKind kind_;
  std::array<Image, kInks> main_;  // by part
  std::array<bool, kInks> isChanged_ = {};
  std::vector<uint8_t> extras_;  // of all rows, in file order
  std::vector<uint8_t>
      lowestBits_;  // of colour samples: of 16 bits one each, rows padded to bytes; of long a byte
  size_t lowestBitsPerRow_ = 0;  // bytes
};

}  // namespace tessaline::cli
