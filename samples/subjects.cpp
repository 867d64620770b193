#include "samples/subjects.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "samples/noise.h"

namespace tessaline::samples {
namespace {

// A picture whose samples are tone(x, y), looked at twice a side.
template <typename Tone>
Picture Draw(int width, int height, const Tone& tone) {
  Picture picture(width, height, 1);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      double sum = 0;
      for (const double v : {0.25, 0.75})
        for (const double u : {0.25, 0.75}) sum += tone(x + u, y + v);
      picture.At(x, y, 0) = static_cast<float>(std::clamp(sum / 4, 0.0, 1.0));
    }
  return picture;
}

void AddNoise(Picture* picture, double deviation, uint64_t seed) {
  Random random(seed);
  for (float& sample : picture->samples)
    sample = std::clamp(sample + static_cast<float>(deviation * random.Normal()), 0.0f, 1.0f);
}

// ---- Letters ----

// Strokes of a letter in a box 2 wide and 4 high, as the displays of instruments have them.
struct Stroke {
  double fromX, fromY, toX, toY;
};
constexpr Stroke kStrokes[] = {{0, 0, 2, 0}, {0, 0, 0, 2}, {2, 0, 2, 2}, {0, 2, 2, 2}, {0, 2, 0, 4},
                               {2, 2, 2, 4}, {0, 4, 2, 4}, {1, 0, 1, 4}, {0, 0, 2, 4}, {2, 0, 0, 4}};
constexpr std::array<int, 10> kDigits = {0x77, 0x24, 0x5d, 0x6d, 0x2e, 0x6b, 0x7b, 0x25, 0x7f, 0x6f};
constexpr std::array<int, 16> kLetters = {0x3f, 0x5b, 0x53, 0x1b, 0x73, 0x80,  0x76,  0x52,
                                          0x3e, 0x3b, 0x9f, 0x81, 0x45, 0x108, 0x300, 0x241};

void DrawLetter(Picture* page, double left, double top, double size, int strokes) {
  const double thick = std::max(0.55, 0.11 * size);
  for (int y = static_cast<int>(top - 2); y <= top + size + 2; ++y)
    for (int x = static_cast<int>(left - 2); x <= left + 0.5 * size + 2; ++x) {
      if (x < 0 || y < 0 || x >= page->width || y >= page->height) continue;
      double nearest = 9;
      for (int i = 0; i < 10; ++i) {
        if ((strokes >> i & 1) == 0) continue;
        const Stroke& s = kStrokes[i];
        const double px = 4 * (x + 0.5 - left) / size - s.fromX, py = 4 * (y + 0.5 - top) / size - s.fromY;
        const double dx = s.toX - s.fromX, dy = s.toY - s.fromY;
        const double along = std::clamp((px * dx + py * dy) / (dx * dx + dy * dy), 0.0, 1.0);
        nearest = std::min(nearest, std::hypot(px - along * dx, py - along * dy) * size / 4);
      }
      const auto ink = static_cast<float>(std::clamp(thick - nearest + 0.5, 0.0, 1.0));
      for (int c = 0; c < page->channels; ++c)
        page->At(x, y, c) = std::min(page->At(x, y, c), 0.97f - 0.87f * ink);
    }
}

// Lines of writing wherever isFree(x, y).
template <typename IsFree>
void Write(Picture* page, double spacing, bool areDigits, const IsFree& isFree) {
  Random random(static_cast<uint64_t>(spacing * 16));
  const double size = 0.55 * spacing, advance = 0.75 * size;
  for (double top = spacing; top + spacing < page->height; top += spacing) {
    const double end = page->width - 20 - (random.Uniform() < 0.15 ? 200 * random.Uniform() : 0);
    int column = 0;
    for (double left = 20; left + size < end; left += advance) {
      const bool isGap = areDigits ? ++column % 6 == 0 : random.Uniform() < 0.17;
      const double pick = random.Uniform();
      if (!areDigits) left += 0.3 * size * (random.Uniform() - 0.4);
      if (isGap || !isFree(left + size / 2, top + size / 2)) continue;
      DrawLetter(
          page, left, top, size,
          areDigits ? kDigits[static_cast<size_t>(10 * pick)] : kLetters[static_cast<size_t>(16 * pick)]);
    }
  }
}

Picture Turned(const Picture& picture, double degrees) {
  const double cosine = std::cos(degrees * kTurn / 360), sine = std::sin(degrees * kTurn / 360);
  Picture turned = picture;
  for (int y = 0; y < picture.height; ++y)
    for (int x = 0; x < picture.width; ++x) {
      const double dx = x - picture.width / 2.0, dy = y - picture.height / 2.0;
      const double fromX =
          std::clamp(cosine * dx + sine * dy + picture.width / 2.0, 0.0, picture.width - 1.001);
      const double fromY =
          std::clamp(cosine * dy - sine * dx + picture.height / 2.0, 0.0, picture.height - 1.001);
      const int left = static_cast<int>(fromX), top = static_cast<int>(fromY);
      for (int c = 0; c < picture.channels; ++c)
        turned.At(x, y, c) = static_cast<float>(
            std::lerp(std::lerp(picture.At(left, top, c), picture.At(left + 1, top, c), fromX - left),
                      std::lerp(picture.At(left, top + 1, c), picture.At(left + 1, top + 1, c), fromX - left),
                      fromY - top));
    }
  return turned;
}

// ---- What repeats: tones at (u, v), in periods ----

double Hash(double u, double v) {
  return ValueNoise(std::floor(u) * 7 + 0.5, std::floor(v) * 13 + 0.5);
}
double Beam(double u, double share) {  // 1 in the first share of every period
  const double at = u - std::floor(u);
  return Ramp(0, 0.06, at) * Ramp(share + 0.06, share, at);
}
double Fence(double u, double v) {
  const double post = Beam(u, 0.45), rail = v > -1 && v < -0.6 ? 0.8 : 0;
  return std::lerp(0.35, 0.75 + 0.2 * Hash(u, 0), std::max(post, rail));
}
double Bricks(double u, double v) {
  const double shifted = u / 2.2 + (std::fmod(std::floor(v), 2.0) == 0 ? 0 : 0.5);
  return std::lerp(0.78, 0.3 + 0.3 * Hash(shifted, v), Beam(shifted, 0.88) * Beam(v, 0.8));
}
double Windows(double u, double v) {
  return std::lerp(0.72, 0.1 + 0.5 * Hash(u, v) * Hash(v, u), Beam(u, 0.55) * Beam(v, 0.65));
}
double Cloth(double u, double v) {
  return 0.55 + 0.18 * std::sin(kTurn * u) * std::sin(kTurn * v) + 0.08 * std::sin(kTurn * u) +
         0.1 * (Hash(0, v) - 0.5);
}
double Blinds(double, double v) {
  return 0.25 + 0.6 * Ramp(0, 0.8, v - std::floor(v));
}
double Tiles(double u, double v) {
  return std::lerp(0.3, std::fmod(std::floor(u) + std::floor(v), 2.0) == 0 ? 0.8 : 0.62,
                   Beam(u, 0.9) * Beam(v, 0.9));
}

}  // namespace

Picture DrawStillLife(int width, int height, uint64_t seed) {
  struct Ball {
    double x, y, radius, colour[3], grain;
    bool isBox;
  };
  Random random(seed);
  std::vector<Ball> balls;
  for (int i = 0; i < 70; ++i) {
    const double radius = 0.3 * height * std::pow(random.Uniform(), 2.5) + 6;
    Ball ball{width * random.Uniform(),     height * random.Uniform(), radius, {},
              0.5 * random.Uniform() - 0.1, random.Uniform() < 0.4};
    for (double& colour : ball.colour) colour = 0.1 + 0.85 * random.Uniform();
    balls.push_back(ball);
  }
  std::stable_sort(balls.begin(), balls.end(),
                   [](const Ball& a, const Ball& b) { return a.radius > b.radius; });
  Picture picture(width, height, 3);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      const double rough = FractalNoise(x * 0.3, y * 0.3, 3) - 0.5;
      double colour[3];
      for (int c = 0; c < 3; ++c) colour[c] = 0.25 + 0.4 * y / height + 0.1 * c + 0.3 * rough;
      for (const Ball& ball : balls) {
        const double dx = (x - ball.x) / ball.radius, dy = (y - ball.y) / ball.radius;
        const double far = ball.isBox ? std::max(std::abs(dx + 0.4 * dy), std::abs(dy)) : std::hypot(dx, dy);
        const double inside = std::clamp((1 - far) * ball.radius + 0.5, 0.0, 1.0);
        if (inside == 0) continue;
        const double light = std::clamp(0.75 - 0.4 * (dx + dy) * (ball.isBox ? 0.3 : 1), 0.1, 1.15);
        for (int c = 0; c < 3; ++c)
          colour[c] =
              std::lerp(colour[c], ball.colour[c] * light + std::max(ball.grain, 0.0) * rough, inside);
      }
      for (int c = 0; c < 3; ++c) picture.At(x, y, c) = static_cast<float>(std::clamp(colour[c], 0.02, 0.98));
    }
  return picture;
}

Picture DrawTexture(int width, int height, const Texture& texture) {
  return Draw(width, height, [&](double x, double y) {
    const double bend = texture.swirl * (FractalNoise(x * 0.006, y * 0.006, 2) - 0.5);
    const double noise =
        FractalNoise((x + bend) * texture.acrossScale, (y - bend) * texture.downScale, texture.octaves);
    const double ridge = 1 - std::abs(4 * noise - 2);
    return 0.5 + texture.contrast * (std::lerp(noise, ridge, texture.ridges) - 0.5);
  });
}

Picture DrawRepeats(int width, int height, const Repeats& repeats) {
  constexpr double (*kTones[])(double, double) = {Fence, Bricks, Windows, Cloth, Blinds, Tiles};
  const double cosine = std::cos(repeats.turn * kTurn / 360), sine = std::sin(repeats.turn * kTurn / 360);
  Picture picture = Draw(width, height, [&](double x, double y) {
    const double far = 1 - repeats.perspective * (x / width - 0.5);  // the left side is nearer
    const double dx = (x - width / 2.0) / far, dy = (y - height / 2.0) / far;
    const double fold = repeats.folds * (FractalNoise(x * 0.008, y * 0.008, 3) - 0.5);
    const double u = (cosine * dx + sine * dy + fold) / repeats.period;
    const double v = (cosine * dy - sine * dx + 0.7 * fold) / repeats.period;
    const double light = 0.75 + 0.5 * FractalNoise(x * 0.01, y * 0.01, 3);
    const double rough = 0.2 * (FractalNoise(x * 0.4, y * 0.4, 3) - 0.5);
    return kTones[static_cast<size_t>(repeats.what)](u, v) * light + rough;
  });
  AddNoise(&picture, 0.012, 21);
  return picture;
}

Picture DrawWriting(int width, int height, const Writing& writing) {
  Picture page(width, height, 1);
  std::fill(page.samples.begin(), page.samples.end(), 0.97f);
  Write(&page, writing.spacing, writing.digits, [](double, double) { return true; });
  if (writing.turn != 0) page = Turned(page, writing.turn);
  AddNoise(&page, writing.noise, 22);
  return page;
}

Picture OnPage(const Picture& picture, int width, int height, int left, int top, double spacing) {
  Picture page(width, height, picture.channels);
  std::fill(page.samples.begin(), page.samples.end(), 0.97f);
  const double margin = spacing;
  Write(&page, spacing, false, [&](double x, double y) {
    return x < left - margin || y < top - margin || x > left + picture.width + margin ||
           y > top + picture.height + margin;
  });
  for (int y = 0; y < picture.height; ++y)
    for (int x = 0; x < picture.width; ++x)
      for (int c = 0; c < picture.channels; ++c) page.At(left + x, top + y, c) = picture.At(x, y, c);
  return page;
}

Picture DrawBarcodes(int width, int height, double module) {
  Picture picture = Draw(width, height, [&](double x, double y) {
    const double code = std::floor(y / 90), inside = y - 90 * code;
    const bool isBar =
        inside > 15 && inside < 75 && x > 40 && x < width - 40 && Hash(x / module + 100 * code, code) < 0.5;
    return isBar ? 0.08 : 0.95;
  });
  AddNoise(&picture, 0.012, 23);
  return picture;
}

Picture DrawGradient(int width, int height, double noise) {
  Picture picture =
      Draw(width, height, [&](double x, double y) { return 0.05 + 0.6 * x / width + 0.3 * y / height; });
  AddNoise(&picture, noise, 24);
  return picture;
}

Picture DrawSpokes(int width, int height, double spokes, double ringPeriod) {
  Picture picture = Draw(width, height, [&](double x, double y) {
    const double dx = x - 0.45 * width, dy = y - 0.55 * height;
    const double ring = ringPeriod > 0 ? std::sin(kTurn * std::hypot(dx, dy) / ringPeriod) : 0;
    return 0.5 + 0.3 * std::sin(spokes * std::atan2(dy, dx)) + 0.15 * ring;
  });
  AddNoise(&picture, 0.012, 25);
  return picture;
}

Picture Enlarged(const Picture& picture, double factor) {
  Picture large(static_cast<int>(picture.width * factor), static_cast<int>(picture.height * factor),
                picture.channels);
  for (int y = 0; y < large.height; ++y)
    for (int x = 0; x < large.width; ++x) {
      const double fromX = std::clamp((x + 0.5) / factor - 0.5, 0.0, picture.width - 1.001);
      const double fromY = std::clamp((y + 0.5) / factor - 0.5, 0.0, picture.height - 1.001);
      const int left = static_cast<int>(fromX), top = static_cast<int>(fromY);
      for (int c = 0; c < picture.channels; ++c)
        large.At(x, y, c) = static_cast<float>(
            std::lerp(std::lerp(picture.At(left, top, c), picture.At(left + 1, top, c), fromX - left),
                      std::lerp(picture.At(left, top + 1, c), picture.At(left + 1, top + 1, c), fromX - left),
                      fromY - top));
    }
  return large;
}

Picture AsShot(const Picture& picture, double noise, bool isMosaic) {
  Random random(26);
  Picture seen = picture;
  for (float& sample : seen.samples)
    sample = std::clamp(sample + static_cast<float>(noise * std::sqrt(0.2 + sample) * random.Normal()), 0.0f,
                        1.0f);
  if (!isMosaic || picture.channels != 3) return seen;
  Picture shot = seen;  // every channel from the nearest of its own pixels, averaged
  const auto channelAt = [](int x, int y) { return (x & 1) != (y & 1) ? 1 : (x & 1) == 0 ? 0 : 2; };
  for (int y = 1; y + 1 < seen.height; ++y)
    for (int x = 1; x + 1 < seen.width; ++x)
      for (int c = 0; c < 3; ++c) {
        float sum = 0, count = 0;
        for (int v = -1; v <= 1; ++v)
          for (int u = -1; u <= 1; ++u) {
            if (channelAt(x + u, y + v) != c) continue;
            const float weight = static_cast<float>((2 - std::abs(u)) * (2 - std::abs(v)));
            sum += weight * seen.At(x + u, y + v, c), count += weight;
          }
        shot.At(x, y, c) = sum / count;
      }
  return shot;
}

}  // namespace tessaline::samples
