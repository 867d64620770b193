#include "interface/picture_record.h"

#include <cmath>
#include <cstring>
#include <string>

#include "interface/call_fault.h"
#include "tiling/any_size.h"

namespace tessaline {
namespace {

struct FormatRow {
  int32_t format;
  SampleFormat sample;
  int32_t bytes;
};
constexpr FormatRow kFormats[] = {
    {TESSALINE_UINT8, SampleFormat::kByte, 1},
    {TESSALINE_UINT16, SampleFormat::kFull16, 2},
    {TESSALINE_UINT16_EDITOR, SampleFormat::kHost16, 2},
    {TESSALINE_FLOAT32, SampleFormat::kFloat, 4},
};

constexpr ptrdiff_t kLargestStride = ptrdiff_t{1} << 40;  // bytes; times a million it is still no overflow
constexpr float kLargestFloat = 1e6f;                     // squared magnitudes of any sum stay finite

static_assert(TESSALINE_LARGEST_SIDE == kLargestTiledSide);

[[noreturn]] void Refuse(const char* name, const std::string& text) {
  throw CallFault{TESSALINE_ERROR_PICTURE, std::string(name) + ": " + text};
}

const FormatRow& FormatOf(const TessalinePicture& record, const char* name) {
  for (const FormatRow& row : kFormats) {
    if (row.format == record.format) return row;
  }
  Refuse(name, "format " + std::to_string(record.format) + " is none; take TESSALINE_UINT8, ..._FLOAT32");
}

// Whether no two pixels of `pixelBytes` overlap where `outer` steps go `outerStride` apart, with `inner`
// steps inside each.
bool IsNested(int32_t inner, ptrdiff_t innerStride, int32_t outer, ptrdiff_t outerStride,
              ptrdiff_t pixelBytes) {
  if (inner > 1 && innerStride < pixelBytes) return false;
  return outer == 1 || outerStride >= (inner - 1) * innerStride + pixelBytes;
}

void CheckStride(ptrdiff_t stride, int32_t sampleBytes, const char* name, const char* member) {
  if (stride % sampleBytes == 0 && stride >= -kLargestStride && stride <= kLargestStride) return;
  Refuse(name, std::string(member) + " " + std::to_string(stride) +
                   " is no possible number of bytes: it has to be a multiple of the sample's " +
                   std::to_string(sampleBytes));
}

float FloatAt(const ChannelView& channel, int32_t x, int32_t y) {
  float value;
  std::memcpy(&value, channel.data + y * channel.rowBytes + x * channel.pixelBytes, sizeof value);
  return value;
}

void CopyChannel(const ChannelView& from, const ChannelView& to, const CallerPicture& shape) {
  for (int32_t y = 0; y < shape.cleaned.height; ++y) {
    const uint8_t* source = from.data + y * from.rowBytes;
    uint8_t* target = to.data + y * to.rowBytes;
    for (int32_t x = 0; x < shape.cleaned.width; ++x) {
      std::memcpy(target + x * to.pixelBytes, source + x * from.pixelBytes,
                  static_cast<size_t>(shape.sampleBytes));
    }
  }
}

bool IsSameChannel(const ChannelView& a, const ChannelView& b) {
  return a.data == b.data && a.pixelBytes == b.pixelBytes && a.rowBytes == b.rowBytes;
}

}  // namespace

CallerPicture ViewCallerPicture(const TessalinePicture* record, const char* name) {
  if (record == nullptr) {
    throw CallFault{TESSALINE_ERROR_ARGUMENT, std::string(name) + ": no picture was given"};
  }
  const TessalinePicture& given = *record;
  if (given.width < 1 || given.height < 1 || given.width > kLargestTiledSide ||
      given.height > kLargestTiledSide) {
    Refuse(name, std::to_string(given.width) + " x " + std::to_string(given.height) +
                     " pixels; both sides have to be 1 to " + std::to_string(kLargestTiledSide));
  }
  if (given.channels < 1 || given.channels > 4) {
    Refuse(name, std::to_string(given.channels) + " channels; 1 to 4 are possible");
  }
  const FormatRow& format = FormatOf(given, name);
  const bool hasPlanes = given.planes[0] != nullptr;
  const ptrdiff_t pixelBytes = ptrdiff_t{format.bytes} * (hasPlanes ? 1 : given.channels);
  CheckStride(given.pixelStride, format.bytes, name, "pixelStride");
  CheckStride(given.rowStride, format.bytes, name, "rowStride");
  const ptrdiff_t pixelStride = given.pixelStride != 0 ? given.pixelStride : pixelBytes;
  const ptrdiff_t rowStride = given.rowStride != 0 ? given.rowStride : given.width * std::abs(pixelStride);
  if (!IsNested(given.width, std::abs(pixelStride), given.height, std::abs(rowStride), pixelBytes) &&
      !IsNested(given.height, std::abs(rowStride), given.width, std::abs(pixelStride), pixelBytes)) {
    Refuse(name, "with a pixelStride of " + std::to_string(pixelStride) + " and a rowStride of " +
                     std::to_string(rowStride) + " pixels overlap; strides are in bytes");
  }

  CallerPicture picture;
  picture.sampleBytes = format.bytes;
  picture.cleaned.width = given.width;
  picture.cleaned.height = given.height;
  picture.cleaned.format = format.sample;
  picture.cleaned.channels = given.channels < kMostChannels ? given.channels : kMostChannels;
  for (int32_t c = 0; c < given.channels; ++c) {
    auto* const data = static_cast<uint8_t*>(hasPlanes ? given.planes[c] : given.pixels);
    if (data == nullptr) Refuse(name, "channel " + std::to_string(c) + " has no memory");
    if (reinterpret_cast<uintptr_t>(data) % static_cast<uintptr_t>(format.bytes) != 0) {
      Refuse(name, "samples have to lie at multiples of their " + std::to_string(format.bytes) + " bytes");
    }
    ChannelView& channel = c < kMostChannels ? picture.cleaned.channel[c] : picture.alpha;
    channel = {hasPlanes ? data : data + c * format.bytes, pixelStride, rowStride};
  }
  return picture;
}

void DemandSameShape(const CallerPicture& from, const CallerPicture& to) {
  const PictureView& a = from.cleaned;
  const PictureView& b = to.cleaned;
  if (a.width == b.width && a.height == b.height && a.format == b.format && a.channels == b.channels &&
      (from.alpha.data == nullptr) == (to.alpha.data == nullptr)) {
    return;
  }
  Refuse("to", "has another width, height, format or number of channels than `from`");
}

bool IsSameMemory(const CallerPicture& a, const CallerPicture& b) {
  for (int32_t c = 0; c < a.cleaned.channels; ++c) {
    if (!IsSameChannel(a.cleaned.channel[c], b.cleaned.channel[c])) return false;
  }
  return IsSameChannel(a.alpha, b.alpha);
}

void DemandUsableSamples(const CallerPicture& picture) {
  const PictureView& view = picture.cleaned;
  if (view.format != SampleFormat::kFloat) return;
  for (int32_t c = 0; c < view.channels; ++c) {
    for (int32_t y = 0; y < view.height; ++y) {
      for (int32_t x = 0; x < view.width; ++x) {
        if (std::fabs(FloatAt(view.channel[c], x, y)) <= kLargestFloat) continue;  // false for not-a-number
        throw CallFault{TESSALINE_ERROR_SAMPLES,
                        "the sample at x " + std::to_string(x) + ", y " + std::to_string(y) + " of channel " +
                            std::to_string(c) + " is no number, infinite or beyond 1e6; replace it first"};
      }
    }
  }
}

void CopySamples(const CallerPicture& from, const CallerPicture& to, CopiedChannels channels) {
  if (channels == CopiedChannels::kAll) {
    for (int32_t c = 0; c < from.cleaned.channels; ++c) {
      CopyChannel(from.cleaned.channel[c], to.cleaned.channel[c], from);
    }
  }
  if (from.alpha.data != nullptr) CopyChannel(from.alpha, to.alpha, from);
}

}  // namespace tessaline
