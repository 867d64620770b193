#include "glue/host/image_transfer.h"

#include <algorithm>
#include <cstring>

#include "buffers/buffer_table.h"
#include "glue/host/host_access.h"
#include "glue/parameters/settings_record.h"
#include "image/result_codes.h"
#include "platform/message.h"

namespace tessaline {

FetchFlags fetchFlags;

namespace {

constexpr float kFetchScale = 255.0f;           // floats are 0..1 at the host, 0..255 here
constexpr float kCopyBackScale = 0.003921569f;  // 1 / 255
constexpr uint8_t kFullySelected = 255;

// `bytes` bytes of each of `pixels` pixels, from rows of one step (in bytes) from pixel to pixel to rows of
// another.
template <size_t Bytes>
void MovePixels(const uint8_t* from, size_t fromStep, uint8_t* to, size_t toStep, int32_t pixels) {
  for (int32_t x = 0; x < pixels; ++x, from += fromStep, to += toStep) std::memcpy(to, from, Bytes);
}

void MovePixels(const uint8_t* from, size_t fromStep, uint8_t* to, size_t toStep, size_t bytes,
                int32_t pixels) {
  switch (bytes) {  // a copy of known size is a move or two
    case 1:
      return MovePixels<1>(from, fromStep, to, toStep, pixels);
    case 2:
      return MovePixels<2>(from, fromStep, to, toStep, pixels);
    case 3:
      return MovePixels<3>(from, fromStep, to, toStep, pixels);
    case 6:
      return MovePixels<6>(from, fromStep, to, toStep, pixels);
    default:
      for (int32_t x = 0; x < pixels; ++x, from += fromStep, to += toStep) std::memcpy(to, from, bytes);
  }
}

void ScaleFloats(const uint8_t* from, size_t fromStep, uint8_t* to, size_t toStep, int32_t samples,
                 int32_t pixels, float scale) {
  for (int32_t x = 0; x < pixels; ++x, from += fromStep, to += toStep) {
    for (int32_t s = 0; s < samples; ++s) {
      float sample;
      std::memcpy(&sample, from + s * sizeof sample, sizeof sample);
      sample *= scale;
      std::memcpy(to + s * sizeof sample, &sample, sizeof sample);
    }
  }
}

// The first `samples` samples of each pixel, from rows of one step from pixel to pixel to rows of another.
// Steps are in samples; neither row need be aligned. Floats (4 bytes) are scaled.
void MoveSamples(int32_t sampleBytes, const uint8_t* from, int32_t fromStep, uint8_t* to, int32_t toStep,
                 int32_t samples, int32_t pixels, float floatScale) {
  const auto width = static_cast<size_t>(sampleBytes);
  const size_t bytes = samples * width;
  if (sampleBytes == 4) {
    ScaleFloats(from, fromStep * width, to, toStep * width, samples, pixels, floatScale);
  } else if (fromStep == samples && toStep == samples) {
    std::memcpy(to, from, static_cast<size_t>(pixels) * bytes);
  } else {
    MovePixels(from, fromStep * width, to, toStep * width, bytes, pixels);
  }
}

// The colour planes of a host row as a row of "main", which is zero before.
void FetchColors(const PixelLayout& layout, const uint8_t* hostRow, int32_t pixels, uint8_t* mainRow) {
  if (layout.mode == nullptr || layout.mode->fetchedSamples == 0) return;
  MoveSamples(layout.channelBytes, hostRow, layout.colorPlanes + layout.extraPlanes, mainRow,
              layout.colorPlanes, layout.mode->fetchedSamples, pixels, kFetchScale);
  if (layout.mode->fetch == nullptr) return;
  layout.mode->fetch(mainRow, pixels);
  // The conversions make three samples of four.
  const int64_t rowBytes = int64_t{pixels} * layout.MainPixelBytes();
  std::fill(mainRow + rowBytes / 4 * 3, mainRow + rowBytes, uint8_t{0});
}

void FetchExtraPlanes(const PixelLayout& layout, const uint8_t* hostRow, int32_t pixels, uint8_t* alphaRow) {
  MoveSamples(layout.channelBytes, hostRow + layout.MainPixelBytes(), layout.colorPlanes + layout.extraPlanes,
              alphaRow, layout.extraPlanes, layout.extraPlanes, pixels, kFetchScale);
}

// The AND of all bytes, so 255 only when all are.
uint8_t AndOf(const uint8_t* bytes, int32_t count) {
  uint8_t all = 255;
  for (int32_t i = 0; i < count; ++i) all &= bytes[i];
  return all;
}

void RequestAllPlanes(host::FilterRecord* record) {
  const auto lastPlane = static_cast<int16_t>(record->planes - 1);
  record->inLoPlane = 0;
  record->inHiPlane = lastPlane;
  record->outLoPlane = 0;
  record->outHiPlane = lastPlane;
}

int32_t CreateImageBuffers(const host::FilterRecord& record, int32_t width, int32_t height,
                           const PixelLayout& layout) {
  int32_t result = CreateBuffer("main", width, height, layout.MainPixelBytes(), &imageInfo.mainBuffer);
  if (result == kSuccess && record.haveMask) {
    result = CreateBuffer("selection", width, height, 1, &imageInfo.maskBuffer);
  }
  if (result == kSuccess && layout.extraPlanes > 0) {
    result = CreateBuffer("alpha", width, height, layout.ExtraPixelBytes(), &imageInfo.alphaBuffer);
  }
  return result;
}

// One requested row from the host's memory into the buffers. *andOfMask takes the mask's bytes in.
int32_t FetchDeliveredRow(const host::FilterRecord& record, int32_t row, int32_t width,
                          const PixelLayout& layout, uint8_t* andOfMask) {
  const uint8_t* const hostRow = InputRow(record, int64_t{width} * layout.HostPixelBytes());
  if (hostRow == nullptr) return host::kHostIsInsufficient;
  FetchColors(layout, hostRow, width, BufferRow(imageInfo.mainBuffer, row));
  if (uint8_t* const selection = BufferRow(imageInfo.maskBuffer, row)) {
    if (const uint8_t* const mask = MaskRow(record, width)) {
      std::memcpy(selection, mask, static_cast<size_t>(width));
    } else {
      std::memset(selection, kFullySelected, static_cast<size_t>(width));
    }
    *andOfMask &= AndOf(selection, width);
  }
  if (uint8_t* const alpha = BufferRow(imageInfo.alphaBuffer, row)) {
    FetchExtraPlanes(layout, hostRow, width, alpha);
    fetchFlags.extraPlanesFetched = true;
  }
  return kSuccess;
}

int32_t FetchRows(host::FilterRecord* record, const host::VRect& area, const PixelLayout& layout) {
  uint8_t andOfMask = kFullySelected;
  for (int32_t y = area.top; y < area.bottom; ++y) {
    const host::VRect line = {y, area.left, y + 1, area.right};
    RequestInput(record, line);
    if (imageInfo.maskBuffer != 0) RequestMask(record, line);
    int32_t result = Advance(*record);
    if (result == kSuccess) {
      result = FetchDeliveredRow(*record, y - area.top, WidthOf(area), layout, &andOfMask);
    }
    if (result != kSuccess) return result;
  }
  fetchFlags.selectionPartial = andOfMask != kFullySelected;
  return kSuccess;
}

// A row of "main" and "alpha" as the host wants it. "main" is converted where it lies: nobody reads it again,
// and a row of memory that cannot be had would end the run when some rows are the host's already.
void StoreRow(const PixelLayout& layout, int32_t row, int32_t pixels, uint8_t* hostRow) {
  const int32_t hostStep = layout.colorPlanes + layout.extraPlanes;
  uint8_t* const colors = BufferRow(imageInfo.mainBuffer, row);
  if (layout.mode->copyBack != nullptr) layout.mode->copyBack(colors, pixels);
  MoveSamples(layout.channelBytes, colors, layout.colorPlanes, hostRow, hostStep, layout.colorPlanes, pixels,
              kCopyBackScale);
  if (const uint8_t* const extra = BufferRow(imageInfo.alphaBuffer, row)) {
    MoveSamples(layout.channelBytes, extra, layout.extraPlanes, hostRow + layout.MainPixelBytes(), hostStep,
                layout.extraPlanes, pixels, kCopyBackScale);
  }
}

// The last advance of a run, which has the host store what is pending. Its failure is only told.
void AdvanceToTheEnd(const host::FilterRecord& record, const char* title) {
  if (Advance(record) != kSuccess) ShowMessage("got some kind of error from the end", title);
}

int32_t CopyBackRows(host::FilterRecord* record, const host::VRect& area, const PixelLayout& layout) {
  const int32_t width = WidthOf(area);
  const int64_t hostRowBytes = int64_t{width} * layout.HostPixelBytes();
  RequestAllPlanes(record);
  for (int32_t y = area.top; y < area.bottom; ++y) {
    const host::VRect line = {y, area.left, y + 1, area.right};
    RequestInput(record, line);
    RequestOutput(record, line);
    RequestMask(record, line);
    const int32_t result = Advance(*record);
    if (result != kSuccess) return result;
    uint8_t* const hostRow = OutputRow(*record, hostRowBytes);
    if (hostRow == nullptr) return host::kHostIsInsufficient;
    StoreRow(layout, y - area.top, width, hostRow);
  }
  // Before the last advance the rectangles go: a host would hand the last row out once more, in some hosts
  // with the source's pixels in it, and store those over the result when it next advances by itself.
  RequestNothing(record);
  AdvanceToTheEnd(*record, "_CopyBack() AdvanceState() Error");
  return kSuccess;
}

}  // namespace

int32_t FetchImage(host::FilterRecord* record, const host::VRect& workRectangle, const PixelLayout& layout) {
  fetchFlags = {};
  if (!HasPixels(workRectangle)) return kSuccess;
  if (!layout.IsTransferable()) return kUnknownPixelKind;
  int32_t result = CreateImageBuffers(*record, WidthOf(workRectangle), HeightOf(workRectangle), layout);
  RequestAllPlanes(record);
  if (result == kSuccess) result = FetchRows(record, workRectangle, layout);
  if (result != kSuccess) ReleaseImageBuffers();
  return result;
}

int32_t CopyBack(host::FilterRecord* record, const host::VRect& workRectangle, const PixelLayout& layout) {
  if (imageInfo.mainBuffer == 0) return DontCopyBack(record);
  const int32_t result = CopyBackRows(record, workRectangle, layout);
  ReleaseImageBuffers();
  return result;
}

int32_t DontCopyBack(host::FilterRecord* record) {
  RequestNothing(record);
  AdvanceToTheEnd(*record, "_DontCopyBack() AdvanceState() Error");
  ReleaseImageBuffers();
  return kSuccess;
}

void ReleaseImageBuffers() {
  for (int32_t* const slot : {&imageInfo.mainBuffer, &imageInfo.maskBuffer, &imageInfo.alphaBuffer}) {
    ReleaseBuffer(*slot);
    *slot = 0;
  }
}

}  // namespace tessaline
