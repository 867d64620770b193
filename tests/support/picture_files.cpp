#include "tests/support/picture_files.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "buffers/buffer_table.h"

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

int32_t MakeBuffer(const Picture& picture) {
  int32_t slot = 0;
  const int32_t sampleBytes = picture.bits / 8;
  EXPECT_EQ(0, CreateBuffer("picture", picture.width, picture.height, picture.channels * sampleBytes, &slot));
  const size_t rowSamples = static_cast<size_t>(picture.width) * picture.channels;
  for (int y = 0; y < picture.height; ++y) {
    uint8_t* const row = BufferRow(slot, y);
    const uint16_t* const samples = picture.samples.data() + y * rowSamples;
    if (sampleBytes == 1) {
      std::copy(samples, samples + rowSamples, row);
    } else {
      std::copy(samples, samples + rowSamples, reinterpret_cast<uint16_t*>(row));
    }
  }
  return slot;
}

Picture PictureOf(int32_t slot) {
  const BufferShape shape = ShapeOf(slot);
  Picture picture;
  picture.width = shape.width;
  picture.height = shape.height;
  picture.bits = shape.bytesPerPixel == 2 || shape.bytesPerPixel == 6 ? 16 : 8;
  picture.channels = shape.bytesPerPixel / (picture.bits / 8);
  for (int y = 0; y < picture.height; ++y) {
    const uint8_t* const row = BufferRow(slot, y);
    for (int i = 0; i < picture.width * picture.channels; ++i) {
      picture.samples.push_back(picture.bits == 8 ? row[i] : reinterpret_cast<const uint16_t*>(row)[i]);
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
