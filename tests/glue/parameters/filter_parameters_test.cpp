#include "glue/parameters/filter_parameters.h"

#include <bit>
#include <cmath>
#include <cstring>
#include <limits>

#include "glue/parameters/parameter_list.h"
#include "image/result_codes.h"
#include "platform/memory.h"
#include "tests/glue/scratch_folder.h"

namespace tessaline {
namespace {

struct Values {
  float acceptance, notchRadius, protectionRadius;
  bool operator==(const Values&) const = default;
};

class FilterParametersTest : public PreferencesTest {
 protected:
  ~FilterParametersTest() override { ClearAllocationFailure(); }

  // What a run gets whose settings record holds `settings`.
  static Values ValuesFromSettings(const Values& settings) {
    imageInfo.settings.acceptance = settings.acceptance;
    imageInfo.settings.notchRadius = settings.notchRadius;
    imageInfo.settings.protectionRadius = settings.protectionRadius;
    ParameterList* const list = MakeParameterList();
    ProgramHandle* const handle = MakeParameters(*list);
    const FilterParameters made = *ParametersOf(handle);
    DisposeHandle(handle);
    FreeParameterList(list);
    return {made.acceptance, made.notchRadius, made.protectionRadius};
  }
};

TEST_F(FilterParametersTest, TheProtectionRadiusDecidesAboutAllDefaultsTheNotchRadiusAboutItsOwn) {
  const float notANumber = std::numeric_limits<float>::quiet_NaN();
  const Values standard = {60, 6, 8};
  EXPECT_EQ(standard, ValuesFromSettings({0, 0, 0}));
  EXPECT_EQ(standard, ValuesFromSettings({80, 3, 0}));
  EXPECT_EQ(standard, ValuesFromSettings({80, 3, notANumber}));
  EXPECT_EQ((Values{0, 6, 5}), ValuesFromSettings({0, 0, 5}));
  EXPECT_EQ((Values{90, 6, 8}), ValuesFromSettings({90, notANumber, 8}));
  EXPECT_EQ((Values{37, 2.5f, -1}), ValuesFromSettings({37.9f, 2.5f, -1}));
}

TEST_F(FilterParametersTest, StoreParametersTruncatesForTheListOnly) {
  ParameterList* const list = MakeParameterList();
  FilterParameters parameters{};
  parameters.acceptance = 72.75f;
  parameters.notchRadius = 4.5f;
  parameters.protectionRadius = 16.25f;
  StoreParameters(parameters, list);
  EXPECT_EQ(72u, FindEntry(list, kKeyAcceptance)->valueBits);
  EXPECT_EQ(4.5f, std::bit_cast<float>(FindEntry(list, kKeyNotchRadius)->valueBits));
  EXPECT_EQ(16.25f, std::bit_cast<float>(FindEntry(list, kKeyProtectionRadius)->valueBits));
  EXPECT_EQ(72.75f, imageInfo.settings.acceptance);
  EXPECT_EQ(4.5f, imageInfo.settings.notchRadius);
  EXPECT_EQ(16.25f, imageInfo.settings.protectionRadius);
  FreeParameterList(list);
}

}  // namespace
}  // namespace tessaline
