// Pictures to files.
#pragma once

#include <string>

#include "samples/drawing.h"

namespace tessaline::samples {

// Writes an 8-bit PNG that says it was scanned with `dotsPerInch`. Samples are rounded; the same picture
// gives the same file. Throws std::runtime_error, with the file's name, when it cannot be written.
void WritePng(const std::string& path, const Picture& picture, double dotsPerInch);

}  // namespace tessaline::samples
