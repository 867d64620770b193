#include "glue/host/host_access.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "image/result_codes.h"

namespace tessaline {

namespace {

int16_t To16Bits(int32_t coordinate) {
  return static_cast<int16_t>(std::clamp<int32_t>(coordinate, INT16_MIN, INT16_MAX));
}

host::Rect To16Bits(const host::VRect& r) {
  return {To16Bits(r.top), To16Bits(r.left), To16Bits(r.bottom), To16Bits(r.right)};
}

int32_t To32Bits(int64_t extent) {
  return static_cast<int32_t>(std::clamp<int64_t>(extent, INT32_MIN, INT32_MAX));
}

// For requests of one row, the step from row to row tells how long it is; downward or upward alike.
bool IsLongEnough(int32_t rowBytes, int64_t bytes) {
  return std::abs(int64_t{rowBytes}) >= bytes;
}

constexpr int32_t kLargestDocumentSide = 2000000;  // pixels, as the module's properties tell hosts
constexpr uint8_t kSelected = 128;                 // the least coverage of a pixel that counts

// Widens the box by one mask row.
void AddSelectedColumns(const uint8_t* mask, int32_t row, int32_t left, int32_t right, host::VRect* box) {
  const auto isSelected = [](uint8_t coverage) { return coverage >= kSelected; };
  const uint8_t* const end = mask + (int64_t{right} - left);
  const uint8_t* const first = std::find_if(mask, end, isSelected);
  if (first == end) return;
  const uint8_t* last = end - 1;
  while (!isSelected(*last)) --last;
  box->top = std::min(box->top, row);
  box->bottom = std::max(box->bottom, row + 1);
  box->left = std::min(box->left, static_cast<int32_t>(left + (first - mask)));
  box->right = std::max(box->right, static_cast<int32_t>(left + (last - mask) + 1));
}

}  // namespace

int32_t WidthOf(const host::VRect& rectangle) {
  return To32Bits(int64_t{rectangle.right} - rectangle.left);
}

int32_t HeightOf(const host::VRect& rectangle) {
  return To32Bits(int64_t{rectangle.bottom} - rectangle.top);
}

host::VRect FilterRectangle(const host::FilterRecord& record) {
  if (const host::BigDocumentStruct* const big = record.bigDocumentData) return big->filterRect32;
  const host::Rect r = record.filterRect;
  return {r.top, r.left, r.bottom, r.right};
}

void RequestInput(host::FilterRecord* record, const host::VRect& rectangle) {
  if (host::BigDocumentStruct* const big = record->bigDocumentData) {
    big->inRect32 = rectangle;
  } else {
    record->inRect = To16Bits(rectangle);
  }
}

void RequestOutput(host::FilterRecord* record, const host::VRect& rectangle) {
  if (host::BigDocumentStruct* const big = record->bigDocumentData) {
    big->outRect32 = rectangle;
  } else {
    record->outRect = To16Bits(rectangle);
  }
}

void RequestMask(host::FilterRecord* record, const host::VRect& rectangle) {
  if (host::BigDocumentStruct* const big = record->bigDocumentData) {
    big->maskRect32 = rectangle;
  } else {
    record->maskRect = To16Bits(rectangle);
  }
}

void RequestNothing(host::FilterRecord* record) {
  RequestInput(record, kEmptyRectangle);
  RequestOutput(record, kEmptyRectangle);
  RequestMask(record, kEmptyRectangle);
}

int32_t Advance(const host::FilterRecord& record) {
  const auto advanceState = record.advanceState;
  return advanceState != nullptr ? advanceState() : host::kHostIsInsufficient;
}

const uint8_t* InputRow(const host::FilterRecord& record, int64_t bytes) {
  return IsLongEnough(record.inRowBytes, bytes) ? static_cast<const uint8_t*>(record.inData) : nullptr;
}

uint8_t* OutputRow(const host::FilterRecord& record, int64_t bytes) {
  return IsLongEnough(record.outRowBytes, bytes) ? static_cast<uint8_t*>(record.outData) : nullptr;
}

const uint8_t* MaskRow(const host::FilterRecord& record, int64_t bytes) {
  return IsLongEnough(record.maskRowBytes, bytes) ? static_cast<const uint8_t*>(record.maskData) : nullptr;
}

host::VRect FindWorkRectangle(host::FilterRecord* record) {
  const host::VRect filter = FilterRectangle(*record);
  if (!record->haveMask) return filter;
  // Inverted, so that the first selected pixel sets all four sides. Where there is none it stays like this.
  host::VRect box = {filter.bottom, filter.right, filter.top, filter.left};
  if (filter.left >= filter.right) return box;
  // No document is as large. A rectangle that says so would have its mask asked for over hours, to be refused
  // then.
  if (WidthOf(filter) > kLargestDocumentSide || HeightOf(filter) > kLargestDocumentSide) return filter;
  RequestInput(record, kEmptyRectangle);
  for (int32_t row = filter.top; row < filter.bottom; ++row) {
    RequestMask(record, {row, filter.left, row + 1, filter.right});
    if (Advance(*record) != kSuccess) return filter;
    const uint8_t* const mask = MaskRow(*record, int64_t{filter.right} - filter.left);
    if (mask == nullptr) return filter;
    AddSelectedColumns(mask, row, filter.left, filter.right, &box);
  }
  return box;
}

bool SetErrorString(const host::FilterRecord& record, const char* text) {
  host::Str255* const message = record.errorString;
  if (message == nullptr) return false;
  const size_t length = std::min(std::strlen(text), sizeof message->text);
  message->length = static_cast<uint8_t>(length);
  std::memcpy(message->text, text, length);
  return true;
}

}  // namespace tessaline
