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

#include <string>
#include <vector>

#include "testhost/fake_host.h"

namespace tessaline::testhost {

// Throws Refusal (kUnreadable) that names file, line and fault.
std::vector<DescriptorValue> ReadDescriptorFile(const std::string& path);

// Throws Refusal (kCannotWrite).
void WriteDescriptorFile(const std::string& path, const std::vector<DescriptorValue>& descriptor);

// As in the file; `source` is what messages call it.
std::vector<DescriptorValue> ParseDescriptor(const std::string& source, const std::string& text);
std::string DescriptorText(const std::vector<DescriptorValue>& descriptor);

}  // namespace tessaline::testhost
