#include "cli/page_samples.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <type_traits>

#include "cli/full_range.h"

namespace tessaline::cli {

static_assert(EveryLevelComesBack());

bool PageSamples::Create(const PageKind& kind) {
  for (Image& image : main_) image.Release();
  isChanged_ = {};
  extras_ = {};
  lowestBits_ = {};
  kind_ = kind;
  const auto height = static_cast<size_t>(kind.height);
  const auto coloursPerRow = static_cast<size_t>(kind.width) * static_cast<size_t>(kind.colours());
  try {
    extras_.resize(static_cast<size_t>(kind.width) * static_cast<size_t>(kind.extras * kind.bits / 8) *
                   height);
    lowestBitsPerRow_ = kind.bits == 16 ? (coloursPerRow + 7) / 8 : kind.isLong ? coloursPerRow : 0;
    lowestBits_.resize(lowestBitsPerRow_ * height);
  } catch (const std::bad_alloc&) {
    return false;
  }
  const int32_t coloursOfPart = kind.colours() / kind.parts();
  return std::all_of(main_.begin(), main_.begin() + kind.parts(), [&](Image& image) {
    return image.Create(kind.width, kind.height, coloursOfPart * kind.bits / 8);
  });
}

PictureView PageSamples::picture(int32_t part) {
  const ImageView image = main_[static_cast<size_t>(part)].view();
  if (kind_.bits != 32 || image.IsEmpty()) return PictureOf(image);
  constexpr auto kBytes = static_cast<int32_t>(sizeof(float));
  PictureView view = {image.width, image.height, SampleFormat::kFloat, image.bytesPerPixel / kBytes, {}};
  for (int32_t c = 0; c < view.channels; ++c)
    view.channel[c] = {image.data + c * kBytes, image.bytesPerPixel, image.rowBytes};
  return view;
}

namespace {

// Signed samples, such as Lab's a and b in most files, stand on the run's scale with their zero in the
// middle. The same operation leads there and back.
template <typename Sample>
Sample SignFlipped(Sample sample, const PageKind& kind, int32_t colour) {
  if constexpr (std::is_integral_v<Sample>) {
    constexpr int kTopBit = 1 << (8 * sizeof(Sample) - 1);
    if (kind.IsSignedColour(colour)) return static_cast<Sample>(sample ^ kTopBit);
  }
  return sample;
}

// What the run has in place of a sample.
template <typename Sample>
using Level = std::conditional_t<std::is_same_v<Sample, uint32_t>, float, Sample>;

}  // namespace

template <typename Sample>
void PageSamples::TakeRowAs(int32_t y, const Sample* in) {
  const int32_t colours = kind_.colours();
  const auto extras = static_cast<size_t>(kind_.extras);
  const auto width = static_cast<size_t>(kind_.width);
  // Colour after colour from one part, or one colour from each.
  Level<Sample>* main[kInks];
  for (int32_t part = 0; part < kind_.parts(); ++part)
    main[part] = main_[static_cast<size_t>(part)].view().Row<Level<Sample>>(y);
  const int32_t lastPart = kind_.parts() - 1;
  auto* extra = reinterpret_cast<Sample*>(extras_.data()) + static_cast<size_t>(y) * width * extras;
  uint8_t* const lowestBits = lowestBits_.data() + static_cast<size_t>(y) * lowestBitsPerRow_;
  if constexpr (sizeof(Sample) == 2) memset(lowestBits, 0, lowestBitsPerRow_);
  size_t index = 0;  // of the colour sample in its row
  for (size_t x = 0; x < width; ++x) {
    for (int32_t colour = 0; colour < colours; ++colour, ++index) {
      const auto sample = SignFlipped(*in++, kind_, colour);
      if constexpr (sizeof(Sample) == 2) {
        *main[std::min(colour, lastPart)]++ = RunLevelOf(sample);
        lowestBits[index / 8] =
            static_cast<uint8_t>(lowestBits[index / 8] | LowestBitOf(sample) << (index % 8));
      } else if constexpr (std::is_same_v<Sample, uint32_t>) {
        *main[std::min(colour, lastPart)]++ = RunLevelOfLong(sample);
        lowestBits[index] = LowestByteOf(sample);
      } else {
        *main[std::min(colour, lastPart)]++ = sample;
      }
    }
    for (size_t i = 0; i < extras; ++i) *extra++ = *in++;
  }
}

template <typename Sample>
void PageSamples::FillRowAs(int32_t y, Sample* out) const {
  const int32_t colours = kind_.colours();
  const auto extras = static_cast<size_t>(kind_.extras);
  const auto width = static_cast<size_t>(kind_.width);
  const Level<Sample>* main[kInks];
  for (int32_t part = 0; part < kind_.parts(); ++part)
    main[part] = main_[static_cast<size_t>(part)].view().Row<Level<Sample>>(y);
  const int32_t lastPart = kind_.parts() - 1;
  const auto* extra =
      reinterpret_cast<const Sample*>(extras_.data()) + static_cast<size_t>(y) * width * extras;
  const uint8_t* const lowestBits = lowestBits_.data() + static_cast<size_t>(y) * lowestBitsPerRow_;
  size_t index = 0;
  for (size_t x = 0; x < width; ++x) {
    for (int32_t colour = 0; colour < colours; ++colour, ++index) {
      const int32_t part = std::min(colour, lastPart);
      const auto level = *main[part]++;
      auto sample = static_cast<Sample>(level);
      if constexpr (std::is_same_v<Sample, uint32_t>) sample = LongOfRunLevel(level, lowestBits[index]);
      if constexpr (sizeof(Sample) == 2) {
        sample = isChanged_[static_cast<size_t>(part)]
                     ? FullRangeLevelOf(level)
                     : ExactFullRangeLevel(level, lowestBits[index / 8] >> (index % 8) & 1);
      }
      *out++ = SignFlipped(sample, kind_, colour);
    }
    for (size_t i = 0; i < extras; ++i) *out++ = *extra++;
  }
}

void PageSamples::TakeRow(int32_t y, const void* fileRow) {
  if (kind_.isFloat()) {
    TakeRowAs(y, static_cast<const float*>(fileRow));
  } else if (kind_.isLong) {
    TakeRowAs(y, static_cast<const uint32_t*>(fileRow));
  } else if (kind_.bits == 16) {
    TakeRowAs(y, static_cast<const uint16_t*>(fileRow));
  } else {
    TakeRowAs(y, static_cast<const uint8_t*>(fileRow));
  }
}

void PageSamples::FillRow(int32_t y, void* fileRow) const {
  if (kind_.isFloat()) {
    FillRowAs(y, static_cast<float*>(fileRow));
  } else if (kind_.isLong) {
    FillRowAs(y, static_cast<uint32_t*>(fileRow));
  } else if (kind_.bits == 16) {
    FillRowAs(y, static_cast<uint16_t*>(fileRow));
  } else {
    FillRowAs(y, static_cast<uint8_t*>(fileRow));
  }
}

}  // namespace tessaline::cli
