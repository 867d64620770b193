#include "glue/parameters/parameter_list.h"

#include <bit>
#include <cstring>

#include "glue/parameters/filter_parameters.h"
#include "glue/parameters/settings_record.h"
#include "platform/memory.h"

namespace tessaline {

namespace {

constexpr size_t kTextSlack = 513;  // bytes of a text block beyond its text, the NUL among them

bool HoldsText(const ParameterEntry& entry) {
  return entry.type == kTypeText || entry.type == kTypePath;
}

// The last two words of a text entry as one pointer.
char* TextBlock(const ParameterEntry& entry) {
  char* block = nullptr;
  std::memcpy(&block, &entry.maximumBits, sizeof block);
  return block;
}

void SetTextBlock(ParameterEntry* entry, char* block) {
  static_assert(sizeof block == 2 * sizeof(uint32_t));
  static_assert(offsetof(ParameterEntry, valueBits) ==
                offsetof(ParameterEntry, maximumBits) + sizeof(uint32_t));
  std::memcpy(reinterpret_cast<uint8_t*>(entry) + offsetof(ParameterEntry, maximumBits), &block,
              sizeof block);
}

void AddEntry(ParameterList* list, const ParameterEntry& entry) {
  if (list->entryCount >= kMostEntries) return;
  list->entries[list->entryCount++] = entry;
}

void AddRadiusEntry(ParameterList* list, uint32_t key, const SettingRange& range, float value) {
  AddFloatEntry(list, key, range.minimum, range.maximum, std::bit_cast<uint32_t>(value));
}

}  // namespace

ParameterList* MakeParameterList() {
  auto* const list = static_cast<ParameterList*>(LockNewBlock(sizeof(ParameterList)));
  if (list == nullptr) return nullptr;
  const SettingsRecord& settings = imageInfo.settings;
  list->eventCode = kEventFilter;
  AddLongEntry(list, kKeyAcceptance, static_cast<int32_t>(kAcceptanceRange.minimum),
               static_cast<int32_t>(kAcceptanceRange.maximum), TruncateToInteger(settings.acceptance));
  AddRadiusEntry(list, kKeyNotchRadius, kNotchRadiusRange, settings.notchRadius);
  AddRadiusEntry(list, kKeyProtectionRadius, kProtectionRadiusRange, settings.protectionRadius);
  return list;
}

void FreeParameterList(ParameterList* list) {
  if (list == nullptr) return;
  for (int32_t i = 0; i < list->entryCount; ++i) SetEntryText(list, i, nullptr);
  FreeLockedBlock(list);
}

void AddLongEntry(ParameterList* list, uint32_t key, int32_t minimum, int32_t maximum, int32_t value) {
  AddEntry(list, {key, kTypeLong, 1, static_cast<uint32_t>(minimum), static_cast<uint32_t>(maximum),
                  static_cast<uint32_t>(value)});
}

void AddFloatEntry(ParameterList* list, uint32_t key, float minimum, float maximum, uint32_t valueBits) {
  AddEntry(list, {key, kTypeFloat, 1, std::bit_cast<uint32_t>(minimum), std::bit_cast<uint32_t>(maximum),
                  valueBits});
}

void SetEntryText(ParameterList* list, int32_t index, const char* text) {
  if (index < 0 || index >= list->entryCount || !HoldsText(list->entries[index])) return;
  ParameterEntry& entry = list->entries[index];
  char* copy = nullptr;
  if (text != nullptr) {
    const size_t length = std::strlen(text);
    copy = static_cast<char*>(LockNewBlock(length + kTextSlack));
    if (copy != nullptr)
      std::memcpy(copy, text, length);  // NOLINT(bugprone-not-null-terminated-result): comes zeroed
  }
  FreeLockedBlock(TextBlock(entry));  // only now: `text` may lie in the old block
  SetTextBlock(&entry, copy);
}

const char* EntryText(const ParameterEntry& entry) {
  return HoldsText(entry) ? TextBlock(entry) : nullptr;
}

const ParameterEntry* FindEntry(const ParameterList* list, uint32_t key) {
  for (int32_t i = 0; i < list->entryCount; ++i) {
    if (list->entries[i].key == key) return &list->entries[i];
  }
  return nullptr;
}

ParameterEntry* FindEntry(ParameterList* list, uint32_t key) {
  return const_cast<ParameterEntry*>(FindEntry(static_cast<const ParameterList*>(list), key));
}

int32_t TruncateToInteger(float value) {
  constexpr float kBeyond = 2147483648.0f;  // the first value above 32 bits
  if (!(value == value)) return 0;
  if (value >= kBeyond) return INT32_MAX;
  if (value <= -kBeyond) return INT32_MIN;
  return static_cast<int32_t>(value);
}

}  // namespace tessaline
