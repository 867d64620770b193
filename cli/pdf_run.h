// A PDF document from its file to its clean file: its pictures are cleaned in their places.
#pragma once

#include "cli/input_file.h"
#include "cli/picture_run.h"

namespace tessaline::cli {

// As CleanPicture. Where one of the pictures cannot be read the whole document is refused.
PictureOutcome CleanPdf(const PictureRequest& request, const InputFile& input, ProgressBar* progress);

}  // namespace tessaline::cli
