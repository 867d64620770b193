#include "gegl/sample_formats.h"

#include <algorithm>
#include <string>

namespace tessaline::gegl {
namespace {

struct SampleType {
  const char* name;
  int32_t samples;
  int32_t bytes;
};
constexpr SampleType kFloat = {"float", TESSALINE_FLOAT32, 4};
constexpr SampleType kNarrowTypes[] = {{"u8", TESSALINE_UINT8, 1}, {"u16", TESSALINE_UINT16, 2}};

struct PixelModel {
  bool isGrey;
  bool hasAlpha;
  bool hasSpacesCurve;  // the levels' curve is the space's own, else that of sRGB
  const Babl* space;    // null: sRGB
};

// Inks have a space in which there is no RGB.
const Babl* SpaceOf(const Babl* picture) {
  const Babl* const space = babl_format_get_space(picture);
  return space != nullptr && babl_space_is_cmyk(space) != 0 ? nullptr : space;
}

PixelModel ModelOf(const Babl* picture) {
  const auto flags = static_cast<unsigned>(babl_get_model_flags(babl_format_get_model(picture)));
  return {(flags & BABL_MODEL_FLAG_GRAY) != 0, babl_format_has_alpha(picture) != 0,
          (flags & BABL_MODEL_FLAG_NONLINEAR) != 0, SpaceOf(picture)};
}

SampleFormat FormatOf(const PixelModel& model, const SampleType& type) {
  const std::string mark = model.hasSpacesCurve ? "'" : "~";
  std::string name = model.isGrey ? "Y" + mark : "R" + mark + "G" + mark + "B" + mark;
  if (model.hasAlpha) name += "A";
  const int32_t colours = model.isGrey ? 1 : 3;
  return {babl_format_with_space((name + " " + type.name).c_str(), model.space), type.samples, colours,
          colours + (model.hasAlpha ? 1 : 0), type.bytes};
}

}  // namespace

SampleFormat SampleFormatFor(const Babl* picture) {
  const PixelModel model = ModelOf(picture);
  if (model.hasSpacesCurve) {
    for (const SampleType& type : kNarrowTypes) {
      const SampleFormat format = FormatOf(model, type);
      if (format.babl == picture) return format;
    }
  }
  return FormatOf(model, kFloat);
}

const Babl* OutputFormatFor(const Babl* picture) {
  if (picture == nullptr) return babl_format("R'G'B'A float");
  if (babl_format_is_palette(picture) == 0) return picture;
  return babl_format_with_space("R'G'B'A u8", SpaceOf(picture));
}

std::vector<float> ToldLightCurve(const SampleFormat& format) {
  constexpr int kLevels = 1024;
  const Babl* const space = babl_format_get_space(format.babl);
  if (space == babl_space("sRGB")) return {};
  const bool hasSpacesCurve =
      (static_cast<unsigned>(babl_get_model_flags(babl_format_get_model(format.babl))) &
       BABL_MODEL_FLAG_NONLINEAR) != 0;
  std::vector<float> levels(kLevels), light(kLevels);
  for (int level = 0; level < kLevels; ++level) {
    levels[static_cast<size_t>(level)] = static_cast<float>(level) / (kLevels - 1);
  }
  babl_process(babl_fish(babl_format_with_space(hasSpacesCurve ? "Y' float" : "Y~ float", space),
                         babl_format_with_space("Y float", space)),
               levels.data(), light.data(), kLevels);
  // Curves of measured patches waver in the last digits.
  for (size_t level = 1; level < light.size(); ++level) {
    light[level] = std::max(light[level], light[level - 1]);
  }
  return light.back() > light.front() ? light : std::vector<float>();
}

}  // namespace tessaline::gegl
