#include "samples/picture_files.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <stdexcept>
#include <vips/vips8>

namespace tessaline::samples {

void WritePng(const std::string& path, const Picture& picture, double dotsPerInch) {
  if (VIPS_INIT("tessaline_samples") != 0) throw std::runtime_error("libvips does not start");
  std::vector<uint8_t> bytes(picture.samples.size());
  std::transform(picture.samples.begin(), picture.samples.end(), bytes.begin(), [](float sample) {
    return static_cast<uint8_t>(std::lround(std::clamp(sample, 0.0f, 1.0f) * 255.0f));
  });
  constexpr double kMillimetresPerInch = 25.4;
  try {
    const double dotsPerMillimetre = dotsPerInch / kMillimetresPerInch;
    const auto interpretation = picture.channels == 1 ? VIPS_INTERPRETATION_B_W : VIPS_INTERPRETATION_sRGB;
    vips::VImage::new_from_memory(bytes.data(), bytes.size(), picture.width, picture.height, picture.channels,
                                  VIPS_FORMAT_UCHAR)
        .copy(vips::VImage::option()
                  ->set("interpretation", interpretation)
                  ->set("xres", dotsPerMillimetre)
                  ->set("yres", dotsPerMillimetre))
        .pngsave(path.c_str(), vips::VImage::option()->set("compression", 9));
  } catch (const vips::VError& error) {
    throw std::runtime_error(path + ": " + error.what());
  }
}

}  // namespace tessaline::samples
