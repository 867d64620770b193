#include "resources/art/guide_page.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <vips/vips8>

#include "image/pixel_kind.h"
#include "removal/steps.h"

namespace tessaline::art {
namespace {

constexpr Colour kPaper = {255, 255, 255};
constexpr Colour kText = {32, 32, 32};
constexpr Colour kSoftText = {88, 88, 88};
constexpr Colour kRule = {208, 208, 208};
constexpr Colour kPanelRim = {128, 128, 128};
constexpr Colour kHighlight = {255, 0, 0};
constexpr Colour kProtected = {0, 0, 255};
constexpr Colour kMark = {255, 220, 0};
constexpr Colour kArrow = {38, 92, 160};

// --- pictures in memory ---

struct Picture {
  int width = 0;
  int height = 0;
  Bytes rgb;

  Picture(int columns, int rows) : width(columns), height(rows), rgb(size_t{3} * columns * rows) {}
  uint8_t* At(int x, int y) { return rgb.data() + 3 * (static_cast<size_t>(y) * width + x); }
  const uint8_t* At(int x, int y) const { return rgb.data() + 3 * (static_cast<size_t>(y) * width + x); }
};

void Cover(uint8_t* pixel, const Colour& colour, double cover) {
  const uint8_t levels[3] = {colour.red, colour.green, colour.blue};
  for (int i = 0; i < 3; ++i) {
    pixel[i] = static_cast<uint8_t>(std::lround(pixel[i] * (1 - cover) + levels[i] * cover));
  }
}

void FillBox(Picture* page, int left, int top, int width, int height, const Colour& colour) {
  for (int y = top; y < top + height; ++y) {
    for (int x = left; x < left + width; ++x) Cover(page->At(x, y), colour, 1);
  }
}

struct Frame {
  double left, top, side;  // a square of the picture, in its pixels
};

// The part of the picture as a square of `side` pixels, each the mean of what it covers.
Picture Scaled(const Picture& source, const Frame& part, int side) {
  constexpr int kLooksPerSide = 8;  // of a pixel
  Picture scaled(side, side);
  const double step = part.side / side / kLooksPerSide;
  for (int y = 0; y < side; ++y) {
    for (int x = 0; x < side; ++x) {
      double sum[3] = {};
      for (int look = 0; look < kLooksPerSide * kLooksPerSide; ++look) {
        const int across = look % kLooksPerSide, down = look / kLooksPerSide;
        const auto column = static_cast<int>(part.left + (x * kLooksPerSide + across + 0.5) * step);
        const auto row = static_cast<int>(part.top + (y * kLooksPerSide + down + 0.5) * step);
        const uint8_t* pixel = source.At(column, row);
        for (int i = 0; i < 3; ++i) sum[i] += pixel[i];
      }
      for (int i = 0; i < 3; ++i) {
        scaled.At(x, y)[i] = static_cast<uint8_t>(std::lround(sum[i] / (kLooksPerSide * kLooksPerSide)));
      }
    }
  }
  return scaled;
}

// With a thin line around it.
void Place(Picture* page, const Picture& panel, int left, int top) {
  FillBox(page, left - 1, top - 1, panel.width + 2, panel.height + 2, kPanelRim);
  for (int y = 0; y < panel.height; ++y) {
    std::copy_n(panel.At(0, y), 3 * panel.width, page->At(left, top + y));
  }
}

// --- what the engine sees and does ---

struct Run {
  Picture before{0, 0};
  Picture after{0, 0};
  std::vector<uint16_t> spectrum;  // 512 x 512, logarithm, 0..32768
  Bytes mask;                      // 512 x 512, 255 is taken out
  float protectionRadius = 0;
};

Picture ReadPicture(const ConstImageView& image) {
  Picture picture(image.width, image.height);
  for (int y = 0; y < image.height; ++y) {
    const uint8_t* row = image.Row(y);
    for (int x = 0; x < image.width; ++x) {
      for (int i = 0; i < 3; ++i)
        picture.At(x, y)[i] = row[x * image.bytesPerPixel + i % image.bytesPerPixel];
    }
  }
  return picture;
}

Run RunOn(const std::string& file, float acceptance, float notchRadius, float protectionRadius) {
  Image picture;
  try {
    const vips::VImage image = vips::VImage::new_from_file(file.c_str());
    if (!picture.Create(image.width(), image.height(), image.bands())) {
      throw std::runtime_error(file + ": no memory");
    }
    size_t bytes = 0;
    void* const levels = image.cast(VIPS_FORMAT_UCHAR).write_to_memory(&bytes);
    std::copy_n(static_cast<uint8_t*>(levels), bytes, picture.view().data);
    g_free(levels);
  } catch (const vips::VError& error) {
    throw std::runtime_error(file + ": " + error.what());
  }
  Run run;
  run.before = ReadPicture(picture.view());
  run.protectionRadius = protectionRadius;
  const Settings settings = {false, acceptance, 1.0, notchRadius, protectionRadius};
  const PictureView view = PictureOf(picture.view());
  Workspace workspace;
  Analysis analysis;
  Findings findings;
  Mask mask;
  int32_t result = Analyse(view, workspace, {}, &analysis);
  if (result == kSuccess) result = Decide(analysis, settings, &findings);
  if (result == kSuccess) result = Shape(findings, settings, &mask);
  if (result == kSuccess)
    result = Apply(view, view, mask, workspace, {Rounding::kTruncate, analysis.chain}, {});
  if (result != kSuccess) throw std::runtime_error(file + ": the run ended with " + std::to_string(result));
  constexpr size_t kCells = size_t{kSpectrumCells} * kSpectrumCells;
  const auto* const levels = analysis.rawGray16.view().Row<uint16_t>(0);
  const uint8_t* const cells = mask.cells.view().data;
  run.spectrum.assign(levels, levels + kCells);
  run.mask.assign(cells, cells + kCells);
  run.after = ReadPicture(picture.view());
  return run;
}

// --- spectra ---

// Room around the noise and the highest peaks, so that both show.
constexpr double kBlackLevel = 48.0 / kByteMax;
constexpr double kWhiteLevel = 215.0 / kByteMax;

// As the preview dialog shows a spectrum from above: dark in the highlight colour, nearly white where it is
// taken out.
void ShowFinding(uint8_t* pixel, double level, double mask, bool isProtected) {
  const double highlight[3] = {kHighlight.red, kHighlight.green, kHighlight.blue};
  const double kept[3] = {kProtected.red, kProtected.green, kProtected.blue};
  for (int i = 0; i < 3; ++i) {
    const double sum = isProtected ? kept[i] + level * (kept[i] + kByteMax) : level * highlight[i] + 2 * mask;
    pixel[i] = static_cast<uint8_t>(sum / 3);
  }
}

Picture DrawSpectrum(const Run& run, bool showsFindings) {
  const double discRadius = static_cast<double>(kSpectrumCentre) / run.protectionRadius;
  Picture picture(kSpectrumCells, kSpectrumCells);
  for (int y = 0; y < kSpectrumCells; ++y) {
    for (int x = 0; x < kSpectrumCells; ++x) {
      const size_t cell = static_cast<size_t>(y) * kSpectrumCells + x;
      const double level = run.spectrum[cell] / kHostMax;
      const double shown = std::clamp((level - kBlackLevel) / (kWhiteLevel - kBlackLevel), 0.0, 1.0);
      uint8_t* pixel = picture.At(x, y);
      std::fill_n(pixel, 3, static_cast<uint8_t>(std::lround(shown * kByteMax)));
      if (!showsFindings) continue;
      const bool isProtected = std::hypot(x - kSpectrumCentre, y - kSpectrumCentre) < discRadius;
      ShowFinding(pixel, shown, run.mask[cell], isProtected);
    }
  }
  return picture;
}

// The middles of the notches.
std::vector<Point> Notches(const Bytes& mask) {
  constexpr int kReach = 20;  // cells; notches are farther apart and not larger
  std::vector<Point> middles;
  const auto isKnown = [&](int x, int y) {
    return std::any_of(middles.begin(), middles.end(), [&](const Point& middle) {
      return std::abs(middle.x - x) <= kReach && std::abs(middle.y - y) <= kReach;
    });
  };
  for (int y = kReach; y < kSpectrumCells - kReach; ++y) {
    for (int x = kReach; x < kSpectrumCells - kReach; ++x) {
      if (mask[static_cast<size_t>(y) * kSpectrumCells + x] == 0 || isKnown(x, y)) continue;
      double weight = 0, sumX = 0, sumY = 0;
      for (int row = y - kReach; row <= y + kReach; ++row) {
        for (int column = x - kReach; column <= x + kReach; ++column) {
          const double m = mask[static_cast<size_t>(row) * kSpectrumCells + column];
          weight += m;
          sumX += m * column;
          sumY += m * row;
        }
      }
      middles.push_back({sumX / weight, sumY / weight});
    }
  }
  return middles;
}

void DrawRing(Picture* panel, double centreX, double centreY, double radius, double thickness,
              const Colour& colour) {
  for (int y = 0; y < panel->height; ++y) {
    for (int x = 0; x < panel->width; ++x) {
      const double fromRing = std::abs(std::hypot(x + 0.5 - centreX, y + 0.5 - centreY) - radius);
      Cover(panel->At(x, y), colour, std::clamp(thickness / 2 + 0.5 - fromRing, 0.0, 1.0));
    }
  }
}

Frame MiddleOfSpectrum(double cells) {
  return {kSpectrumCentre + 0.5 - cells / 2, kSpectrumCentre + 0.5 - cells / 2, cells};
}

// --- text ---

enum class Align { kLeft, kMiddle, kRight };

// One line. `x` is its left end, middle or right end, `top` the top of the line's box.
void Write(Picture* page, const std::string& text, const char* font, double x, int top, Align align,
           const Colour& colour) {
  constexpr int kDotsPerInch = 72;  // a point is a pixel
  const vips::VImage ink =
      vips::VImage::text(text.c_str(), vips::VImage::option()->set("font", font)->set("dpi", kDotsPerInch));
  size_t bytes = 0;
  auto* const cover = static_cast<uint8_t*>(ink.write_to_memory(&bytes));
  const double part = align == Align::kLeft ? 0 : align == Align::kMiddle ? 0.5 : 1;
  const int left = static_cast<int>(std::lround(x - part * ink.width()));
  for (int row = 0; row < ink.height(); ++row) {
    const int y = top + ink.yoffset() + row;
    for (int column = 0; column < ink.width(); ++column) {
      if (left + column < 0 || left + column >= page->width || y < 0 || y >= page->height) {
        g_free(cover);
        throw std::runtime_error("the page is too small for \"" + text + '"');
      }
      Cover(page->At(left + column, y), colour,
            cover[static_cast<size_t>(row) * ink.width() + column] / 255.0);
    }
  }
  g_free(cover);
}

constexpr const char* kTitleFont = "DejaVu Sans Bold 16";
constexpr const char* kHeadFont = "DejaVu Sans Bold 12";
constexpr const char* kBodyFont = "DejaVu Sans 11";

// --- the page ---

constexpr int kLine = 15;       // pixels from line to line
constexpr int kHeadAbove = 20;  // from the top of a head to the panel below it
constexpr int kTextBelow = 5;   // from a panel to the text below it

struct Step {
  const char* head;
  const char* lines[2];
};
constexpr Step kSteps[kGuideSteps] = {
    {"Before", {"A print with its", "halftone dots"}},
    {"Its power spectrum", {"What repeats makes", "peaks, ringed here"}},
    {"What is removed", {"Light spots are taken out,", "blue is protected"}},
    {"After", {"The dots are gone,", "the picture is kept"}},
};

struct Slider {
  const char* head;
  const char* ends[2];
  const char* lines[2];
  float values[2][3];  // acceptance, notch radius, protection radius
};
constexpr Slider kSliders[kGuideSliders] = {
    {"Low Frequency Protection Radius",
     {"Bigger disc", "Smaller disc"},
     {"Nothing in the blue disc is removed:", "it holds the picture's own shapes."},
     {{95, 6, 2.5f}, {95, 6, 24}}},
    {"Pattern Frequency Acceptance",
     {"Lower", "Higher"},
     {"How weak a peak may be to count as", "pattern. Raise it until the pattern goes."},
     {{70, 6, 8}, {95, 6, 8}}},
    {"Notch Radius",
     {"Smaller", "Bigger"},
     {"How much is removed around each peak.", "Smaller keeps more detail."},
     {{95, 3, 8}, {95, 12, 8}}},
};

// An arrow head that points to the panel from the middle of the gap before it.
void DrawArrow(Picture* page, const GuidePanel& panel, int gap) {
  const double x = panel.left - gap / 2.0;
  const double y = panel.top + panel.side / 2.0;
  const auto head = Polygon(std::array<Point, 3>{{{x - 4, y - 7}, {x + 5, y}, {x - 4, y + 7}}});
  constexpr int kReach = 8;
  constexpr int kLooksPerSide = 8;  // of a pixel
  for (int row = static_cast<int>(y) - kReach; row < y + kReach; ++row) {
    for (int column = static_cast<int>(x) - kReach; column < x + kReach; ++column) {
      int hits = 0;
      for (int look = 0; look < kLooksPerSide * kLooksPerSide; ++look) {
        const int across = look % kLooksPerSide, down = look / kLooksPerSide;
        hits += head(column + (across + 0.5) / kLooksPerSide, row + (down + 0.5) / kLooksPerSide);
      }
      Cover(page->At(column, row), kArrow, static_cast<double>(hits) / (kLooksPerSide * kLooksPerSide));
    }
  }
}

// The spectrum with a ring around every peak that is taken out.
Picture DrawPeaks(const Run& run, const Frame& shown, int side) {
  Picture picture = Scaled(DrawSpectrum(run, false), shown, side);
  const double scale = side / shown.side;
  for (const Point& middle : Notches(run.mask)) {
    DrawRing(&picture, (middle.x + 0.5 - shown.left) * scale, (middle.y + 0.5 - shown.top) * scale, 9, 1.6,
             kMark);
  }
  return picture;
}

void DrawSteps(Picture* page, const std::string& samples) {
  constexpr int kSide = StepPanel(0).side;
  constexpr int kGap = StepPanel(1).left - StepPanel(0).left - kSide;
  constexpr Frame kPart = {456, 32, kSide};  // of the sample, in its own size
  const Frame cells = MiddleOfSpectrum(256);
  const Run run = RunOn(samples + "/newsprint.png", 95, 6, 8);
  const Picture pictures[kGuideSteps] = {Scaled(run.before, kPart, kSide), DrawPeaks(run, cells, kSide),
                                         Scaled(DrawSpectrum(run, true), cells, kSide),
                                         Scaled(run.after, kPart, kSide)};
  for (int i = 0; i < kGuideSteps; ++i) {
    const GuidePanel panel = StepPanel(i);
    Write(page, std::to_string(i + 1) + "  " + kSteps[i].head, kHeadFont, panel.left, panel.top - kHeadAbove,
          Align::kLeft, kText);
    Place(page, pictures[i], panel.left, panel.top);
    for (int line = 0; line < 2; ++line) {
      Write(page, kSteps[i].lines[line], kBodyFont, panel.left + kSide / 2.0,
            panel.top + kSide + kTextBelow + line * kLine, Align::kMiddle, kSoftText);
    }
    if (i > 0) DrawArrow(page, panel, kGap);
  }
}

void DrawSliders(Picture* page, const std::string& samples) {
  const Frame cells = MiddleOfSpectrum(240);
  for (int i = 0; i < kGuideSliders; ++i) {
    const Slider& slider = kSliders[i];
    const GuidePanel first = SliderPanel(i, 0);
    const int textTop = first.top + first.side + kTextBelow;
    Write(page, slider.head, kHeadFont, first.left, first.top - kHeadAbove, Align::kLeft, kText);
    for (int end = 0; end < 2; ++end) {
      const GuidePanel panel = SliderPanel(i, end);
      const float(&values)[3] = slider.values[end];
      const Run run = RunOn(samples + "/rosette.png", values[0], values[1], values[2]);
      Place(page, Scaled(DrawSpectrum(run, true), cells, panel.side), panel.left, panel.top);
      Write(page, slider.ends[end], kBodyFont, panel.left + panel.side / 2.0, textTop, Align::kMiddle, kText);
    }
    for (int line = 0; line < 2; ++line) {
      Write(page, slider.lines[line], kBodyFont, first.left, textTop + 18 + line * kLine, Align::kLeft,
            kSoftText);
    }
  }
}

void DrawRule(Picture* page, int y) {
  FillBox(page, kGuideMargin, y, page->width - 2 * kGuideMargin, 1, kRule);
}

// To as many colours as a palette holds.
Bytes Quantised(const Picture& page) {
  const vips::VImage image =
      vips::VImage::new_from_memory(const_cast<uint8_t*>(page.rgb.data()), page.rgb.size(), page.width,
                                    page.height, 3, VIPS_FORMAT_UCHAR)
          .copy(vips::VImage::option()->set("interpretation", VIPS_INTERPRETATION_sRGB));
  VipsBlob* const file = image.pngsave_buffer(
      vips::VImage::option()->set("palette", true)->set("Q", 100)->set("dither", 0.0)->set("effort", 10));
  const vips::VImage reduced = vips::VImage::pngload_buffer(file);
  size_t bytes = 0;
  const vips::VImage rgb = reduced.bands() > 3 ? reduced.flatten() : reduced;
  auto* const levels = static_cast<uint8_t*>(rgb.cast(VIPS_FORMAT_UCHAR).write_to_memory(&bytes));
  Bytes pixels(levels, levels + bytes);
  g_free(levels);
  vips_area_unref(VIPS_AREA(file));
  return pixels;
}

}  // namespace

Bytes DrawGuidePage(const std::string& samples) {
  if (VIPS_INIT("draw_dialog_art") != 0) throw std::runtime_error("libvips does not start");
  Picture page(kGuidePageWidth, kGuidePageHeight);
  FillBox(&page, 0, 0, page.width, page.height, kPaper);
  try {
    Write(&page, "Tessaline takes repeating patterns out of pictures", kTitleFont, kGuideMargin, 8,
          Align::kLeft, kText);
    DrawSteps(&page, samples);
    DrawRule(&page, 262);
    DrawSliders(&page, samples);
    DrawRule(&page, 455);
    Write(&page, "Drag the picture to move it, + and - zoom. A click on the spectrum shows it in 3D.",
          kBodyFont, kGuideMargin, 461, Align::kLeft, kSoftText);
    Bytes file = PaletteBitmapFile(Quantised(page), page.width, page.height);
    if (file.empty()) throw std::runtime_error("this libvips does not reduce pictures to a palette");
    return file;
  } catch (const vips::VError& error) {
    throw std::runtime_error(error.what());
  }
}

}  // namespace tessaline::art
