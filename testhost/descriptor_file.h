// The parameters of one filter run as a host keeps them for its actions, and their text form:
//
//   # a comment
//   epsT long 80            key, type, value; one parameter a line
//   NoRd doub 3.5
//   aaaa bool true          or false
//   bbbb text C:\a b.png    the rest of the line
//   cccc enum UniT 0002     type and value of an enumeration
//
// Four-character codes that hold anything but letters, digits and punctuation are written as 0x and eight hex
// digits.
#pragma once

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "glue/host/host_records.h"

namespace tessaline::testhost {

struct EnumeratedValue {
  host::OSType type;
  host::OSType value;
  bool operator==(const EnumeratedValue&) const = default;
};

struct DescriptorItem {
  host::OSType key;
  std::variant<int32_t, double, bool, std::string, EnumeratedValue> value;
  bool operator==(const DescriptorItem&) const = default;
};

using Descriptor = std::vector<DescriptorItem>;  // in the order in which the items were put

// Throws Refusal (kUnreadable) that names file, line and fault.
Descriptor ReadDescriptorFile(const std::string& path);

// Throws Refusal (kCannotWrite).
void WriteDescriptorFile(const std::string& path, const Descriptor& descriptor);

// As in the file; `source` is what messages call it.
Descriptor ParseDescriptor(const std::string& source, const std::string& text);
std::string DescriptorText(const Descriptor& descriptor);

}  // namespace tessaline::testhost
