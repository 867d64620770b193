// A caller's picture record as the views that the steps take.
#pragma once

#include <cstddef>
#include <cstdint>

#include "include/tessaline/tessaline.h"
#include "removal/picture.h"

namespace tessaline {

// Where one picture is: what the record leaves to be derived is filled in.
struct CallerPicture {
  PictureView cleaned;  // the first three channels at most
  ChannelView alpha;    // the fourth; data null: there is none
  int32_t sampleBytes = 0;
};

// Throws CallFault (call_fault.h); `name` is the record's, for the message.
CallerPicture ViewCallerPicture(const TessalinePicture* record, const char* name);

// Throws CallFault unless both have one width, height, format and number of channels.
void DemandSameShape(const CallerPicture& from, const CallerPicture& to);

bool IsSameMemory(const CallerPicture& a, const CallerPicture& b);

// Float samples that would spread over the whole result, or go beyond what floats hold on the way. Throws
// CallFault.
void DemandUsableSamples(const CallerPicture& picture);

enum class CopiedChannels { kAll, kAlpha };
void CopySamples(const CallerPicture& from, const CallerPicture& to, CopiedChannels channels);

}  // namespace tessaline
