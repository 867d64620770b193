#include "restoration/sample_rows.h"

#include <algorithm>

#include "restoration/row_kernels.h"

namespace tessaline {

namespace {

// Where a pixel's three samples lie side by side, and which channel is which of them.
struct PackedPixels {
  uint8_t* first = nullptr;  // null: they do not
  int32_t place[kMostChannels] = {};

  explicit PackedPixels(const PictureView& picture) {
    const auto sample = static_cast<ptrdiff_t>(SampleBytes(picture.format));
    if (picture.channels != kMostChannels || picture.channel[0].pixelBytes != 3 * sample) return;
    const ChannelView* const lowest =
        std::min_element(picture.channel, picture.channel + kMostChannels,
                         [](const ChannelView& a, const ChannelView& b) { return a.data < b.data; });
    unsigned found = 0;
    for (int32_t c = 0; c < kMostChannels; ++c) {
      const ChannelView& channel = picture.channel[c];
      const ptrdiff_t offset = channel.data - lowest->data;
      if (channel.pixelBytes != lowest->pixelBytes || channel.rowBytes != lowest->rowBytes ||
          offset % sample != 0 || offset >= 3 * sample) {
        return;
      }
      place[c] = static_cast<int32_t>(offset / sample);
      found |= 1u << place[c];
    }
    if (found == 7) first = lowest->data;
  }
  uint8_t* At(const PictureView& picture, const PixelPart& part) const {
    return first + part.y * picture.channel[0].rowBytes + part.first * picture.channel[0].pixelBytes;
  }
};

}  // namespace

void LoadChannels(const PictureView& picture, const PixelPart& part, const LevelRows& levels) {
  const PackedPixels packed(picture);
  if (packed.first == nullptr) {
    for (int32_t c = 0; c < picture.channels; ++c) {
      LoadPart(picture, {c, part.y, part.first, part.count}, levels[c]);
    }
    return;
  }
  LevelRows byPlace;
  for (int32_t c = 0; c < kMostChannels; ++c) byPlace[packed.place[c]] = levels[c];
  ActiveRowKernels().separate[static_cast<int32_t>(picture.format)](part.count, packed.At(picture, part),
                                                                    byPlace);
}

void StoreChannels(const PictureView& picture, const PixelPart& part, const LevelRows& levels) {
  const PackedPixels packed(picture);
  if (packed.first == nullptr) {
    for (int32_t c = 0; c < picture.channels; ++c) {
      StorePart(picture, {c, part.y, part.first, part.count}, Rounding::kNearest, levels[c]);
    }
    return;
  }
  const float* byPlace[kMostChannels];
  for (int32_t c = 0; c < kMostChannels; ++c) byPlace[packed.place[c]] = levels[c];
  ActiveRowKernels().interleave[static_cast<int32_t>(picture.format)](part.count, byPlace,
                                                                      packed.At(picture, part));
}

}  // namespace tessaline
