#include "testhost/interface_door.h"

#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>

#include "testhost/host_refusal.h"

namespace tessaline::testhost {

namespace {

struct Kind {
  int16_t mode;
  int32_t colourPlanes;
  int32_t kind;
};
constexpr Kind kKinds[] = {
    {host::kModeGray, 1, TESSALINE_GRAY8},  {host::kModeRgb, 3, TESSALINE_RGB8},
    {host::kModeLab, 3, TESSALINE_RGB8},    {host::kModeGray16, 1, TESSALINE_GRAY16},
    {host::kModeRgb48, 3, TESSALINE_RGB16}, {host::kModeLab48, 3, TESSALINE_RGB16},
};

const Kind& KindOf(const Document& document) {
  for (const Kind& kind : kKinds) {
    const int32_t depth = kind.kind < 0 ? 16 : 8;
    if (kind.mode == document.mode && depth == document.depth && kind.colourPlanes <= document.planes)
      return kind;
  }
  throw Refusal(ExitStatus::kWrongUsage, "--interface takes grey, rgb and lab pictures of 8 or 16 bits");
}

// Moves the colour planes of all pixels out of the document, or back into it.
template <typename Move>
void ForEachPixel(const Document& document, size_t colourBytes, Move move) {
  const auto pixelBytes = static_cast<size_t>(document.PixelBytes());
  for (size_t i = 0; i < document.pixels.size() / pixelBytes; ++i) move(i * pixelBytes, i * colourBytes);
}

std::string ParameterText(const std::vector<DescriptorValue>& parameters) {
  std::ostringstream text;
  text.precision(17);
  for (const DescriptorValue& value : parameters) {
    const auto key = [&value](int shift) { return static_cast<char>(value.key >> shift); };
    const bool isInteger = value.type == host::kDescriptorInteger;
    if (!isInteger && value.type != host::kDescriptorFloat) continue;
    text << (isInteger ? "<long>" : "<doub>") << key(24) << key(16) << key(8) << key(0) << ',';
    if (isInteger) {
      text << value.integer;
    } else {
      text << value.real;
    }
    text << "\r\n";
  }
  return text.str();
}

// Lines such as <long>epsT,60: the key at 6, the value from 11 on.
std::vector<DescriptorValue> ParametersOf(const std::string& text) {
  std::vector<DescriptorValue> parameters;
  std::istringstream lines(text);
  std::string line;
  while (std::getline(lines, line)) {
    if (line.size() < 12) continue;
    DescriptorValue value;
    for (size_t i = 6; i < 10; ++i) value.key = value.key << 8 | static_cast<uint8_t>(line[i]);
    if (line.starts_with("<long>")) {
      value.type = host::kDescriptorInteger;
      value.integer = std::atoi(line.c_str() + 11);
    } else {
      value.type = host::kDescriptorFloat;
      value.real = std::atof(line.c_str() + 11);
    }
    parameters.push_back(value);
  }
  return parameters;
}

}  // namespace

InterfaceReport RunInterface(const InterfaceFunctions& functions, const Document& source,
                             const std::vector<DescriptorValue>& parameters, bool showDialog) {
  const Kind& kind = KindOf(source);
  const size_t colourBytes = static_cast<size_t>(kind.colourPlanes) * source.depth / 8;
  InterfaceReport report;
  report.document = source;

  TessalineInstance instance = {};
  report.result = functions.createInstance(&instance);
  if (report.result != TESSALINE_DONE) return report;
  const std::string text = ParameterText(parameters);
  if (text.size() < instance.textCapacity) {
    std::memcpy(instance.parameterText, text.c_str(), text.size() + 1);
  }

  std::vector<uint8_t> colours(source.pixels.size() / source.PixelBytes() * colourBytes);
  ForEachPixel(source, colourBytes, [&](size_t inDocument, size_t inColours) {
    std::memcpy(&colours[inColours], &source.pixels[inDocument], colourBytes);
  });
  const TessalineImage image = {source.width, source.height, kind.kind, colours.data()};
  report.result = functions.process(&instance, &image, showDialog ? 1 : 0);
  ForEachPixel(source, colourBytes, [&](size_t inDocument, size_t inColours) {
    std::memcpy(&report.document.pixels[inDocument], &colours[inColours], colourBytes);
  });
  report.parameters = ParametersOf(instance.parameterText);
  functions.freeInstance(&instance);
  return report;
}

}  // namespace tessaline::testhost
