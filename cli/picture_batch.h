// Several pictures, each in a process of its own.
#pragma once

#include "cli/options.h"
#include "cli/refusal.h"

namespace tessaline::cli {

// Cleans all pictures, `command.jobs` at a time, tells about them in their order, and writes the report of
// all. kDone, or kSomeFailed when any was refused. Refuses as a whole only what concerns the report. Must be
// called before the picture library is started: it forks, and the engine's and the library's state are one
// per process.
ExitStatus CleanPictures(const PictureCommand& command);

}  // namespace tessaline::cli
