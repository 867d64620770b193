// The preview dialog as a window: what its controls are, what they do, and that nothing stays behind.
#include <algorithm>
#include <cstdlib>
#include <optional>
#include <set>
#include <string>
#include <vector>

// After windows.h, which they need.
#include "image/result_codes.h"
#include "tests/dialog/preview_dialog_fixture.h"
//
#include <commctrl.h>
#include <psapi.h>

#include "dialog/control_pixels.h"
#include "dialog/slider_control.h"
#include "platform/memory.h"
#include "platform/message.h"

namespace tessaline {
namespace {

// --- what is on it ---

// In the order of creation, which is the order of the tab key and of what lies over what.
constexpr int32_t kControls[] = {1,  2,   555, 3,  6,  14,  15,  13,  17,  16,  24, 25,  26,
                                 27, 28,  30,  29, 31, 311, 312, 100, 101, 8,   7,  9,   91,
                                 92, 102, 103, 11, 10, 12,  121, 122, 104, 105, 35, 3939};
constexpr int32_t kPictureControls[] = {311, 312, 91, 92, 121, 122, 35, 3939};

RECT PlaceOf(HWND control) {
  RECT place = {};
  GetWindowRect(control, &place);
  MapWindowPoints(nullptr, GetParent(control), reinterpret_cast<POINT*>(&place), 2);
  return place;
}

// Width in pixels of a control's text in the control's font.
LONG TextWidth(HWND control) {
  const HDC context = GetDC(control);
  const auto font = reinterpret_cast<HGDIOBJ>(SendMessageA(control, WM_GETFONT, 0, 0));
  const HGDIOBJ previous = SelectObject(context, font);
  const std::string text = TextOf(control);
  SIZE size = {};
  GetTextExtentPoint32A(context, text.c_str(), static_cast<int>(text.size()), &size);
  SelectObject(context, previous);
  ReleaseDC(control, context);
  return size.cx;
}

// Room beside a button's text that the button needs for itself.
LONG RoomBesideText(HWND control) {
  if (ClassOf(control) != "Button") return 0;
  const LONG kind = GetWindowLongA(control, GWL_STYLE) & BS_TYPEMASK;
  return kind == BS_CHECKBOX || kind == BS_AUTORADIOBUTTON ? GetSystemMetrics(SM_CXMENUCHECK) : 4;
}

void ExpectTidyLayout(HWND dialog) {
  std::vector<HWND> controls;
  for (HWND at = GetWindow(dialog, GW_CHILD); at != nullptr; at = GetWindow(at, GW_HWNDNEXT)) {
    controls.push_back(at);
  }
  RECT client = {}, common = {};
  GetClientRect(dialog, &client);
  for (size_t i = 0; i < controls.size(); ++i) {
    const int id = GetDlgCtrlID(controls[i]);
    const RECT place = PlaceOf(controls[i]);
    UnionRect(&common, &client, &place);
    EXPECT_TRUE(EqualRect(&common, &client)) << id << " lies outside";
    EXPECT_GE(PlaceOf(controls[i]).right - place.left, TextWidth(controls[i]) + RoomBesideText(controls[i]))
        << id << " cuts its text";
    for (size_t j = 0; j < i; ++j) {
      const RECT other = PlaceOf(controls[j]);
      EXPECT_FALSE(IntersectRect(&common, &place, &other)) << id << " and " << GetDlgCtrlID(controls[j]);
    }
  }
}

// On any screen; which of the layouts the launcher takes is the screen's doing.
class PreviewDialogLayout : public PreviewDialogTest {
 protected:
  void ExpectLayout(int32_t templateId, RECT dialogUnits) {
    SCOPED_TRACE(templateId);
    Open([&] {
      MapDialogRect(Dialog(), &dialogUnits);
      RECT client = {};
      GetClientRect(Dialog(), &client);
      EXPECT_EQ(dialogUnits.right, client.right);
      EXPECT_EQ(dialogUnits.bottom, client.bottom);
      // Life size is one pixel to a pixel on every screen.
      EXPECT_EQ(previewState.proxyArea.width(), ShotOf(Control(TESSALINE_PROXY_VIEW)).width);
      EXPECT_EQ(previewState.proxyArea.height(), ShotOf(Control(TESSALINE_PROXY_VIEW)).height);
      wchar_t title[100] = L"";
      GetWindowTextW(Dialog(), title, 100);
      EXPECT_EQ(std::wstring(L"Kelvora\u00AE Vistrel\u00AE > Tessaline 3.5.0"), title);

      HWND control = GetWindow(Dialog(), GW_CHILD);
      for (const int32_t id : kControls) {
        ASSERT_EQ(id, GetDlgCtrlID(control));
        EXPECT_EQ(id != TESSALINE_HIGHLIGHT_SWATCH, IsWindowVisible(control) != 0) << id;
        EXPECT_EQ(id != TESSALINE_PROXY_VIEW, IsWindowEnabled(control) != 0) << id;
        control = GetWindow(control, GW_HWNDNEXT);
      }
      EXPECT_EQ(nullptr, control);
      for (const int32_t id : kPictureControls) {
        const auto picture = SendDlgItemMessageA(Dialog(), id, STM_GETIMAGE, IMAGE_BITMAP, 0);
        BITMAP bitmap = {};
        EXPECT_NE(0, GetObjectA(reinterpret_cast<HGDIOBJ>(picture), sizeof(bitmap), &bitmap)) << id;
        const bool isIcon = id == TESSALINE_MANUAL || id == TESSALINE_QUICK_GUIDE;
        EXPECT_EQ(MulDiv(isIcon ? 24 : 10, static_cast<int>(GetDpiForWindow(Dialog())), 96), bitmap.bmHeight);
      }
      ExpectTidyLayout(Dialog());
    });
  }
};

constexpr RECT kSmallUnits = {0, 0, 638, 323};
constexpr RECT kLargeUnits = {0, 0, 669, 410};

bool IsScreenLarge() {
  return GetSystemMetrics(SM_CXSCREEN) >= 1000 && GetSystemMetrics(SM_CYSCREEN) >= 800;
}

TEST_F(PreviewDialogLayout, FitsTheScreen) {
  ExpectLayout(IsScreenLarge() ? 3767 : 2767, IsScreenLarge() ? kLargeUnits : kSmallUnits);
}

TEST_F(PreviewDialogLayout, CtrlAsksForTheSmallOne) {
  const HeldKey ctrl(VK_CONTROL);
  ExpectLayout(2767, kSmallUnits);
}

TEST_F(PreviewDialogTest, TabKeyVisitsWhatCanBeUsed) {
  Open([] {
    std::vector<int32_t> visited;
    for (size_t i = 0; i < std::size(kControls); ++i) {
      visited.push_back(GetDlgCtrlID(GetFocus()));
      PressKey(VK_TAB);
      if (GetDlgCtrlID(GetFocus()) == visited[0]) break;
    }
    EXPECT_EQ((std::vector<int32_t>{1, 2, 555, 6, 14, 13, 16, 25, 29, 31, 7, 9, 10, 12, 35, 3939}), visited);
    SetFocus(Control(TESSALINE_SPECTRUM_VIEW));
    PressKey(VK_SPACE);
    EXPECT_TRUE(previewState.spectrum3D);
    // The arrow keys walk over the colours and open nothing; Space does.
    const HeldKey down(VK_DOWN);
    SetFocus(Control(TESSALINE_HIGHLIGHT_CYAN));
    PressKey(VK_DOWN);
    EXPECT_EQ(Control(TESSALINE_HIGHLIGHT_OTHER), GetFocus());
    EXPECT_EQ(Dialog(), EnabledDialog());
    EXPECT_TRUE(IsDlgButtonChecked(Dialog(), TESSALINE_HIGHLIGHT_RED));
  });
}

TEST_F(PreviewDialogTest, WheelAndArrowKeysStepWhatTheyAreOver) {
  Open([] {
    const auto turn = [](int32_t id, int delta) {
      RECT place = {};
      GetWindowRect(Control(id), &place);
      SendMessageA(Control(9), WM_MOUSEWHEEL, MAKEWPARAM(0, delta),
                   MAKELPARAM(place.left + 5, place.top + 5));
      Settle();
    };
    turn(TESSALINE_PROXY_VIEW, 2 * WHEEL_DELTA);
    EXPECT_STREQ("300%", previewState.ZoomLabel());
    turn(TESSALINE_PROXY_VIEW, -WHEEL_DELTA / 2);
    EXPECT_STREQ("300%", previewState.ZoomLabel());
    turn(TESSALINE_PROXY_VIEW, -WHEEL_DELTA / 2);
    EXPECT_STREQ("200%", previewState.ZoomLabel());
    turn(10, WHEEL_DELTA);
    turn(12, WHEEL_DELTA);
    EXPECT_EQ(7.0f, previewState.current.notchRadius);
    SetFocus(Control(9));
    turn(TESSALINE_OK, -WHEEL_DELTA);  // over nothing that it turns: the box with the focus
    EXPECT_EQ("59", TextOf(Control(9)));
    PressKey(VK_UP);
    EXPECT_EQ(65.0f, previewState.current.acceptance);
    PressKey(VK_DOWN);
    EXPECT_EQ(60.0f, previewState.current.acceptance);
  });
}

// --- sliders, edits and spin arrows ---

struct ExpectedSlider {
  int32_t bar, edit, up, down;
  SettingRange range;
  float PreviewValues::*value;
  float (*next)(float value, bool up);
};
constexpr ExpectedSlider kSliders[] = {
    {7, 9, 91, 92, kAcceptanceRange, &PreviewValues::acceptance, NextAcceptance},
    {10, 12, 121, 122, kNotchRadiusRange, &PreviewValues::notchRadius, NextNotchRadius},
    {29, 31, 311, 312, kProtectionRadiusRange, &PreviewValues::protectionRadius, NextProtectionRadius},
};

// Which value belongs to which place of a bar is tested with the portable part; here, that messages get
// there.
class PreviewDialogSliders : public PreviewDialogTest {
 protected:
  static float ValueOf(const ExpectedSlider& slider) { return previewState.current.*slider.value; }

  // This value, in the edit and painted, and the other two as they were.
  static void ExpectValue(const ExpectedSlider& slider, float value, PreviewValues before) {
    before.*slider.value = value;
    EXPECT_EQ(before, previewState.current);
    EXPECT_NEAR(value, std::atof(TextOf(Control(slider.edit)).c_str()), slider.edit == 9 ? 0.5 : 0.01);
    EXPECT_TRUE(previewState.cacheValid);
  }
};

TEST_F(PreviewDialogSliders, ScrollMessagesMoveValueAndEdit) {
  Open([] {
    for (const ExpectedSlider& slider : kSliders) {
      SCOPED_TRACE(slider.bar);
      int minimum = -1, maximum = -1;
      GetScrollRange(Control(slider.bar), SB_CTL, &minimum, &maximum);
      EXPECT_EQ(0, minimum);
      const PreviewValues before = previewState.current;
      const auto scroll = [&](WPARAM message) {
        SendMessageA(Dialog(), WM_HSCROLL, message, reinterpret_cast<LPARAM>(Control(slider.bar)));
        Settle();
        ExpectValue(slider, ValueOf(slider), before);
        return ValueOf(slider);
      };
      EXPECT_NEAR(slider.range.minimum, scroll(SB_TOP), 0.01f);
      EXPECT_EQ(0, GetScrollPos(Control(slider.bar), SB_CTL));
      EXPECT_EQ(slider.range.maximum, scroll(SB_BOTTOM));
      EXPECT_EQ(maximum, GetScrollPos(Control(slider.bar), SB_CTL));
      const float lower = scroll(SB_LINEUP);
      EXPECT_LT(lower, slider.range.maximum);
      EXPECT_LT(scroll(SB_PAGEUP), lower);
      const float low = scroll(MAKEWPARAM(SB_THUMBTRACK, 5));
      EXPECT_EQ(5, GetScrollPos(Control(slider.bar), SB_CTL));
      EXPECT_LT(low, scroll(SB_PAGEDOWN));
      EXPECT_EQ(low, scroll(MAKEWPARAM(SB_THUMBPOSITION, 5)));
      EXPECT_EQ(low, scroll(SB_ENDSCROLL));
    }
    SendMessageA(Dialog(), WM_HSCROLL, SB_LINEUP, 0);  // of no bar, and of one that is none of the three
    SendMessageA(Dialog(), WM_VSCROLL, SB_LINEUP, reinterpret_cast<LPARAM>(Dialog()));
  });
}

TEST_F(PreviewDialogSliders, TypedTextMovesValueAndBarAndStaysAsTyped) {
  Open([this] {
    for (const ExpectedSlider& slider : kSliders) {
      for (const std::string& text :
           {std::string("5.25"), std::string("abc"), std::string(300, '9'), std::string("12.5")}) {
        const PreviewValues before = previewState.current;
        SetWindowTextA(Control(slider.edit), text.c_str());
        Settle();
        EXPECT_EQ(text, TextOf(Control(slider.edit)));
        if (text.size() == 4) ExpectValue(slider, static_cast<float>(std::atof(text.c_str())), before);
      }
      // Over the text that the program wrote last, of which the first key is another value.
      Press(slider.up);
      const float shown = ValueOf(slider);
      Type(Control(slider.edit), TextOf(Control(slider.edit)));
      EXPECT_EQ(shown, ValueOf(slider)) << slider.edit;
      Type(Control(slider.edit), "");
      EXPECT_EQ(shown, ValueOf(slider)) << slider.edit;
    }
    // What cannot be a value of the range never gets to the caller, nor stays in the box that is left.
    SetFocus(Control(12));
    Type(Control(12), "99");
    SetFocus(Control(9));
    EXPECT_EQ("16.00", TextOf(Control(12)));
    Press(TESSALINE_OK);
  });
  EXPECT_EQ(16.0f, values_.notchRadius);
}

TEST_F(PreviewDialogSliders, TheValueThatIsCurrentAlreadyRecomputesNothing) {
  values_ = {59.6f, 6, 8, 0, 0, 0, 0, 0, 0, {}};
  Open([] {
    EXPECT_EQ("60", TextOf(Control(9)));
    // Visiting an edit that shows a rounded value must not round the value.
    SetFocus(Control(9));
    Command(Dialog(), 9, EN_CHANGE);
    EXPECT_TRUE(previewState.cacheValid);
  });
  EXPECT_EQ(59.6f, values_.acceptance);
}

TEST_F(PreviewDialogSliders, SpinArrowsStepAndDefaultRestoresTheOpeningValues) {
  values_ = {57, 3.7f, 5, 0, 0, 0, 0, 0, 0, {}};
  Open([] {
    for (const ExpectedSlider& slider : kSliders) {
      for (const int32_t id : {slider.up, slider.up, slider.down}) {
        SCOPED_TRACE(id);
        const PreviewValues before = previewState.current;
        const float next = slider.next(ValueOf(slider), id == slider.up);
        Press(id);
        ExpectValue(slider, next, before);
        EXPECT_EQ(Control(slider.edit), GetFocus());
      }
      // The second of two quick clicks comes as a double click.
      const float before = ValueOf(slider);
      Command(Dialog(), slider.up, STN_DBLCLK);
      Command(Dialog(), slider.up, STN_DISABLE);
      EXPECT_EQ(slider.next(before, true), ValueOf(slider));
    }
    Press(TESSALINE_DEFAULT);
    for (const ExpectedSlider& slider : kSliders) {
      ExpectValue(slider, previewState.opening.*slider.value, previewState.opening);
    }
  });
  EXPECT_EQ(3.7f, values_.notchRadius);
}

// --- the other commands ---

Shot ExpectedShot(int32_t slot, HWND control, PicturePart part = {}) {
  RECT area = {};
  GetClientRect(control, &area);
  Shot shot = {area.right, area.bottom, std::vector<uint32_t>(static_cast<size_t>(area.right) * area.bottom)};
  EXPECT_EQ(0, DrawBufferPixels(slot, area.right, area.bottom, reinterpret_cast<uint8_t*>(shot.pixels.data()),
                                part));
  return shot;
}

// Compared by == so that a difference does not print a million numbers.
void ExpectViewsShown() {
  EXPECT_TRUE(previewState.cacheValid);
  const HWND proxy = GetDlgItem(previewWindow, TESSALINE_PROXY_VIEW);
  const HWND spectrum = GetDlgItem(previewWindow, TESSALINE_SPECTRUM_VIEW);
  EXPECT_TRUE(ExpectedShot(previewState.buffers.zoomedView.slot(), proxy, previewState.ShownPicture()) ==
              ScreenShotOf(proxy))
      << "proxy";
  EXPECT_TRUE(ExpectedShot(previewState.buffers.spectrumView.slot(), spectrum) == ScreenShotOf(spectrum))
      << "spectrum";
}

size_t DistinctColors(const Shot& shot) {
  return std::set<uint32_t>(shot.pixels.begin(), shot.pixels.end()).size();
}

TEST_F(PreviewDialogTest, CommandsChangeStateAndWhatIsShown) {
  MakePicture(900, 800, kRgb8);
  Open([] {
    const HWND proxy = Control(TESSALINE_PROXY_VIEW), spectrum = Control(TESSALINE_SPECTRUM_VIEW);
    ExpectViewsShown();
    const Shot filtered = ShotOf(proxy), flat = ShotOf(spectrum);
    const float centre = previewState.panX.position();
    EXPECT_LT(50u, DistinctColors(filtered));
    EXPECT_LT(50u, DistinctColors(flat));
    EXPECT_TRUE(IsDlgButtonChecked(Dialog(), TESSALINE_PREVIEW));

    Press(TESSALINE_PREVIEW);
    EXPECT_FALSE(IsDlgButtonChecked(Dialog(), TESSALINE_PREVIEW));
    ExpectViewsShown();
    EXPECT_FALSE(filtered == ShotOf(proxy));
    Press(TESSALINE_PREVIEW);
    EXPECT_TRUE(filtered == ShotOf(proxy));

    Press(TESSALINE_SPECTRUM_VIEW);
    ExpectViewsShown();
    EXPECT_FALSE(flat == ShotOf(spectrum));
    EXPECT_LT(50u, DistinctColors(ShotOf(spectrum)));
    Press(TESSALINE_SPECTRUM_VIEW);
    EXPECT_TRUE(flat == ShotOf(spectrum));

    const std::pair<int32_t, const char*> zooms[] = {{14, "100%"}, {13, "200%"}, {13, "300%"},
                                                     {13, "400%"}, {13, "600%"}, {13, "800%"},
                                                     {13, "800%"}, {14, "600%"}, {15, "100%"}};
    for (const auto& [id, label] : zooms) {
      Press(id);
      EXPECT_EQ(label, TextOf(Control(TESSALINE_ZOOM_LABEL)));
      ExpectViewsShown();
    }
    EXPECT_NEAR(centre, previewState.panX.position(), 10);

    Press(TESSALINE_HIGHLIGHT_CYAN);
    EXPECT_EQ((HighlightColor{0, 255, 255}), previewState.highlight);
    EXPECT_TRUE(IsDlgButtonChecked(Dialog(), TESSALINE_HIGHLIGHT_CYAN));
    ExpectViewsShown();
    EXPECT_FALSE(flat == ShotOf(spectrum));
    Press(TESSALINE_HIGHLIGHT_RED);
    EXPECT_TRUE(flat == ShotOf(spectrum));
    Command(Dialog(), TESSALINE_HIGHLIGHT_RED);  // once more
    EXPECT_TRUE(previewState.cacheValid);

    for (const int32_t id : {0, 3, 4, 17, 24, 30, 106, 123, 4000, 0xFFFF}) {
      EXPECT_FALSE(PreviewDialogProc(Dialog(), WM_COMMAND, static_cast<uintptr_t>(id), 0)) << id;
    }
    Press(TESSALINE_MANUAL);  // no manual, no program for it: nothing happens
    EXPECT_EQ(Dialog(), EnabledDialog());
  });
}

// --- mouse and keyboard ---

TEST_F(PreviewDialogTest, DraggingMovesTheUntouchedPictureUntilTheButtonIsUpOrTheCaptureGone) {
  MakePicture(1500, 1200, kRgb8);
  Open([] {
    const WindowRectangle& area = previewState.proxyArea;
    const int32_t x = area.left + 200, y = area.top + 150;
    const float startX = previewState.panX.position(), startY = previewState.panY.position();
    const HeldKey button(VK_LBUTTON);
    Mouse(WM_LBUTTONDOWN, area.right + 5, y);
    EXPECT_FALSE(previewState.isDragging);
    Mouse(WM_LBUTTONDOWN, x, y);
    EXPECT_EQ(Dialog(), GetCapture());
    Mouse(WM_MOUSEMOVE, x - 30, y + 20);
    EXPECT_EQ(startX + 30, previewState.panX.position());
    EXPECT_EQ(startY - 20, previewState.panY.position());
    ExpectViewsShown();
    const Shot untouched = ShotOf(Control(TESSALINE_PROXY_VIEW));
    Mouse(WM_LBUTTONUP, x - 30, y + 20);
    EXPECT_EQ(nullptr, GetCapture());
    ExpectViewsShown();
    EXPECT_FALSE(untouched == ShotOf(Control(TESSALINE_PROXY_VIEW)));
    // Taken away by another window.
    Mouse(WM_LBUTTONDOWN, x, y);
    SetCapture(Control(TESSALINE_OK));
    EXPECT_FALSE(previewState.isDragging);
    ReleaseCapture();
    {  // The button came up where this window did not see it.
      Mouse(WM_LBUTTONDOWN, x, y);
      const HeldKey again(VK_LBUTTON);
    }
    SendMessageA(Dialog(), WM_NULL, 0, 0);
    EXPECT_FALSE(previewState.isDragging);
  });
}

TEST_F(PreviewDialogTest, EnterAcceptsEscapeAndTheCloseBoxCancel) {
  for (const WPARAM key : {WPARAM{VK_RETURN}, WPARAM{VK_ESCAPE}, WPARAM{0}}) {
    EXPECT_EQ(key == VK_RETURN ? kSuccess : kUserCancelled, Open([key] {
                SetFocus(Control(12));
                if (key != 0) PressKey(key);
                if (key == 0) SendMessageA(Dialog(), WM_SYSCOMMAND, SC_CLOSE, 0);
                Settle();
                EXPECT_EQ(nullptr, Dialog());
              }));
  }
}

TEST_F(PreviewDialogTest, ValuesComeBackFromBothEndsTheHighlightFromOkAlone) {
  const auto change = [](int32_t end) {
    return [end] {
      Type(Control(9), "33");
      Type(Control(12), "2.5");
      Press(TESSALINE_PROTECTION_UP);
      Press(TESSALINE_HIGHLIGHT_CYAN);
      Press(end);
    };
  };
  EXPECT_EQ(kUserCancelled, Open(change(TESSALINE_CANCEL)));
  EXPECT_EQ(33.0f, values_.acceptance);
  EXPECT_EQ(2.5f, values_.notchRadius);
  EXPECT_EQ(16.0f, values_.protectionRadius);
  EXPECT_EQ(0.0f, values_.highlightMode);
  EXPECT_EQ(0.0f, values_.highlightBlue);
  values_.highlightRed = 0;  // as in the record of a new run
  EXPECT_EQ(kSuccess, Open(change(TESSALINE_OK)));
  EXPECT_EQ(32.0f, values_.protectionRadius);
  EXPECT_EQ(1.0f, values_.highlightMode);
  EXPECT_EQ(255.0f, values_.highlightBlue);
  // The next run's record holds none: the choice lasts as long as the module.
  values_ = {60, 6, 8, 0, 0, 0, 0, 0, 0, {}};
  Open([] { EXPECT_EQ(kHighlightCyan, previewState.highlightMode); });
  EXPECT_EQ(0.0f, values_.highlightMode);
}

// --- the dialogs that it opens ---

TEST_F(PreviewDialogTest, QuickGuideOpensOverTheDialogAndCloses) {
  Open([] {
    for (const int32_t end : {TESSALINE_OK, TESSALINE_CANCEL}) {
      PressAndEnter(TESSALINE_QUICK_GUIDE, [&](HWND guide) {
        ShowWindow(guide, SW_SHOWNORMAL);
        Settle();
        EXPECT_EQ("Quick Guide", TextOf(guide));
        EXPECT_EQ(Dialog(), GetWindow(guide, GW_OWNER));
        EXPECT_FALSE(IsWindowEnabled(Dialog()));
        ExpectTidyLayout(guide);
        EXPECT_LT(5u, DistinctColors(ShotOf(guide)));
        // A second wish brings it back to the top, where it was moved to.
        RECT moved = {}, now = {};
        SetWindowPos(guide, HWND_BOTTOM, 11, 12, 0, 0, SWP_NOSIZE);
        GetWindowRect(guide, &moved);
        ShowQuickGuide();
        GetWindowRect(guide, &now);
        EXPECT_TRUE(EqualRect(&moved, &now));
        EXPECT_EQ(guide, EnabledDialog());
        Command(guide, end);
      });
      EXPECT_TRUE(IsWindowEnabled(Dialog()));
      EXPECT_EQ(Dialog(), EnabledDialog());
    }
    ExpectViewsShown();
  });
}

// --- bad input ---

// What a user can do, quickly.
void WorkThrough() {
  const HWND dialog = previewWindow;
  for (const int32_t id : {13, 13, 6, 6, 16, 26, 91, 122, 311, 15, 16, 555}) {
    Command(dialog, id);
    Settle();
  }
  const HeldKey button(VK_LBUTTON);
  const WindowRectangle& area = previewState.proxyArea;
  SendMessageA(dialog, WM_LBUTTONDOWN, 0, MAKELPARAM(area.left + 9, area.top + 9));
  SendMessageA(dialog, WM_MOUSEMOVE, 0, MAKELPARAM(area.left + 90, area.top + 2));
  Settle();
  SendMessageA(dialog, WM_LBUTTONUP, 0, MAKELPARAM(area.left + 90, area.top + 2));
  Settle();
}

TEST_F(PreviewDialogTest, PicturesOfAnyShapeAreShown) {
  const BufferShape shapes[] = {{1, 1, kGray8}, {1, 7500, kRgb16}, {7500, 1, kGray16}, {100, 2000, kRgb8}};
  for (const BufferShape& shape : shapes) {
    SCOPED_TRACE(testing::Message() << shape.width << " x " << shape.height);
    MakePicture(shape.width, shape.height, shape.bytesPerPixel);
    Open([] {
      WorkThrough();
      ExpectViewsShown();
    });
  }
}

// It says so and is gone, or it can be worked with.
TEST_F(PreviewDialogTest, WithoutMemoryItOpensAndClosesOrSaysSo) {
  // Views that are bound to nothing say so.
  const MessageHandler previous = SetMessageHandler([](const char*, const char*) {});
  for (FailingAllocations failing; failing.Next();) {
    const AllocationFailurePause testAtWork;
    const int32_t result = failing.During([&] { return Open(WorkThrough); });
    EXPECT_TRUE(result == kUserCancelled || (failing.hasFailed() && result == kOutOfMemory)) << result;
    EXPECT_EQ(nullptr, previewWindow);
  }
  SetMessageHandler(previous);
  Open([] {
    WorkThrough();
    ExpectViewsShown();
  });
}

TEST_F(PreviewDialogTest, SecondRunMeanwhileIsCancelledAndHarmless) {
  Open([this] {
    FilterParameters others = values_;
    EXPECT_EQ(kUserCancelled, RunPreviewDialog(owner_, picture_.slot(), &others));
    WorkThrough();
    ExpectViewsShown();
  });
}

// --- nothing stays behind ---

// The system's own counters will not do: Wine 8 answers 0 for GetGuiResources and GetProcessHandleCount. What
// is left to take tells the same.
struct Resources {
  int freeGdiObjects;  // until the process has no more
  int windows;
  uintptr_t freeHandle;  // the next one: the lowest, for Wine
  int64_t privateBytes;
};

int CountFreeGdiObjects() {
  std::vector<HGDIOBJ> objects;
  while (const HGDIOBJ object = CreateSolidBrush(0)) objects.push_back(object);
  for (const HGDIOBJ object : objects) DeleteObject(object);
  return static_cast<int>(objects.size());
}

BOOL CALLBACK CountWindow(HWND window, LPARAM count) {
  ++*reinterpret_cast<int*>(count);
  EnumChildWindows(window, CountWindow, count);
  return TRUE;
}

Resources ResourcesNow() {
  Resources now = {};
  now.freeGdiObjects = CountFreeGdiObjects();
  EnumThreadWindows(GetCurrentThreadId(), CountWindow, reinterpret_cast<LPARAM>(&now.windows));
  const HANDLE event = CreateEventA(nullptr, FALSE, FALSE, nullptr);
  now.freeHandle = reinterpret_cast<uintptr_t>(event);
  CloseHandle(event);
  PROCESS_MEMORY_COUNTERS memory = {};
  GetProcessMemoryInfo(GetCurrentProcess(), &memory, sizeof(memory));
  now.privateBytes = static_cast<int64_t>(memory.PagefileUsage);
  return now;
}

TEST_F(PreviewDialogTest, AHundredRoundsLeaveNothingBehind) {
  MakePicture(40, 30, kGray8);
  const auto round = [this](int number) {
    std::optional<HeldKey> ctrl;
    if (number % 2 == 1) ctrl.emplace(VK_CONTROL);
    Open([number] {
      Press(TESSALINE_SPECTRUM_VIEW);
      Press(TESSALINE_ACCEPTANCE_UP);
      if (number % 10 == 0) {
        PressAndEnter(TESSALINE_QUICK_GUIDE, [](HWND guide) { Command(guide, IDOK); });
        PressAndEnter(TESSALINE_HIGHLIGHT_OTHER, [](HWND chooser) { Command(chooser, IDCANCEL); });
      }
      Press(number % 3 == 0 ? TESSALINE_OK : TESSALINE_CANCEL);
    });
  };
  for (int i = 0; i < 11; ++i) round(i);
  const Resources before = ResourcesNow();
  const int32_t buffers = liveBufferCount;
  for (int i = 0; i < 100; ++i) round(i);
  const Resources after = ResourcesNow();
  EXPECT_EQ(buffers, liveBufferCount);
  EXPECT_EQ(before.freeGdiObjects, after.freeGdiObjects);
  EXPECT_EQ(before.windows, after.windows);
  EXPECT_EQ(before.freeHandle, after.freeHandle);
  EXPECT_NEAR(static_cast<double>(before.privateBytes), static_cast<double>(after.privateBytes), 1 << 20);
}

}  // namespace
}  // namespace tessaline
