#include "samples/film.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "samples/noise.h"
#include "samples/scene.h"

namespace tessaline::samples {
namespace {

constexpr int kPan = 3;  // pixels a frame
constexpr int kPanStart = 210;
constexpr int kViewBeyond = 372;  // how much wider than a frame the view is
constexpr double kCyclesPerRow = 0.33;
// The lighthouse's view in grey, its ground strewn with coarse stones.
Picture DrawView(int width, int height) {
  constexpr double kStones = 150.0 / 255;  // from the darkest to the lightest
  const Picture scene = DrawScene(width, height);
  Picture view(width, height, 1);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const double grey = 0.299 * scene.At(x, y, 0) + 0.587 * scene.At(x, y, 1) + 0.114 * scene.At(x, y, 2);
      const double stones = kStones * (FractalNoise(x / 2.0, y / 2.0, 3) - 0.5);
      view.At(x, y, 0) = static_cast<float>(std::clamp(0.05 + 0.9 * grey + stones, 0.0, 1.0));
    }
  }
  return view;
}

}  // namespace

Film ShootFilm(int width, int height, int frames, const FilmFaults& faults) {
  const Picture view = DrawView(width + kViewBeyond, height);
  Random random(7);
  Film film;
  for (int i = 0; i < frames; ++i) {
    Picture original(width, height, 1), frame(width, height, 1);
    for (int y = 0; y < height; ++y) {
      const double pattern =
          faults.amplitude / 255 * std::sin(kTurn * (kCyclesPerRow * y + faults.rollPerFrame * i));
      for (int x = 0; x < width; ++x) {
        const float tone = view.At(kPanStart + kPan * i + x, y, 0);
        original.At(x, y, 0) = tone;
        frame.At(x, y, 0) =
            static_cast<float>(std::clamp(tone + pattern + faults.grain / 255 * random.Normal(), 0.0, 1.0));
      }
    }
    film.originals.push_back(original);
    film.frames.push_back(frame);
  }
  return film;
}

std::string ToBytes(const std::vector<Picture>& frames) {
  std::string bytes;
  for (const Picture& frame : frames) {
    for (const float sample : frame.samples) bytes += static_cast<char>(std::lround(255 * sample));
  }
  return bytes;
}

double FlickerOf(const std::string& frames, const std::vector<Picture>& originals) {
  const size_t pixels = originals[0].samples.size();
  const auto count = static_cast<double>(originals.size());
  double deviations = 0;
  for (size_t i = 0; i < pixels; ++i) {
    double sum = 0, squares = 0;
    for (size_t frame = 0; frame < originals.size(); ++frame) {
      const double error =
          static_cast<uint8_t>(frames[frame * pixels + i]) - 255.0 * originals[frame].samples[i];
      sum += error;
      squares += error * error;
    }
    deviations += std::sqrt(std::max(squares / count - sum / count * sum / count, 0.0));
  }
  return deviations / static_cast<double>(pixels);
}

}  // namespace tessaline::samples
