#include "dialog/slider_control.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

namespace tessaline {
namespace {

constexpr int32_t kWideBar = 333;  // pixels: room for every position of the dialog's three sliders
constexpr int32_t kBarHeight = 17;

SliderControl MakeSlider(float minimum, float maximum, float value, SliderMapping mapping, float pageStep,
                         float lineStep, int32_t barWidth = kWideBar, int32_t barHeight = kBarHeight) {
  SliderControl slider = {};
  DescribeSlider(minimum, maximum, value, mapping, pageStep, lineStep, "name", barWidth, barHeight, &slider);
  return slider;
}

SliderControl Acceptance(float value) {
  return MakeSlider(0, 100, value, SliderMapping::kLinear, 2, 1);
}
SliderControl NotchRadius(float value) {
  return MakeSlider(1, 16, value, SliderMapping::kLinear, 0.5f, 0.5f);
}
SliderControl ProtectionRadius(float value) {
  return MakeSlider(1, 128, value, SliderMapping::kSquareRoot, 2, 0.5f);
}

std::string Formatted(double value, int32_t decimals) {
  uint8_t text[kFormattedNumberBytes];
  FormatNumber(value, text, decimals);
  std::string asDouble(reinterpret_cast<const char*>(text + 1), text[0]);
  FormatNumber(static_cast<float>(value), text, decimals);
  const std::string asFloat(reinterpret_cast<const char*>(text + 1), text[0]);
  return asFloat == asDouble ? asFloat : asDouble + " or " + asFloat;
}

TEST(FormatNumber, WritesSixDigitsAtMost) {
  struct Case {
    double value;
    int32_t decimals;
    const char* text;
  };
  const Case cases[] = {
      {0, 2, "0.0"},
      {4.5, 2, "4.50"},
      {-4.5, 2, "-4.50"},
      {0.03125, 4, "0.0312"},
      {1.25, 1, "1.2"},
      {7, 0, "7."},
      {9.999999, 2, "10.00"},
      {999.9999, 1, "1000.0"},
      {12345, 2, "1.23450e+4"},
      {-2.5e12, 2, "-2.50000e+12"},
      {99999.99, 2, "10.00000e+4"},
  };
  for (const Case& c : cases) EXPECT_EQ(c.text, Formatted(c.value, c.decimals)) << c.value;
}

TEST(Slider, ValueAndPositionFollowTheMapping) {
  const SliderControl root = ProtectionRadius(8);
  EXPECT_EQ(static_cast<int32_t>(std::sqrt(7.0 / 127.0) * 255), root.position);
  EXPECT_FLOAT_EQ(59.5f / 255 * (59.5f / 255) * 127 + 1, SliderValueAt(root, 59));
  EXPECT_EQ(128.0f, SliderValueAt(root, 255));
  // Typed: nearest instead of truncated.
  EXPECT_EQ(59, SliderPositionOf(root, 8, PositionRounding::kTruncate));
  EXPECT_EQ(60, SliderPositionOf(root, 8, PositionRounding::kNearest));

  const SliderControl linear = Acceptance(60);
  EXPECT_EQ(60, linear.position);
  EXPECT_FLOAT_EQ(37.0f, SliderValueAt(linear, 37));

  const SliderControl free = MakeSlider(0, 10, 4, SliderMapping::kLinearClamped, 1, 1);
  EXPECT_EQ(11.0f, ClampSliderValue(free, 11));
  EXPECT_EQ(free.positions, SliderPositionOf(free, 1000, PositionRounding::kTruncate));
  EXPECT_EQ(free.positions, LastSliderPosition(free));
  EXPECT_EQ(linear.positions - 1, LastSliderPosition(linear));
  const SliderControl log = MakeSlider(1, 17, 9, SliderMapping::kLogarithmic, 1, 1);
  EXPECT_EQ(-log.positions, SliderPositionOf(log, 9, PositionRounding::kTruncate));  // half of its range
  EXPECT_EQ(0, SliderPositionOf(log, 1, PositionRounding::kTruncate));
  // Whole numbers: at set-up those below 0 are rounded as those above, later away from 0.
  const SliderControl whole = MakeSlider(-100, 100, -2.6f, SliderMapping::kLinear, 2, 1);
  EXPECT_EQ("-2", SliderText(whole, TextMoment::kSetUp));
  EXPECT_EQ("-3", SliderText(whole, TextMoment::kLater));
}

TEST(Slider, TypedTextIsReadAsFarAsItIsANumberAndClamped) {
  struct Case {
    const char* text;
    float value;
  };
  const Case cases[] = {{"12", 12},    {" 7.25", 7.25f}, {"+3", 3},     {"4,5", 4.5f},
                        {"5 px", 5},   {"abc", 1},       {"-", 1},      {".", 1},
                        {"-50", 1},    {"1e9", 16},      {"1e999", 16}, {"-1e999", 1},
                        {"1e-999", 1}, {"nan", 1},       {"inf", 16},   {"\xE4", 1}};
  for (const Case& c : cases) {
    const SliderControl slider = NotchRadius(6);
    EXPECT_EQ(c.value, ParseSliderText(slider, c.text)) << c.text;
  }
  EXPECT_EQ(std::nullopt, ParseSliderText(NotchRadius(6), ""));
  EXPECT_EQ(16.0f, ParseSliderText(NotchRadius(6), std::string(300, '9')));
}

TEST(Slider, TypingTheCurrentValueOrWhatIsShownChangesNothing) {
  SliderControl slider = ProtectionRadius(8.149f);
  slider.shownText = SliderText(slider, TextMoment::kSetUp);
  EXPECT_EQ("8.14", slider.shownText);
  EXPECT_FALSE(AcceptTypedValue(&slider, "8.14"));
  EXPECT_EQ(8.149f, slider.value);
  EXPECT_TRUE(AcceptTypedValue(&slider, "8"));
  EXPECT_EQ(60, slider.position);
  EXPECT_FALSE(AcceptTypedValue(&slider, "8.000"));
  EXPECT_FALSE(AcceptTypedValue(&slider, ""));
  EXPECT_TRUE(AcceptTypedValue(&slider, "8.14"));  // no longer what is shown, but what is typed
  for (const char* const text : {"", "abc", "-", "500", "8"})
    EXPECT_FALSE(IsTextOfValue(slider, text)) << text;
  for (const char* const text : {"8,14", " +8.140 px"}) EXPECT_TRUE(IsTextOfValue(slider, text)) << text;
}

TEST(Slider, LinearStepsLandOnMultiples) {
  SliderControl notch = NotchRadius(4.3f);
  const auto step = [&](ScrollAction action) {
    EXPECT_TRUE(ScrollSlider(&notch, action, 0));
    return notch.value;
  };
  EXPECT_FLOAT_EQ(4.0f, step(ScrollAction::kLineUp));
  EXPECT_FLOAT_EQ(3.5f, step(ScrollAction::kPageUp));
  EXPECT_FLOAT_EQ(4.0f, step(ScrollAction::kLineDown));
  notch.value = 4.3f;
  EXPECT_FLOAT_EQ(4.5f, step(ScrollAction::kPageDown));
  EXPECT_FLOAT_EQ(1.0f, step(ScrollAction::kTop));
  EXPECT_FALSE(ScrollSlider(&notch, ScrollAction::kLineUp, 0));
  EXPECT_FLOAT_EQ(16.0f, step(ScrollAction::kBottom));
  EXPECT_EQ(notch.positions, notch.position);
  EXPECT_FALSE(ScrollSlider(&notch, ScrollAction::kLineDown, 0));
  // From end to end in both directions, half a cell at a time.
  int32_t steps = 0;
  while (ScrollSlider(&notch, ScrollAction::kLineUp, 0)) ++steps;
  EXPECT_EQ(30, steps);
  while (ScrollSlider(&notch, ScrollAction::kLineDown, 0)) --steps;
  EXPECT_EQ(0, steps);

  SliderControl acceptance = Acceptance(60);
  EXPECT_TRUE(ScrollSlider(&acceptance, ScrollAction::kPageDown, 0));
  EXPECT_NEAR(62.0f, acceptance.value, 1e-2);
  EXPECT_TRUE(ScrollSlider(&acceptance, ScrollAction::kThumb, 17));
  EXPECT_FLOAT_EQ(17.0f, acceptance.value);
  EXPECT_EQ(17, acceptance.position);

  SliderControl vertical = MakeSlider(0, 10, 3, SliderMapping::kLinear, 1, 1, 20, 200);
  EXPECT_TRUE(ScrollSlider(&vertical, ScrollAction::kLineUp, 0));
  EXPECT_NEAR(4.0f, vertical.value, 1e-3);
}

TEST(Slider, SquareRootBarMovesByPositions) {
  SliderControl slider = ProtectionRadius(8);
  EXPECT_TRUE(ScrollSlider(&slider, ScrollAction::kLineDown, 0));
  EXPECT_EQ(60, slider.position);
  EXPECT_EQ(SliderValueAt(slider, 60), slider.value);
  EXPECT_TRUE(ScrollSlider(&slider, ScrollAction::kPageDown, 0));
  EXPECT_EQ(60 + 25, slider.position);
  EXPECT_TRUE(ScrollSlider(&slider, ScrollAction::kBottom, 0));
  EXPECT_EQ(128.0f, slider.value);
  EXPECT_FALSE(ScrollSlider(&slider, ScrollAction::kPageDown, 0));
  EXPECT_TRUE(ScrollSlider(&slider, ScrollAction::kTop, 0));
  EXPECT_FALSE(ScrollSlider(&slider, ScrollAction::kPageUp, 0));
  EXPECT_EQ(0, slider.position);
  EXPECT_TRUE(ScrollSlider(&slider, ScrollAction::kThumb, 60));
  EXPECT_EQ(SliderValueAt(slider, 60), slider.value);
  EXPECT_TRUE(ScrollSlider(&slider, ScrollAction::kLineUp, 0));
  EXPECT_EQ(59, slider.position);
  // Even the shortest bar reaches the maximum.
  SliderControl shortBar = MakeSlider(1, 128, 8, SliderMapping::kSquareRoot, 2, 0.5f, 40);
  EXPECT_TRUE(ScrollSlider(&shortBar, ScrollAction::kBottom, 0));
  EXPECT_EQ(128.0f, shortBar.value);
}

TEST(SpinArrows, StepFromAnyValueAndStayInRange) {
  EXPECT_EQ(65.0f, NextAcceptance(60, true));
  EXPECT_EQ(0.0f, NextAcceptance(3, false));
  EXPECT_EQ(100.0f, NextAcceptance(100, true));
  EXPECT_EQ(0.0f, NextAcceptance(0, false));
  EXPECT_EQ(70.0f, NextAcceptance(63, true));  // 63 counts as 65
  EXPECT_EQ(6.5f, NextNotchRadius(6, true));
  EXPECT_EQ(4.0f, NextNotchRadius(4.3f, false));
  EXPECT_EQ(1.0f, NextNotchRadius(1, false));
  EXPECT_EQ(16.0f, NextNotchRadius(16, true));
  EXPECT_EQ(2.0f, NextProtectionRadius(1, true));
  EXPECT_EQ(1.0f, NextProtectionRadius(1, false));
  EXPECT_EQ(4.0f, NextProtectionRadius(8, false));
  EXPECT_EQ(128.0f, NextProtectionRadius(100, true));
  EXPECT_EQ(64.0f, NextProtectionRadius(100, false));
  EXPECT_EQ(4.0f, NextProtectionRadius(2.9f, true));
  EXPECT_EQ(8.0f, NextProtectionRadius(3, true));
}

}  // namespace
}  // namespace tessaline
