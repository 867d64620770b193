#include "glue/host/scripting.h"

#include <bit>
#include <cmath>
#include <utility>

#include "glue/parameters/filter_parameters.h"
#include "tests/glue/host/host_fixture.h"

namespace tessaline {
namespace {

using testhost::DescriptorValue;
using testhost::HandleTable;

constexpr uint32_t kKeyPath = FourCharCode("path");
constexpr uint32_t kKeyFlag = FourCharCode("flag");
constexpr uint32_t kKeyBrush = FourCharCode("brus");
constexpr uint32_t kTypeBrush = FourCharCode("BrTy");
constexpr uint32_t kEnumType = FourCharCode("enum");

DescriptorValue Integer(uint32_t key, int64_t value) {
  return {key, host::kDescriptorInteger, value, 0.0, {}};
}
DescriptorValue Float(uint32_t key, double value) {
  return {key, host::kDescriptorFloat, 0, value, {}};
}
DescriptorValue Boolean(uint32_t key, int64_t value) {
  return {key, host::kDescriptorBoolean, value, 0.0, {}};
}
DescriptorValue Enumerated(uint32_t key, uint32_t type, int64_t value) {
  return {key, type, value, 0.0, {}};
}
DescriptorValue PathText(const std::string& text) {
  return {kKeyPath, host::kDescriptorText, 0, 0.0, text};
}

// A filter of descriptors alone, over a list with an entry of every type.
class ScriptingTest : public HostTest {
 protected:
  ScriptingTest() {
    list_ = MakeParameterList();
    AddLongEntry(list_, kKeyUnit, 0, 5, 1);
    AddEntry(kKeyBrush, kTypeBrush, 2, 9, 3);
    AddEntry(kKeyFlag, kTypeBool, 0, 0, 0);
    AddEntry(kKeyPath, kTypePath, 0, 0, 0);
    SetLong(kKeyAcceptance, 60);
    SetFloat(kKeyNotchRadius, 6.0f);
    SetFloat(kKeyProtectionRadius, 8.0f);
  }
  ~ScriptingTest() override { FreeParameterList(list_); }

  static void AddEntry(uint32_t key, uint32_t type, uint32_t minimum, uint32_t maximum, uint32_t value) {
    list_->entries[list_->entryCount++] = {key, type, 1, minimum, maximum, value};
  }
  static void SetLong(uint32_t key, int32_t value) {
    FindEntry(list_, key)->valueBits = static_cast<uint32_t>(value);
  }
  static void SetFloat(uint32_t key, float value) {
    FindEntry(list_, key)->valueBits = std::bit_cast<uint32_t>(value);
  }
  static int32_t Long(uint32_t key) { return static_cast<int32_t>(FindEntry(list_, key)->valueBits); }
  static float Real(uint32_t key) { return std::bit_cast<float>(FindEntry(list_, key)->valueBits); }
  static std::string Path() {
    const char* const text = EntryText(*FindEntry(list_, kKeyPath));
    return text != nullptr ? text : "(none)";
  }

  static intptr_t ReadAndWrite(int16_t selector, void* block, intptr_t* data, int16_t* result) {
    if (selector != host::kSelectorStart) return PluginMain(selector, block, data, result);
    auto* const record = static_cast<host::FilterRecord*>(block);
    ReadDescriptor(record, list_);
    if (writes) *result = static_cast<int16_t>(WriteDescriptor(record, *list_));
    return *result;
  }

  static Report Play(const std::vector<DescriptorValue>& recording, Switches switches = {}) {
    switches.hasRecording = true;
    switches.recording = recording;
    writes = false;
    Report report = RunFilter(ReadAndWrite, MakeDocument(host::kModeGray, 8, 1, 4, 4), switches);
    EXPECT_NO_COMPLAINTS(report);
    return report;
  }
  static Report Record(const Switches& switches = {}) {
    writes = true;
    Report report = RunFilter(ReadAndWrite, MakeDocument(host::kModeGray, 8, 1, 4, 4), switches);
    EXPECT_EQ(0, report.result);
    EXPECT_NO_COMPLAINTS(report);
    EXPECT_EQ(0, report.handlesLeft);
    return report;
  }

  inline static ParameterList* list_ = nullptr;
  inline static bool writes = false;
};

TEST_F(ScriptingTest, ValuesAreTakenUpToTheEndsOfTheirRangesAndNotBeyond) {
  struct Case {
    DescriptorValue value;
    bool isTaken;
  };
  const Case longs[] = {{Integer(kKeyAcceptance, 0), true},          {Integer(kKeyAcceptance, 100), true},
                        {Integer(kKeyAcceptance, 101), false},       {Integer(kKeyAcceptance, -1), false},
                        {Float(kKeyAcceptance, 50.7), true},         {Float(kKeyAcceptance, 100.5), false},
                        {Float(kKeyAcceptance, std::nan("")), false}};
  for (const Case& c : longs) {
    SetLong(kKeyAcceptance, 60);
    Play({c.value});
    const int64_t played = c.value.integer + static_cast<int64_t>(c.isTaken ? c.value.real : 0.0);
    EXPECT_EQ(c.isTaken ? played : 60, Long(kKeyAcceptance));
  }
  const Case floats[] = {
      {Float(kKeyNotchRadius, 1.0), true},       {Float(kKeyNotchRadius, 16.0), true},
      {Float(kKeyNotchRadius, 20.0), false},     {Float(kKeyNotchRadius, 16.000000001), false},
      {Float(kKeyNotchRadius, 0.999999), false}, {Float(kKeyNotchRadius, std::nan("")), false},
      {Integer(kKeyNotchRadius, 3), true},       {Integer(kKeyNotchRadius, 17), false}};
  for (const Case& c : floats) {
    SetFloat(kKeyNotchRadius, 6.0f);
    Play({c.value});
    const double played = c.value.real + static_cast<double>(c.value.integer);
    EXPECT_EQ(c.isTaken ? static_cast<float>(played) : 6.0f, Real(kKeyNotchRadius));
  }
}

TEST_F(ScriptingTest, PlaysEveryTypeInAnyOrderAmongUnknownKeys) {
  const Report report =
      Play({PathText("C:\\a\xE9.txt"), Integer(FourCharCode("what"), 3), Boolean(kKeyFlag, 1),
            Float(kKeyProtectionRadius, 17.5), Enumerated(kKeyBrush, kEnumType, 0x30303034),
            Float(kKeyNotchRadius, 2.25), Enumerated(kKeyUnit, FourCharCode("UniT"), 0x30303035),
            Integer(kKeyAcceptance, 77)});
  EXPECT_EQ(77, Long(kKeyAcceptance));
  EXPECT_EQ(2.25f, Real(kKeyNotchRadius));
  EXPECT_EQ(17.5f, Real(kKeyProtectionRadius));
  EXPECT_EQ(5, Long(kKeyUnit));
  EXPECT_EQ(4, Long(kKeyBrush));
  EXPECT_EQ(1, Long(kKeyFlag));
  EXPECT_EQ("C:\\a\xE9.txt", Path());
  // The descriptor and the text are given back, and the field no longer names the one disposed.
  EXPECT_TRUE(report.descriptorIsNull);
  EXPECT_EQ(0, report.handlesLeft);
}

// A getter that does not fit the stored type ends some hosts: the fake one complains, and Play looks.
TEST_F(ScriptingTest, ValuesOfAnotherTypeAreLeftAlone) {
  Play({Boolean(kKeyAcceptance, 1), Integer(kKeyBrush, 4), Integer(kKeyFlag, 1), Integer(kKeyPath, 1),
        Enumerated(kKeyProtectionRadius, kEnumType, 9)});
  EXPECT_EQ(60, Long(kKeyAcceptance));
  EXPECT_EQ(8.0f, Real(kKeyProtectionRadius));
  EXPECT_EQ(3, Long(kKeyBrush));
  EXPECT_EQ(0, Long(kKeyFlag));
}

TEST_F(ScriptingTest, RecordsEveryTypeInTheListsOrder) {
  SetEntryText(list_, 6, "D:\\b.txt");
  SetLong(kKeyFlag, 1);
  for (const HandleTable table : {HandleTable::kWorking, HandleTable::kNull, HandleTable::kSevenRoutines,
                                  HandleTable::kMissingRoutine, HandleTable::kSizesAreZero}) {
    Switches switches;
    switches.handles = table;
    const Report report = Record(switches);
    EXPECT_EQ(
        (std::vector<DescriptorValue>{
            Integer(kKeyAcceptance, 60), Float(kKeyNotchRadius, 6.0), Float(kKeyProtectionRadius, 8.0),
            Enumerated(kKeyUnit, FourCharCode("UniT"), 0x30303031),
            Enumerated(kKeyBrush, kTypeBrush, 0x30303033), Boolean(kKeyFlag, 1), PathText("D:\\b.txt")}),
        report.recorded);
    EXPECT_EQ(host::kDialogOptional, report.recordInfo);
  }
}

}  // namespace
}  // namespace tessaline
