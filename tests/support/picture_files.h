// PNG files as samples, for tests that compare pictures.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "image/image_view.h"

namespace tessaline {

struct Picture {
  int width = 0;
  int height = 0;
  int channels = 0;
  int bits = 0;
  std::vector<uint16_t> samples;  // interleaved, row by row, levels as they stand in the file

  uint16_t At(int x, int y, int channel = 0) const {
    return samples[(static_cast<size_t>(y) * width + x) * channels + channel];
  }
};

// A file of tests/data; the test fails when it cannot be read.
Picture ReadPicture(const std::string& name);

// The picture as an image of its own kind, and back.
Image ImageOf(const Picture& picture);
Picture SamplesOf(const ConstImageView& image);

// The largest difference between two samples at the same place; 65536 when the shapes differ.
int LargestDifference(const Picture& a, const Picture& b);

}  // namespace tessaline
