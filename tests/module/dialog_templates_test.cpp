// The dialogs as the built module carries them: read from the resources, no window needed.
#include <gtest/gtest.h>

#define WIN32_LEAN_AND_MEAN
#include <windows.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "dialog/control_ids.h"

namespace tessaline {
namespace {

const HMODULE module = LoadLibraryExA(TESSALINE_MODULE, nullptr, LOAD_LIBRARY_AS_DATAFILE);

const uint8_t* Resource(int id, LPCSTR type, DWORD* size) {
  const HRSRC found = FindResourceA(module, MAKEINTRESOURCEA(id), type);
  *size = found != nullptr ? SizeofResource(module, found) : 0;
  return found != nullptr ? static_cast<const uint8_t*>(LockResource(LoadResource(module, found))) : nullptr;
}

struct Control {
  int id;
  DWORD style;
  int left, top, width, height;  // dialog units
  std::u16string kind;           // class name, or its number
  std::u16string text;           // or the number of a picture
  int picture;                   // 0: text
};

struct Template {
  int width = 0;
  int height = 0;
  std::u16string title;
  std::vector<Control> controls;

  const Control& At(int id) const {
    const auto found =
        std::find_if(controls.begin(), controls.end(), [&](const Control& c) { return c.id == id; });
    EXPECT_NE(controls.end(), found) << id;
    return *found;
  }
};

// Walks an extended dialog template.
class Reader {
 public:
  explicit Reader(const uint8_t* bytes) : start_(bytes), at_(bytes) {}
  template <typename Number>
  Number Next() {
    Number number;
    std::memcpy(&number, at_, sizeof number);
    at_ += sizeof number;
    return number;
  }
  // Text, or the number that stands in its place.
  std::u16string TextOrNumber(int* number) {
    std::u16string text;
    auto unit = Next<char16_t>();
    *number = 0;
    if (unit == 0xFFFF) {
      *number = Next<uint16_t>();
      return text;
    }
    for (; unit != 0; unit = Next<char16_t>()) text += unit;
    return text;
  }
  void Skip(size_t bytes) { at_ += bytes; }
  void Align() { at_ += (4 - (at_ - start_) % 4) % 4; }

 private:
  const uint8_t* start_;
  const uint8_t* at_;
};

Template ReadTemplate(int id) {
  DWORD size = 0;
  const uint8_t* bytes = Resource(id, RT_DIALOG, &size);
  Template dialog;
  EXPECT_NE(nullptr, bytes) << id;
  if (bytes == nullptr) return dialog;
  Reader reader(bytes);
  int number = 0;
  reader.Skip(16);  // version, signature, help, extended style, style
  const int count = reader.Next<uint16_t>();
  reader.Skip(4);  // place
  dialog.width = reader.Next<int16_t>();
  dialog.height = reader.Next<int16_t>();
  reader.TextOrNumber(&number);  // menu
  reader.TextOrNumber(&number);  // class
  dialog.title = reader.TextOrNumber(&number);
  reader.Skip(6);  // font: size, weight, slant, character set
  reader.TextOrNumber(&number);
  for (int i = 0; i < count; ++i) {
    Control control;
    reader.Align();
    reader.Skip(8);  // help, extended style
    control.style = reader.Next<uint32_t>();
    control.left = reader.Next<int16_t>();
    control.top = reader.Next<int16_t>();
    control.width = reader.Next<int16_t>();
    control.height = reader.Next<int16_t>();
    control.id = reader.Next<int32_t>();
    control.kind = reader.TextOrNumber(&number);
    if (number != 0) control.kind = std::u16string(1, static_cast<char16_t>(number));
    control.text = reader.TextOrNumber(&control.picture);
    reader.Skip(reader.Next<uint16_t>());
    dialog.controls.push_back(control);
  }
  return dialog;
}

constexpr int kPreviews[] = {TESSALINE_DIALOG_SMALL, TESSALINE_DIALOG_LARGE};

// Pixels at 96 dots per inch, where a character of the dialogs' font counts as 6 x 13.
int WidthInPixels(int units) {
  return (units * 6 + 2) / 4;
}
int HeightInPixels(int units) {
  return (units * 13 + 4) / 8;
}

TEST(DialogTemplates, BothSizesHoldTheSameControlsUnderTheSameTitle) {
  const Template small = ReadTemplate(TESSALINE_DIALOG_SMALL);
  const Template large = ReadTemplate(TESSALINE_DIALOG_LARGE);
  EXPECT_EQ(638, small.width);
  EXPECT_EQ(323, small.height);
  EXPECT_EQ(669, large.width);
  EXPECT_EQ(410, large.height);
  for (const Template& dialog : {small, large})
    EXPECT_EQ(u"Kelvora\u00AE Vistrel\u00AE > Tessaline", dialog.title);
  ASSERT_EQ(38u, small.controls.size());
  ASSERT_EQ(38u, large.controls.size());
  std::map<int, int> seen;
  for (size_t i = 0; i < small.controls.size(); ++i) {
    const Control &a = small.controls[i], &b = large.controls[i];
    EXPECT_EQ(1, ++seen[a.id]) << a.id;
    EXPECT_EQ(a.id, b.id);
    EXPECT_EQ(a.style, b.style) << a.id;
    EXPECT_EQ(a.kind, b.kind) << a.id;
    EXPECT_EQ(a.picture, b.picture) << a.id;
    if (a.id != TESSALINE_PROTECTION_LABEL) {
      EXPECT_EQ(a.text, b.text) << a.id;
    }
  }
  EXPECT_EQ(u"Low Frequency Protection Radius, pixels", small.At(TESSALINE_PROTECTION_LABEL).text);
  EXPECT_EQ(u"Low Frequency Protection Radius (px)", large.At(TESSALINE_PROTECTION_LABEL).text);
}

TEST(DialogTemplates, NothingOverlapsOrComesNearerToTheEdgeThanTheMargin) {
  constexpr int kMargin = 6;  // dialog units
  for (const int id : {TESSALINE_DIALOG_SMALL, TESSALINE_DIALOG_LARGE, TESSALINE_QUICK_GUIDE}) {
    const Template dialog = ReadTemplate(id);
    for (const Control& a : dialog.controls) {
      EXPECT_GE(a.left, kMargin) << id << ": " << a.id;
      EXPECT_GE(a.top, kMargin) << id << ": " << a.id;
      EXPECT_LE(a.left + a.width, dialog.width - kMargin) << id << ": " << a.id;
      EXPECT_LE(a.top + a.height, dialog.height - kMargin) << id << ": " << a.id;
      for (const Control& b : dialog.controls) {
        const bool overlaps = a.left < b.left + b.width && b.left < a.left + a.width &&
                              a.top < b.top + b.height && b.top < a.top + a.height;
        EXPECT_TRUE(&a == &b || !overlaps) << id << ": " << a.id << " and " << b.id;
      }
    }
  }
}

TEST(DialogTemplates, ViewsAndBarsHaveTheSizesThatTheDialogNeeds) {
  for (const int id : kPreviews) {
    const Template dialog = ReadTemplate(id);
    // The spectrum is square, or it would be painted with bars or cut.
    const Control& spectrum = dialog.At(TESSALINE_SPECTRUM_VIEW);
    EXPECT_NEAR(WidthInPixels(spectrum.width), HeightInPixels(spectrum.height), 2);
    // 56 pixels of a bar are arrows and thumb; the acceptance has 101 places for the thumb.
    EXPECT_GE(WidthInPixels(dialog.At(TESSALINE_ACCEPTANCE_BAR).width), 101 + 56);
    // Only a disabled control lets the mouse through to the dialog that pans.
    EXPECT_NE(0u, dialog.At(TESSALINE_PROXY_VIEW).style & WS_DISABLED);
    EXPECT_EQ(0u, dialog.At(TESSALINE_HIGHLIGHT_SWATCH).style & WS_VISIBLE);
    // Whatever has a tooltip or answers clicks must see the mouse.
    for (const Control& control : dialog.controls) {
      constexpr int kStaticClass = 0x82;
      const bool isSilent = control.id == TESSALINE_PROXY_VIEW || control.id == TESSALINE_SPECTRUM_CAPTION ||
                            control.id == TESSALINE_HIGHLIGHT_CAPTION;
      if (control.kind == std::u16string(1, kStaticClass) && !isSilent) {
        EXPECT_NE(0u, control.style & SS_NOTIFY) << control.id;
      }
    }
  }
}

TEST(DialogTemplates, EveryPictureIsThereAndFitsItsControl) {
  for (const int id : {TESSALINE_DIALOG_SMALL, TESSALINE_DIALOG_LARGE, TESSALINE_QUICK_GUIDE}) {
    for (const Control& control : ReadTemplate(id).controls) {
      if (control.picture == 0) continue;
      DWORD size = 0;
      const uint8_t* bytes = Resource(control.picture, RT_BITMAP, &size);
      ASSERT_NE(nullptr, bytes) << control.picture;
      BITMAPINFOHEADER header;
      std::memcpy(&header, bytes, sizeof header);
      EXPECT_LE(header.biWidth, WidthInPixels(control.width)) << control.id;
      EXPECT_LE(header.biHeight, HeightInPixels(control.height)) << control.id;
    }
  }
  DWORD size = 0;
  EXPECT_NE(nullptr, Resource(TESSALINE_CURSOR_HAND, RT_GROUP_CURSOR, &size));
}

}  // namespace
}  // namespace tessaline
