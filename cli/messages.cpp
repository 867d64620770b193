#include "cli/messages.h"

#include <glib.h>
#include <stdio.h>

#include <algorithm>

namespace tessaline::cli {
namespace {

std::string Escaped(const char* bytes, size_t count) {
  constexpr struct {
    char character;
    const char* written;
  } kNamed[] = {{'\n', "\\n"}, {'\t', "\\t"}, {'\r', "\\r"}};
  std::string text;
  for (size_t i = 0; i < count; ++i) {
    const auto named = std::find_if(std::begin(kNamed), std::end(kNamed),
                                    [&](const auto& row) { return row.character == bytes[i]; });
    char digits[8];
    snprintf(digits, sizeof digits, "\\x%02X", static_cast<unsigned char>(bytes[i]));
    text += named != std::end(kNamed) ? named->written : digits;
  }
  return text;
}

bool IsActedOn(gunichar character) {
  constexpr struct {
    gunichar first, last;
  } kMarks[] = {
      {0x200E, 0x200F},
      {0x202A, 0x202E},
      {0x2066, 0x2069},  // of the direction of writing
      {0x2028, 0x2029},  // line and paragraph separators
  };
  return g_unichar_iscntrl(character) ||
         std::any_of(std::begin(kMarks), std::end(kMarks),
                     [&](const auto& marks) { return character >= marks.first && character <= marks.last; });
}

}  // namespace

std::string Printable(const std::string& text) {
  std::string printable;
  for (const char *at = text.data(), *const end = at + text.size(); at < end;) {
    const gunichar character = g_utf8_get_char_validated(at, end - at);
    const bool isValid = character < 0x110000;  // otherwise a mark of what is wrong
    const auto length = isValid ? static_cast<size_t>(g_utf8_skip[static_cast<unsigned char>(*at)]) : 1;
    printable += isValid && !IsActedOn(character) ? std::string(at, length) : Escaped(at, length);
    at += length;
  }
  return printable;
}

void Tell(const std::string& text) {
  fprintf(stderr, "tessaline: %s\n", Printable(text).c_str());
}

std::string Counted(size_t count, const std::string& what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

}  // namespace tessaline::cli
