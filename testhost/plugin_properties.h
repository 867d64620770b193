// What a module says about itself in its resource of type "PiPL".
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "glue/host/host_records.h"

namespace tessaline::testhost {

struct PluginProperties {
  std::string name;          // menu entry
  std::string category;      // submenu
  std::string entryPoint;    // exported name, of the 64-bit code
  std::string enabledWhen;   // the host's own grammar; empty: always
  int32_t versionMajor = 0;  // of the interface between host and filter
  int32_t versionMinor = 0;
  uint32_t modes = 0;             // bit n: takes image mode n; only the first 32 modes can be named
  std::vector<std::string> keys;  // of all properties, in order

  bool Takes(host::ImageModeNumber mode) const { return (modes >> mode & 1) != 0; }
};

// Reads the resource and holds it to what hosts ask of a filter: a header of version 0, properties that fill
// the resource exactly, lengths that are multiples of 4, kind 'filter', name, category and 64-bit entry
// point, and an interface of at most 4.0. Throws Refusal (kBadModule) that names `module` and the first
// fault.
PluginProperties ReadPluginProperties(const std::string& module, std::span<const uint8_t> resource);

}  // namespace tessaline::testhost
