#include "glue/api/parameter_text.h"

#include <bit>
#include <cstring>
#include <string>

#include "image/result_codes.h"
#include "platform/message.h"
#include "tests/glue/scratch_folder.h"

namespace tessaline {
namespace {

std::string g_messages;

class ParameterTextTest : public PreferencesTest {
 protected:
  ParameterTextTest() : list(MakeParameterList()) {
    g_messages.clear();
    SetMessageHandler(
        [](const char* text, const char* title) { g_messages += std::string(title) + ": " + text + "\n"; });
  }
  ~ParameterTextTest() override {
    SetMessageHandler(nullptr);
    FreeParameterList(list);
  }
  void Read(const std::string& text) { EXPECT_EQ(kSuccess, ReadParameterText(text.c_str(), 4096, list)); }
  std::string Write(size_t capacity = 4096) const {
    std::string text(4096, '#');
    WriteParameterText(*list, text.data(), capacity);
    return text.substr(0, text.find('\0'));
  }
  int32_t Acceptance() const { return static_cast<int32_t>(list->entries[0].valueBits); }
  float NotchRadius() const { return std::bit_cast<float>(list->entries[1].valueBits); }
  ParameterEntry* Add(uint32_t key, uint32_t type, int32_t minimum, int32_t maximum, int32_t value) {
    AddLongEntry(list, key, minimum, maximum, value);
    ParameterEntry* const entry = &list->entries[list->entryCount - 1];
    entry->type = type;
    return entry;
  }

  ParameterList* list;
};

TEST_F(ParameterTextTest, WritesALinePerEntryAndReadsItBack) {
  const std::string text = "<long>epsT,60\r\n<doub>NoRd,6.000000\r\n<doub>LFct,8.000000\r\n";
  Read(text);
  EXPECT_EQ(text, Write());
  Read("<long>epsT,7\r\n<doub>NoRd,1.0625\r\n<doub>LFct,127.9\r\n");
  EXPECT_EQ("<long>epsT,7\r\n<doub>NoRd,1.062500\r\n<doub>LFct,127.900002\r\n", Write());
}

TEST_F(ParameterTextTest, PositionsCountNotTagsNorOrder) {
  Read("123456NoRd:2.5\r\t\n<abcd>ep\x01sT;61%\r\n");
  EXPECT_EQ(2.5f, NotchRadius());
  EXPECT_EQ(61, Acceptance());
}

TEST_F(ParameterTextTest, LooksAtAsManyLinesAsTheListHasEntries) {
  Read("\r\n\r\n<long>epsT,61\r\n<doub>NoRd,3\r\n");
  EXPECT_EQ(61, Acceptance());
  EXPECT_EQ(0.0f, NotchRadius());
  // Line feeds alone do not end a line: the second is the tail of the first.
  Read("<long>epsT,62\n<doub>NoRd,3\n");
  EXPECT_EQ(62, Acceptance());
  EXPECT_EQ(0.0f, NotchRadius());
  list->extraTextLines = 1;
  Read("\r\n\r\n\r\n<doub>NoRd,3\r\n");
  EXPECT_EQ(3.0f, NotchRadius());
}

TEST_F(ParameterTextTest, ValuesThatDoNotFitAreIgnored) {
  struct Case {
    const char* value;
    int32_t acceptance;  // 50 before; 50 after: ignored
    float notchRadius;   // 5 before
  };
  const Case cases[] = {
      {"0", 0, 5},      {"100", 100, 5},        {"101", 50, 5},        {"-1", 50, 5},
      {"1", 1, 1},      {"16", 16, 16},         {"16.0000001", 16, 5}, {"0.999999", 0, 5},
      {"", 50, 5},      {"none", 50, 5},        {"nan", 50, 5},        {"inf", 50, 5},
      {" +12", 12, 12}, {"99999999999", 50, 5}, {"1e999", 1, 5},       {"7,5", 7, 7},
      {"0x10", 0, 5},   {"+-3", 50, 5},         {"4 and more", 4, 4},
  };
  for (const Case& c : cases) {
    Read("<long>epsT,50\r\n<doub>NoRd,5\r\n");
    Read(std::string("<long>epsT,") + c.value + "\r\n<doub>NoRd," + c.value + "\r\n");
    EXPECT_EQ(c.acceptance, Acceptance()) << c.value;
    EXPECT_EQ(c.notchRadius, NotchRadius()) << c.value;
  }
}

TEST_F(ParameterTextTest, SwitchesUnitsEnumerationsAndTextsHaveTheirForms) {
  const auto* const isOn = Add(FourCharCode("swit"), kTypeBool, 0, 1, 0);
  const auto* const unit = Add(kKeyUnit, kTypeLong, 0, 9, 3);
  const auto* const brush = Add(FourCharCode("shap"), FourCharCode("BrSh"), 0, 0x7FFFFFFF, 0x61626364);
  const auto* const path = Add(FourCharCode("file"), kTypePath, 0, 0, 0);
  const std::string three = "<long>epsT,0\r\n<doub>NoRd,0.000000\r\n<doub>LFct,0.000000\r\n";
  EXPECT_EQ(three + "<bool>swit,F\r\n<unit>unCd,0003\r\n<BrSh>shap,abcd\r\n<Pth >file,\r\n", Write());

  Read("<bool>swit,t\r\n<unit>unCd,0007\r\n<BrSh>shap,0012\r\n<Pth >file,/a,b \xC3\xA4\r\n");
  EXPECT_EQ(1u, isOn->valueBits);
  EXPECT_EQ(7u, unit->valueBits);
  EXPECT_EQ(0x0102u, brush->valueBits);
  EXPECT_STREQ("/a,b \xC3\xA4", EntryText(*path));
  EXPECT_EQ(three + "<bool>swit,T\r\n<unit>unCd,0007\r\n<BrSh>shap,0012\r\n<Pth >file,/a,b \xC3\xA4\r\n",
            Write());

  Read("<bool>swit,yes\r\n<unit>unCd,00:0\r\n<BrSh>shap,012\r\n");
  EXPECT_EQ(0u, isOn->valueBits);
  EXPECT_EQ(7u, unit->valueBits);
  EXPECT_EQ(0x0102u, brush->valueBits);
}

TEST_F(ParameterTextTest, AnUnknownTypeIsShownAndLeftOut) {
  Add(FourCharCode("wxyz"), FourCharCode("abcd"), 0, 1, 0);
  Add(0, 0, 0, 1, 0);
  Add(FourCharCode("last"), kTypeBool, 0, 1, 0);
  EXPECT_NE(std::string::npos, Write().find("LFct,0.000000\r\n<bool>last,F\r\n"));
  EXPECT_EQ("Diagnostic: typ=,abcd,key=,wxyz\nDiagnostic: typ=,    ,key=,    \n", g_messages);
}

TEST_F(ParameterTextTest, NeverLeavesTheBlock) {
  EXPECT_EQ("<long>epsT,0\r\n", Write(15));
  EXPECT_EQ("", Write(14));
  EXPECT_EQ("", Write(1));
  EXPECT_EQ('#', Write(0)[0]);
  WriteParameterText(*list, nullptr, 4096);
  const char unterminated[] = {'<', 'l', 'o', 'n', 'g', '>', 'e', 'p', 's', 'T', ',', '4', '2'};
  EXPECT_EQ(kSuccess, ReadParameterText(unterminated, sizeof unterminated, list));
  EXPECT_EQ(42, Acceptance());
  EXPECT_EQ(kInvalidSlotOrFile, ReadParameterText(nullptr, 4096, list));
}

}  // namespace
}  // namespace tessaline
