#include "tests/resources/art/kept_files.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

#define STB_IMAGE_IMPLEMENTATION
#define STBI_ONLY_BMP
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wshadow"
#pragma GCC diagnostic ignored "-Wunused-but-set-variable"
#include <stb/stb_image.h>
#pragma GCC diagnostic pop

namespace tessaline::art {

Bytes KeptFile(const std::string& name) {
  std::ifstream file(std::string(TESSALINE_ART "/") + name, std::ios::binary);
  EXPECT_TRUE(file) << name;
  return {std::istreambuf_iterator<char>(file), {}};
}

DecodedBitmap::DecodedBitmap(const Bytes& file) {
  constexpr int kRgb = 3;
  int channels = 0;
  uint8_t* const pixels =
      stbi_load_from_memory(file.data(), static_cast<int>(file.size()), &width, &height, &channels, kRgb);
  if (pixels != nullptr) {
    rgb.assign(pixels, pixels + size_t{kRgb} * width * height);
  } else {
    width = height = 0;
  }
  stbi_image_free(pixels);
}

Bytes DecodedBitmap::At(int x, int y) const {
  const uint8_t* pixel = rgb.data() + 3 * (static_cast<size_t>(y) * width + x);
  return {pixel, pixel + 3};
}

}  // namespace tessaline::art
