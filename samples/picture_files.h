// Pictures to files.
#pragma once

#include <string>

#include "samples/drawing.h"

namespace tessaline::samples {

// Writes an 8-bit PNG that says it was scanned with `dotsPerInch`. Samples are rounded; the same picture
// gives the same file. Throws std::runtime_error, with the file's name, when it cannot be written.
void WritePng(const std::string& path, const Picture& picture, double dotsPerInch);

// The picture after it was stored as a JPEG of that quality, with halved colour below 90. Throws likewise.
Picture ThroughJpeg(const Picture& picture, int quality);

}  // namespace tessaline::samples
