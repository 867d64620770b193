#include <clocale>
#include <cstdio>
#include <string>

#include "glue/api/parameter_text.h"
#include "tests/glue/scratch_folder.h"

namespace tessaline {
namespace {

class ParameterTextLocaleTest : public PreferencesTest {
 protected:
  ~ParameterTextLocaleTest() override { std::setlocale(LC_ALL, "C"); }
};

TEST_F(ParameterTextLocaleTest, AHostWithADecimalCommaChangesNothing) {
  ASSERT_NE(nullptr, std::setlocale(LC_ALL, "German"));
  char control[8];
  std::snprintf(control, sizeof control, "%.1f", 0.5);
  ASSERT_STREQ("0,5", control);

  ParameterList* const list = MakeParameterList();
  const std::string text = "<long>epsT,60\r\n<doub>NoRd,6.250000\r\n<doub>LFct,8.500000\r\n";
  ReadParameterText(text.c_str(), text.size(), list);
  char written[256];
  WriteParameterText(*list, written, sizeof written);
  EXPECT_EQ(text, written);
  FreeParameterList(list);
}

}  // namespace
}  // namespace tessaline
