// What the filter remembers between runs: the settings record in memory and the preferences file on disk.
#pragma once

#include <cstdint>

namespace tessaline {

constexpr int32_t kSettingsBytes = 4096;
constexpr int32_t kTextRecords = 48;
constexpr int32_t kTextRecordBytes = 1024;
constexpr int32_t kPreferencesFileBytes = kSettingsBytes + kTextRecords * kTextRecordBytes;
static_assert(kPreferencesFileBytes == 53248);

#pragma pack(push, 4)
struct SettingsRecord {
  uint8_t kept0[8];
  float unusedSetting;           // offset 8; never zero once defaults were applied (6.0)
  float unusedSettingCompanion;  // offset 12; set together with it (1/72)
  uint8_t kept1[1160];
  float acceptance;        // offset 1176: percent, of the last dialog that ended with OK
  float notchRadius;       // offset 1180: spectrum cells
  float protectionRadius;  // offset 1184: image pixels
  uint8_t kept2[2908];
};
#pragma pack(pop)
static_assert(sizeof(SettingsRecord) == kSettingsBytes);

// Program-wide record of the run's image and the settings that outlive it.
struct ImageInfo {
  int32_t width;  // of the work rectangle
  int32_t height;
  int32_t colorPlanes;
  int32_t extraPlanes;  // alpha and spot channels
  int32_t channelBytes;
  int32_t mainBuffer;   // slots in the buffer table, 0: none
  int32_t alphaBuffer;  // extra planes
  int32_t maskBuffer;   // selection
  SettingsRecord settings;
};
extern ImageInfo imageInfo;

// The text records between the read and the write of the preferences: blocks of kTextRecordBytes, each
// NUL-terminated, or null. Nothing in the program fills them; they are carried from file to file.
extern char* textRecords[kTextRecords];

// Frees the blocks of the text records, for a run that ends between ReadPreferences and WritePreferences.
void FreeTextRecords();

// Keeps the preferences file in the folder `path` from now on; null restores the user's own place. As
// SetPrivateFolder of platform/files.h, which also tells where that place is.
void SetPreferencesFolder(const char* path);

// Zeroes the settings record and forgets the text records (frees their blocks), as each run does before it
// reads the preferences.
void ClearSettings();

// Fills the settings record and the 48 text records from the preferences file "Plug-In Preferences.xyz". 0,
// or kInvalidSlotOrFile when the file cannot be opened or is shorter than its 4096-byte head (what was read
// of the head stays in the record; the text records are empty), or there is no memory for the text records
// (the settings record is as it was).
int32_t ReadPreferences();

// Writes the file anew (a text is cut to 1024 bytes) and frees the text records, also on failure. 0, or
// kInvalidSlotOrFile, with the file that was there before untouched. The file appears whole or not at all,
// also with two processes at once. Also refused after a ReadPreferences that found a file it could not read,
// or could not hold its text records: what is in the file would otherwise be lost. A missing file is no such
// file.
int32_t WritePreferences();

// Gives a settings record whose setting at offset 8 is zero or not a number its two defaults there.
void ApplySettingsDefaults();

}  // namespace tessaline
