// The spectrum as a lit surface.
//
// The spectrum is reduced to a grid of vertices. Every column of the view is a ray that walks the grid from
// front to back; what rises above all that came before is painted from there up. Spans are weighed by the
// part of a pixel that they cover, so edges are smooth.
#include "removal/spectrum_surface.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "image/pixel_kind.h"
#include "image/result_codes.h"
#include "platform/memory.h"

namespace tessaline {

namespace {

constexpr int32_t kGrid = kSurfaceGrid;  // vertices along each side
constexpr size_t kGridCells = size_t{kGrid} * kGrid;

// A colour and a weight, or a vertex: lane 0 is coverage or height, lanes 1 to 3 red, green, blue on 0..255.
typedef float Lanes __attribute__((vector_size(16)));
typedef int32_t WholeLanes __attribute__((vector_size(16)));

// Vertices stand column by column, front to back, as the rays read them. The odd length of a column keeps
// neighbours apart in the cache.
constexpr int32_t kVertexColumn = kSurfaceVertexColumn;
static_assert(sizeof(Lanes) == kSurfaceVertexBytes);

// One instruction each, unlike std::max with its references to operands that wait in registers.
inline float Larger(float a, float b) {
  return a > b ? a : b;
}
inline float Smaller(float a, float b) {
  return a < b ? a : b;
}

// Planes of the grid, row by row, back to front.
enum GridPlane : int32_t { kMeanPlane, kHighestPlane, kMaskPlane, kHeightPlane, kWorkPlane, kGridPlanes };
static_assert(kGridPlanes == kSurfacePlanes);

float* Plane(float* grid, GridPlane plane) {
  return grid + static_cast<size_t>(plane) * kGridCells;
}

// First spectrum cell of a grid cell; the next one's first is its end, but every grid cell has one at least.
int32_t FirstCell(int32_t gridCell, int32_t size) {
  return static_cast<int32_t>(static_cast<int64_t>(gridCell) * size / kGrid);
}
int32_t EndCell(int32_t gridCell, int32_t size) {
  return std::max(FirstCell(gridCell + 1, size), FirstCell(gridCell, size) + 1);
}

// Joins the values of the cells under each grid cell of a row.
template <typename Join>
void JoinCells(const float* cells, int32_t width, Join join, float* gridRow) {
  if (width == 2 * kGrid) {  // a spectrum of the usual size
    for (int32_t x = 0; x < kGrid; ++x) gridRow[x] = join(cells[2 * x], cells[2 * x + 1]);
    return;
  }
  for (int32_t x = 0; x < kGrid; ++x) {
    float joined = cells[FirstCell(x, width)];
    for (int32_t i = FirstCell(x, width) + 1; i < EndCell(x, width); ++i) joined = join(joined, cells[i]);
    gridRow[x] = joined;
  }
}

// Mean and highest level and mean mask (0..1 all three) of the spectrum cells under every grid cell.
int32_t ReduceToGrid(const SpectrumRows& reader, float* grid) {
  const int32_t width = reader.width();
  const auto block = AllocateBlock<float>(5 * static_cast<size_t>(width));
  if (!block) return kOutOfMemory;
  float* const row = block.get();
  float* const channel = row + width;
  float* const sums = channel + width;
  float* const highest = sums + width;
  float* const maskSums = highest + width;
  float perColumn[kGrid];  // 1 / cells side by side
  for (int32_t x = 0; x < kGrid; ++x)
    perColumn[x] = 1.0f / static_cast<float>(EndCell(x, width) - FirstCell(x, width));
  const auto add = [](float a, float b) { return a + b; };
  const auto takeLarger = [](float a, float b) { return Larger(a, b); };

  for (int32_t gridY = 0; gridY < kGrid; ++gridY) {
    const int32_t top = FirstCell(gridY, reader.height());
    const int32_t bottom = EndCell(gridY, reader.height());
    std::fill(sums, maskSums + width, 0.0f);  // highest lies between
    for (int32_t y = top; y < bottom; ++y) {
      reader.LoadLevels(y, 0, row);
      for (int32_t c = 1; c < reader.channels(); ++c) {
        reader.LoadLevels(y, c, channel);
        for (int32_t x = 0; x < width; ++x) row[x] = Larger(row[x], channel[x]);
      }
      for (int32_t x = 0; x < width; ++x) {
        sums[x] += row[x];
        highest[x] = Larger(highest[x], row[x]);
      }
      reader.LoadMask(y, row);
      for (int32_t x = 0; x < width; ++x) maskSums[x] += row[x];
    }
    float* const mean = Plane(grid, kMeanPlane) + static_cast<size_t>(gridY) * kGrid;
    float* const most = Plane(grid, kHighestPlane) + static_cast<size_t>(gridY) * kGrid;
    float* const mask = Plane(grid, kMaskPlane) + static_cast<size_t>(gridY) * kGrid;
    JoinCells(sums, width, add, mean);
    JoinCells(highest, width, takeLarger, most);
    JoinCells(maskSums, width, add, mask);
    const float perRow = 1.0f / static_cast<float>(bottom - top);
    for (int32_t x = 0; x < kGrid; ++x) {
      mean[x] *= perColumn[x] * perRow;
      mask[x] *= perColumn[x] * perRow * (1.0f / kByteMax);
    }
  }
  return kSuccess;
}

// Binomial weights 1 4 6 4 1, edges repeated.
float Smoothed(float a, float b, float c, float d, float e) {
  return (a + e + 4.0f * (b + d) + 6.0f * c) * 0.0625f;
}

void SmoothGrid(float* plane, float* work) {
  const auto at = [](int32_t i) { return std::clamp(i, 0, kGrid - 1); };
  for (int32_t y = 0; y < kGrid; ++y) {
    const float* const row = plane + static_cast<size_t>(y) * kGrid;
    float* const out = work + static_cast<size_t>(y) * kGrid;
    const auto smoothAt = [&](int32_t x) {
      return Smoothed(row[at(x - 2)], row[at(x - 1)], row[x], row[at(x + 1)], row[at(x + 2)]);
    };
    for (const int32_t x : {0, 1, kGrid - 2, kGrid - 1}) out[x] = smoothAt(x);
    for (int32_t x = 2; x < kGrid - 2; ++x)
      out[x] = Smoothed(row[x - 2], row[x - 1], row[x], row[x + 1], row[x + 2]);
  }
  for (int32_t y = 0; y < kGrid; ++y) {
    const auto workRow = [&](int32_t i) { return work + static_cast<size_t>(at(i)) * kGrid; };
    const float* const rows[5] = {workRow(y - 2), workRow(y - 1), workRow(y), workRow(y + 1), workRow(y + 2)};
    float* const out = plane + static_cast<size_t>(y) * kGrid;
    for (int32_t x = 0; x < kGrid; ++x)
      out[x] = Smoothed(rows[0][x], rows[1][x], rows[2][x], rows[3][x], rows[4][x]);
  }
}

// The level that 2 % of the calm surface lie below: the ground of the relief.
float GroundLevel(const float* calm) {
  int32_t counts[256] = {};
  for (size_t i = 0; i < kGridCells; ++i) ++counts[static_cast<int32_t>(std::min(calm[i], 1.0f) * 255.0f)];
  int32_t below = 0;
  for (int32_t level = 0; level < 256; ++level) {
    below += counts[level];
    if (below * 50 >= static_cast<int32_t>(kGridCells)) return static_cast<float>(level) * (1.0f / 255.0f);
  }
  return 0.0f;
}

// Heights 0..1: the calmed mean level, and on it, as small cones, the peaks that stand out of the noise.
void RaiseHeights(float* grid) {
  float* const calm = Plane(grid, kMeanPlane);
  const float* const highest = Plane(grid, kHighestPlane);
  float* const heights = Plane(grid, kHeightPlane);
  SmoothGrid(calm, Plane(grid, kWorkPlane));
  SmoothGrid(calm, Plane(grid, kWorkPlane));

  double excess = 0.0;
  for (size_t i = 0; i < kGridCells; ++i) {
    heights[i] = calm[i];
    excess += double{std::max(highest[i] - calm[i], 0.0f)};
  }
  const float usualExcess = static_cast<float>(excess / double{kGridCells});
  // Noise of a log spectrum seldom stands 3 times its usual height over its surroundings; from 4 times on a
  // peak is shown whole.
  const float nothingBelow = 3.0f * usualExcess;
  const float perRise = 1.0f / std::max(usualExcess, 1e-3f);
  for (int32_t y = 0; y < kGrid; ++y) {
    for (int32_t x = 0; x < kGrid; ++x) {
      const size_t i = static_cast<size_t>(y) * kGrid + x;
      const float peak = highest[i] - calm[i];
      if (peak <= nothingBelow) continue;
      const float shown = peak * std::min((peak - nothingBelow) * perRise, 1.0f);
      for (int32_t dy = -1; dy <= 1; ++dy) {
        for (int32_t dx = -1; dx <= 1; ++dx) {
          if (x + dx < 0 || x + dx >= kGrid || y + dy < 0 || y + dy >= kGrid) continue;
          constexpr float kCone[3] = {1.0f, 0.6f, 0.4f};  // by steps from the peak
          const size_t near = i + dy * kGrid + dx;
          heights[near] = std::max(heights[near], calm[near] + shown * kCone[dx * dx + dy * dy]);
        }
      }
    }
  }

  const float ground = std::min(GroundLevel(calm), 0.9f);
  const float perLevel = 1.0f / (1.0f - ground);
  for (size_t i = 0; i < kGridCells; ++i)
    heights[i] = std::clamp((heights[i] - ground) * perLevel, 0.0f, 1.0f);
}

Lanes ColorLanes(HighlightColor color) {
  return Lanes{0.0f, static_cast<float>(color.red), static_cast<float>(color.green),
               static_cast<float>(color.blue)};
}

// The picture's fixed colours, neutral so that only the two colours that mean something are colours.
constexpr Lanes kBackground = {1.0f, 22.0f, 23.0f, 26.0f};
constexpr Lanes kGroundColor = {0.0f, 92.0f, 96.0f, 104.0f};
constexpr Lanes kWallColor = {1.0f, 46.0f, 48.0f, 52.0f};
constexpr Lanes kWhite = {kByteMax, kByteMax, kByteMax, kByteMax};  // no colour goes beyond
constexpr Lanes kPeakColor = {0.0f, 236.0f, 236.0f, 236.0f};

// Brightness of one row of vertices, lit from the left, the front and above.
void LightRow(const float* back, const float* row, const float* front, float* light) {
  constexpr float kSteepness = 14.0f;  // how many times higher than drawn the relief is for the light
  const auto lightAt = [&](int32_t x, int32_t left, int32_t right) {
    const float slopeX = (row[right] - row[left]) * kSteepness;
    const float slopeY = (front[x] - back[x]) * kSteepness;
    const float facing =
        (0.50f * slopeX - 0.35f * slopeY + 0.79f) / std::sqrt(slopeX * slopeX + slopeY * slopeY + 1.0f);
    return 0.42f + 0.72f * Larger(facing, 0.0f);
  };
  light[0] = lightAt(0, 0, 1);
  for (int32_t x = 1; x < kGrid - 1; ++x) light[x] = lightAt(x, x - 1, x + 1);
  light[kGrid - 1] = lightAt(kGrid - 1, kGrid - 2, kGrid - 1);
}

// How far one row of vertices lies in the protected disc: 1 inside, 0 outside, the rim two vertices wide.
void ProtectionRow(const ProtectedDisc& disc, int32_t gridY, float cellsPerVertexX, float cellsPerVertexY,
                   float* shares) {
  const auto half = static_cast<float>(disc.half);
  const float dy = (static_cast<float>(gridY) + 0.5f) * cellsPerVertexY - 0.5f - half;
  const float perCell = 0.5f / cellsPerVertexX;
  for (int32_t x = 0; x < kGrid; ++x) {
    const float dx = (static_cast<float>(x) + 0.5f) * cellsPerVertexX - 0.5f - half;
    const float share = (disc.radius - std::sqrt(dx * dx + dy * dy)) * perCell + 0.5f;
    shares[x] = Smaller(Larger(share, 0.0f), 1.0f);
  }
}

// Heights and colours of all vertices, into `vertices`.
void ColorVertices(float* grid, const SpectrumRows& reader, const ProtectedDisc& disc,
                   HighlightColor highlight, Lanes* vertices) {
  const float* const heights = Plane(grid, kHeightPlane);
  const float* const masks = Plane(grid, kMaskPlane);
  const Lanes removedColor = ColorLanes(highlight);
  const Lanes keptColor = ColorLanes(ProtectColor(highlight)) * 0.8f + kPeakColor * 0.2f;
  const float cellsPerVertexX = static_cast<float>(reader.width()) / kGrid;
  const float cellsPerVertexY = static_cast<float>(reader.height()) / kGrid;
  float light[kGrid], protection[kGrid];
  for (int32_t y = 0; y < kGrid; ++y) {
    const auto gridRow = [](const float* plane, int32_t i) {
      return plane + static_cast<size_t>(std::clamp(i, 0, kGrid - 1)) * kGrid;
    };
    const float* const row = gridRow(heights, y);
    const float* const mask = gridRow(masks, y);
    LightRow(gridRow(heights, y - 1), row, gridRow(heights, y + 1), light);
    ProtectionRow(disc, y, cellsPerVertexX, cellsPerVertexY, protection);
    Lanes* vertex = vertices + (kGrid - 1 - y);
    for (int32_t x = 0; x < kGrid; ++x, vertex += kVertexColumn) {
      Lanes color = kGroundColor + (kPeakColor - kGroundColor) * row[x];
      color += (keptColor - color) * (protection[x] * 0.7f);
      color += (removedColor - color) * (mask[x] * (2.0f - mask[x]));  // a softened notch still shows well
      color *= light[x];
      color = color < kWhite ? color : kWhite;
      color[0] = row[x];
      *vertex = color;
    }
  }
}

// Where the grid's rows stand in the view; index 0 is the front row.
struct Scene {
  float middle[kGrid];            // view column of the row's middle
  float verticesPerPixel[kGrid];  // along the row
  float base[kGrid];              // view row of height 0
  float rise[kGrid];              // pixels from height 0 to height 1
  float wallFoot;                 // view row of the lower edge of the front wall
};

Scene PlaceScene(const ImageView& view, int32_t spectrumWidth, float scale) {
  const float side = std::min(static_cast<float>(spectrumWidth) * scale,
                              static_cast<float>(std::min(view.width, view.height)));
  const float top = (static_cast<float>(view.height) - side) * 0.5f;
  Scene scene;
  // The camera looks down by 48 degrees on a ground that runs from -1 to 1, from four half sides away.
  // Heights are drawn as if they stood on the ground, which keeps verticals vertical. It stands a little left
  // of the middle, so that the peaks on the vertical axis do not hide one another behind the disc. The
  // numbers keep everything inside the square of `side` pixels, up to height 1 on the back row.
  constexpr float kDistance = 4.0f, kCosine = 0.669f, kSine = 0.743f;
  constexpr float kNearest = kDistance - kCosine;
  const float halfWidth = side * 0.485f * kNearest;  // of the ground at distance 1
  const float frontBase = top + side * 0.945f;
  for (int32_t row = 0; row < kGrid; ++row) {
    const float depth = 2.0f * static_cast<float>(row) / (kGrid - 1) - 1.0f;
    const float nearness = 1.0f / (kDistance + depth * kCosine);
    scene.middle[row] =
        static_cast<float>(view.width) * 0.5f + side * 0.05f * (depth + 1.0f) * kDistance * nearness;
    scene.verticesPerPixel[row] = 0.5f * (kGrid - 1) / (halfWidth * nearness);
    scene.base[row] = frontBase - halfWidth * kSine * (depth * nearness + 1.0f / kNearest);
    scene.rise[row] = side * 0.375f * kDistance * nearness;
  }
  scene.wallFoot = frontBase + side * 0.035f;
  return scene;
}

// Adds the span from view row `top` down to row `bottom` to a column of pixels: `color` at the top, changing
// by `step` per row. Lane 0 of the colours is 1, so that it sums up the coverage.
void FillLongSpan(float top, float bottom, Lanes color, Lanes step, Lanes* column) {
  while (top < bottom) {
    const auto pixel = static_cast<int32_t>(top);
    const float end = std::min(static_cast<float>(pixel + 1), bottom);
    const float covered = end - top;
    column[pixel] += (color + step * (0.5f * covered)) * covered;
    color += step * covered;
    top = end;
  }
}

// The same for a span of one colour and two pixels at most, which can touch three. Without branches, because
// nearly all spans are of this kind.
inline void FillShortSpan(float top, float bottom, Lanes color, Lanes* column) {
  const auto pixel = static_cast<int32_t>(top);
  const float pastFirst = bottom - static_cast<float>(pixel + 1);
  const float pastSecond = pastFirst - 1.0f;
  const float below = Larger(pastFirst, 0.0f);
  const float third = Larger(pastSecond, 0.0f);
  column[pixel] += color * (bottom - top - below);
  column[pixel + 1] += color * (below - third);
  column[pixel + 2] += color * third;
}

// What a ray meets: colour and view row of every grid row, front to back.
struct RayPoints {
  float y[kGrid];
  Lanes color[kGrid];
};

// Returns the number of grid rows met. A loop of its own, without a branch that depends on heights:
// FillVisible has enough of them, and guesses wrong cost little when its numbers are ready.
int32_t CastRay(const Scene& scene, float viewX, const Lanes* vertices, RayPoints* points) {
  constexpr float kMiddleVertex = 0.5f * (kGrid - 1);
  for (int32_t row = 0; row < kGrid; ++row) {
    const float x = kMiddleVertex + (viewX - scene.middle[row]) * scene.verticesPerPixel[row];
    if (!(x >= 0.0f && x <= kGrid - 1)) return row;  // the ground narrows towards the back
    const int32_t left = std::min(static_cast<int32_t>(x), kGrid - 2);
    const Lanes* const vertex = vertices + static_cast<size_t>(left) * kVertexColumn + row;
    Lanes color = vertex[0] + (vertex[kVertexColumn] - vertex[0]) * (x - static_cast<float>(left));
    points->y[row] = Larger(scene.base[row] - color[0] * scene.rise[row], 0.0f);
    color[0] = 1.0f;
    points->color[row] = color;
  }
  return kGrid;
}

// The front wall, and behind it whatever rises above all that stands before it.
void FillVisible(const RayPoints& points, int32_t count, float wallFoot, Lanes* column) {
  if (count == 0) return;
  float horizon = points.y[0];
  FillLongSpan(horizon, wallFoot, kWallColor, Lanes{}, column);
  for (int32_t row = 1; row < count; ++row) {
    const float top = points.y[row];
    if (top >= horizon) continue;
    const Lanes color = points.color[row];
    const Lanes before = points.color[row - 1];
    if (horizon - top <= 2.0f) {
      FillShortSpan(top, horizon, (color + before) * 0.5f, column);
    } else {
      FillLongSpan(top, horizon, color, (before - color) * (1.0f / (points.y[row - 1] - top)), column);
    }
    horizon = top;
  }
}

int32_t PaintScene(const Scene& scene, const Lanes* vertices, const ImageView& view) {
  // The scene lies inside the view; FillShortSpan adds nothing to two pixels more.
  const auto column = AllocateBlock<Lanes>(static_cast<size_t>(view.height) + 2);
  if (!column) return kOutOfMemory;
  constexpr int32_t kRaysPerColumn = 2;
  RayPoints points;
  for (int32_t x = 0; x < view.width; ++x) {
    std::fill(column.get(), column.get() + view.height, Lanes{});
    for (int32_t ray = 0; ray < kRaysPerColumn; ++ray) {
      const float part = (static_cast<float>(ray) + 0.5f) * (1.0f / kRaysPerColumn);
      const int32_t count = CastRay(scene, static_cast<float>(x) + part, vertices, &points);
      FillVisible(points, count, scene.wallFoot, column.get());
    }
    for (int32_t y = 0; y < view.height; ++y) {
      uint8_t* const pixel = view.Row(y) + static_cast<size_t>(x) * 3;
      const Lanes painted = column[y] * (1.0f / kRaysPerColumn);
      const Lanes color = painted + kBackground * (1.0f - painted[0]) + 0.5f;
      const auto levels = __builtin_convertvector(color < kWhite ? color : kWhite, WholeLanes);
      for (int32_t c = 0; c < 3; ++c) pixel[c] = static_cast<uint8_t>(levels[c + 1]);
    }
  }
  return kSuccess;
}

}  // namespace

HighlightColor ProtectColor(HighlightColor highlight) {
  const int32_t channels[3] = {highlight.red, highlight.green, highlight.blue};
  const int32_t least = *std::min_element(channels, channels + 3);
  const int32_t span = *std::max_element(channels, channels + 3) - least;
  constexpr int32_t kLeastSpan = 48;  // greyer than this has no hue to oppose
  if (span < kLeastSpan) return {0, 0, 255};
  // The opposite of the pure hue. Where red or blue is strong in it, green goes: the opposite of red is blue.
  int32_t opposite[3];
  for (int32_t c = 0; c < 3; ++c) opposite[c] = 255 - (channels[c] - least) * 255 / span;
  const int32_t strongest = std::max(opposite[0], opposite[2]);
  if (strongest >= 128) {
    opposite[1] = 0;
    opposite[0] = opposite[0] * 255 / strongest;
    opposite[2] = opposite[2] * 255 / strongest;
  }
  return {static_cast<uint8_t>(opposite[0]), static_cast<uint8_t>(opposite[1]),
          static_cast<uint8_t>(opposite[2])};
}

ProtectedDisc DiscOf(int32_t spectrumWidth, float protectionRadius) {
  const int32_t half = spectrumWidth / 2;
  const bool isThere = protectionRadius > 0.0f && std::isfinite(protectionRadius);
  return {half, isThere ? static_cast<float>(half) / protectionRadius : 0.0f};
}

int32_t DrawSpectrumSurface(const SpectrumRows& spectrum, float protectionRadius, float scale,
                            HighlightColor highlight, const SurfaceMemory& memory, const ImageView& view) {
  const int32_t result = ReduceToGrid(spectrum, memory.grid);
  if (result != kSuccess) return result;
  RaiseHeights(memory.grid);
  auto* const vertices = reinterpret_cast<Lanes*>(memory.vertices);
  ColorVertices(memory.grid, spectrum, DiscOf(spectrum.width(), protectionRadius), highlight, vertices);
  return PaintScene(PlaceScene(view, spectrum.width(), scale), vertices, view);
}

}  // namespace tessaline
