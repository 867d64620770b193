// The two raw resources by which a host knows the module before it loads it. Both have id kResourceId. Bytes
// are as they lie in the file: little-endian, four-character codes with their last character first.
#pragma once

#include <cstdint>
#include <vector>

namespace tessaline {

constexpr int32_t kResourceId = 16000;

// Resource type "PiPL": kind, menu name and category, entry point, the images the filter takes.
//
// int16 1, int32 version 0, int32 number of properties; then each property directly behind the one before:
// vendor, key, int32 id 0, int32 length, data. The length is a multiple of 4 and counts the zeros that pad
// the data: hosts that round it up and hosts that do not then find the same next property. The 10 bytes of
// header leave every property unaligned; that is how hosts expect it.
std::vector<uint8_t> PluginPropertyList();

// Resource type "AETE": the event under which hosts record a run, and its parameters. Strings are a length
// byte and the characters, without any padding.
std::vector<uint8_t> ScriptingTerminology();

}  // namespace tessaline
