#include "glue/parameters/settings_record.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <new>

#include "image/result_codes.h"
#include "platform/files.h"
#include "platform/memory.h"

namespace tessaline {

static_assert(offsetof(SettingsRecord, unusedSetting) == 8);
static_assert(offsetof(SettingsRecord, unusedSettingCompanion) == 12);
static_assert(offsetof(SettingsRecord, acceptance) == 1176);
static_assert(offsetof(SettingsRecord, notchRadius) == 1180);
static_assert(offsetof(SettingsRecord, protectionRadius) == 1184);

ImageInfo imageInfo;
char* textRecords[kTextRecords];

namespace {

constexpr char kPreferencesName[] = "Plug-In Preferences.xyz";

// Set while the file may hold what memory does not: it could not be read, or its text records not be taken.
bool g_fileMustStay = false;

bool AllocateTextRecords() {
  FreeTextRecords();
  for (char*& record : textRecords) {
    record = static_cast<char*>(LockNewBlock(kTextRecordBytes));
    if (record == nullptr) return false;
  }
  return true;
}

uint8_t* TextRecordIn(uint8_t* file, int32_t index) {
  return file + kSettingsBytes + ptrdiff_t{index} * kTextRecordBytes;
}

// The platform names files by strings, and one that has no memory for them throws. To a run that is what any
// other trouble with the file is.
int64_t ReadFileInto(uint8_t* file) {
  try {
    return ReadPrivateFile(kPreferencesName, file, kPreferencesFileBytes);
  } catch (const std::bad_alloc&) {
    return kFileIsUnreadable;
  }
}

bool ReplaceFile(const uint8_t* file) {
  try {
    return ReplacePrivateFile(kPreferencesName, file, kPreferencesFileBytes);
  } catch (const std::bad_alloc&) {
    return false;
  }
}

}  // namespace

void FreeTextRecords() {
  for (char*& record : textRecords) {
    FreeLockedBlock(record);
    record = nullptr;
  }
}

void SetPreferencesFolder(const char* path) {
  SetPrivateFolder(path);
}

void ClearSettings() {
  imageInfo.settings = {};
  FreeTextRecords();
}

int32_t ReadPreferences() {
  const OwnedBlock<uint8_t> file = AllocateBlock<uint8_t>(kPreferencesFileBytes);
  g_fileMustStay = !AllocateTextRecords() || !file;
  if (g_fileMustStay) return kInvalidSlotOrFile;

  const auto bytes = static_cast<int32_t>(ReadFileInto(file.get()));
  g_fileMustStay = bytes == kFileIsUnreadable;
  if (bytes < 0) return kInvalidSlotOrFile;
  std::memcpy(&imageInfo.settings, file.get(), static_cast<size_t>(std::min(bytes, kSettingsBytes)));
  if (bytes < kSettingsBytes) return kInvalidSlotOrFile;
  for (int32_t i = 0; i < kTextRecords; ++i) {
    // Past the file's end the block holds zeros: an empty text, as a new record has.
    std::memcpy(textRecords[i], TextRecordIn(file.get(), i), kTextRecordBytes - 1);
  }
  return kSuccess;
}

int32_t WritePreferences() {
  const OwnedBlock<uint8_t> file = AllocateBlock<uint8_t>(kPreferencesFileBytes);
  bool isWritten = false;
  if (file && !g_fileMustStay) {
    std::memcpy(file.get(), &imageInfo.settings, kSettingsBytes);
    for (int32_t i = 0; i < kTextRecords; ++i) {
      if (textRecords[i] == nullptr) continue;
      std::memcpy(TextRecordIn(file.get(), i), textRecords[i], strnlen(textRecords[i], kTextRecordBytes));
    }
    isWritten = ReplaceFile(file.get());
  }
  FreeTextRecords();
  return isWritten ? kSuccess : kInvalidSlotOrFile;
}

void ApplySettingsDefaults() {
  SettingsRecord& settings = imageInfo.settings;
  const bool isSet = settings.unusedSetting < 0.0f || settings.unusedSetting > 0.0f;
  if (isSet) return;
  settings.unusedSettingCompanion = 1.0f / 72.0f;
  static_assert(1.0f / 72.0f == 0.013888889f);
  settings.unusedSetting = 6.0f;
}

}  // namespace tessaline
