#include "tests/cli/pictures.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>

namespace tessaline::cli {
namespace {

constexpr double kScreenFrequency =
    1.0 / (kScreenPeriod * std::numbers::sqrt2);  // cycles per pixel, in x and in y

// Noise of -1..1 that is the same everywhere.
class Grain {
 public:
  double Next() {
    state_ = state_ * 6364136223846793005u + 1442695040888963407u;
    return static_cast<double>(state_ >> 40) / (1 << 23) - 1;
  }

 private:
  uint64_t state_ = 1;
};

}  // namespace

std::vector<uint16_t> Picture::Channel(int channel) const {
  std::vector<uint16_t> values;
  for (size_t i = static_cast<size_t>(channel); i < samples.size(); i += static_cast<size_t>(channels)) {
    values.push_back(samples[i]);
  }
  return values;
}

namespace {

Picture Draw(double amplitude, int colours, int extras, int bits, int width, int height) {
  Picture picture = {width, height, colours + extras, bits, {}};
  const double scale = bits == 16 ? 257 : 1;
  const double turn = 2 * std::numbers::pi * kScreenFrequency;
  Grain grain;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      for (int colour = 0; colour < colours; ++colour) {
        const double scene = 110 + 20.0 * x / width + 15 * colour;
        const double value = scene + amplitude * std::cos(turn * x) * std::cos(turn * y) + 14 * grain.Next();
        picture.samples.push_back(static_cast<uint16_t>(value * scale));
      }
      for (int extra = 0; extra < extras; ++extra) {
        picture.samples.push_back(static_cast<uint16_t>((y * 240 / height + 1 + extra * 7) * scale));
      }
    }
  }
  return picture;
}

// Of all formats that the program takes.
void LoadModules() {
  for (const char* operation : {"jxlload_source", "heifload_source"}) LoadModuleFor(operation);
}

}  // namespace

Picture DrawScreen(int colours, int extras, int bits, int width, int height) {
  return Draw(kDrawn, colours, extras, bits, width, height);
}

Picture DrawUnscreened() {
  return Draw(0, 1, 0, 8, 400, 300);
}

double ScreenAmplitude(const Picture& picture, int channel) {
  const double turn = 2 * std::numbers::pi * kScreenFrequency;
  std::complex<double> sum = 0;
  for (int y = 0; y < picture.height; ++y) {
    for (int x = 0; x < picture.width; ++x) {
      sum += std::polar(static_cast<double>(picture.At(x, y, channel)), -turn * (x + y));
    }
  }
  // cos times cos puts a quarter of its amplitude into each of four peaks.
  return 4 * std::abs(sum) / (picture.width * picture.height) / (picture.bits == 16 ? 257 : 1);
}

ImagePointer ImageOf(const Picture& picture) {
  StartPictureLibrary();
  std::vector<uint8_t> bytes;
  for (uint16_t sample : picture.samples) {
    bytes.push_back(static_cast<uint8_t>(sample));
    if (picture.bits == 16) bytes.push_back(static_cast<uint8_t>(sample >> 8));
  }
  ImagePointer image(vips_image_new_from_memory_copy(
      bytes.data(), bytes.size(), picture.width, picture.height, picture.channels,
      picture.bits == 16 ? VIPS_FORMAT_USHORT : VIPS_FORMAT_UCHAR));
  const bool isGrey = picture.channels < 3;
  image->Type = picture.bits == 16 ? (isGrey ? VIPS_INTERPRETATION_GREY16 : VIPS_INTERPRETATION_RGB16)
                                   : (isGrey ? VIPS_INTERPRETATION_B_W : VIPS_INTERPRETATION_sRGB);
  return image;
}

void Save(const Picture& picture, const std::string& path, const std::string& options) {
  Save(ImageOf(picture), path, options);
}

void Save(const ImagePointer& image, const std::string& path, const std::string& options) {
  LoadModules();
  ASSERT_EQ(0, vips_image_write_to_file(image.get(), (path + options).c_str(), nullptr))
      << TakeLibraryError();
}

ImagePointer Open(const std::string& path, const std::string& options) {
  StartPictureLibrary();
  LoadModules();
  ImagePointer image(vips_image_new_from_file((path + options).c_str(), nullptr));
  if (!image) ADD_FAILURE() << path << ": " << TakeLibraryError();
  return image;
}

Picture Load(const std::string& path, const std::string& options) {
  const ImagePointer image = Open(path, options);
  if (!image) return {};
  Picture picture = {vips_image_get_width(image.get()),
                     vips_image_get_height(image.get()),
                     vips_image_get_bands(image.get()),
                     static_cast<int>(8 * vips_format_sizeof(vips_image_get_format(image.get()))),
                     {}};
  size_t size = 0;
  auto* bytes = static_cast<uint8_t*>(vips_image_write_to_memory(image.get(), &size));
  if (bytes == nullptr) {
    ADD_FAILURE() << path << ": " << TakeLibraryError();
    return {};
  }
  if (picture.bits == 16) {
    const auto* samples = reinterpret_cast<const uint16_t*>(bytes);
    picture.samples.assign(samples, samples + size / 2);
  } else {
    picture.samples.assign(bytes, bytes + size);
  }
  g_free(bytes);
  return picture;
}

}  // namespace tessaline::cli
