#include "samples/screens.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "samples/noise.h"

namespace tessaline::samples {
namespace {

// A halftone screen: dots grow from the middle of each cell, meet their neighbours as a checkerboard at half
// coverage, and close in on round holes above it.
class Screen {
 public:
  Screen(double linesPerInch, double dotsPerInch, double angleDegrees)
      : cosine_(std::cos(angleDegrees * kTurn / 360) * linesPerInch / dotsPerInch),
        sine_(std::sin(angleDegrees * kTurn / 360) * linesPerInch / dotsPerInch) {}

  // Is there ink at this place (in pixels) when `coverage` (0..1) of the paper is to be inked?
  bool IsInked(double x, double y, double coverage) const {
    const double u = cosine_ * x + sine_ * y;
    const double v = cosine_ * y - sine_ * x;
    return std::cos(kTurn * u) + std::cos(kTurn * v) > HeightReachedBy(coverage);
  }
  // And through lines instead of dots.
  bool IsOnLine(double x, double y, double coverage) const {
    return std::cos(kTurn * (cosine_ * x + sine_ * y)) > std::cos(kTurn / 2 * coverage);
  }

 private:
  // The height that `coverage` of a cell rises above: the cell's heights, sorted.
  static double HeightReachedBy(double coverage) {
    static const std::vector<double> descending = [] {
      constexpr int kSide = 128;
      std::vector<double> heights;
      for (int v = 0; v < kSide; ++v)
        for (int u = 0; u < kSide; ++u)
          heights.push_back(std::cos(kTurn * (u + 0.5) / kSide) + std::cos(kTurn * (v + 0.5) / kSide));
      std::sort(heights.rbegin(), heights.rend());
      return heights;
    }();
    const double position = std::clamp(coverage, 0.0, 1.0) * static_cast<double>(descending.size() - 1);
    return descending[static_cast<size_t>(position)];
  }

  double cosine_;  // whole cells a pixel, along and across
  double sine_;
};

// The tone between the pixels, from the four pixel centres around the place.
double ToneAt(const Picture& picture, double x, double y, int channel) {
  const double left = std::floor(x - 0.5);
  const double top = std::floor(y - 0.5);
  const auto sample = [&](double column, double row) {
    const int clampedX = std::clamp(static_cast<int>(column), 0, picture.width - 1);
    const int clampedY = std::clamp(static_cast<int>(row), 0, picture.height - 1);
    return static_cast<double>(picture.At(clampedX, clampedY, channel));
  };
  const double fx = x - 0.5 - left;
  const double fy = y - 0.5 - top;
  return std::lerp(std::lerp(sample(left, top), sample(left + 1, top), fx),
                   std::lerp(sample(left, top + 1), sample(left + 1, top + 1), fx), fy);
}

// Ink spreads in the paper and the lens is not perfect: a Gaussian over the print, `deviation` in pixels.
void Blur(Picture* picture, double deviation) {
  constexpr int kReach = 3;
  std::array<double, 2 * kReach + 1> weights;
  double total = 0;
  for (int i = -kReach; i <= kReach; ++i)
    total += weights[i + kReach] = std::exp(-0.5 * i * i / (deviation * deviation));
  const auto pass = [&](int stepX, int stepY) {
    const Picture source = *picture;
    for (int y = 0; y < source.height; ++y)
      for (int x = 0; x < source.width; ++x)
        for (int channel = 0; channel < source.channels; ++channel) {
          double sum = 0;
          for (int i = -kReach; i <= kReach; ++i)
            sum += weights[i + kReach] * source.At(std::clamp(x + i * stepX, 0, source.width - 1),
                                                   std::clamp(y + i * stepY, 0, source.height - 1), channel);
          picture->At(x, y, channel) = static_cast<float>(sum / total);
        }
  };
  pass(1, 0);
  pass(0, 1);
}

// Paper is not even, and a scanner has a little noise of its own.
void AddGrain(Picture* picture, double fibre, double sensor, uint64_t seed) {
  Random random(seed);
  for (int y = 0; y < picture->height; ++y)
    for (int x = 0; x < picture->width; ++x) {
      const double cloudiness = fibre * (2 * FractalNoise(x * 0.11, y * 0.11, 4) - 1);
      for (int channel = 0; channel < picture->channels; ++channel)
        picture->At(x, y, channel) += static_cast<float>(cloudiness + sensor * random.Normal());
    }
}

// Inks and paper by how much red, green and blue they let through or throw back.
using Rgb = std::array<double, 3>;

struct Ink {
  Screen screen;
  Rgb passes;
  double (*coverage)(double red, double green, double blue);  // of the tone, each 0..1
};

// The range a press can hold: smaller dots are lost, smaller holes fill up.
double Printable(double coverage) {
  return std::clamp(coverage, 0.04, 0.94);
}

// What the coloured inks have in common is left to the black one, most of it.
double Black(double red, double green, double blue) {
  return 0.7 * (1 - std::max({red, green, blue}));
}
double Beyond(double black, double tone) {
  return (1 - tone - black) / (1 - black);
}

// Inks on the press, a scanner's channels and what it sees of bare paper.
struct InkSet {
  int channels;
  Rgb paper;
  std::vector<Ink> inks;
};
InkSet InksOf(const Press& press) {
  const auto screen = [&](double angle) {
    return Screen(press.linesPerInch, press.dotsPerInch, angle + press.turn);
  };
  if (press.inks == 1) {
    const auto darkness = [](double red, double green, double blue) {
      return 1 - (0.299 * red + 0.587 * green + 0.114 * blue);
    };
    return {1, {0.93}, {{screen(45), {0.13}, darkness}}};
  }
  return {3,
          {0.97, 0.96, 0.93},
          {
              {screen(15),
               {0.07, 0.66, 0.90},
               [](double r, double g, double b) { return Beyond(Black(r, g, b), r); }},
              {screen(75),
               {0.88, 0.12, 0.52},
               [](double r, double g, double b) { return Beyond(Black(r, g, b), g); }},
              {screen(0),
               {0.99, 0.92, 0.10},
               [](double r, double g, double b) { return Beyond(Black(r, g, b), b); }},
              {screen(45), {0.14, 0.13, 0.13}, Black},
          }};
}

void Code(Picture* light, double gamma) {
  if (gamma == 1) return;
  for (float& sample : light->samples)
    sample = std::pow(std::max(sample, 0.0f), static_cast<float>(1 / gamma));
}

}  // namespace

// Looks at every pixel as a scanner does, through an aperture of its own size.
Printed PrintOn(const Press& press, const Picture& original) {
  constexpr int kLooksPerSide = 5;       // of a pixel
  constexpr double kBend = kTurn / 400;  // of a warped page, by pixel
  const InkSet set = InksOf(press);
  const Frame& frame = press.frame;
  Printed printed{Picture(original.width, original.height, set.channels),
                  Picture(original.width, original.height, set.channels)};
  for (int y = 0; y < original.height; ++y)
    for (int x = 0; x < original.width; ++x) {
      const bool isScreened = frame.right == 0 || frame.Contains(x, y);
      Rgb sum{}, sumOfTones{};
      for (int look = 0; look < kLooksPerSide * kLooksPerSide; ++look) {
        const int across = look % kLooksPerSide, down = look / kLooksPerSide;
        const double subX = x + (across + 0.5) / kLooksPerSide;
        const double subY = y + (down + 0.5) / kLooksPerSide;
        double tone[3];
        for (int channel = 0; channel < 3; ++channel) {
          tone[channel] = ToneAt(original, subX, subY, channel);
          if (press.gamma != 1) tone[channel] = std::pow(tone[channel], press.gamma);
        }
        const double warpedX = subX + press.warp * std::sin(kBend * subY);
        const double warpedY = subY + press.warp * std::sin(kBend * subX);
        const double wear = press.wear > 0 ? press.wear * (2 * FractalNoise(subX, subY, 2) - 1) : 0;
        Rgb seen = set.paper, toned = set.paper;
        for (const Ink& ink : set.inks) {
          const double wanted = ink.coverage(tone[0], tone[1], tone[2]);
          const double coverage = isScreened ? Printable(wanted) : std::clamp(wanted, 0.0, 1.0);
          const bool isInked =
              isScreened && (press.lines ? ink.screen.IsOnLine(warpedX, warpedY, coverage + wear)
                                         : ink.screen.IsInked(warpedX, warpedY, coverage + wear));
          for (int channel = 0; channel < set.channels; ++channel) {
            toned[channel] *= 1 - coverage * (1 - ink.passes[channel]);
            if (isInked) seen[channel] *= ink.passes[channel];
          }
        }
        for (int channel = 0; channel < set.channels; ++channel) {
          sum[channel] += isScreened ? seen[channel] : toned[channel];
          sumOfTones[channel] += toned[channel];
        }
      }
      for (int channel = 0; channel < set.channels; ++channel) {
        constexpr int kLooks = kLooksPerSide * kLooksPerSide;
        printed.picture.At(x, y, channel) = static_cast<float>(sum[channel] / kLooks);
        printed.original.At(x, y, channel) = static_cast<float>(sumOfTones[channel] / kLooks);
      }
    }
  for (Picture* const part : {&printed.picture, &printed.original}) {
    Blur(part, press.softness);
    Code(part, press.gamma);
    AddGrain(part, press.fibre, part == &printed.picture ? press.noise : 0, press.seed);
  }
  return printed;
}

Picture PrintNewsprint(const Picture& original, double linesPerInch, double dotsPerInch) {
  return PrintOn({.inks = 1,
                  .linesPerInch = linesPerInch,
                  .dotsPerInch = dotsPerInch,
                  .noise = 0.021,
                  .fibre = 0.02,
                  .seed = 1},
                 original)
      .picture;
}

Picture PrintFourInks(const Picture& original, double linesPerInch, double dotsPerInch) {
  return PrintOn({.inks = 4,
                  .linesPerInch = linesPerInch,
                  .dotsPerInch = dotsPerInch,
                  .noise = 0.012,
                  .fibre = 0.01,
                  .seed = 2},
                 original)
      .picture;
}

Picture WithLineNoise(const Picture& original) {
  struct Wave {
    double periodX, periodY;  // pixels from crest to crest, along the row and down the column
    double swing;
  };
  // Hum, its second harmonic, and a faster one that beats against the line clock.
  constexpr Wave kWaves[] = {{61.0, 9.7, 0.055}, {30.5, 4.85, 0.030}, {5.3, -23.0, 0.022}};
  Picture picture = original;
  for (int y = 0; y < picture.height; ++y)
    for (int x = 0; x < picture.width; ++x) {
      double noise = 0;
      for (const Wave& wave : kWaves)
        noise += wave.swing * std::sin(kTurn * (x / wave.periodX + y / wave.periodY));
      for (int channel = 0; channel < picture.channels; ++channel) {
        // Drawn towards the middle, so that no crest is cut off and the waves stay pure.
        const double tone = 0.11 + 0.78 * original.At(x, y, channel);
        picture.At(x, y, channel) = static_cast<float>(tone + noise);
      }
    }
  AddGrain(&picture, 0, 0.01, 3);
  return picture;
}

Picture WithWeave(const Picture& original) {
  constexpr double kThread = 3.7;  // pixels
  constexpr double kAngle = 5 * kTurn / 360;
  constexpr double kRelief = 0.16;
  Picture picture = original;
  for (int y = 0; y < picture.height; ++y)
    for (int x = 0; x < picture.width; ++x) {
      const double u = (std::cos(kAngle) * x + std::sin(kAngle) * y) / kThread;
      const double v = (std::cos(kAngle) * y - std::sin(kAngle) * x) / kThread;
      // Plain weave: threads go over and under by turns, and the one on top is lit on its upper left side.
      const double over = std::sin(kTurn / 2 * u) * std::sin(kTurn / 2 * v);
      const double lit = 0.5 * (std::sin(kTurn * u) + std::sin(kTurn * v));
      const double relief = kRelief * (0.7 * over + 0.5 * lit);
      for (int channel = 0; channel < picture.channels; ++channel)
        picture.At(x, y, channel) =
            static_cast<float>((0.06 + 0.84 * original.At(x, y, channel)) * (1 + relief));
    }
  AddGrain(&picture, 0, 0.01, 4);
  return picture;
}

}  // namespace tessaline::samples
