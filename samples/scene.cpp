#include "samples/scene.h"

#include <algorithm>
#include <cmath>

#include "samples/noise.h"

namespace tessaline::samples {
namespace {

// Metres: x to the right, y up from the sea, z away from the camera. Also a colour (red, green, blue).
struct Vec {
  double x, y, z;
};
constexpr Vec operator+(Vec a, Vec b) {
  return {a.x + b.x, a.y + b.y, a.z + b.z};
}
constexpr Vec operator-(Vec a, Vec b) {
  return {a.x - b.x, a.y - b.y, a.z - b.z};
}
constexpr Vec operator*(Vec a, Vec b) {
  return {a.x * b.x, a.y * b.y, a.z * b.z};
}
constexpr Vec operator*(Vec a, double s) {
  return {a.x * s, a.y * s, a.z * s};
}
constexpr double Dot(Vec a, Vec b) {
  return a.x * b.x + a.y * b.y + a.z * b.z;
}
Vec Unit(Vec a) {
  return a * (1 / std::sqrt(Dot(a, a)));
}
Vec Blend(Vec a, Vec b, double t) {
  return a + (b - a) * t;
}

constexpr double kFarthest = 900;  // metres; beyond is sky
constexpr Vec kCamera{0, 3.4, 0};
const Vec kToSun = Unit({-0.62, 0.48, -0.42});
constexpr Vec kSunlight{2.5, 2.25, 1.85};
constexpr Vec kHaze{0.66, 0.73, 0.80};

// ---- What stands there ----

enum class Surface { kGround, kPlaster, kBand, kIron, kGlass, kRoof, kBrick };

struct Solid {
  double distance;  // metres to the nearest surface, negative inside
  Surface surface{};
};

Solid Nearer(Solid a, Solid b) {
  return a.distance < b.distance ? a : b;
}

// Two headlands, a reef before the camera and the far coast; below the sea everywhere else.
double GroundHeight(double x, double z, int octaves) {
  const auto mound = [&](double centreX, double centreZ, double halfX, double halfZ) {
    const double dx = (x - centreX) / halfX;
    const double dz = (z - centreZ) / halfZ;
    return std::exp(-(dx * dx + dz * dz) * (dx * dx + dz * dz));
  };
  double height = -2.5 + 8.2 * mound(24, 66, 26, 20) + 2.6 * mound(-9, 17, 9, 5);
  const double farCoast = Ramp(420, 640, z + 0.35 * x);
  if (farCoast > 0) height += farCoast * (12 + 34 * FractalNoise(x * 0.008 + 3, 7.5, 3));
  const double roughness = Ramp(-2.4, -0.5, height) * (1 - 0.75 * Ramp(3.6, 5.2, height));
  if (roughness == 0) return height;
  const double rock = FractalNoise(x * 0.16, z * 0.16, octaves);
  const double ledge = 1 - std::abs(2 * FractalNoise(x * 0.45 + 40, z * 0.45, octaves - 1) - 1);
  return height + roughness * (3.2 * rock - 1.6 + 1.5 * (ledge - 0.8));
}

// No ground is higher than this, in metres.
double GroundCeiling(double z) {
  return z < 350 ? 8.5 : 46;
}

double Box(Vec p, Vec half) {
  const Vec d{std::abs(p.x) - half.x, std::abs(p.y) - half.y, std::abs(p.z) - half.z};
  const Vec outside{std::max(d.x, 0.0), std::max(d.y, 0.0), std::max(d.z, 0.0)};
  return std::sqrt(Dot(outside, outside)) + std::min(std::max({d.x, d.y, d.z}), 0.0);
}

double Tower(Vec p, double bottom, double top, double bottomRadius, double topRadius) {
  const double t = std::clamp((p.y - bottom) / (top - bottom), 0.0, 1.0);
  const double radial = std::hypot(p.x, p.z) - std::lerp(bottomRadius, topRadius, t);
  return std::max(radial, std::abs(p.y - (bottom + top) / 2) - (top - bottom) / 2);
}

constexpr Vec kLighthouse{11.5, 4.6, 60};
constexpr Vec kHouse{21.5, 5.7, 62};

Solid Lighthouse(Vec p) {
  p = p - kLighthouse;
  const double around = std::hypot(p.x, p.z);
  if (around > 8) return {around - 5, Surface::kPlaster};
  const bool banded = p.y > 7.4 && p.y < 11.2;
  Solid nearest{Tower(p, -3, 16.6, 2.75, 1.75), banded ? Surface::kBand : Surface::kPlaster};
  nearest = Nearer(nearest, {Tower(p, 16.6, 17.1, 2.2, 2.6), Surface::kIron});
  nearest = Nearer(nearest, {Tower(p, 17.1, 19.3, 1.15, 1.15), Surface::kGlass});
  nearest = Nearer(nearest, {Tower(p, 19.3, 20.8, 1.5, 0.18), Surface::kRoof});
  nearest = Nearer(nearest, {Tower(p, 20.8, 22.1, 0.09, 0.05), Surface::kIron});
  // The railing: two thin rings and the posts that carry them.
  for (const double y : {17.6, 18.15})
    nearest = Nearer(nearest, {std::hypot(around - 2.45, p.y - y) - 0.045, Surface::kIron});
  const double sector = std::remainder(std::atan2(p.z, p.x), 0.5236);
  const Vec post{around * std::cos(sector) - 2.45, p.y, around * std::sin(sector)};
  nearest = Nearer(nearest, {Tower(post, 17.0, 18.2, 0.05, 0.05), Surface::kIron});
  // Two small windows and the door stand a hand's breadth out of the wall, on the camera's side.
  nearest = Nearer(nearest, {Box(p - Vec{-0.5, 4.8, -2.32}, {0.3, 0.5, 0.12}), Surface::kGlass});
  nearest = Nearer(nearest, {Box(p - Vec{-0.4, 12.9, -1.86}, {0.27, 0.45, 0.12}), Surface::kGlass});
  return Nearer(nearest, {Box(p - Vec{-0.4, 1.1, -2.55}, {0.5, 1.1, 0.16}), Surface::kBrick});
}

Solid House(Vec p) {
  p = p - kHouse;
  p = {0.94 * p.x - 0.34 * p.z, p.y, 0.34 * p.x + 0.94 * p.z};  // turned a little to the light
  const double bound = Box(p, {6, 7, 5});
  if (bound > 2) return {bound, Surface::kPlaster};
  Solid nearest{Box(p - Vec{0, 0.6, 0}, {4.2, 2.4, 2.7}), Surface::kPlaster};
  // Both sides of the roof as one folded plane, and the gable walls that fill it.
  const double roof = 0.8 * (p.y - 5.1) + 0.6 * std::abs(p.z);
  const double gable = std::max({roof + 0.1, std::abs(p.x) - 4.2, 2.8 - p.y});
  nearest = Nearer(nearest, {gable, Surface::kPlaster});
  const double slab = std::max({std::abs(roof) - 0.12, std::abs(p.x) - 4.6, std::abs(p.z) - 3.2});
  nearest = Nearer(nearest, {slab, Surface::kRoof});
  nearest = Nearer(nearest, {Box(p - Vec{2.6, 5.0, 0.4}, {0.45, 1.1, 0.45}), Surface::kBrick});
  for (const double x : {-2.7, 0.1, 2.7})
    nearest = Nearer(nearest, {Box(p - Vec{x, 1.5, -2.65}, {0.48, 0.62, 0.11}), Surface::kGlass});
  return Nearer(nearest, {Box(p - Vec{-4.2, 1.0, 0}, {0.1, 1.15, 0.5}), Surface::kBrick});
}

Solid World(Vec p) {
  const double clear = p.y - GroundCeiling(p.z);
  // Ground is a height, not a distance: the factor keeps the step below the true distance on steep rock.
  Solid nearest{clear > 3 ? clear : (p.y - GroundHeight(p.x, p.z, 4)) * 0.55, Surface::kGround};
  nearest = Nearer(nearest, Lighthouse(p));
  return Nearer(nearest, House(p));
}

// ---- Light ----

Vec Sky(Vec direction) {
  const double up = std::max(direction.y, 0.0);
  Vec colour = Blend({0.78, 0.83, 0.88}, {0.10, 0.25, 0.52}, 1 - std::exp(-up * 3.2));
  // Cumulus on a flat layer overhead, seen in perspective; its own density towards the sun shades it.
  const double reach = 1 / (up + 0.09);
  const double x = direction.x * reach * 1.15 + 4.3;
  const double z = direction.z * reach * 1.15 + 1.2;
  const double density = FractalNoise(x, z, 7);
  const double cover = Ramp(0.44, 0.60, density);
  const double shade = Ramp(-0.10, 0.16, density - FractalNoise(x - 0.22, z - 0.18, 5) + 0.02);
  const Vec cloud = Blend({1.35, 1.30, 1.22}, {0.46, 0.50, 0.58}, shade * 0.85);
  colour = Blend(colour, cloud, cover * Ramp(0.0, 0.10, up));
  const double glow = std::max(Dot(direction, kToSun), 0.0);
  return colour + kSunlight * (0.06 * std::pow(glow, 12));
}

// How much of the sun reaches the point, 0..1, with a soft edge.
double Sunlit(Vec from) {
  double light = 1;
  for (double t = 0.15; t < 45 && light > 0.01;) {
    const double distance = World(from + kToSun * t).distance;
    light = std::min(light, 14 * distance / t);
    t += std::clamp(distance, 0.08, 3.0);
  }
  return std::clamp(light, 0.0, 1.0);
}

// How open the point is to the sky, 0..1: nearby surfaces take light away.
double Openness(Vec from, Vec normal) {
  double closed = 0;
  double weight = 0.9;
  for (const double step : {0.12, 0.4, 0.9, 1.9}) {
    closed += weight * std::max(step - World(from + normal * step).distance, 0.0) / step;
    weight *= 0.55;
  }
  return std::clamp(1 - 0.6 * closed, 0.15, 1.0);
}

Vec NormalAt(Vec p, Surface surface, double distanceFromCamera) {
  const double e = 0.0012 * distanceFromCamera + 0.004;
  if (surface == Surface::kGround) {
    const double here = GroundHeight(p.x, p.z, 8);
    return Unit({here - GroundHeight(p.x + e, p.z, 8), e, here - GroundHeight(p.x, p.z + e, 8)});
  }
  const double here = World(p).distance;
  return Unit({World({p.x + e, p.y, p.z}).distance - here, World({p.x, p.y + e, p.z}).distance - here,
               World({p.x, p.y, p.z + e}).distance - here});
}

Vec Pigment(Vec p, Vec normal, Surface surface) {
  const double fine = FractalNoise(p.x * 3.1 + p.y, p.z * 3.1 + p.y * 2.3, 5);
  const double weather = FractalNoise(p.x * 0.9 + p.z * 0.7, p.y * 0.35, 4);
  switch (surface) {
    case Surface::kPlaster:
      return Vec{0.80, 0.78, 0.73} * (0.72 + 0.2 * fine + 0.22 * weather);
    case Surface::kBand:
      return Vec{0.46, 0.10, 0.07} * (0.7 + 0.3 * fine + 0.3 * weather);
    case Surface::kIron:
      return Vec{0.07, 0.07, 0.08};
    case Surface::kGlass:
      return Vec{0.05, 0.06, 0.07};
    case Surface::kRoof:
      return Vec{0.30, 0.13, 0.09} * (0.45 + 0.9 * fine);
    case Surface::kBrick:
      return Vec{0.28, 0.17, 0.12} * (0.5 + 0.8 * fine);
    case Surface::kGround:
      break;
  }
  const Vec rock = Blend({0.17, 0.15, 0.13}, {0.42, 0.37, 0.31}, fine);
  const Vec grass = Blend({0.07, 0.11, 0.03}, {0.30, 0.32, 0.12}, FractalNoise(p.x * 1.7, p.z * 1.7, 6));
  const double grows = Ramp(1.9, 3.4, p.y + 1.6 * weather) * Ramp(0.5, 0.82, normal.y);
  const double wet = Ramp(0.9, 0.1, p.y);
  return Blend(rock, grass, grows) * (1 - 0.55 * wet);
}

// Metres along the ray to the first solid, or kFarthest.
double March(Vec from, Vec direction, double start, double end, Surface* surface) {
  for (double t = start; t < end;) {
    const Solid solid = World(from + direction * t);
    if (solid.distance < 0.0006 * t) {
      *surface = solid.surface;
      return t;
    }
    t += std::max(solid.distance, 0.0005 * t);
  }
  return kFarthest;
}

Vec ShadeSolid(Vec direction, Vec p, double distance, Surface surface) {
  const Vec normal = NormalAt(p, surface, distance);
  const Vec lifted = p + normal * (0.02 + 0.001 * distance);
  const double sun = std::max(Dot(normal, kToSun), 0.0) * Sunlit(lifted);
  const Vec skylight = Vec{0.34, 0.42, 0.55} * ((0.55 + 0.45 * normal.y) * Openness(lifted, normal));
  Vec colour = Pigment(p, normal, surface) * (kSunlight * sun + skylight);
  if (surface == Surface::kGlass) {
    const Vec mirrored = direction - normal * (2 * Dot(direction, normal));
    colour = colour + Sky(mirrored) * 0.35;
  }
  return colour;
}

Vec Hazed(Vec colour, double distance) {
  return Blend(kHaze, colour, std::exp(-distance * 0.0016));
}

Vec ShadeSea(Vec direction, Vec p, double distance) {
  // Waves flatten with distance as several share one pixel.
  const double steepness = 0.34 / (1 + distance * 0.012);
  const auto wave = [](double x, double z) {
    return FractalNoise(x * 0.5, z * 1.1, 3) + 0.35 * FractalNoise(x * 2.1 + 9, z * 3.4, 4);
  };
  const double e = 0.05 + 0.002 * distance;
  const double here = wave(p.x, p.z);
  const Vec normal =
      Unit({(here - wave(p.x + e, p.z)) / e * steepness, 1, (here - wave(p.x, p.z + e)) / e * steepness});
  Vec mirrored = direction - normal * (2 * Dot(direction, normal));
  mirrored.y = std::abs(mirrored.y) + 0.01;
  Surface surface{};
  const double hit = March(p, mirrored, 0.2, 120, &surface);
  const Vec reflected =
      hit < kFarthest ? ShadeSolid(mirrored, p + mirrored * hit, distance + hit, surface) : Sky(mirrored);
  const double facing = std::max(-Dot(direction, normal), 0.0);
  const double fresnel = 0.03 + 0.75 * std::pow(1 - facing, 5);
  const Vec water = Vec{0.035, 0.11, 0.13} * (0.8 + 0.9 * here);
  Vec colour = Blend(water, reflected, fresnel);
  const double depth = -GroundHeight(p.x, p.z, 5);
  const double foam = Ramp(1.0, 0.0, depth) * Ramp(0.42, 0.66, FractalNoise(p.x * 1.6, p.z * 2.6, 6));
  return Blend(colour, Vec{1.15, 1.17, 1.18}, foam * 0.85);
}

Vec LightFrom(Vec direction) {
  const double toSea = direction.y < 0 ? -kCamera.y / direction.y : kFarthest;
  Surface surface{};
  const double hit = March(kCamera, direction, 1.0, std::min(toSea, kFarthest), &surface);
  const Vec p = kCamera + direction * std::min(hit, toSea);
  if (hit < std::min(toSea, kFarthest)) return Hazed(ShadeSolid(direction, p, hit, surface), hit);
  if (toSea < kFarthest) return Hazed(ShadeSea(direction, p, toSea), toSea);
  return Sky(direction);
}

// Light to what a picture holds: a film's shoulder for the highlights, then the usual gamma.
float Develop(double light) {
  const double exposed = 0.62 * std::pow(light, 1.25);
  const double film = exposed * (2.51 * exposed + 0.03) / (exposed * (2.43 * exposed + 0.59) + 0.14);
  return static_cast<float>(std::pow(std::clamp(film, 0.0, 1.0), 1 / 2.2));
}

}  // namespace

Picture DrawScene(int width, int height) {
  constexpr int kRaysPerSide = 2;  // of a pixel
  Picture picture(width, height, 3);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      Vec light{0, 0, 0};
      for (int ray = 0; ray < kRaysPerSide * kRaysPerSide; ++ray) {
        const int across = ray % kRaysPerSide, down = ray / kRaysPerSide;
        const double subX = x + (across + 0.5) / kRaysPerSide;
        const double subY = y + (down + 0.5) / kRaysPerSide;
        const Vec direction = Unit({(subX - 0.5 * width) / height, 0.64 - subY / height, 1.42});
        light = light + LightFrom(direction);
      }
      light = light * (1.0 / (kRaysPerSide * kRaysPerSide));
      const double offCentre = std::hypot((x + 0.5) / width - 0.5, (y + 0.5) / height - 0.5);
      light = light * (1 - 0.35 * offCentre * offCentre);  // the lens loses light towards the corners
      picture.At(x, y, 0) = Develop(light.x);
      picture.At(x, y, 1) = Develop(light.y);
      picture.At(x, y, 2) = Develop(light.z);
    }
  }
  return picture;
}

}  // namespace tessaline::samples
