#include "testhost/descriptor_file.h"

#include <charconv>
#include <cstdio>
#include <fstream>
#include <optional>
#include <sstream>

#include "testhost/host_refusal.h"

namespace tessaline::testhost {

namespace {

bool IsPlain(char c) {
  return c > ' ' && c <= '~';
}

// The codes of a line. A code of four plain characters could also begin with "0x": it is then four long, not
// ten.
std::optional<host::OSType> CodeOf(const std::string& word) {
  host::OSType code = 0;
  if (word.size() == 10 && word.starts_with("0x")) {
    const auto [end, error] = std::from_chars(word.data() + 2, word.data() + word.size(), code, 16);
    if (error == std::errc() && end == word.data() + word.size()) return code;
    return std::nullopt;
  }
  if (word.size() != 4) return std::nullopt;
  for (const char c : word) code = code << 8 | static_cast<uint8_t>(c);
  return code;
}

std::string PlainCode(host::OSType code) {
  std::string text;
  bool isPlain = true;
  for (int shift = 24; shift >= 0; shift -= 8) {
    text += static_cast<char>(code >> shift);
    isPlain = isPlain && IsPlain(text.back());
  }
  // '#' would begin a comment.
  if (isPlain && text[0] != '#') return text;
  char hex[11];
  std::snprintf(hex, sizeof hex, "0x%08X", static_cast<unsigned>(code));
  return hex;
}

template <typename Number>
std::optional<Number> NumberOf(const std::string& word) {
  Number number{};
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
  if (error != std::errc() || end != word.data() + word.size() || word.empty()) return std::nullopt;
  return number;
}

// What a line's type word makes of the rest of the line; nothing when it does not fit.
std::optional<DescriptorValue> ValueOf(host::OSType key, const std::string& type, const std::string& rest) {
  if (type == "long") {
    if (const auto integer = NumberOf<int32_t>(rest))
      return DescriptorValue{key, host::kDescriptorInteger, *integer, 0, ""};
  } else if (type == "doub") {
    if (const auto real = NumberOf<double>(rest))
      return DescriptorValue{key, host::kDescriptorFloat, 0, *real, ""};
  } else if (type == "bool") {
    if (rest == "true" || rest == "false")
      return DescriptorValue{key, host::kDescriptorBoolean, rest == "true", 0, ""};
  } else if (type == "text") {
    return DescriptorValue{key, host::kDescriptorText, 0, 0, rest};
  } else if (type == "enum") {
    std::istringstream words(rest);
    std::string enumeration, value, surplus;
    words >> enumeration >> value;
    const auto typeCode = CodeOf(enumeration), valueCode = CodeOf(value);
    if (typeCode && valueCode && !(words >> surplus))
      return DescriptorValue{key, *typeCode, *valueCode, 0, ""};
  }
  return std::nullopt;
}

std::string ValueText(const DescriptorValue& value) {
  switch (value.type) {
    case host::kDescriptorInteger:
      return "long " + std::to_string(value.integer);
    case host::kDescriptorBoolean:
      return value.integer != 0 ? "bool true" : "bool false";
    case host::kDescriptorText:
      return "text " + value.text;
    case host::kDescriptorFloat: {
      char text[40];
      return "doub " + std::string(text, std::to_chars(text, text + sizeof text, value.real).ptr);
    }
    default:
      return "enum " + PlainCode(value.type) + " " + PlainCode(static_cast<host::OSType>(value.integer));
  }
}

std::string Trimmed(const std::string& text) {
  const size_t first = text.find_first_not_of(" \t\r");
  if (first == std::string::npos) return "";
  return text.substr(first, text.find_last_not_of(" \t\r") + 1 - first);
}

std::string Quoted(const std::string& text) {
  std::string quoted(1, '\'');
  return quoted.append(text).append(1, '\'');
}

}  // namespace

std::vector<DescriptorValue> ParseDescriptor(const std::string& source, const std::string& text) {
  std::vector<DescriptorValue> descriptor;
  std::istringstream lines(text);
  std::string line;
  for (int number = 1; std::getline(lines, line); ++number) {
    line = Trimmed(line);
    if (line.empty() || line[0] == '#') continue;
    const auto refuse = [&](const std::string& fault) {
      throw Refusal(ExitStatus::kUnreadable, source + ", line " + std::to_string(number), fault);
    };
    std::istringstream words(line);
    std::string key, type, rest;
    words >> key >> type;
    std::getline(words, rest);
    const auto code = CodeOf(key);
    if (!code) refuse(Quoted(key) + " is no key; keys have four characters, such as epsT");
    const auto value = ValueOf(*code, type, Trimmed(rest));
    if (!value) {
      refuse(Quoted(Trimmed(line.substr(key.size()))) +
             " is none of: long NUMBER, doub NUMBER, bool true|false, text TEXT, enum TYPE VALUE");
    }
    descriptor.push_back(*value);
  }
  return descriptor;
}

std::string DescriptorText(const std::vector<DescriptorValue>& descriptor) {
  std::string text;
  for (const DescriptorValue& value : descriptor)
    text += PlainCode(value.key) + " " + ValueText(value) + "\n";
  return text;
}

std::vector<DescriptorValue> ReadDescriptorFile(const std::string& path) {
  std::ifstream file(path);
  if (!file) throw Refusal(ExitStatus::kUnreadable, path, "cannot be opened");
  std::ostringstream text;
  text << file.rdbuf();
  return ParseDescriptor(path, text.str());
}

void WriteDescriptorFile(const std::string& path, const std::vector<DescriptorValue>& descriptor) {
  std::ofstream file(path, std::ios::trunc);
  file << "# Parameters of a filter run, for filterhost --play\n" << DescriptorText(descriptor);
  file.close();
  if (!file) throw Refusal(ExitStatus::kCannotWrite, path, "cannot be written");
}

}  // namespace tessaline::testhost
