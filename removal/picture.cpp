#include "removal/picture.h"

#include <algorithm>
#include <type_traits>

#include "removal/sample_formats.h"

namespace tessaline {

namespace {

// Samples are gathered, and scattered, in portions: their conversion in between then is a loop of vectors,
// whatever lies between them.
constexpr int32_t kPortion = 256;

// Calls use(step) with the steps of packed pictures as numbers that the compiler knows, in bytes.
template <typename Sample, typename Use>
void WithStep(ptrdiff_t step, const Use& use) {
  constexpr ptrdiff_t kBytes = sizeof(Sample);
  switch (step) {
    case kBytes:
      return use(std::integral_constant<ptrdiff_t, kBytes>{});
    case 3 * kBytes:
      return use(std::integral_constant<ptrdiff_t, 3 * kBytes>{});
    case 4 * kBytes:
      return use(std::integral_constant<ptrdiff_t, 4 * kBytes>{});
    default:
      return use(step);
  }
}

// Calls use(x) for all, several in one turn of the loop.
template <typename Use>
inline void ForAll(int32_t count, const Use& use) {
  constexpr int32_t kAtOnce = 8;
  int32_t x = 0;
  for (; x + kAtOnce <= count; x += kAtOnce) {
    for (int32_t i = 0; i < kAtOnce; ++i) use(x + i);
  }
  for (; x < count; ++x) use(x);
}

// Levels stand kApart floats apart.
template <typename Format, int kApart>
void Load(const uint8_t* sample, ptrdiff_t step, int32_t width, float* levels) {
  using Sample = typename Format::Sample;
  Sample gathered[kPortion];
  float converted[kPortion];
  for (int32_t first = 0; first < width; first += kPortion) {
    const int32_t count = std::min(kPortion, width - first);
    const uint8_t* const begin = sample + first * step;
    WithStep<Sample>(step, [&](auto known) {
      ForAll(count, [&](int32_t x) { gathered[x] = *reinterpret_cast<const Sample*>(begin + x * known); });
    });
    float* const to = levels + kApart * first;
    float* const packed = kApart == 1 ? to : converted;
    for (int32_t x = 0; x < count; ++x) packed[x] = static_cast<float>(gathered[x]) * Format::kToLevel;
    if constexpr (kApart > 1) ForAll(count, [&](int32_t x) { to[kApart * x] = converted[x]; });
  }
}

// Eight running sums in a fixed order: one alone would wait for each addition.
double SumOfEverySecond(const float* levels, int32_t count) {
  double sums[8] = {};
  int32_t x = 0;
  for (; x + 8 <= count; x += 8) {
    for (int32_t i = 0; i < 8; ++i) sums[i] += double{levels[2 * (x + i)]};
  }
  for (; x < count; ++x) sums[0] += double{levels[2 * x]};
  double total = 0.0;
  for (const double sum : sums) total += sum;
  return total;
}

template <typename Format, int kApart>
void Store(const float* levels, int32_t width, Rounding rounding, ptrdiff_t step, uint8_t* sample) {
  using Sample = typename Format::Sample;
  const float allowance = AllowanceOf(rounding);
  Sample converted[kPortion];
  for (int32_t first = 0; first < width; first += kPortion) {
    const int32_t count = std::min(kPortion, width - first);
    const float* const from = levels + kApart * first;
    for (int32_t x = 0; x < count; ++x) converted[x] = SampleOf<Format>(from[kApart * x], allowance);
    uint8_t* const begin = sample + first * step;
    WithStep<Sample>(step, [&](auto known) {
      for (int32_t x = 0; x < count; ++x) *reinterpret_cast<Sample*>(begin + x * known) = converted[x];
    });
  }
}

}  // namespace

PictureView PictureOf(const ImageView& image) {
  const KindTraits* const kind = FindPixelKind(image.bytesPerPixel);
  if (kind == nullptr || !kind->isPicture()) return {image.width, image.height, SampleFormat::kByte, 0, {}};
  PictureView picture{image.width,
                      image.height,
                      kind->sample == SampleType::kByte ? SampleFormat::kByte : SampleFormat::kHost16,
                      kind->channels,
                      {}};
  for (int32_t c = 0; c < kind->channels; ++c) {
    picture.channel[c] = {image.data + c * (kind->bytesPerPixel / kind->channels), kind->bytesPerPixel,
                          image.rowBytes};
  }
  return picture;
}

double LoadLevels(const PictureView& picture, int32_t channel, int32_t y, float* levels) {
  const ChannelView& from = picture.channel[channel];
  WithFormat(picture.format, [&](auto format) {
    Load<decltype(format), 2>(from.data + y * from.rowBytes, from.pixelBytes, picture.width, levels);
  });
  if (picture.light != nullptr) picture.light->DecodeRow(picture.width, levels);
  return SumOfEverySecond(levels, picture.width);
}

void StoreLevels(const PictureView& picture, int32_t channel, int32_t y, Rounding rounding,
                 const float* levels) {
  const ChannelView& to = picture.channel[channel];
  WithFormat(picture.format, [&](auto format) {
    Store<decltype(format), 2>(levels, picture.width, rounding, to.pixelBytes, to.data + y * to.rowBytes);
  });
}

void LoadPart(const PictureView& picture, const RowPart& part, float* levels) {
  const ChannelView& from = picture.channel[part.channel];
  const uint8_t* const begin = from.data + part.y * from.rowBytes + part.first * from.pixelBytes;
  WithFormat(picture.format,
             [&](auto format) { Load<decltype(format), 1>(begin, from.pixelBytes, part.count, levels); });
}

void StorePart(const PictureView& picture, const RowPart& part, Rounding rounding, const float* levels) {
  const ChannelView& to = picture.channel[part.channel];
  uint8_t* const begin = to.data + part.y * to.rowBytes + part.first * to.pixelBytes;
  WithFormat(picture.format, [&](auto format) {
    Store<decltype(format), 1>(levels, part.count, rounding, to.pixelBytes, begin);
  });
}

}  // namespace tessaline
