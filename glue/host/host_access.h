// The host's record in one form, whichever of its two kinds of rectangle is in use: 32-bit when the host
// offers big-document data (PluginMain has then told it so), else 16-bit. The other kind is neither read nor
// written.
#pragma once

#include <cstdint>

#include "glue/host/host_records.h"

namespace tessaline {

constexpr host::VRect kEmptyRectangle = {0, 0, 0, 0};

// Not positive for an empty or inverted rectangle; cut to 32 bits for a nonsensical one.
int32_t WidthOf(const host::VRect& rectangle);
int32_t HeightOf(const host::VRect& rectangle);
inline bool HasPixels(const host::VRect& rectangle) {
  return rectangle.left < rectangle.right && rectangle.top < rectangle.bottom;
}

host::VRect FilterRectangle(const host::FilterRecord& record);

// What the next advance delivers. 32-bit coordinates beyond the 16-bit form are cut to it.
void RequestInput(host::FilterRecord* record, const host::VRect& rectangle);
void RequestOutput(host::FilterRecord* record, const host::VRect& rectangle);
void RequestMask(host::FilterRecord* record, const host::VRect& rectangle);
void RequestNothing(host::FilterRecord* record);  // all three empty, which also ends the host's continue loop

// Lets the host store the pending output and deliver what was requested; the data pointers of the record are
// valid until the next advance. The host's code; kHostIsInsufficient without the routine.
int32_t Advance(const host::FilterRecord& record);

// The start of a delivered row, or null when the host delivered none or one of fewer than `bytes` bytes.
const uint8_t* InputRow(const host::FilterRecord& record, int64_t bytes);
uint8_t* OutputRow(const host::FilterRecord& record, int64_t bytes);
const uint8_t* MaskRow(const host::FilterRecord& record, int64_t bytes);

// The area to work on: the filter rectangle, or with a selection the bounding box of its pixels of coverage
// 128 and more, which is found by asking for every row of the mask. A selection without such a pixel gives
// the inverted filter rectangle (top = its bottom, left = its right, ...), whose width and height are not
// positive. Where the host cannot deliver the mask, and for more than 2,000,000 pixels a side, it is the
// filter rectangle again.
host::VRect FindWorkRectangle(host::FilterRecord* record);

// Puts the message for the user into the host's place for one, for the code kReportString. False where the
// host has none.
bool SetErrorString(const host::FilterRecord& record, const char* text);

}  // namespace tessaline
