#include "glue/host/image_transfer.h"

#include <algorithm>
#include <cmath>

#include "glue/host/color_rows.h"
#include "tests/glue/host/host_fixture.h"

namespace tessaline {
namespace {

using testhost::Style;
constexpr int32_t kWidth = 13, kHeight = 7;
constexpr host::VRect kInnerRectangle = {2, 3, 6, 11};

std::vector<uint8_t> g_main, g_selection, g_alpha;

class ImageTransferTest : public HostTest {
 protected:
  ImageTransferTest() {
    copiesBack = true;
    g_main = g_selection = g_alpha = {};
  }

  static void KeepBuffers() {
    g_main = PixelsOf(imageInfo.mainBuffer);
    g_selection = PixelsOf(imageInfo.maskBuffer);
    g_alpha = PixelsOf(imageInfo.alphaBuffer);
  }
  // Stands in for a run: every sample of "main" is changed.
  static void KeepAndInvert() {
    KeepBuffers();
    for (int32_t y = 0; y < ShapeOf(imageInfo.mainBuffer).height; ++y) {
      const BufferShape shape = ShapeOf(imageInfo.mainBuffer);
      uint8_t* const row = BufferRow(imageInfo.mainBuffer, y);
      for (int32_t i = 0; i < shape.width * shape.bytesPerPixel; ++i) row[i] = static_cast<uint8_t>(~row[i]);
    }
  }

  // What a host has afterwards when all colour samples inside the rectangle are inverted and nothing else is.
  static Document Inverted(Document document, const host::VRect& area, int32_t colorBytes) {
    for (int32_t y = area.top; y < area.bottom; ++y) {
      for (int32_t x = area.left; x < area.right; ++x) {
        auto* const pixel = const_cast<uint8_t*>(PixelAt(document, x, y));
        for (int32_t i = 0; i < colorBytes; ++i) pixel[i] = static_cast<uint8_t>(~pixel[i]);
      }
    }
    return document;
  }

  static void ExpectTransfer(const Document& document, const Switches& switches, int32_t colorBytes) {
    afterFetch = KeepAndInvert;
    const Report report = RunFilter(CopyingFilter, document, switches);
    const host::VRect area = switches.hasFilterRectangle ? switches.filterRectangle
                                                         : host::VRect{0, 0, document.height, document.width};
    EXPECT_EQ(0, report.result);
    EXPECT_NO_COMPLAINTS(report);
    EXPECT_EQ(Inverted(document, area, colorBytes).pixels, report.document.pixels);
    // What the run sees is what the host has.
    ASSERT_EQ(size_t(colorBytes * WidthOf(area) * HeightOf(area)), g_main.size());
    const uint8_t* sample = g_main.data();
    for (int32_t y = area.top; y < area.bottom; ++y) {
      for (int32_t x = area.left; x < area.right; ++x, sample += colorBytes) {
        ASSERT_EQ(0, std::memcmp(sample, PixelAt(document, x, y), colorBytes)) << x << ", " << y;
      }
    }
  }
};

struct PlainMode {
  int16_t mode;
  int32_t depth, colorPlanes;
};
constexpr PlainMode kPlainModes[] = {
    {host::kModeGray, 8, 1}, {host::kModeRgb, 8, 3}, {host::kModeGray16, 16, 1}, {host::kModeRgb48, 16, 3}};

TEST_F(ImageTransferTest, ColorSamplesComeAndGoAsTheyAreAndExtraPlanesStay) {
  for (const PlainMode& mode : kPlainModes) {
    for (int32_t extraPlanes : {0, 1, 3}) {
      const Document document =
          MakeDocument(mode.mode, mode.depth, mode.colorPlanes + extraPlanes, kWidth, kHeight);
      for (const Style style :
           {Style::kRefillOnChange, Style::kRefillOnChangeAndClip, Style::kRefillAlways}) {
        for (const bool isWide : {false, true}) {
          SCOPED_TRACE(testing::Message() << "mode " << mode.mode << " + " << extraPlanes << " style "
                                          << static_cast<int>(style) << (isWide ? " 32-bit" : " 16-bit"));
          Switches switches;
          switches.style = style;
          switches.offer32Bits = isWide;
          ExpectTransfer(document, switches, mode.colorPlanes * mode.depth / 8);
          switches.hasFilterRectangle = true;
          switches.filterRectangle = kInnerRectangle;
          // Odd steps: samples of two bytes then lie at odd addresses.
          switches.inputPadding = 5;
          switches.outputPadding = 17;
          switches.freshAddresses = !isWide;
          ExpectTransfer(document, switches, mode.colorPlanes * mode.depth / 8);
        }
      }
    }
  }
}

// Lab reaches the run unconverted and leaves it converted.
TEST_F(ImageTransferTest, LabIsConvertedOnTheWayOutOnly) {
  afterFetch = KeepBuffers;
  const Document narrow = MakeDocument(host::kModeLab, 8, 3, kWidth, kHeight);
  std::vector<uint8_t> bytes = narrow.pixels;
  Report report = RunFilter(CopyingFilter, narrow, Switches{});
  EXPECT_NO_COMPLAINTS(report);
  EXPECT_EQ(bytes, g_main);
  CopyBackLabRow8(bytes.data(), kWidth * kHeight);
  EXPECT_EQ(bytes, report.document.pixels);

  const Document wide = MakeDocument(host::kModeLab48, 16, 3, kWidth, kHeight);
  std::vector<uint16_t> words(wide.pixels.size() / 2);
  std::memcpy(words.data(), wide.pixels.data(), wide.pixels.size());
  report = RunFilter(CopyingFilter, wide, Switches{});
  EXPECT_NO_COMPLAINTS(report);
  EXPECT_EQ(wide.pixels, g_main);
  CopyBackLabRow16(words.data(), kWidth * kHeight);
  EXPECT_EQ(0, std::memcmp(words.data(), report.document.pixels.data(), wide.pixels.size()));
}

// -------------------------------------------------------------------------------------------------
// selections

TEST_F(ImageTransferTest, SelectionStartsAtHalfCoverage) {
  Document document = MakeDocument(host::kModeGray, 8, 1, kWidth, kHeight);
  document.mask.assign(kWidth * kHeight, 127);
  const auto select = [&](int32_t x, int32_t y, uint8_t coverage) {
    document.mask[y * kWidth + x] = coverage;
  };
  select(3, 2, 128);
  select(10, 2, 200);
  select(5, 5, 255);
  select(12, 6, 100);
  afterFetch = KeepBuffers;
  for (const bool isWide : {false, true}) {
    Switches switches;
    switches.offer32Bits = isWide;
    switches.maskPadding = 3;
    const Report report = RunFilter(CopyingFilter, document, switches);
    EXPECT_NO_COMPLAINTS(report);
    EXPECT_EQ(2, workRectangle.top);
    EXPECT_EQ(3, workRectangle.left);
    EXPECT_EQ(6, workRectangle.bottom);
    EXPECT_EQ(11, workRectangle.right);
    ASSERT_EQ(8u * 4u, g_selection.size());
    EXPECT_EQ(128, g_selection[0]);
    EXPECT_EQ(200, g_selection[7]);
    EXPECT_EQ(255, g_selection[3 * 8 + 2]);
    EXPECT_TRUE(fetchFlags.selectionPartial);
    EXPECT_FALSE(fetchFlags.extraPlanesFetched);
  }
}

TEST_F(ImageTransferTest, MaskThatCannotBeHadSelectsTheFilterRectangle) {
  Document document = MakeDocument(host::kModeGray, 8, 1, kWidth, kHeight);
  document.mask.assign(kWidth * kHeight, 0);
  Switches undelivered;
  undelivered.maskIsNotDelivered = true;
  afterFetch = KeepBuffers;
  Report report = RunFilter(CopyingFilter, document, undelivered);
  EXPECT_NO_COMPLAINTS(report);
  EXPECT_EQ(kWidth, WidthOf(workRectangle));
  EXPECT_EQ(std::vector<uint8_t>(kWidth * kHeight, 255), g_selection);

  Switches failing;
  failing.failAdvanceAt = 3;  // in the scan: the fetch after it is served again
  report = RunFilter(CopyingFilter, document, failing);
  EXPECT_EQ(0, report.result);
  EXPECT_EQ(kHeight, HeightOf(workRectangle));
}

}  // namespace
}  // namespace tessaline
