#include "testhost/picture_document.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <string_view>

namespace tessaline::testhost {

namespace {

struct ModeName {
  std::string_view name;
  int16_t at8, at16, at32;  // numbers by depth; where a depth has none, that of 8 bits
};
constexpr ModeName kModeNames[] = {
    {"grey", host::kModeGray, host::kModeGray16, host::kModeGray32},
    {"rgb", host::kModeRgb, host::kModeRgb48, host::kModeRgb96},
    {"cmyk", host::kModeCmyk, host::kModeCmyk64, host::kModeCmyk},
    {"lab", host::kModeLab, host::kModeLab48, host::kModeLab},
    {"bitmap", host::kModeBitmap, host::kModeBitmap, host::kModeBitmap},
    {"indexed", host::kModeIndexed, host::kModeIndexed, host::kModeIndexed},
    {"hsl", host::kModeHsl, host::kModeHsl, host::kModeHsl},
    {"hsb", host::kModeHsb, host::kModeHsb, host::kModeHsb},
    {"multichannel", host::kModeMultichannel, host::kModeDeepMultichannel, host::kModeMultichannel},
    {"duotone", host::kModeDuotone, host::kModeDuotone16, host::kModeDuotone},
};

std::string_view NameOf(ColourSpace space) {
  constexpr std::string_view kNames[] = {"grey", "rgb", "cmyk", "lab"};
  return kNames[static_cast<int>(space)];
}

uint16_t WhiteOf(int32_t depth) {
  return depth == 8 ? kWhite8 : kWhiteHost16;
}

// The document's levels as numbers; for a depth of 32 on the scale of `white`.
std::vector<uint16_t> Levels(const Document& document, uint16_t white) {
  const auto sampleBytes = static_cast<size_t>(document.depth / 8);
  std::vector<uint16_t> levels(document.pixels.size() / sampleBytes);
  for (size_t i = 0; i < levels.size(); ++i) {
    const uint8_t* const from = document.pixels.data() + i * sampleBytes;
    if (sampleBytes == 4) {
      float sample;
      std::memcpy(&sample, from, sizeof sample);
      levels[i] = static_cast<uint16_t>(std::lround(std::clamp(sample, 0.0f, 1.0f) * white));
    } else {
      std::memcpy(&levels[i], from, sampleBytes);
    }
  }
  return levels;
}

}  // namespace

Document MakeDocument(const Picture& picture, const DocumentWishes& wishes) {
  Document document;
  document.depth = wishes.depth.value_or(picture.white == kWhite8 ? 8 : 16);
  document.mode =
      wishes.mode ? *wishes.mode : *ModeNumber(std::string(NameOf(picture.space)), document.depth);
  document.planes = static_cast<int16_t>(picture.Planes());
  document.width = picture.width;
  document.height = picture.height;

  const auto sampleBytes = static_cast<size_t>(document.depth / 8);
  document.pixels.resize(picture.samples.size() * sampleBytes);
  const std::vector<uint16_t> levels =
      document.depth == 32 ? picture.samples
                           : Rescaled(picture.samples, picture.white, WhiteOf(document.depth));
  for (size_t i = 0; i < levels.size(); ++i) {
    uint8_t* const to = document.pixels.data() + i * sampleBytes;
    if (sampleBytes == 4) {
      const float sample = static_cast<float>(levels[i]) / picture.white;
      std::memcpy(to, &sample, sizeof sample);
    } else {
      std::memcpy(to, &levels[i], sampleBytes);  // low byte first, on every machine that runs this
    }
  }
  return document;
}

Picture PictureOf(const Document& document, const Document& original, const Picture& source) {
  if (document.pixels == original.pixels) return source;
  Picture picture = source;
  if (document.depth == 16 && source.white == kWhite8) picture.white = kWhiteFile16;
  if (document.depth == 8) picture.white = kWhite8;
  const uint16_t levelWhite = document.depth == 32 ? picture.white : WhiteOf(document.depth);
  const std::vector<uint16_t> levels = Levels(document, levelWhite);
  picture.samples = Rescaled(levels, levelWhite, picture.white);

  if (picture.white == source.white) {
    const std::vector<uint16_t> before = Levels(original, levelWhite);
    const int32_t colourPlanes = ColourPlanesOf(picture.space);
    for (size_t i = 0; i < levels.size(); ++i) {
      const bool isExtra = static_cast<int32_t>(i % picture.Planes()) >= colourPlanes;
      if (isExtra && levels[i] == before[i]) picture.samples[i] = source.samples[i];
    }
  }
  return picture;
}

std::optional<int16_t> ModeNumber(const std::string& name, int32_t depth) {
  for (const ModeName& mode : kModeNames) {
    if (mode.name == name) return depth == 8 ? mode.at8 : depth == 16 ? mode.at16 : mode.at32;
  }
  int16_t number = 0;
  const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), number);
  if (error == std::errc() && end == name.data() + name.size()) return number;
  return std::nullopt;
}

std::string ModeNames() {
  std::string names;
  for (const ModeName& mode : kModeNames) names.append(mode.name).append(", ");
  return names + "or a number";
}

}  // namespace tessaline::testhost
