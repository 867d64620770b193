// A picture with its spectrum, and the preview dialog opened on it. Windows only.
#pragma once

#include <gtest/gtest.h>
#include <windows.h>

#include <cmath>
#include <functional>

#include "buffers/buffer_table.h"
#include "dialog/control_ids.h"
#include "dialog/preview_dialog.h"
#include "dialog/preview_state.h"
#include "image/pixel_kind.h"
#include "image/result_codes.h"
#include "removal/peak_detection.h"
#include "tests/dialog/dialog_driver.h"
#include "tests/support/failing_allocations.h"

namespace tessaline {

class PreviewDialogTest : public testing::Test {
 protected:
  void SetUp() override {
    ResetBufferTable();
    owner_ = CreateWindowA("STATIC", "owner", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 0, 0, 300, 200, nullptr,
                           nullptr, nullptr, nullptr);
    MakeSpectrum();
    MakePicture(300, 200, kRgb8);
  }
  void TearDown() override {
    if (IsWindow(owner_)) DestroyWindow(owner_);
    picture_.Release();
    gray16_.Release();
    gray8_.Release();
    EXPECT_EQ(0, liveBufferCount);
    EXPECT_EQ(nullptr, FindOwnWindow("#32770"));
  }

  // A gradient with a sine on it; the highest level of every kind is in it.
  void MakePicture(int32_t width, int32_t height, int32_t bytesPerPixel) {
    ASSERT_EQ(0, picture_.Create("main", width, height, bytesPerPixel));
    const int32_t sampleBytes = bytesPerPixel == kGray16 || bytesPerPixel == kRgb16 ? 2 : 1;
    const int32_t channels = bytesPerPixel / sampleBytes;
    for (int32_t y = 0; y < height; ++y) {
      uint8_t* const row = BufferRow(picture_.slot(), y);
      for (int32_t x = 0; x < width * channels; ++x) {
        const double level = 0.5 + 0.3 * std::sin(x / channels * 0.8) + 0.2 * y / height * (x % channels - 1);
        if (sampleBytes == 1) {
          row[x] = static_cast<uint8_t>(level * 255);
        } else {
          reinterpret_cast<uint16_t*>(row)[x] = static_cast<uint16_t>(level * 32768);
        }
      }
    }
  }

  // Runs the dialog and `steps` inside it; what they leave open is cancelled. Returns the launcher's result.
  int32_t Open(const Steps& steps) { return OpenOver(owner_, picture_.slot(), steps); }
  int32_t OpenOver(HWND owner, int32_t slot, const Steps& steps) {
    values_.gray16Slot = gray16_.slot();
    values_.gray8Slot = gray8_.slot();
    int32_t result = 1;
    const auto open = [&] {
      const AllocationFailurePause dialogAtWork(false);
      result = RunPreviewDialog(owner, slot, &values_);
    };
    const bool hasOpened = RunInside(open, [&] {
      ShowWindow(Dialog(), SW_SHOWNORMAL);
      Settle();
      steps();
      if (Dialog() != nullptr) Press(TESSALINE_CANCEL);
    });
    EXPECT_EQ(hasOpened, result != kOutOfMemory);
    return result;
  }

  static HWND Dialog() { return previewWindow; }
  static HWND Control(int32_t id) { return GetDlgItem(Dialog(), id); }
  static void Press(int32_t id) {
    Command(Dialog(), id);
    Settle();
  }
  static void Mouse(UINT message, int32_t x, int32_t y) {
    SendMessageA(Dialog(), message, 0, MAKELPARAM(x, y));
    Settle();
  }
  // Does what opens a second modal dialog, and runs `steps` on that.
  static void EnterSecond(const Steps& open, const std::function<void(HWND)>& steps) {
    const bool hasOpened = RunInside(open, [&] {
      const HWND second = EnabledDialog();
      ASSERT_NE(nullptr, second);
      ASSERT_NE(Dialog(), second);
      steps(second);
    });
    EXPECT_TRUE(hasOpened);
    Settle();
  }
  static void PressAndEnter(int32_t id, const std::function<void(HWND)>& steps) {
    EnterSecond([&] { Command(Dialog(), id); }, steps);
  }

  HWND owner_ = nullptr;
  FilterParameters values_ = {60, 6, 8, 0, 0, 0, 255, 0, 0, {}};  // red, whatever was chosen before
  OwnedBuffer picture_, gray16_, gray8_;

 private:
  // Grey hills with one pair of peaks, outside the protected disc.
  void MakeSpectrum() {
    gray16_.Create("PSPECgray16", kSpectrumCells, kSpectrumCells, kGray16);
    gray8_.Create("PSPECgray8", kSpectrumCells, kSpectrumCells, kGray8);
    for (int32_t y = 0; y < kSpectrumCells; ++y) {
      for (int32_t x = 0; x < kSpectrumCells; ++x) {
        const double distance = std::hypot(x - 256, y - 256);
        BufferRow(gray8_.slot(), y)[x] =
            static_cast<uint8_t>(200 / (1 + distance / 40) + (x * 7 + y * 3) % 16);
      }
    }
    for (const int32_t x : {256 - 65, 256 + 65}) {
      reinterpret_cast<uint16_t*>(BufferRow(gray16_.slot(), 256))[x] = 32000;
      BufferRow(gray8_.slot(), 256)[x] = 250;
    }
  }
};

}  // namespace tessaline
