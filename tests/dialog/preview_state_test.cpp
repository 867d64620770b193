#include "dialog/preview_state.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "buffers/buffer_conversion.h"
#include "buffers/buffer_transforms.h"
#include "dialog/control_pixels.h"
#include "image/pixel_kind.h"
#include "removal/notch_mask.h"
#include "removal/peak_detection.h"
#include "tests/support/failing_allocations.h"

namespace tessaline {
namespace {

constexpr WindowRectangle kSpectrumArea = {500, 20, 620, 140};

PreviewState preview;

// A run's buffers as the dialog finds them, and the dialog's state without its window.
class PreviewTest : public testing::Test {
 protected:
  void SetUp() override { ResetBufferTable(); }
  void TearDown() override {
    Close(false);
    picture_.Release();
    gray16_.Release();
    gray8_.Release();
    EXPECT_EQ(0, liveBufferCount);
  }

  // Noise with a sine on it, of any of the four kinds.
  void MakePicture(int32_t width, int32_t height, int32_t bytesPerPixel) {
    picture_.Create("main", width, height, bytesPerPixel);
    std::mt19937 random(7);
    const bool isHost = bytesPerPixel == kGray16 || bytesPerPixel == kRgb16;
    const int32_t samples = bytesPerPixel / (isHost ? 2 : 1);
    for (int32_t y = 0; y < height; ++y) {
      uint8_t* const row = BufferRow(picture_.slot(), y);
      for (int32_t x = 0; x < width * samples; ++x) {
        const double level =
            0.5 + 0.3 * std::sin(x / samples * 0.8) + 0.1 * static_cast<double>(random() % 1000) / 1000;
        if (isHost) {
          reinterpret_cast<uint16_t*>(row)[x] = static_cast<uint16_t>(level * 32768);
        } else {
          row[x] = static_cast<uint8_t>(level * 255);
        }
      }
    }
    // A spectrum with one bright pair, well outside the protected disc.
    gray16_.Create("PSPECgray16", kSpectrumCells, kSpectrumCells, kGray16);
    gray8_.Create("PSPECgray8", kSpectrumCells, kSpectrumCells, kGray8);
    for (const int32_t dx : {-65, 65}) {
      reinterpret_cast<uint16_t*>(BufferRow(gray16_.slot(), 256))[256 + dx] = 30000;
      BufferRow(gray8_.slot(), 256)[256 + dx] = 240;
    }
    parameters_ = {60, 6, 8, gray16_.slot(), gray8_.slot(), 0, 0, 0, 0, {}};
  }

  void Open(WindowRectangle proxyArea = {10, 20, 210, 140}, uint8_t isSplit = 0) {
    request_ = {picture_.slot(), &parameters_, &values_, 1, isSplit};
    preview.Open(&request_, proxyArea, kSpectrumArea);
  }
  void Close(bool isAccepted) { preview.Close(isAccepted); }

  OwnedBuffer picture_, gray16_, gray8_;
  FilterParameters parameters_ = {};
  FilterParameters* values_ = &parameters_;
  PreviewDialogRequest request_ = {};
};

std::vector<uint8_t> PixelsOf(int32_t slot) {
  const BufferShape shape = ShapeOf(slot);
  std::vector<uint8_t> pixels;
  for (int32_t y = 0; y < shape.height; ++y) {
    const uint8_t* const row = BufferRow(slot, y);
    pixels.insert(pixels.end(), row, row + shape.width * shape.bytesPerPixel);
  }
  return pixels;
}

// What the filtered proxy must be, step after step with nothing kept from before.
std::vector<uint8_t> SlowFilteredProxy(int32_t sourceSlot, const PreviewState& state, int32_t gray16Slot) {
  OwnedBuffer gridMask, fullMask;
  gridMask.Create("grid", kSpectrumCells, kSpectrumCells, kGray8);
  fullMask.Create("full", kProxySquare, kProxySquare, kGray8);
  const ImageView grid = ViewOf(gridMask.slot());
  EXPECT_EQ(0, DetectPeaks(ViewOf(gray16Slot), ThresholdOfAcceptance(state.current.acceptance),
                           state.current.protectionRadius, grid));
  EXPECT_EQ(0, ShapeNotches(grid, state.current.protectionRadius, state.current.notchRadius));
  EXPECT_EQ(0, EnlargeMask(grid, ViewOf(fullMask.slot())));
  const int32_t width = state.panX.proxySize, height = state.panY.proxySize;
  std::vector<uint8_t> rgb(static_cast<size_t>(width) * height * 3);
  const BufferShape source = ShapeOf(sourceSlot);
  const bool isHost = source.bytesPerPixel == kGray16 || source.bytesPerPixel == kRgb16;
  const int32_t channels = source.bytesPerPixel / (isHost ? 2 : 1);
  for (int32_t c = 0; c < 3; ++c) {
    OwnedBuffer plane;
    plane.Create("plane", kProxySquare, kProxySquare, kGrayComplex);
    for (int32_t r = 0; r < kProxySquare; ++r) {
      const int32_t y = std::clamp(state.panY.base - state.padY + r, 0, source.height - 1);
      for (int32_t x = 0; x < kProxySquare; ++x) {
        const int32_t column = std::clamp(state.panX.base - state.padX + x, 0, source.width - 1);
        const int32_t sample = column * channels + std::min(c, channels - 1);
        const uint8_t* const row = BufferRow(sourceSlot, y);
        const float level = isHost ? static_cast<float>(reinterpret_cast<const uint16_t*>(row)[sample])
                                   : std::trunc(static_cast<float>(row[sample]) * kByteToHost);
        reinterpret_cast<float*>(BufferRow(plane.slot(), r))[2 * x] = level;
      }
    }
    ForwardFft2D(plane.slot(), false, false, nullptr, 0, 0, 0);
    ApplySpectrumMask(plane.slot(), fullMask.slot());
    InverseFft2D(plane.slot(), false, false, nullptr, 0, 0, 0);
    for (int32_t y = 0; y < height; ++y) {
      const auto* const row = reinterpret_cast<const float*>(BufferRow(plane.slot(), state.padY + y));
      for (int32_t x = 0; x < width; ++x) {
        rgb[(static_cast<size_t>(y) * width + x) * 3 + c] =
            StoreByte(row[2 * (state.padX + x)] * kHostToByte);
      }
    }
  }
  return rgb;
}

TEST_F(PreviewTest, FilteredProxyIsThatOfASlowTwinForEveryKindAndPlace) {
  struct Case {
    int32_t width, height, bytesPerPixel;
  };
  for (const Case c :
       {Case{300, 260, kRgb8}, Case{1500, 200, kGray8}, Case{90, 70, kRgb16}, Case{400, 1300, kGray16}}) {
    MakePicture(c.width, c.height, c.bytesPerPixel);
    Open();
    preview.Compute();
    const PreviewState& state = preview;
    EXPECT_EQ(SlowFilteredProxy(picture_.slot(), state, gray16_.slot()),
              PixelsOf(state.buffers.proxy.slot()));
    // Another place, then other values at that place: what is kept must not show.
    preview.BeginDrag(100, 100);
    preview.ContinueDrag(60, 90);
    preview.EndDrag();
    preview.Compute();
    EXPECT_EQ(SlowFilteredProxy(picture_.slot(), state, gray16_.slot()),
              PixelsOf(state.buffers.proxy.slot()));
    preview.ChangeValues({90, 12, 20});
    preview.Compute();
    EXPECT_EQ(SlowFilteredProxy(picture_.slot(), state, gray16_.slot()),
              PixelsOf(state.buffers.proxy.slot()));
    Close(false);
    picture_.Release();
    gray16_.Release();
    gray8_.Release();
  }
}

TEST_F(PreviewTest, BesideASmallPictureTheViewIsGreyWhateverTheProxyRepeatsThere) {
  MakePicture(50, 300, kGray8);
  Open();
  preview.ChangeZoom(ZoomCommand::kIn);
  preview.Compute();
  const int32_t view = preview.buffers.zoomedView.slot();
  std::vector<uint8_t> shown(200 * 120 * 4);
  EXPECT_EQ(0, DrawBufferPixels(view, 200, 120, shown.data(), preview.ShownPicture()));
  EXPECT_NE(0, BufferRow(view, 119)[100]);
  for (size_t x = 0; x < 200; ++x) {
    EXPECT_EQ(x < 100 ? BufferRow(view, 119)[x] : 128, shown[(119 * 200 + x) * 4]) << x;
  }
}

TEST_F(PreviewTest, TheUntouchedHalfShowsWhatTheOtherDoesWithoutThePreviewAndAllComesBack) {
  MakePicture(300, 260, kRgb16);
  Open({10, 20, 210, 140}, 1);
  EXPECT_EQ(60, preview.proxyArea.height());
  const auto shown = [](const OwnedBuffer& buffer) {
    preview.Compute();
    return PixelsOf(buffer.slot());
  };
  const PreviewBuffers& buffers = preview.buffers;
  const std::vector<uint8_t> filtered = shown(buffers.zoomedView),
                             flat = PixelsOf(buffers.spectrumView.slot());
  EXPECT_NE(filtered, PixelsOf(buffers.zoomedUntouched.slot()));
  preview.TogglePreview();
  preview.ChangeZoom(ZoomCommand::kIn);
  EXPECT_STREQ("200%", preview.ZoomLabel());
  const std::vector<uint8_t> magnified = shown(buffers.zoomedView);
  EXPECT_EQ(magnified, PixelsOf(buffers.zoomedUntouched.slot()));
  preview.ToggleSpectrumView();
  EXPECT_NE(flat, shown(buffers.spectrumView));
  preview.TogglePreview();
  preview.ToggleSpectrumView();
  preview.ChangeZoom(ZoomCommand::kOut);
  preview.ChangeZoom(ZoomCommand::kOut);  // life size is the least
  preview.ChangeValues({100, 16, 2});
  EXPECT_NE(filtered, shown(buffers.zoomedView));
  preview.RestoreOpeningValues();
  EXPECT_EQ(filtered, shown(buffers.zoomedView));
  EXPECT_EQ(flat, PixelsOf(buffers.spectrumView.slot()));
}

TEST(Pan, HoldsTheBaseOneBelowItsMaximum) {
  PanAxis axis = CentredPan(1000, 300);
  EXPECT_EQ(350, axis.base);
  EXPECT_EQ(700, axis.maximumBase);
  SplitPan(699.5f, &axis);
  EXPECT_EQ(699, axis.base);
  EXPECT_EQ(0, axis.remainder);
  SplitPan(700, &axis);
  EXPECT_EQ(699, axis.base);
  EXPECT_EQ(1, axis.remainder);
  SplitPan(950, &axis);
  EXPECT_EQ(251, axis.remainder);

  DragPan(350, 100, -100000, 1.0f, &axis);
  EXPECT_EQ(699, axis.position());
  DragPan(350, 100, 100000, 1.0f, &axis);
  EXPECT_EQ(0, axis.position());
  DragPan(350, 100, 60, 4.0f, &axis);
  EXPECT_EQ(360, axis.position());
  // At 800 % the view is 37 pixels wide and can go almost to the edge.
  DragPan(350, 100, -100000, 8.0f, &axis);
  EXPECT_EQ(1000 - 37 - 1, axis.position());
}

TEST(Pan, PictureSmallerThanTheProxyMovesWithinIt) {
  PanAxis axis = CentredPan(100, 300);
  EXPECT_EQ(0, axis.maximumBase);
  DragPan(0, 100, 50, 1.0f, &axis);
  EXPECT_EQ(0, axis.base);
  EXPECT_EQ(0, axis.remainder);
  DragPan(0, 100, 50, 4.0f, &axis);
  EXPECT_EQ(0, axis.base);
  EXPECT_EQ(12, axis.remainder);
  RecentrePan(4.0f, 8.0f, &axis);
  EXPECT_EQ(0, axis.base);
  EXPECT_LT(axis.remainder, 100);
}

TEST_F(PreviewTest, HighlightIsReadAndStoredWithOkAlone) {
  MakePicture(64, 64, kGray8);
  parameters_.highlightMode = 2.7f;
  parameters_.highlightRed = 12.9f;
  parameters_.highlightGreen = 300;
  parameters_.highlightBlue = -3;
  Open();
  EXPECT_EQ(kHighlightOther, preview.highlightMode);
  EXPECT_EQ((HighlightColor{12, 255, 0}), preview.highlight);
  EXPECT_EQ(kRepaintSpectrum | kRepaintSwatch, preview.ChooseHighlight(kHighlightCyan, {}));
  EXPECT_EQ(kRepaintNothing, preview.ChooseHighlight(kHighlightCyan, {}));
  EXPECT_EQ((HighlightColor{0, 255, 255}), preview.highlight);
  Close(false);
  EXPECT_EQ(2.7f, parameters_.highlightMode);
  Open();
  preview.ChooseHighlight(kHighlightOther, {1, 2, 3});
  Close(true);
  EXPECT_EQ(2.0f, parameters_.highlightMode);
  EXPECT_EQ(2.0f, parameters_.highlightGreen);
}

TEST_F(PreviewTest, WideAreasAreCutAndNothingNeedsMemoryOrAPicture) {
  MakePicture(1, 7500, kRgb16);
  Open({0, 0, 2000, 3000});
  EXPECT_EQ(kLargestProxySide, preview.panX.proxySize);
  EXPECT_EQ((kProxySquare - kLargestProxySide) / 2, preview.padY);
  preview.Compute();
  preview.BeginDrag(5, 5);
  preview.ContinueDrag(-30000, -30000);
  preview.EndDrag();
  EXPECT_EQ(7500 - kLargestProxySide - 1, preview.panY.position());
  preview.Compute();
  Close(false);

  // A slot without a picture, then no memory for the n-th block.
  for (const int32_t slot : {0, -5, 5000, kBufferSlots - 1}) {
    picture_.Release();
    request_ = {slot, &parameters_, &values_, 0};
    preview.Open(&request_, {0, 0, 200, 120}, kSpectrumArea);
    EXPECT_EQ(0, preview.channels);
    preview.BeginDrag(20, 20);
    preview.ContinueDrag(10, 10);
    preview.Compute();
    Close(true);
  }
  picture_.Create("main", 50, 40, kRgb8);
  for (FailingAllocations failing; failing.Next();) {
    failing.During([&] {
      Open();
      preview.Compute();
    });
    preview.Compute();
    Close(false);
  }
}

}  // namespace
}  // namespace tessaline
