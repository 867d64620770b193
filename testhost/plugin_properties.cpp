#include "testhost/plugin_properties.h"

#include <algorithm>

#include "glue/parameters/parameter_list.h"
#include "testhost/host_refusal.h"

namespace tessaline::testhost {

namespace {

using Bytes = std::span<const uint8_t>;

constexpr uint32_t kVendor = FourCharCode("8BIM");
constexpr uint32_t kKindFilter = FourCharCode("8BFM");
constexpr size_t kListHeaderBytes = 10;
constexpr size_t kPropertyHeaderBytes = 16;

uint32_t Int32At(Bytes bytes, size_t offset) {
  return bytes[offset] | bytes[offset + 1] << 8 | bytes[offset + 2] << 16 | uint32_t{bytes[offset + 3]} << 24;
}

std::string KeyText(uint32_t code) {
  std::string text;
  for (int shift = 24; shift >= 0; shift -= 8) text += static_cast<char>(code >> shift);
  return text;
}

std::string PascalString(Bytes data) {
  const size_t length = std::min<size_t>(data[0], data.size() - 1);
  return std::string(data.begin() + 1, data.begin() + 1 + static_cast<std::ptrdiff_t>(length));
}

std::string CString(Bytes data) {
  return std::string(data.begin(), std::find(data.begin(), data.end(), uint8_t{0}));
}

// Mode n is bit n from the top of the first byte.
uint32_t ModeSet(Bytes data) {
  uint32_t modes = 0;
  for (size_t mode = 0; mode < std::min<size_t>(32, data.size() * 8); ++mode) {
    if (data[mode / 8] & 0x80 >> mode % 8) modes |= 1u << mode;
  }
  return modes;
}

}  // namespace

PluginProperties ReadPluginProperties(const std::string& module, std::span<const uint8_t> resource) {
  const auto refuse = [&module](const std::string& fault) {
    throw Refusal(ExitStatus::kBadModule, module, "resource PiPL: " + fault);
  };
  if (resource.size() < kListHeaderBytes || resource[0] != 1 || resource[1] != 0) {
    refuse("does not begin with the two bytes 01 00");
  }
  if (Int32At(resource, 2) != 0) refuse("is of version " + std::to_string(Int32At(resource, 2)) + ", not 0");

  PluginProperties properties;
  uint32_t kind = 0;
  size_t at = kListHeaderBytes;
  for (uint32_t left = Int32At(resource, 6); left > 0; --left) {
    if (resource.size() - at < kPropertyHeaderBytes) refuse("ends inside a property");
    const uint32_t key = Int32At(resource, at + 4);
    const uint32_t length = Int32At(resource, at + 12);
    const std::string keyText = KeyText(key);
    if (Int32At(resource, at) != kVendor) refuse("property '" + keyText + "' is not of vendor 8BIM");
    at += kPropertyHeaderBytes;
    if (length % 4 != 0 || length == 0) {
      refuse("property '" + keyText + "' has length " + std::to_string(length) + ", no multiple of 4");
    }
    if (length > resource.size() - at) refuse("property '" + keyText + "' is longer than the resource");
    const Bytes data = resource.subspan(at, length);
    at += length;

    properties.keys.push_back(keyText);
    switch (key) {
      case FourCharCode("kind"):
        kind = Int32At(data, 0);
        break;
      case FourCharCode("name"):
        properties.name = PascalString(data);
        break;
      case FourCharCode("catg"):
        properties.category = PascalString(data);
        break;
      case FourCharCode("8664"):
        properties.entryPoint = CString(data);
        break;
      case FourCharCode("enbl"):
        properties.enabledWhen = CString(data);
        break;
      case FourCharCode("mode"):
        properties.modes = ModeSet(data);
        break;
      case FourCharCode("vers"):
        properties.versionMajor = static_cast<int32_t>(Int32At(data, 0) >> 16);
        properties.versionMinor = static_cast<int32_t>(Int32At(data, 0) & 0xFFFF);
        break;
      default:
        break;
    }
  }

  if (at != resource.size()) refuse(std::to_string(resource.size() - at) + " bytes follow the last property");
  if (kind != kKindFilter) refuse("the kind is not that of a filter");
  if (properties.name.empty() || properties.category.empty()) refuse("there is no name or no category");
  if (properties.entryPoint.empty()) refuse("no entry point for 64-bit hosts is named");
  if (properties.versionMajor > 4 || (properties.versionMajor == 4 && properties.versionMinor > 0)) {
    refuse("the interface is newer than 4.0");
  }
  return properties;
}

}  // namespace tessaline::testhost
