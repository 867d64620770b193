#include "glue/parameters/settings_record.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "image/result_codes.h"
#include "platform/files.h"
#include "platform/memory.h"
#include "tests/glue/scratch_folder.h"

namespace tessaline {
namespace {

class SettingsTest : public PreferencesTest {
 protected:
  ~SettingsTest() override { ClearAllocationFailure(); }

  // A whole preferences file with no two neighbouring bytes alike and no NUL inside a text.
  static std::string WholeFile() {
    std::string bytes(kPreferencesFileBytes, '\0');
    for (int32_t i = 0; i < kPreferencesFileBytes; ++i) bytes[i] = static_cast<char>(1 + i % 251);
    return bytes;
  }
  void WriteFile(const std::string& bytes) const {
    std::ofstream(PreferencesPath(), std::ios::binary) << bytes;
  }
  std::string ReadFile() const {
    std::ifstream file(PreferencesPath(), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }
  static std::string SettingsBytes() {
    return {reinterpret_cast<const char*>(&imageInfo.settings), sizeof imageInfo.settings};
  }
};

TEST_F(SettingsTest, TheFileGoesThroughUnchangedButForTheLastByteOfEachText) {
  std::string bytes = WholeFile();
  WriteFile(bytes);
  EXPECT_EQ(kSuccess, ReadPreferences());
  EXPECT_EQ(bytes.substr(0, 4096), SettingsBytes());
  EXPECT_EQ(bytes.substr(4096, 1023), textRecords[0]);
  EXPECT_EQ(kSuccess, WritePreferences());
  for (int32_t k = 0; k < kTextRecords; ++k) bytes[4096 + 1024 * k + 1023] = '\0';
  EXPECT_EQ(bytes, ReadFile());
  EXPECT_TRUE(
      std::all_of(std::begin(textRecords), std::end(textRecords), [](char* t) { return t == nullptr; }));
}

TEST_F(SettingsTest, AShortHeadFillsWhatItHasAndReadsNoText) {
  imageInfo.settings.kept2[2907] = 0xAB;
  WriteFile(WholeFile().substr(0, 4000));
  EXPECT_EQ(kInvalidSlotOrFile, ReadPreferences());
  EXPECT_EQ(WholeFile().substr(0, 4000), SettingsBytes().substr(0, 4000));
  EXPECT_EQ('\xAB', SettingsBytes()[4095]);
  EXPECT_STREQ("", textRecords[0]);
}

TEST_F(SettingsTest, AFileCutInATextKeepsTheTextsBeforeTheCut) {
  WriteFile(WholeFile().substr(0, 4096 + 1024 + 10));
  EXPECT_EQ(kSuccess, ReadPreferences());
  EXPECT_EQ(1023u, std::strlen(textRecords[0]));
  EXPECT_EQ(10u, std::strlen(textRecords[1]));
  EXPECT_STREQ("", textRecords[2]);
}

TEST_F(SettingsTest, WithoutAFileTheTextsAreEmptyAndAWholeOneIsWritten) {
  EXPECT_EQ(kInvalidSlotOrFile, ReadPreferences());
  EXPECT_STREQ("", textRecords[47]);
  imageInfo.settings.acceptance = 37.9f;
  FreeLockedBlock(textRecords[5]);
  textRecords[5] = static_cast<char*>(LockNewBlock(1501));
  std::memset(textRecords[5], 'x', 1500);
  EXPECT_EQ(kSuccess, WritePreferences());
  const std::string file = ReadFile();
  ASSERT_EQ(53248u, file.size());
  EXPECT_EQ(0, std::memcmp(&imageInfo.settings.acceptance, &file[1176], 4));
  EXPECT_EQ(std::string(1024, 'x') + '\0', file.substr(4096 + 5 * 1024, 1025));
}

TEST_F(SettingsTest, DefaultsFillAnUnsetRecordOnly) {
  for (const float unset : {0.0f, std::nanf("")}) {
    imageInfo.settings.unusedSetting = unset;
    ApplySettingsDefaults();
    EXPECT_EQ(6.0f, imageInfo.settings.unusedSetting);
    EXPECT_EQ(0.013888889f, imageInfo.settings.unusedSettingCompanion);
  }
  imageInfo.settings.unusedSetting = -2.0f;
  imageInfo.settings.unusedSettingCompanion = 9.0f;
  ApplySettingsDefaults();
  EXPECT_EQ(-2.0f, imageInfo.settings.unusedSetting);
  EXPECT_EQ(9.0f, imageInfo.settings.unusedSettingCompanion);
}

TEST_F(SettingsTest, TextsThatMemoryCouldNotTakeStayInTheFile) {
  WriteFile(WholeFile());
  FailAllocationAfter(20);
  EXPECT_EQ(kInvalidSlotOrFile, ReadPreferences());
  ClearAllocationFailure();
  EXPECT_EQ(kInvalidSlotOrFile, WritePreferences());
  EXPECT_EQ(WholeFile(), ReadFile());
  EXPECT_EQ(kSuccess, ReadPreferences());
  EXPECT_EQ(kSuccess, WritePreferences());
}

TEST_F(SettingsTest, ReadersSeeOneWritersFileOrTheOthersNeverAMixture) {
  constexpr int kRounds = 60;
  const auto writeOften = [](char letter) {
    const std::string bytes(kPreferencesFileBytes, letter);
    int failures = 0;
    for (int i = 0; i < kRounds; ++i)
      failures += !ReplacePrivateFile("contested", bytes.data(), bytes.size());
    return failures;
  };
  ASSERT_EQ(0, writeOften('c'));
  std::atomic<int> failures{0};
  std::atomic<int> running{2};
  std::vector<std::thread> writers;
  for (const char letter : {'a', 'b'}) {
    writers.emplace_back([&, letter] {
      failures += writeOften(letter);
      --running;
    });
  }
  int reads = 0;
  std::string bytes(kPreferencesFileBytes, '\0');
  while (running > 0) {
    const int64_t count = ReadPrivateFile("contested", bytes.data(), bytes.size());
    ++reads;
    if (count == kPreferencesFileBytes && bytes == std::string(bytes.size(), bytes[0])) continue;
    ADD_FAILURE() << "read " << count << " bytes, not all from one writer";
    break;
  }
  for (std::thread& writer : writers) writer.join();
  EXPECT_EQ(0, failures);
  EXPECT_GT(reads, 0);
}

}  // namespace
}  // namespace tessaline
