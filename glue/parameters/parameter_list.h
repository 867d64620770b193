// The typed list through which the filter's parameters travel: to and from the host's scripting, and to and
// from the text of the programmatic interface.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tessaline {

// A four-character code, first character in the most significant byte.
constexpr uint32_t FourCharCode(const char (&text)[5]) {
  return static_cast<uint32_t>(static_cast<uint8_t>(text[0])) << 24 |
         static_cast<uint32_t>(static_cast<uint8_t>(text[1])) << 16 |
         static_cast<uint32_t>(static_cast<uint8_t>(text[2])) << 8 |
         static_cast<uint32_t>(static_cast<uint8_t>(text[3]));
}

constexpr uint32_t kKeyAcceptance = FourCharCode("epsT");        // scripting name "Threshold"
constexpr uint32_t kKeyNotchRadius = FourCharCode("NoRd");       // "Notch Radius"
constexpr uint32_t kKeyProtectionRadius = FourCharCode("LFct");  // "Low Frequency Cutoff"
constexpr uint32_t kKeyUnit = FourCharCode("unCd");

constexpr uint32_t kTypeLong = FourCharCode("long");
constexpr uint32_t kTypeFloat = FourCharCode("doub");
constexpr uint32_t kTypeBool = FourCharCode("bool");
constexpr uint32_t kTypeText = FourCharCode("text");
constexpr uint32_t kTypePath = FourCharCode("Pth ");
// Enumerations: every type code whose first two characters are "Br".
constexpr bool IsEnumerationType(uint32_t type) {
  return type >> 16 == 0x4272;
}

// One parameter, six words. In "text" and "Pth " entries the last two words hold a pointer to the entry's own
// text block (EntryText) in place of maximum and value.
struct ParameterEntry {
  uint32_t key;
  uint32_t type;
  uint32_t isPresent;
  uint32_t minimumBits;  // int32 for "long", float for "doub"
  uint32_t maximumBits;
  uint32_t valueBits;  // as minimum; 0 or 1 for "bool"
};
static_assert(sizeof(ParameterEntry) == 24);

constexpr int32_t kMostEntries = 20;
constexpr uint32_t kEventUndefined = FourCharCode("udef");
constexpr uint32_t kEventFilter = FourCharCode("tsIn");

struct ParameterList {
  uint32_t unused0[3];
  int32_t entryCount;      // word 3
  int32_t extraTextLines;  // word 4: further lines for the text reader, zero here
  uint32_t eventCode;      // word 5
  uint8_t flag;            // word 6, zero
  uint8_t unused1[3];
  uint8_t noCopyBack;  // word 7, zero for this filter
  uint8_t unused2[3];
  uint32_t unused3[4];
  ParameterEntry entries[kMostEntries];
};
static_assert(sizeof(ParameterList) == 528);
static_assert(offsetof(ParameterList, entryCount) == 12 && offsetof(ParameterList, flag) == 24 &&
              offsetof(ParameterList, noCopyBack) == 28 && offsetof(ParameterList, entries) == 48);

// A list with the filter's three parameters, their ranges, and the values of the settings record as it stands
// (acceptance truncated to a whole number, the radii bit for bit). Freed with FreeParameterList; null without
// memory. A record whose acceptance is not a number, or beyond 32 bits, gives 0 or the nearest whole number.
ParameterList* MakeParameterList();
// Frees the entries' texts and the list. Null is allowed.
void FreeParameterList(ParameterList* list);

// Append an entry; nothing happens when the list is full.
void AddLongEntry(ParameterList* list, uint32_t key, int32_t minimum, int32_t maximum, int32_t value);
void AddFloatEntry(ParameterList* list, uint32_t key, float minimum, float maximum, uint32_t valueBits);

// Replaces the text of entry `index` by a copy in a block of the text's length plus 513 bytes; null leaves no
// block. Only for "text" and "Pth " entries; others are left alone.
void SetEntryText(ParameterList* list, int32_t index, const char* text);
const char* EntryText(const ParameterEntry& entry);  // null when there is none

// The entry with that key, or null.
ParameterEntry* FindEntry(ParameterList* list, uint32_t key);
const ParameterEntry* FindEntry(const ParameterList* list, uint32_t key);

// Towards zero; the nearest 32-bit number for values beyond them, 0 for not-a-number.
int32_t TruncateToInteger(float value);

}  // namespace tessaline
