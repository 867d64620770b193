#include "samples/picture_files.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <stdexcept>
#include <vips/vips8>

namespace tessaline::samples {

namespace {

std::vector<uint8_t> ToBytes(const Picture& picture) {
  if (VIPS_INIT("tessaline_samples") != 0) throw std::runtime_error("libvips does not start");
  std::vector<uint8_t> bytes(picture.samples.size());
  std::transform(picture.samples.begin(), picture.samples.end(), bytes.begin(), [](float sample) {
    return static_cast<uint8_t>(std::lround(std::clamp(sample, 0.0f, 1.0f) * 255.0f));
  });
  return bytes;
}

// Of bytes that outlive it.
vips::VImage ToVips(std::vector<uint8_t>& bytes, const Picture& shape) {
  const auto interpretation = shape.channels == 1 ? VIPS_INTERPRETATION_B_W : VIPS_INTERPRETATION_sRGB;
  return vips::VImage::new_from_memory(bytes.data(), bytes.size(), shape.width, shape.height, shape.channels,
                                       VIPS_FORMAT_UCHAR)
      .copy(vips::VImage::option()->set("interpretation", interpretation));
}

}  // namespace

void WritePng(const std::string& path, const Picture& picture, double dotsPerInch) {
  std::vector<uint8_t> bytes = ToBytes(picture);
  constexpr double kMillimetresPerInch = 25.4;
  try {
    const double dotsPerMillimetre = dotsPerInch / kMillimetresPerInch;
    ToVips(bytes, picture)
        .copy(vips::VImage::option()->set("xres", dotsPerMillimetre)->set("yres", dotsPerMillimetre))
        .pngsave(path.c_str(), vips::VImage::option()->set("compression", 9));
  } catch (const vips::VError& error) {
    throw std::runtime_error(path + ": " + error.what());
  }
}

Picture ThroughJpeg(const Picture& picture, int quality) {
  std::vector<uint8_t> bytes = ToBytes(picture);
  try {
    VipsBlob* const file = ToVips(bytes, picture).jpegsave_buffer(vips::VImage::option()->set("Q", quality));
    Picture decoded = picture;
    size_t size = 0;
    const vips::VImage image = vips::VImage::jpegload_buffer(file);
    void* const samples = image.write_to_memory(&size);
    for (size_t i = 0; i < size; ++i) decoded.samples[i] = static_cast<uint8_t*>(samples)[i] / 255.0f;
    g_free(samples);
    vips_area_unref(VIPS_AREA(file));
    return decoded;
  } catch (const vips::VError& error) {
    throw std::runtime_error(std::string("a JPEG in memory: ") + error.what());
  }
}

}  // namespace tessaline::samples
