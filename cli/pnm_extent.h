// What the header of a PNM file promises, and whether the file holds it.
#pragma once

#include <sys/types.h>

#include <cstdint>

namespace tessaline::cli {

// The picture library fills up what a plain (P1 to P3) file lacks, down to a header of two letters, and a
// bitmap without pixels passes as well. Returns what is missing, for a message, or null when the file is
// whole. `size` is the file's, `descriptor` its own; its position stays where it is. More data than promised
// is none of its business.
const char* MissingFromPnm(int descriptor, off_t size);

// The level that stands for white in the file's samples, 1..65535 where its header is whole; 0: a bitmap,
// whose samples the library gives as 0 and 255.
uint32_t LargestPnmLevel(int descriptor);

}  // namespace tessaline::cli
