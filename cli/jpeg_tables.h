// What a JPEG file says about how it was compressed, so that a cleaned one can be compressed alike.
#pragma once

#include <optional>

namespace tessaline::cli {

struct JpegCompression {
  int quality;       // 1..100: the setting of the common encoders whose tables come nearest
  int chromaAcross;  // pixels that share a colour sample; 2 and 2: 4:2:0, 2 and 1: 4:2:2
  int chromaDown;
  bool isProgressive;
};

// Reads the markers of the file behind `descriptor` (the position is left alone) up to the first scan.
// Nothing when it is not a JPEG file or has no quantisation table.
std::optional<JpegCompression> ReadJpegCompression(int descriptor);

}  // namespace tessaline::cli
