// Whether a PNM file holds all that its header promises.
#pragma once

#include <sys/types.h>

namespace tessaline::cli {

// The picture library fills up what a plain (P1 to P3) file lacks, down to a header of two letters, and a
// bitmap without pixels passes as well. Returns what is missing, for a message, or null when the file is
// whole. `size` is the file's, `descriptor` its own; its position stays where it is. More data than promised
// is none of its business.
const char* MissingFromPnm(int descriptor, off_t size);

}  // namespace tessaline::cli
