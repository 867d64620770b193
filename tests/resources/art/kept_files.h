// Files of resources/art, and bitmaps as another program reads them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "resources/art/picture_bytes.h"

namespace tessaline::art {

// The test fails when it cannot be read.
Bytes KeptFile(const std::string& name);

struct DecodedBitmap {
  int width = 0;  // 0 when it is no bitmap file
  int height = 0;
  Bytes rgb;

  explicit DecodedBitmap(const Bytes& file);
  Bytes At(int x, int y) const;
};

}  // namespace tessaline::art
