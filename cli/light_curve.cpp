#include "cli/light_curve.h"

#include <array>
#include <cmath>
#include <cstdlib>
#include <vector>

#include "cli/carried_metadata.h"

namespace tessaline::cli {
namespace {

constexpr int kLevels = 1024;  // of a ramp from black to white

std::vector<uint8_t> ProfileOf(const PictureFile& input, int page) {
  if (input.tiff()) {
    const std::vector<TiffTag> tags =
        input.tiff()->Tags(static_cast<size_t>(page), std::array<uint16_t, 1>{kTiffIccProfile});
    return tags.empty() ? std::vector<uint8_t>() : tags[0].bytes;
  }
  const void* bytes = nullptr;
  size_t count = 0;
  if (vips_image_get_typeof(input.metadata(), VIPS_META_ICC_NAME) == 0 ||
      vips_image_get_blob(input.metadata(), VIPS_META_ICC_NAME, &bytes, &count) != 0) {
    return {};
  }
  const auto* const first = static_cast<const uint8_t*>(bytes);
  return {first, first + count};
}

// The luminance of the greys.
std::optional<ToneCurve> CurveOfProfile(const std::vector<uint8_t>& profile, int colours) {
  const StderrSilenced silenced;
  std::vector<uint16_t> ramp;
  for (int level = 0; level < kLevels; ++level) {
    ramp.insert(ramp.end(), static_cast<size_t>(colours),
                static_cast<uint16_t>(std::lround(65535.0 * level / (kLevels - 1))));
  }
  const GPointer<VipsImage> coded(vips_image_new_from_memory(ramp.data(), ramp.size() * sizeof(uint16_t),
                                                             kLevels, 1, colours, VIPS_FORMAT_USHORT));
  if (!coded) return std::nullopt;
  coded->Type = colours == 1 ? VIPS_INTERPRETATION_GREY16 : VIPS_INTERPRETATION_RGB16;
  vips_image_set_blob_copy(coded.get(), VIPS_META_ICC_NAME, profile.data(), profile.size());
  VipsImage* image = nullptr;
  const bool isRead = vips_icc_import(coded.get(), &image, "embedded", TRUE, "pcs", VIPS_PCS_XYZ, "intent",
                                      VIPS_INTENT_RELATIVE, nullptr) == 0;
  const GPointer<VipsImage> light(image);
  size_t bytes = 0;
  const std::unique_ptr<float, decltype(&g_free)> xyz(
      isRead && light->BandFmt == VIPS_FORMAT_FLOAT && light->Bands == 3
          ? static_cast<float*>(vips_image_write_to_memory(light.get(), &bytes))
          : nullptr,
      g_free);
  TakeLibraryError();
  if (!xyz || bytes != kLevels * 3 * sizeof(float)) return std::nullopt;
  std::vector<float> luminance;
  for (int level = 0; level < kLevels; ++level) {
    // Profiles of measured patches waver in the last digits.
    const float own = xyz.get()[3 * level + 1];
    luminance.push_back(luminance.empty() ? own : std::max(luminance.back(), own));
  }
  ToneCurve curve;
  return curve.Create(luminance.data(), kLevels) ? std::optional(curve) : std::nullopt;
}

// From a gAMA chunk, which has 100000 times the exponent of the coding.
std::optional<ToneCurve> CurveOfGamma(const std::vector<uint8_t>& chunk) {
  if (chunk.size() != 4) return std::nullopt;
  const double coding = (chunk[0] << 24 | chunk[1] << 16 | chunk[2] << 8 | chunk[3]) / 100000.0;
  return LightCurveOfPower(1.0 / coding);
}

bool ExifNamesSrgb(const PictureFile& input) {
  constexpr const char* kColourSpace = "exif-ifd2-ColorSpace";
  const char* text = nullptr;
  return vips_image_get_typeof(input.metadata(), kColourSpace) != 0 &&
         vips_image_get_string(input.metadata(), kColourSpace, &text) == 0 && std::atoi(text) == 1;
}

}  // namespace

std::optional<ToneCurve> LightCurveOfProfile(const std::vector<uint8_t>& profile, int colours) {
  std::optional<ToneCurve> curve = CurveOfProfile(profile, colours);
  // Grey pictures go about with profiles of RGB, too.
  return curve || colours > 1 ? curve : CurveOfProfile(profile, 3);
}

std::optional<ToneCurve> LightCurveOfPower(double power) {
  if (!(power >= 0.1 && power <= 10.0)) return std::nullopt;
  std::vector<float> light;
  light.reserve(kLevels);
  for (int level = 0; level < kLevels; ++level)
    light.push_back(static_cast<float>(std::pow(level / (kLevels - 1.0), power)));
  ToneCurve curve;
  return curve.Create(light.data(), kLevels) ? std::optional(curve) : std::nullopt;
}

std::optional<ToneCurve> LightCurveOf(const PictureFile& input, int page) {
  const ColourModel model = input.kind(page).model;
  if (model == ColourModel::kLab || model == ColourModel::kCmyk) return std::nullopt;
  const std::vector<uint8_t> profile = ProfileOf(input, page);
  if (!profile.empty()) return LightCurveOfProfile(profile, input.kind(page).colours());
  if (input.format().format == FileFormat::kPng) {
    if (!PngChunkData(input.descriptor(), "sRGB").empty()) return ToneCurve::Srgb();
    const std::vector<uint8_t> gamma = PngChunkData(input.descriptor(), "gAMA");
    if (!gamma.empty()) return CurveOfGamma(gamma);
  }
  return ExifNamesSrgb(input) ? std::optional(ToneCurve::Srgb()) : std::nullopt;
}

}  // namespace tessaline::cli
