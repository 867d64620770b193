// The small pictures of the preview dialog.
#pragma once

#include <span>

#include "resources/art/picture_bytes.h"

namespace tessaline::art {

struct Icon {
  const char* fileName;
  Bytes (*draw)();  // the whole file
};

// Every picture that needs neither a font nor a sample.
std::span<const Icon> Icons();

}  // namespace tessaline::art
