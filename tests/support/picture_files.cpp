#include "tests/support/picture_files.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#define STB_IMAGE_IMPLEMENTATION
#define STBI_ONLY_PNG
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wshadow"
#pragma GCC diagnostic ignored "-Wunused-but-set-variable"
#include <stb/stb_image.h>
#pragma GCC diagnostic pop

namespace tessaline {

Picture ReadPicture(const std::string& name) {
  const std::string path = std::string(TESSALINE_TEST_DATA) + "/" + name;
  Picture picture;
  picture.bits = stbi_is_16_bit(path.c_str()) ? 16 : 8;
  if (picture.bits == 16) {
    uint16_t* const samples =
        stbi_load_16(path.c_str(), &picture.width, &picture.height, &picture.channels, 0);
    if (samples != nullptr)
      picture.samples.assign(samples, samples + picture.width * picture.height * picture.channels);
    stbi_image_free(samples);
  } else {
    uint8_t* const samples = stbi_load(path.c_str(), &picture.width, &picture.height, &picture.channels, 0);
    if (samples != nullptr)
      picture.samples.assign(samples, samples + picture.width * picture.height * picture.channels);
    stbi_image_free(samples);
  }
  EXPECT_FALSE(picture.samples.empty()) << path << " cannot be read";
  return picture;
}

Image ImageOf(const Picture& picture) {
  Image image;
  EXPECT_TRUE(image.Create(picture.width, picture.height, picture.channels * picture.bits / 8));
  for (size_t i = 0; i < picture.samples.size(); ++i) {
    if (picture.bits == 8) {
      image.view().data[i] = static_cast<uint8_t>(picture.samples[i]);
    } else {
      image.view().Row<uint16_t>(0)[i] = picture.samples[i];
    }
  }
  return image;
}

Picture SamplesOf(const ConstImageView& image) {
  Picture picture;
  picture.width = image.width;
  picture.height = image.height;
  picture.bits = image.bytesPerPixel == 2 || image.bytesPerPixel == 6 ? 16 : 8;
  picture.channels = image.bytesPerPixel / (picture.bits / 8);
  for (int y = 0; y < picture.height; ++y) {
    for (int i = 0; i < picture.width * picture.channels; ++i) {
      picture.samples.push_back(picture.bits == 8 ? image.Row(y)[i] : image.Row<uint16_t>(y)[i]);
    }
  }
  return picture;
}

int LargestDifference(const Picture& a, const Picture& b) {
  if (a.width != b.width || a.height != b.height || a.channels != b.channels || a.samples.empty())
    return 65536;
  int largest = 0;
  for (size_t i = 0; i < a.samples.size(); ++i) {
    largest = std::max(largest, std::abs(int{a.samples[i]} - int{b.samples[i]}));
  }
  return largest;
}

}  // namespace tessaline
