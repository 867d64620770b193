// A value shown by a scroll bar, a label and an edit box that always agree.
//
// The record and the arithmetic on it are portable; the functions that touch the three windows (the last
// group) exist on Windows only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "dialog/window_types.h"

namespace tessaline {

// How a value maps to the position of the scroll bar.
enum class SliderMapping : int32_t {
  kSquareRoot = 0,     // fine steps near the minimum
  kLinear = 1,         // positions 0 .. N - 1
  kLinearClamped = 2,  // linear, positions 0 .. N
  kLogarithmic = 3,
  // No scroll bar mapping, the value is only kept in its range.
  kRangeOnly32 = 32,
  kRangeOnly48 = 48,
  kRangeOnly64 = 64,
};

constexpr size_t kSliderNameLength = 256;  // characters; longer names are cut

struct SliderControl {
  WindowHandle dialog;
  float minimum, maximum, range;  // range = maximum - minimum
  int32_t positions;              // N
  float positionStep;             // range / (N - 1)
  float pageStep, lineStep;
  bool isVertical;                       // positions are then reversed
  int32_t scrollBarId, labelId, editId;  // 0: absent
  WindowHandle scrollBar, label, edit;
  WindowRectangle scrollBarArea, labelArea, editArea;  // client rectangles
  std::string name;
  float value;
  bool isInteger;    // shown without decimals
  int32_t decimals;  // shown otherwise
  SliderMapping mapping;
  int32_t position;       // where the scroll bar stands, as computed (before the range of the bar cuts it)
  std::string shownText;  // what the program wrote into the edit; empty once the user has typed
};

// --- the record ---

// Fills everything but the windows: `barWidth` and `barHeight` in pixels limit the number of positions.
void DescribeSlider(float minimum, float maximum, float value, SliderMapping mapping, float pageStep,
                    float lineStep, std::string_view name, int32_t barWidth, int32_t barHeight,
                    SliderControl* slider);

// The value kept in minimum..maximum, where the mapping clamps at all (2 does not). Not-a-number gives the
// minimum.
float ClampSliderValue(const SliderControl& slider, float value);

// Largest position of the scroll bar: N - 1 when linear, N otherwise (deliberately one position more).
int32_t LastSliderPosition(const SliderControl& slider);

// Position of a value, reversed for a vertical bar. A value typed into the edit rounds its square-root
// position to nearest where all others truncate it; both as users of saved settings know them.
enum class PositionRounding { kTruncate, kNearest };
int32_t SliderPositionOf(const SliderControl& slider, float value, PositionRounding rounding);

// Value at a position of the scroll bar (reversed for a vertical one).
float SliderValueAt(const SliderControl& slider, int32_t position);

// What the edit shows. At set-up an integer display adds 0.5 to negative values too, where it later rounds
// half away from zero.
enum class TextMoment { kSetUp, kLater };
std::string SliderText(const SliderControl& slider, TextMoment moment);

// The value that a text stands for, clamped; nothing for an empty one. What is no number is 0 before it is
// clamped. Leading blanks, a sign and a comma in place of the point are understood; what follows the number
// is ignored.
std::optional<float> ParseSliderText(const SliderControl& slider, std::string_view text);

// Takes a value typed by the user. False when it is the one it was, and for the text that the program itself
// wrote, as long as the user has not typed: it may be rounded, and must not come back as a value of its own
// when the edit is rewritten or merely visited.
bool AcceptTypedValue(SliderControl* slider, std::string_view text);

// Whether an edit that the user leaves may go on showing the text: it is the program's own, or starts with
// the slider's value. Not so for a number out of range, no number, or nothing.
bool IsTextOfValue(const SliderControl& slider, std::string_view text);

// What the user does with a scroll bar.
enum class ScrollAction { kLineUp, kLineDown, kPageUp, kPageDown, kThumb, kTop, kBottom };
// Moves value and position; `thumbPosition` counts for kThumb only. False when the value stays.
bool ScrollSlider(SliderControl* slider, ScrollAction action, int32_t thumbPosition);

// A value as text, at most six digits: "4.50" for 4.5 with 2 decimals, "1.23450e+5" from 10000 on, "0.0" for
// 0. Length-prefixed: text[0] is the number of characters, which follow without a NUL. `text` holds 32
// bytes. Not-a-number is written as 0, infinities as the largest number.
void FormatNumber(float value, uint8_t* text, int32_t decimals);
void FormatNumber(double value, uint8_t* text, int32_t decimals);
constexpr size_t kFormattedNumberBytes = 32;

// --- spin arrows: the next value up or down ---

float NextAcceptance(float acceptance, bool up);              // percent: multiples of 5
float NextNotchRadius(float notchRadius, bool up);            // cells: multiples of 0.5
float NextProtectionRadius(float protectionRadius, bool up);  // pixels: powers of two

// --- the windows (Windows only) ---

// Describes the slider and shows it: scroll range and position, label text = name, edit text. 0 for an id
// means the control is absent; so is one that the dialog does not have.
void InitSlider(WindowHandle dialog, SliderControl* slider, int32_t scrollBarId, int32_t labelId,
                int32_t editId, float minimum, float maximum, float value, SliderMapping mapping,
                float pageStep, float lineStep, std::string_view name);

// Clamps and stores the value, rewrites the edit and moves the scroll bar.
void SetSliderValue(SliderControl* slider, float value);

// True when `controlId` is the slider's edit and holds another value, which is then stored.
bool SliderEditChanged(SliderControl* slider, int32_t controlId);

// The user leaves the edit: a text that does not stand for the value is rewritten as the value.
void LeaveSliderEdit(SliderControl* slider);

// A message of the dialog, WM_COMMAND of the edit or WM_HSCROLL/WM_VSCROLL of the scroll bar (whose window
// comes in lParam; `scrollBar` here). The low byte of the result is nonzero when the value changed.
int32_t SliderMessage(uint32_t message, uintptr_t wParam, WindowHandle scrollBar, SliderControl* slider);

}  // namespace tessaline
