// Pixels between the host and the buffer table, a row at a time through the host's advance routine.
//
// The work rectangle is that of FindWorkRectangle (host_access.h), the layout that of LayoutOf
// (image_mode.h). A rectangle without pixels (empty or inverted) moves nothing and makes no buffers.
#pragma once

#include <cstdint>

#include "glue/host/host_records.h"
#include "glue/host/image_mode.h"

namespace tessaline {

// What the last fetch saw. Program-wide.
struct FetchFlags {
  bool extraPlanesFetched;
  bool selectionPartial;  // some pixel of the work rectangle is less than fully selected
};
extern FetchFlags fetchFlags;

// Makes and fills the buffers of the run, and keeps their slots in imageInfo (0 where there is none):
//   "main"       the colour planes, 8- and 16-bit samples as the host has them, floats x 255, CMYK converted
//   to
//                three samples that fill the front of each row; zeros in a mode that the fetch cannot read;
//   "selection"  the mask, where the host has one (all selected in rows that it cannot deliver);
//   "alpha"      the extra planes, where there are any, floats x 255.
//
// Returns 0; or, with the buffers released and all slots 0, kOutOfMemory, a host's code, or
// kHostIsInsufficient when the host answers 0 and delivers no row.
int32_t FetchImage(host::FilterRecord* record, const host::VRect& workRectangle, const PixelLayout& layout);

// Writes "main", converted for the host, and "alpha" into the host's output, and releases the buffers. "main"
// is three samples a pixel for CMYK, as fetched.
//
// Returns 0; or, when the host fails or delivers no row, its code or kHostIsInsufficient, with some rows
// already in the host's hands (it drops them on a non-zero result). A failure of the last advance, which only
// has the host store what it was given, is told to the user and 0 returned.
int32_t CopyBack(host::FilterRecord* record, const host::VRect& workRectangle, const PixelLayout& layout);

// Lets the host finish without any output, and releases the buffers. Returns 0; a failure is told to the
// user.
int32_t DontCopyBack(host::FilterRecord* record);

// Releases the three buffers, as the three above do, and sets their slots to 0.
void ReleaseImageBuffers();

}  // namespace tessaline
