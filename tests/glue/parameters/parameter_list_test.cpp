#include "glue/parameters/parameter_list.h"

#include <cstring>
#include <string>

#include "tests/glue/scratch_folder.h"

namespace tessaline {
namespace {

class ParameterListTest : public PreferencesTest {
 protected:
  ParameterListTest() : list(MakeParameterList()) {}
  ~ParameterListTest() override { FreeParameterList(list); }

  uint32_t Word(size_t index) const {
    uint32_t word = 0;
    std::memcpy(&word, reinterpret_cast<const char*>(list) + index * sizeof word, sizeof word);
    return word;
  }

  ParameterList* list;
};

TEST_F(ParameterListTest, TextsAreCopiesOfTheirOwn) {
  list->entries[3] = {FourCharCode("file"), kTypePath, 1, 0, 0, 0};
  list->entryCount = 4;
  EXPECT_EQ(nullptr, EntryText(list->entries[3]));
  std::string text = "somewhere";
  SetEntryText(list, 3, text.c_str());
  text[0] = '?';
  EXPECT_STREQ("somewhere", EntryText(list->entries[3]));
  SetEntryText(list, 3, EntryText(list->entries[3]) + 4);
  EXPECT_STREQ("where", EntryText(list->entries[3]));
  // The block has room for 512 characters more.
  std::memset(const_cast<char*>(EntryText(list->entries[3])) + 5, 'x', 512);
  EXPECT_EQ(517u, std::strlen(EntryText(list->entries[3])));
  SetEntryText(list, 3, nullptr);
  EXPECT_EQ(nullptr, EntryText(list->entries[3]));
}

TEST_F(ParameterListTest, TakesTwentyEntriesAndNoMore) {
  for (uint32_t i = 3; i < 25; ++i) AddLongEntry(list, i, 0, 1, static_cast<int32_t>(i));
  EXPECT_EQ(kMostEntries, list->entryCount);
  EXPECT_NE(nullptr, FindEntry(list, 19));
  EXPECT_EQ(nullptr, FindEntry(list, 20));
}

}  // namespace
}  // namespace tessaline
