// Raw frames, one after the other, from a file or pipe to a file or pipe.
#pragma once

#include <string>
#include <vector>

#include "cli/options.h"
#include "cli/progress_bar.h"

namespace tessaline::cli {

// Cleans the frames firstFrame..lastFrame and writes them one by one, each as soon as it is done; others are
// read and dropped. Frames that decide together (StreamCommand::isFrozen) wait for their decision: at most 8,
// and at most 256 MiB of them. Returns lines for the user.
//
// A last frame that is cut short is not processed: what is missing is not invented. It is refused
// (kUnreadable) after the whole frames before it were written, and these stay, as they do when memory runs
// out on the way. An output file of no whole frame does not appear.
std::vector<std::string> CleanStream(const StreamCommand& command, ProgressBar* progress);

}  // namespace tessaline::cli
