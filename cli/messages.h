// What the program says on stderr.
#pragma once

#include <cstddef>
#include <string>

namespace tessaline::cli {

// The text with everything escaped that a terminal would act on or cannot show: control characters, marks
// that turn the direction of writing, and bytes that are no UTF-8. File names may hold all of them. A
// printable text comes back as it is.
std::string Printable(const std::string& text);

// One line, "tessaline: TEXT", printable whatever it holds.
void Tell(const std::string& text);

// "1 picture", "2 pictures"
std::string Counted(size_t count, const std::string& what);

}  // namespace tessaline::cli
