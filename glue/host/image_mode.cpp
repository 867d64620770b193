#include "glue/host/image_mode.h"

#include <iterator>

#include "glue/host/color_rows.h"
#include "image/pixel_kind.h"

namespace tessaline {

namespace {

// A conversion for samples of one width as one for rows of any.
template <typename Sample, void (*Convert)(Sample*, int32_t)>
void InPlace(void* row, int32_t pixels) {
  Convert(static_cast<Sample*>(row), pixels);
}
constexpr RowConversion kFromCmyk8 = InPlace<uint8_t, FetchCmykRow8>;
constexpr RowConversion kToCmyk8 = InPlace<uint8_t, CopyBackCmykRow8>;
constexpr RowConversion kFromCmyk16 = InPlace<uint16_t, FetchCmykRow16>;
constexpr RowConversion kToCmyk16 = InPlace<uint16_t, CopyBackCmykRow16>;
constexpr RowConversion kToLab8 = InPlace<uint8_t, CopyBackLabRow8>;
constexpr RowConversion kToLab16 = InPlace<uint16_t, CopyBackLabRow16>;

// The Lab rows have a conversion on the way out only, deliberately. Their fetch routines' place is after the
// samples were copied, on the host's own input row, where their result reaches nobody: the run sees the
// samples as the host has them. Results depend on this order, so do not put FetchLabRow8 or FetchLabRow16
// into the fetch column; and as an input row is the host's memory, they are not run over it for nothing
// either.
constexpr ImageMode kImageModes[] = {
    {1, 1, 0, nullptr, nullptr},            // 0 bitmap
    {1, 8, 1, nullptr, nullptr},            // 1 greyscale
    {1, 8, 0, nullptr, nullptr},            // 2 indexed
    {3, 8, 3, nullptr, nullptr},            // 3 RGB
    {4, 8, 4, kFromCmyk8, kToCmyk8},        // 4 CMYK
    {3, 8, 0, nullptr, nullptr},            // 5 HSL
    {3, 8, 0, nullptr, nullptr},            // 6 HSB
    {kAllPlanes, 8, 0, nullptr, nullptr},   // 7 multichannel
    {kAllPlanes, 8, 0, nullptr, nullptr},   // 8 duotone
    {3, 8, 3, nullptr, kToLab8},            // 9 Lab
    {1, 16, 1, nullptr, nullptr},           // 10 gray 16
    {3, 16, 3, nullptr, nullptr},           // 11 RGB 48
    {3, 16, 3, nullptr, kToLab16},          // 12 Lab 48
    {4, 16, 4, kFromCmyk16, kToCmyk16},     // 13 CMYK 64
    {kAllPlanes, 16, 0, nullptr, nullptr},  // 14 deep multichannel
    {kAllPlanes, 16, 0, nullptr, nullptr},  // 15 duotone 16
    {3, 32, 3, nullptr, nullptr},           // 16 RGB 96
    {1, 32, 1, nullptr, nullptr},           // 17 gray 32
};

}  // namespace

const ImageMode* FindImageMode(int32_t modeNumber, int32_t depth) {
  if (modeNumber == host::kModeGray && depth == 32) modeNumber = host::kModeGray32;
  if (modeNumber < 0 || modeNumber >= static_cast<int32_t>(std::size(kImageModes))) return nullptr;
  return &kImageModes[modeNumber];
}

PixelLayout LayoutOf(const host::FilterRecord& record) {
  const int32_t planes = record.planes;
  const ImageMode* const mode = FindImageMode(record.imageMode, record.depth);
  if (mode == nullptr) return {nullptr, 0, planes, 0};
  const int32_t colorPlanes = mode->colorPlanes == kAllPlanes ? planes : mode->colorPlanes;
  return {mode, colorPlanes, planes - colorPlanes, mode->bits / 8};
}

Treatment TreatmentOf(const PixelLayout& layout) {
  if (layout.channelBytes != 1 && layout.channelBytes != 2) return Treatment::kPassThrough;
  const bool isRead = layout.IsTransferable() && layout.mode->fetchedSamples > 0;
  return isRead && IsPictureKind(layout.MainPixelBytes()) ? Treatment::kClean : Treatment::kRefuse;
}

}  // namespace tessaline
