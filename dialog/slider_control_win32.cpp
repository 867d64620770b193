#include <windows.h>

#include "dialog/slider_control.h"
#include "dialog/window_geometry.h"

namespace tessaline {

namespace {

// What the user may type; the rest of a longer text is not read.
constexpr int kTextLength = 256;

struct Control {
  HWND window;
  WindowRectangle area;
};

Control FindControl(HWND dialog, int32_t id) {
  Control control = {id != 0 ? GetDlgItem(dialog, id) : nullptr, {}};
  control.area = ClientAreaOf(control.window);
  return control;
}

std::string EditText(const SliderControl& slider) {
  char text[kTextLength + 1] = "";
  const UINT length = GetDlgItemTextA(slider.dialog, slider.editId, text, kTextLength);
  return std::string(text, length);
}

void ShowText(SliderControl* slider, TextMoment moment) {
  slider->shownText = SliderText(*slider, moment);
  if (slider->edit != nullptr) SetWindowTextA(slider->edit, slider->shownText.c_str());
}

void MoveScrollBar(const SliderControl& slider) {
  if (slider.scrollBar != nullptr) SetScrollPos(slider.scrollBar, SB_CTL, slider.position, TRUE);
}

// Nothing for codes that move nothing (SB_ENDSCROLL).
std::optional<ScrollAction> ScrollActionOf(int code) {
  switch (code) {
    case SB_LINEUP:
      return ScrollAction::kLineUp;
    case SB_LINEDOWN:
      return ScrollAction::kLineDown;
    case SB_PAGEUP:
      return ScrollAction::kPageUp;
    case SB_PAGEDOWN:
      return ScrollAction::kPageDown;
    case SB_THUMBPOSITION:
    case SB_THUMBTRACK:
      return ScrollAction::kThumb;
    case SB_TOP:
      return ScrollAction::kTop;
    case SB_BOTTOM:
      return ScrollAction::kBottom;
    default:
      return std::nullopt;
  }
}

}  // namespace

void InitSlider(WindowHandle dialog, SliderControl* slider, int32_t scrollBarId, int32_t labelId,
                int32_t editId, float minimum, float maximum, float value, SliderMapping mapping,
                float pageStep, float lineStep, std::string_view name) {
  const Control scrollBar = FindControl(dialog, scrollBarId);
  const Control label = FindControl(dialog, labelId);
  const Control edit = FindControl(dialog, editId);
  *slider = {};
  slider->dialog = dialog;
  slider->scrollBarId = scrollBarId;
  slider->labelId = labelId;
  slider->editId = editId;
  slider->scrollBar = scrollBar.window;
  slider->label = label.window;
  slider->edit = edit.window;
  slider->scrollBarArea = scrollBar.area;
  slider->labelArea = label.area;
  slider->editArea = edit.area;
  DescribeSlider(minimum, maximum, value, mapping, pageStep, lineStep, name, scrollBar.area.width(),
                 scrollBar.area.height(), slider);
  if (slider->scrollBar != nullptr) {
    SetScrollRange(slider->scrollBar, SB_CTL, 0, LastSliderPosition(*slider), FALSE);
    MoveScrollBar(*slider);
  }
  if (slider->label != nullptr) SetWindowTextA(slider->label, slider->name.c_str());
  ShowText(slider, TextMoment::kSetUp);
}

void SetSliderValue(SliderControl* slider, float value) {
  slider->value = ClampSliderValue(*slider, value);
  slider->position = SliderPositionOf(*slider, slider->value, PositionRounding::kTruncate);
  ShowText(slider, TextMoment::kLater);
  MoveScrollBar(*slider);
}

bool SliderEditChanged(SliderControl* slider, int32_t controlId) {
  if (controlId != slider->editId || slider->edit == nullptr) return false;
  const int32_t position = slider->position;
  if (!AcceptTypedValue(slider, EditText(*slider))) return false;
  if (slider->position != position) MoveScrollBar(*slider);
  return true;
}

void LeaveSliderEdit(SliderControl* slider) {
  if (!IsTextOfValue(*slider, EditText(*slider))) ShowText(slider, TextMoment::kLater);
}

int32_t SliderMessage(uint32_t message, uintptr_t wParam, WindowHandle scrollBar, SliderControl* slider) {
  if (message == WM_COMMAND) return SliderEditChanged(slider, LOWORD(wParam));
  if ((message != WM_HSCROLL && message != WM_VSCROLL) || scrollBar == nullptr) return 0;
  if (GetDlgCtrlID(scrollBar) != slider->scrollBarId) return 0;
  const std::optional<ScrollAction> action = ScrollActionOf(LOWORD(wParam));
  if (!action || !ScrollSlider(slider, *action, HIWORD(wParam))) return 0;
  MoveScrollBar(*slider);
  ShowText(slider, TextMoment::kLater);
  return 1;
}

}  // namespace tessaline
