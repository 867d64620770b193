// What a user may type into the dialog's three edit boxes, scroll and spin.
#include <cmath>

#include "dialog/slider_control.h"
#include "removal/settings.h"
#include "tests/fuzz/bytes.h"

int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count) {
  using namespace tessaline;
  fuzz::Bytes input(bytes, count);
  constexpr SettingRange kRanges[] = {kAcceptanceRange, kNotchRadiusRange, kProtectionRadiusRange};
  constexpr SliderMapping kMappings[] = {SliderMapping::kLinear, SliderMapping::kSquareRoot,
                                         SliderMapping::kLogarithmic, SliderMapping::kRangeOnly32};
  const SettingRange range = input.OneOf(kRanges);
  SliderControl slider = {};
  // Between the ends: every run makes its values usable before it shows them.
  const float part = static_cast<float>(input.Take<uint16_t>()) / 65535;
  DescribeSlider(range.minimum, range.maximum, range.minimum + (range.maximum - range.minimum) * part,
                 input.OneOf(kMappings), 2.0f, input.Flag() ? 1.0f : 0.5f, "fuzz", input.Pick(255),
                 input.Pick(255), &slider);
  slider.isVertical = input.Flag();
  const auto demandUsable = [&] {
    DEMAND(slider.value >= range.minimum && slider.value <= range.maximum);
    DEMAND(!SliderText(slider, TextMoment::kLater).empty());
  };
  while (!input.IsEmpty()) {
    const int32_t action = input.Pick(5);
    if (action == 0) {
      AcceptTypedValue(&slider, input.Text(40));
    } else if (action == 1) {
      ScrollSlider(&slider, static_cast<ScrollAction>(input.Pick(7)), input.Hostile());
    } else if (action == 2) {
      const bool up = input.Flag();
      const float next[] = {NextAcceptance(slider.value, up), NextNotchRadius(slider.value, up),
                            NextProtectionRadius(slider.value, up)};
      slider.value = ClampSliderValue(slider, input.OneOf(next));
    } else if (action == 3) {
      uint8_t text[kFormattedNumberBytes];
      FormatNumber(input.Take<double>(), text, input.Hostile());
      DEMAND(text[0] > 0 && text[0] < kFormattedNumberBytes);
    } else {
      // What the program shows is never a change of its own.
      slider.shownText = SliderText(slider, TextMoment::kLater);
      DEMAND(!AcceptTypedValue(&slider, slider.shownText));
      DEMAND(IsTextOfValue(slider, slider.shownText));
      slider.shownText.clear();
      const std::string typed = input.Text(40);
      const auto parsed = ParseSliderText(slider, typed);
      DEMAND(!parsed || (*parsed >= range.minimum && *parsed <= range.maximum));
      IsTextOfValue(slider, typed);
    }
    demandUsable();
    const int32_t position = SliderPositionOf(slider, slider.value, PositionRounding::kNearest);
    DEMAND(std::isfinite(SliderValueAt(slider, position)));
  }
  return 0;
}
