#include "dialog/slider_control.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <system_error>

namespace tessaline {

namespace {

constexpr int32_t kBarEndPixels = 56;  // of a scroll bar that are no track: arrows and thumb
constexpr int32_t kFewestPositions = 2;
constexpr int32_t kMostPositions = 32767;  // the scroll bar's thumb messages carry 16 bits
constexpr int32_t kStandardDecimals = 2;

bool ClampsValue(SliderMapping mapping) {
  switch (mapping) {
    case SliderMapping::kSquareRoot:
    case SliderMapping::kLinear:
    case SliderMapping::kLogarithmic:
    case SliderMapping::kRangeOnly32:
    case SliderMapping::kRangeOnly48:
    case SliderMapping::kRangeOnly64:
      return true;
    case SliderMapping::kLinearClamped:
      return false;
  }
  return false;
}

// Truncates to a position; what no position can be (not-a-number, infinite) is 0.
int32_t TruncateToPosition(double position) {
  if (!std::isfinite(position)) return 0;
  return static_cast<int32_t>(std::clamp(position, -double{kMostPositions} - 1, double{kMostPositions} + 1));
}

// Before a vertical bar reverses it.
int32_t ComputedPosition(const SliderControl& slider, float value, PositionRounding rounding) {
  const float x = value - slider.minimum;
  const double half = rounding == PositionRounding::kNearest ? 0.5 : 0.0;
  switch (slider.mapping) {
    case SliderMapping::kSquareRoot:
      return TruncateToPosition(std::sqrt(x / slider.range) * static_cast<float>(slider.positions) + half);
    case SliderMapping::kLinear:
      return TruncateToPosition(x / slider.positionStep + 0.5);
    case SliderMapping::kLinearClamped:
      return std::clamp(TruncateToPosition(x / slider.positionStep + 0.5), 0, slider.positions);
    case SliderMapping::kLogarithmic:
      return TruncateToPosition(std::log(x / slider.range) / std::log(2.0) * slider.positions);
    default:
      return 0;
  }
}

// The multiple of `step` beside `value` on the side that `candidate` (one step away) lies on: cut towards
// zero, and one step more where that overshoots a value between two multiples.
float SnapToStep(float candidate, float step, float value) {
  if (!(step > 0.0f)) return candidate;
  const float snapped = std::trunc(candidate / step) * step;
  return snapped + step < value ? snapped + step : snapped;
}

bool StoreIfChanged(SliderControl* slider, float value) {
  if (value == slider->value) return false;
  slider->value = value;
  return true;
}

bool StepLinear(SliderControl* slider, float step, int32_t direction) {
  // The factor carries a value just below a multiple, as thumb positions leave it, over to its multiple.
  constexpr float kRoundingAllowance = 1.00001f;
  float candidate = slider->value * kRoundingAllowance + static_cast<float>(direction) * step;
  if (!slider->isInteger) candidate = SnapToStep(candidate, step, slider->value);
  if (!StoreIfChanged(slider, ClampSliderValue(*slider, candidate))) return false;
  slider->position = SliderPositionOf(*slider, slider->value, PositionRounding::kTruncate);
  return true;
}

bool ScrollLinear(SliderControl* slider, ScrollAction action, int32_t thumbPosition) {
  const int32_t down = slider->isVertical ? -1 : +1;
  switch (action) {
    case ScrollAction::kLineUp:
      return StepLinear(slider, slider->lineStep, -down);
    case ScrollAction::kLineDown:
      return StepLinear(slider, slider->lineStep, down);
    case ScrollAction::kPageUp:
      return StepLinear(slider, slider->pageStep, -down);
    case ScrollAction::kPageDown:
      return StepLinear(slider, slider->pageStep, down);
    case ScrollAction::kThumb:
      slider->position = thumbPosition;
      return StoreIfChanged(slider, SliderValueAt(*slider, thumbPosition));
    case ScrollAction::kTop:
      slider->position = 0;
      return StoreIfChanged(slider, slider->minimum);
    case ScrollAction::kBottom:
      slider->position = slider->positions;
      return StoreIfChanged(slider, slider->maximum);
  }
  return false;
}

bool ScrollByPositions(SliderControl* slider, ScrollAction action, int32_t thumbPosition) {
  const int32_t line = slider->mapping == SliderMapping::kLinearClamped
                           ? 1
                           : TruncateToPosition(slider->lineStep / slider->positionStep);
  const int32_t page = slider->positions / 10;
  int32_t position = slider->position;
  switch (action) {
    case ScrollAction::kLineUp:
      position -= line;
      break;
    case ScrollAction::kLineDown:
      position += line;
      break;
    case ScrollAction::kPageUp:
      position -= page;
      break;
    case ScrollAction::kPageDown:
      position += page;
      break;
    case ScrollAction::kThumb:
      position = thumbPosition;
      break;
    case ScrollAction::kTop:
      position = 0;
      break;
    case ScrollAction::kBottom:
      position = slider->positions;
      break;
  }
  slider->position = std::clamp(position, 0, slider->positions);
  return StoreIfChanged(slider, SliderValueAt(*slider, slider->position));
}

// The number at the start of a text.
std::optional<double> LeadingNumber(std::string_view text) {
  std::string number;
  for (const char c : text) number += c == ',' ? '.' : c;
  const char* first = number.data();
  const char* const last = first + number.size();
  while (first != last && (*first == ' ' || *first == '\t')) ++first;
  if (first != last && *first == '+') ++first;
  double value = 0.0;
  const auto result = std::from_chars(first, last, value);
  if (result.ec == std::errc::result_out_of_range) {
    const std::string_view digits(first, static_cast<size_t>(result.ptr - first));
    if (digits.find("e-") != std::string_view::npos || digits.find("E-") != std::string_view::npos)
      return 0.0;
    value = std::numeric_limits<double>::infinity();
    return digits.front() == '-' ? -value : value;
  }
  if (result.ec != std::errc{} || std::isnan(value)) return std::nullopt;
  return value;
}

// Appends digits and counts them in the length byte.
class LengthPrefixedText {
 public:
  explicit LengthPrefixedText(uint8_t* text) : text_(text) { text_[0] = 0; }
  void Append(char c) {
    if (text_[0] + 1u < kFormattedNumberBytes) text_[++text_[0]] = static_cast<uint8_t>(c);
  }
  void Append(int32_t number) {
    for (const char c : std::to_string(number)) Append(c);
  }

 private:
  uint8_t* text_;
};

constexpr int32_t kMostDigits = 6;

// Takes the leading digit off a value below 10 (10 where rounding made it that) and moves the next one up.
int32_t TakeDigit(double* value) {
  const auto digit = static_cast<int32_t>(*value);
  *value = (*value - digit) * 10.0;
  return digit;
}

void FormatScientific(double leading, int32_t exponent, LengthPrefixedText* text) {
  text->Append(TakeDigit(&leading));
  text->Append('.');
  for (int32_t i = 1; i < kMostDigits; ++i) text->Append(TakeDigit(&leading));
  text->Append('e');
  text->Append(exponent < 0 ? '-' : '+');
  text->Append(std::abs(exponent));
}

void FormatFixed(double leading, int32_t exponent, int32_t decimals, LengthPrefixedText* text) {
  int64_t decimalsLeft = decimals;
  for (int32_t i = 0; i < kMostDigits; ++i) {
    if (i > exponent && --decimalsLeft < 0) return;
    text->Append(TakeDigit(&leading));
    if (i == exponent) text->Append('.');
  }
}

}  // namespace

void DescribeSlider(float minimum, float maximum, float value, SliderMapping mapping, float pageStep,
                    float lineStep, std::string_view name, int32_t barWidth, int32_t barHeight,
                    SliderControl* slider) {
  slider->minimum = minimum;
  slider->maximum = maximum;
  slider->range = maximum - minimum;
  slider->pageStep = pageStep;
  slider->lineStep = lineStep;
  slider->mapping = mapping;
  slider->name = name.substr(0, kSliderNameLength);
  slider->value = value;
  slider->isVertical = barHeight > barWidth;
  const int32_t track = std::max(std::max(barWidth, barHeight) - kBarEndPixels, kFewestPositions);
  const int32_t wanted =
      std::clamp(TruncateToPosition(slider->range / lineStep + 1.99), kFewestPositions, kMostPositions);
  slider->positions = std::min(wanted, track);
  slider->positionStep = slider->range / static_cast<float>(slider->positions - 1);
  slider->isInteger = mapping == SliderMapping::kLinear && lineStep >= 1.0f;
  slider->decimals = slider->isInteger ? 0 : kStandardDecimals;
  slider->position = SliderPositionOf(*slider, value, PositionRounding::kTruncate);
}

float ClampSliderValue(const SliderControl& slider, float value) {
  if (std::isnan(value)) return slider.minimum;
  return ClampsValue(slider.mapping) ? std::clamp(value, slider.minimum, slider.maximum) : value;
}

int32_t LastSliderPosition(const SliderControl& slider) {
  return slider.mapping == SliderMapping::kLinear ? slider.positions - 1 : slider.positions;
}

int32_t SliderPositionOf(const SliderControl& slider, float value, PositionRounding rounding) {
  const int32_t computed = ComputedPosition(slider, value, rounding);
  return slider.isVertical ? slider.positions - computed : computed;
}

float SliderValueAt(const SliderControl& slider, int32_t position) {
  const int64_t computed = slider.isVertical ? int64_t{slider.positions} - position : position;
  if (slider.mapping == SliderMapping::kSquareRoot) {
    // The middle of the stretch of values that truncate to this position.
    const double part = (static_cast<double>(computed) + 0.5) / slider.positions;
    return ClampSliderValue(slider, static_cast<float>(part * part * slider.range + slider.minimum));
  }
  const float value = static_cast<float>(computed) * slider.positionStep + slider.minimum;
  // Position N of a linear bar lies one step beyond the maximum.
  return std::clamp(value, slider.minimum, slider.maximum);
}

std::string SliderText(const SliderControl& slider, TextMoment moment) {
  if (slider.isInteger) {
    const float half = slider.value < 0.0f && moment == TextMoment::kLater ? -0.5f : 0.5f;
    return std::to_string(static_cast<int32_t>(std::clamp(slider.value + half, -2e9f, 2e9f)));
  }
  uint8_t text[kFormattedNumberBytes];
  FormatNumber(slider.value, text, slider.decimals);
  return std::string(reinterpret_cast<const char*>(text + 1), text[0]);
}

std::optional<float> ParseSliderText(const SliderControl& slider, std::string_view text) {
  if (text.empty()) return std::nullopt;
  return ClampSliderValue(slider, static_cast<float>(LeadingNumber(text).value_or(0.0)));
}

bool IsTextOfValue(const SliderControl& slider, std::string_view text) {
  if (text.empty()) return false;
  if (text == slider.shownText) return true;
  const std::optional<double> number = LeadingNumber(text);
  return number && static_cast<float>(*number) == slider.value;
}

bool AcceptTypedValue(SliderControl* slider, std::string_view text) {
  if (text == slider->shownText) return false;
  // From here on the text is the user's, also where it comes to say again what the program once wrote.
  slider->shownText.clear();
  const std::optional<float> value = ParseSliderText(*slider, text);
  if (!value || !StoreIfChanged(slider, *value)) return false;
  slider->position = SliderPositionOf(*slider, *value, PositionRounding::kNearest);
  return true;
}

bool ScrollSlider(SliderControl* slider, ScrollAction action, int32_t thumbPosition) {
  switch (slider->mapping) {
    case SliderMapping::kLinear:
      return ScrollLinear(slider, action, thumbPosition);
    case SliderMapping::kSquareRoot:
    case SliderMapping::kLinearClamped:
      return ScrollByPositions(slider, action, thumbPosition);
    default:
      return false;
  }
}

void FormatNumber(float value, uint8_t* text, int32_t decimals) {
  FormatNumber(double{value}, text, decimals);
}

void FormatNumber(double value, uint8_t* text, int32_t decimals) {
  LengthPrefixedText written(text);
  if (value == 0.0 || std::isnan(value)) {
    for (const char c : {'0', '.', '0'}) written.Append(c);
    return;
  }
  if (value < 0.0) {
    written.Append('-');
    value = -value;
  }
  constexpr double kLargest = std::numeric_limits<double>::max();
  value = std::min(value, kLargest);
  auto exponent = static_cast<int32_t>(std::log(value) / std::log(10.0));
  const double rounded = std::min(value + 5.0 * std::pow(10.0, exponent - kMostDigits), kLargest);
  if (exponent >= 4) {
    FormatScientific(rounded / std::pow(10.0, exponent), exponent, &written);
  } else if (exponent >= 0) {
    FormatFixed(rounded / std::pow(10.0, exponent), exponent, decimals, &written);
  } else {
    FormatFixed(rounded, 0, decimals, &written);
  }
}

float NextAcceptance(float acceptance, bool up) {
  const auto fives = static_cast<float>(static_cast<int32_t>((acceptance + 2.5f) * 0.2f));
  return std::clamp(up ? (fives + 1.0f) * 5.0f : fives * 5.0f - 5.0f, 0.0f, 100.0f);
}

float NextNotchRadius(float notchRadius, bool up) {
  const auto halves = static_cast<float>(static_cast<int32_t>(notchRadius * 2.0f + 0.5f));
  return std::clamp(up ? (halves + 1.0f) * 0.5f : halves * 0.5f - 0.5f, 1.0f, 16.0f);
}

float NextProtectionRadius(float protectionRadius, bool up) {
  int32_t power = 1;
  while (power < 128 && protectionRadius >= 1.5f * static_cast<float>(power)) power *= 2;
  const int32_t next = up ? 2 * power : power / 2;
  return static_cast<float>(std::clamp(next, 1, 128));
}

}  // namespace tessaline
