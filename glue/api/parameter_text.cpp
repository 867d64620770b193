#include "glue/api/parameter_text.h"

#include <array>
#include <bit>
#include <charconv>
#include <cstring>
#include <string_view>

#include "image/result_codes.h"
#include "platform/memory.h"
#include "platform/message.h"

namespace tessaline {

namespace {

using Text = std::string_view;

// Where the parts of a line stand, after "<long>" or another tag of six characters: "NoRd,6.000000".
constexpr size_t kKeyPosition = 6;
constexpr size_t kCodeLength = 4;
constexpr size_t kValuePosition = 11;
constexpr char kLineEnd = '\r';

// Enumerators travel as four printable characters: their number with '0' added to each byte.
constexpr uint32_t kEnumeratorOffset = 0x30303030;
constexpr uint32_t kFirstPrintableCode = 0x20202020;

std::array<char, kCodeLength> CodeCharacters(uint32_t code) {
  return {static_cast<char>(code >> 24), static_cast<char>(code >> 16), static_cast<char>(code >> 8),
          static_cast<char>(code)};
}

uint32_t CodeOf(Text characters) {
  uint32_t code = 0;
  for (size_t i = 0; i < kCodeLength; ++i) code = code << 8 | static_cast<uint8_t>(characters[i]);
  return code;
}

bool IsInRange(int64_t value, const ParameterEntry& entry) {
  return value >= static_cast<int32_t>(entry.minimumBits) && value <= static_cast<int32_t>(entry.maximumBits);
}

// The number at the beginning of `value`, as people write it: blanks and a plus sign may stand before it, and
// what follows it does not matter. False when there is none or it is beyond its type.
template <typename Number>
bool ReadNumber(Text value, Number* number) {
  while (!value.empty() && value.front() == ' ') value.remove_prefix(1);
  if (value.size() > 1 && value[0] == '+' && value[1] != '-') value.remove_prefix(1);
  return std::from_chars(value.data(), value.data() + value.size(), *number).ec == std::errc();
}

// A text being written into the caller's block, a line at a time.
class LineWriter {
 public:
  LineWriter(char* text, size_t capacity) : text_(text), capacity_(capacity) {}
  void Append(Text piece) {
    if (piece.size() >= capacity_ - length_) {
      isFull_ = true;  // room for the NUL is always kept
    } else {
      std::memcpy(text_ + length_, piece.data(), piece.size());
      length_ += piece.size();
    }
  }
  void AppendCode(uint32_t code) {
    const auto characters = CodeCharacters(code);
    Append({characters.data(), characters.size()});
  }
  // False when the line did not fit.
  bool EndLine() {
    Append("\r\n");
    if (!isFull_) lineStart_ = length_;
    text_[lineStart_] = '\0';
    return !isFull_;
  }

 private:
  char* text_;
  size_t capacity_;
  size_t length_ = 0;
  size_t lineStart_ = 0;
  bool isFull_ = false;
};

void ReadLong(ParameterList* list, int32_t index, const char* value) {
  ParameterEntry& entry = list->entries[index];
  int32_t number = 0;
  if (ReadNumber(value, &number) && IsInRange(number, entry)) entry.valueBits = static_cast<uint32_t>(number);
}

void WriteLong(const ParameterEntry& entry, LineWriter* line) {
  char digits[16];
  const auto end = std::to_chars(digits, digits + sizeof digits, static_cast<int32_t>(entry.valueBits)).ptr;
  line->Append({digits, static_cast<size_t>(end - digits)});
}

void ReadFloat(ParameterList* list, int32_t index, const char* value) {
  ParameterEntry& entry = list->entries[index];
  double number = 0.0;
  if (!ReadNumber(value, &number)) return;
  const double minimum = std::bit_cast<float>(entry.minimumBits);
  const double maximum = std::bit_cast<float>(entry.maximumBits);
  if (minimum <= number && number <= maximum)
    entry.valueBits = std::bit_cast<uint32_t>(static_cast<float>(number));
}

// As printf's "%f" in the C locale.
void WriteFloat(const ParameterEntry& entry, LineWriter* line) {
  constexpr int kDecimals = 6;
  char digits[64];  // the largest float has 39 digits before its point
  const double value = std::bit_cast<float>(entry.valueBits);
  const auto end =
      std::to_chars(digits, digits + sizeof digits, value, std::chars_format::fixed, kDecimals).ptr;
  line->Append({digits, static_cast<size_t>(end - digits)});
}

void ReadBool(ParameterList* list, int32_t index, const char* value) {
  const Text text = value;
  list->entries[index].valueBits = text == "T" || text == "t" || text == "1";
}

void WriteBool(const ParameterEntry& entry, LineWriter* line) {
  line->Append(entry.valueBits != 0 ? "T" : "F");
}

void ReadEnumerator(ParameterList* list, int32_t index, const char* value) {
  if (std::strlen(value) < kCodeLength) return;
  ParameterEntry& entry = list->entries[index];
  uint32_t code = CodeOf(value);
  if (code >= kEnumeratorOffset) code -= kEnumeratorOffset;
  if (IsInRange(static_cast<int32_t>(code), entry)) entry.valueBits = code;
}

void WriteEnumerator(const ParameterEntry& entry, LineWriter* line) {
  const uint32_t value = entry.valueBits;
  line->AppendCode(value < kFirstPrintableCode ? value + kEnumeratorOffset : value);
}

void WriteText(const ParameterEntry& entry, LineWriter* line) {
  const char* const text = EntryText(entry);
  if (text != nullptr) line->Append(text);
}

// How entries of one type are read and written.
struct LineForm {
  uint32_t tag;  // what stands in the angle brackets; 0: the entry's own type
  void (*read)(ParameterList* list, int32_t index, const char* value);
  void (*write)(const ParameterEntry& entry, LineWriter* line);
};
struct TypedForm {
  uint32_t type;
  LineForm form;
};
constexpr TypedForm kTypedForms[] = {
    {kTypeLong, {0, ReadLong, WriteLong}},     {kTypeFloat, {0, ReadFloat, WriteFloat}},
    {kTypeBool, {0, ReadBool, WriteBool}},     {kTypeText, {0, SetEntryText, WriteText}},
    {kTypePath, {0, SetEntryText, WriteText}},
};
constexpr LineForm kUnitForm = {FourCharCode("unit"), ReadEnumerator, WriteEnumerator};
constexpr LineForm kEnumerationForm = {0, ReadEnumerator, WriteEnumerator};

// Null for an unknown type.
const LineForm* FormOf(const ParameterEntry& entry) {
  if (entry.key == kKeyUnit && entry.type == kTypeLong) return &kUnitForm;
  if (IsEnumerationType(entry.type)) return &kEnumerationForm;
  for (const TypedForm& row : kTypedForms) {
    if (row.type == entry.type) return &row.form;
  }
  return nullptr;
}

// Takes the next line off the front of `text`: everything up to a CR, which goes too.
Text TakeLine(Text* text) {
  const size_t end = text->find(kLineEnd);
  const Text line = text->substr(0, end);
  text->remove_prefix(end == Text::npos ? text->size() : end + 1);
  return line;
}

// Without the characters below 32, among them the LF that ended the line before.
size_t CopyPrintable(Text source, char* destination) {
  size_t length = 0;
  for (const char character : source) {
    if (static_cast<uint8_t>(character) >= 32) destination[length++] = character;
  }
  destination[length] = '\0';
  return length;
}

void TakeValue(const char* line, size_t length, ParameterList* list) {
  if (length < kKeyPosition + kCodeLength) return;
  const uint32_t key = CodeOf(line + kKeyPosition);
  const char* const value = length > kValuePosition ? line + kValuePosition : "";
  for (int32_t i = 0; i < list->entryCount; ++i) {
    if (list->entries[i].key != key) continue;
    const LineForm* const form = FormOf(list->entries[i]);
    if (form != nullptr) form->read(list, i, value);
  }
}

void ShowUnknownType(const ParameterEntry& entry) {
  // Each comma stands after its equals sign, where readers of these messages look for it; do not move it.
  char text[] = "typ=,    ,key=,    ";
  constexpr size_t kTypePosition = 5;
  constexpr size_t kEntryKeyPosition = 15;
  const auto putCode = [&text](size_t position, uint32_t code) {
    if (code != 0) std::memcpy(text + position, CodeCharacters(code).data(), kCodeLength);
  };
  putCode(kTypePosition, entry.type);
  putCode(kEntryKeyPosition, entry.key);
  ShowMessage(text, "Diagnostic");
}

}  // namespace

int32_t ReadParameterText(const char* text, size_t capacity, ParameterList* list) {
  if (text == nullptr) return kInvalidSlotOrFile;
  Text rest(text, strnlen(text, capacity));
  for (int32_t i = 0; i < list->entryCount + list->extraTextLines; ++i) {
    const Text source = TakeLine(&rest);
    const OwnedBlock<char> line = AllocateBlock<char>(source.size() + 1);
    if (!line) return kOutOfMemory;
    TakeValue(line.get(), CopyPrintable(source, line.get()), list);
  }
  return kSuccess;
}

void WriteParameterText(const ParameterList& list, char* text, size_t capacity) {
  if (text == nullptr || capacity == 0) return;
  text[0] = '\0';
  LineWriter line(text, capacity);
  for (int32_t i = 0; i < list.entryCount; ++i) {
    const ParameterEntry& entry = list.entries[i];
    const LineForm* const form = FormOf(entry);
    if (form == nullptr) {
      ShowUnknownType(entry);
      continue;
    }
    line.Append("<");
    line.AppendCode(form->tag != 0 ? form->tag : entry.type);
    line.Append(">");
    line.AppendCode(entry.key);
    line.Append(",");
    form->write(entry, &line);
    if (!line.EndLine()) return;
  }
}

}  // namespace tessaline
