// The two raw resources by which a host knows a module before it loads it. Both have the filter's resource
// id. Bytes are as they lie in the file: little-endian, four-character codes with their last character first.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace tessaline {

struct ScriptingParameter {
  std::string_view name;
  uint32_t key;
  uint32_t type;
};

// What tells one filter from the other; all else they have in common.
struct FilterIdentity {
  std::string_view menuName;
  std::string_view eventName;
  uint32_t suite;
  uint32_t event;  // its class too: no class of its own was ever given to it
  int32_t resourceId;
  std::span<const ScriptingParameter> parameters;
};
extern const FilterIdentity kDialogFilter;     // Tessaline64.8bf
extern const FilterIdentity kAutomaticFilter;  // TessalineAuto64.8bf

// Resource type "PiPL": kind, menu name and category, entry point, the images the filter takes.
//
// int16 1, int32 version 0, int32 number of properties; then each property directly behind the one before:
// vendor, key, int32 id 0, int32 length, data. The length is a multiple of 4 and counts the zeros that pad
// the data: hosts that round it up and hosts that do not then find the same next property. The 10 bytes of
// header leave every property unaligned; that is how hosts expect it.
std::vector<uint8_t> PluginPropertyList(const FilterIdentity& filter);

// Resource type "AETE": the event under which hosts record a run, and its parameters. Strings are a length
// byte and the characters, without any padding.
std::vector<uint8_t> ScriptingTerminology(const FilterIdentity& filter);

}  // namespace tessaline
