#include "restoration/polish.h"

#include <algorithm>

#include "image/pixel_kind.h"

namespace tessaline {

namespace {

// The axes that are polished, each for itself.
struct AxisRule {
  float noiseShare;  // of the mean square of what was taken out
  int32_t reach;     // of the window, to every side
};
constexpr AxisRule kFirstAxis = {0.15f, 1};  // luma, lightness
constexpr AxisRule kOtherAxes = {0.60f, 2};  // differences of colour, which carry less detail
const AxisRule& RuleOf(int32_t axis) {
  return axis == 0 ? kFirstAxis : kOtherAxes;
}
constexpr int32_t kMostReach = kOtherAxes.reach;

constexpr double kNoiseSigma = 6.0;
constexpr float kMostNoise = 100.0f * kByteToHost * kByteToHost;  // variance; 100 in levels of 255

// Axes from channels, and channels from axes.
using Matrix = float[kMostChannels][kMostChannels];
constexpr Matrix kLuma = {
    {0.299f, 0.587f, 0.114f}, {-0.168736f, -0.331264f, 0.5f}, {0.5f, -0.418688f, -0.081312f}};
constexpr Matrix kFromLuma = {{1.0f, 0.0f, 1.402f}, {1.0f, -0.344136f, -0.714136f}, {1.0f, 1.772f, 0.0f}};
constexpr Matrix kAsTheyAre = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};

bool IsMixed(ChannelMeaning meaning, int32_t channels) {
  return meaning == ChannelMeaning::kRgb && channels == kMostChannels;
}

// Rows of an axis round a strip, wide enough for two windows, with mirrored samples beyond the borders.
constexpr int32_t kStripRows = 32;
constexpr int32_t kMargin = 2 * kMostReach;
constexpr int32_t kValueRows = kStripRows + 2 * kMargin;

// sums[x] of the (2 reach + 1)^2 samples round row y, column x, for x from first to last - 1.
void BoxSum(const float* rows, int32_t rowFloats, int32_t reach, int32_t first, int32_t last, float* columns,
            float* sums) {
  for (int32_t x = first - reach; x < last + reach; ++x) columns[x] = 0.0f;
  for (int32_t v = -reach; v <= reach; ++v) {
    const float* const row = rows + v * rowFloats;
    for (int32_t x = first - reach; x < last + reach; ++x) columns[x] += row[x];
  }
  for (int32_t x = first; x < last; ++x) sums[x] = 0.0f;
  for (int32_t u = -reach; u <= reach; ++u) {
    for (int32_t x = first; x < last; ++x) sums[x] += columns[x + u];
  }
}

}  // namespace

// One strip of rows and a thread's memory for it. Rows begin at their first sample, margins before and after.
struct Polish::Strip {
  int32_t firstRow, rows, width, height, rowFloats;
  float* memory;

  float* Slot(int32_t slot) const { return memory + ptrdiff_t{slot} * rowFloats + kMargin; }
  float* Value(int32_t y) const { return Slot(y + kMargin); }                    // y from -kMargin
  float* Square(int32_t y) const { return Slot(kValueRows + y + kMargin); }      // likewise
  float* Gain(int32_t y) const { return Slot(2 * kValueRows + y + kMargin); }    // from -kMostReach
  float* Smooth(int32_t y) const { return Slot(3 * kValueRows + y + kMargin); }  // (1 - gain) mean; likewise
  float* Change(int32_t axis, int32_t y) const {                                 // what the polish adds
    return Slot(4 * kValueRows + axis * kStripRows + y);
  }
  float* Spare(int32_t i) const { return Slot(4 * kValueRows + kMostChannels * kStripRows + i); }
  static constexpr int32_t kSlots = 4 * kValueRows + kMostChannels * kStripRows + 4;
};

bool Polish::Prepare(int32_t width, int32_t height, int32_t channels, int32_t threads) {
  channels_ = channels;
  for (int32_t axis = 0; axis < channels; ++axis) {
    if (!noise_[axis].Create(ReducedSide(width), ReducedSide(height))) return false;
  }
  stripFloats_ = static_cast<size_t>(Strip::kSlots) * static_cast<size_t>(2 * width + 2 * kMargin);
  strips_ = AllocateBlock<float>(stripFloats_ * static_cast<size_t>(threads));
  return strips_ && scratch_.Create(ReducedSide(width), ReducedSide(height));
}

void Polish::MeasureNoise(const Plane* taken, ChannelMeaning meaning, float amount, Parallel& parallel) {
  meaning_ = meaning;
  const Matrix& axes = IsMixed(meaning, channels_) ? kLuma : kAsTheyAre;
  const int32_t width = taken[0].width, height = taken[0].height;
  for (int32_t axis = 0; axis < channels_; ++axis) {
    Plane& noise = noise_[axis];
    RowsInParallel(parallel, noise.height, [&](int32_t blockY, int32_t worker) {
      const int32_t endY = std::min((blockY + 1) * kReduction, height);
      float* const squares = strips_.get() + stripFloats_ * static_cast<size_t>(worker);
      float* const values = squares + width;
      std::fill_n(squares, width, 0.0f);
      for (int32_t y = blockY * kReduction; y < endY; ++y) {
        std::fill_n(values, width, 0.0f);
        for (int32_t c = 0; c < channels_; ++c) {
          const float weight = axes[axis][c];
          const float* const row = taken[c].Row(y);
          for (int32_t x = 0; x < width; ++x) values[x] += weight * row[x];
        }
        for (int32_t x = 0; x < width; ++x) squares[x] += values[x] * values[x];
      }
      for (int32_t blockX = 0; blockX < noise.width; ++blockX) {
        const int32_t endX = std::min((blockX + 1) * kReduction, width);
        float sum = 0.0f;
        for (int32_t x = blockX * kReduction; x < endX; ++x) sum += squares[x];
        noise.Row(blockY)[blockX] =
            sum / static_cast<float>((endY - blockY * kReduction) * (endX - blockX * kReduction));
      }
    });
    Blur(GaussianOfRest(kNoiseSigma, kVarianceOfBlocks + kVarianceOfEnlarging), parallel, &noise, &scratch_);
    RowsInParallel(parallel, noise.height, [&](int32_t y, int32_t) {
      float* const row = noise.Row(y);
      const float share = RuleOf(axis).noiseShare;
      for (int32_t x = 0; x < noise.width; ++x) row[x] = amount * std::min(share * row[x], kMostNoise);
    });
  }
}

// The polish of one axis: what it adds to every sample of the strip.
void Polish::PolishAxis(const Plane* channels, int32_t axis, const Strip& strip) const {
  const Matrix& axes = IsMixed(meaning_, channels_) ? kLuma : kAsTheyAre;
  const int32_t reach = RuleOf(axis).reach;
  const auto samples = static_cast<float>((2 * reach + 1) * (2 * reach + 1));
  for (int32_t y = -2 * reach; y < strip.rows + 2 * reach; ++y) {
    const int32_t from = Reflected(strip.firstRow + y, strip.height);
    float* const value = strip.Value(y);
    float* const square = strip.Square(y);
    std::fill(value, value + strip.width, 0.0f);
    for (int32_t c = 0; c < channels_; ++c) {
      const float* const row = channels[c].Row(from);
      const float weight = axes[axis][c];
      for (int32_t x = 0; x < strip.width; ++x) value[x] += weight * row[x];
    }
    for (int32_t i = 1; i <= 2 * reach; ++i) {
      value[-i] = value[Reflected(-i, strip.width)];
      value[strip.width - 1 + i] = value[Reflected(strip.width - 1 + i, strip.width)];
    }
    for (int32_t x = -2 * reach; x < strip.width + 2 * reach; ++x) square[x] = value[x] * value[x];
  }
  float* const noise = strip.Spare(0);
  float* const columns = strip.Spare(1);
  float* const squares = strip.Spare(2);
  for (int32_t y = -reach; y < strip.rows + reach; ++y) {
    float* const gain = strip.Gain(y);
    float* const smooth = strip.Smooth(y);
    const int32_t first = -reach, last = strip.width + reach;
    EnlargeRow(noise_[axis], Reflected(strip.firstRow + y, strip.height), strip.width, noise);
    for (int32_t i = 1; i <= reach; ++i) {
      noise[-i] = noise[Reflected(-i, strip.width)];
      noise[strip.width - 1 + i] = noise[Reflected(strip.width - 1 + i, strip.width)];
    }
    BoxSum(strip.Value(y), strip.rowFloats, reach, first, last, columns, smooth);
    BoxSum(strip.Square(y), strip.rowFloats, reach, first, last, columns, squares);
    for (int32_t x = first; x < last; ++x) {
      const float mean = smooth[x] / samples;
      const float variance = squares[x] / samples - mean * mean;
      // Without noise the gain is 1 whatever the variance, so that samples stay exactly as they are.
      gain[x] = noise[x] <= 0.0f ? 1.0f : variance > noise[x] ? (variance - noise[x]) / variance : 0.0f;
      smooth[x] = (1.0f - gain[x]) * mean;
    }
  }
  for (int32_t y = 0; y < strip.rows; ++y) {
    float* const gains = strip.Spare(3);
    float* const change = strip.Change(axis, y);
    BoxSum(strip.Gain(y), strip.rowFloats, reach, 0, strip.width, columns, gains);
    BoxSum(strip.Smooth(y), strip.rowFloats, reach, 0, strip.width, columns, change);
    const float* const value = strip.Value(y);
    for (int32_t x = 0; x < strip.width; ++x) {
      change[x] = change[x] / samples - (1.0f - gains[x] / samples) * value[x];
    }
  }
}

void Polish::Store(const Plane* channels, Parallel& parallel, const PictureView& picture) {
  const int32_t width = picture.width, height = picture.height;
  const Matrix& back = IsMixed(meaning_, channels_) ? kFromLuma : kAsTheyAre;
  const auto storeStrip = [&](int32_t index, int32_t worker) {
    const int32_t firstRow = index * kStripRows;
    const Strip strip{firstRow,
                      std::min(kStripRows, height - firstRow),
                      width,
                      height,
                      2 * width + 2 * kMargin,
                      strips_.get() + stripFloats_ * static_cast<size_t>(worker)};
    for (int32_t axis = 0; axis < channels_; ++axis) PolishAxis(channels, axis, strip);
    float* const levels = strip.Value(0);  // of no more use
    for (int32_t c = 0; c < channels_; ++c) {
      for (int32_t y = 0; y < strip.rows; ++y) {
        const float* const row = channels[c].Row(firstRow + y);
        for (int32_t x = 0; x < width; ++x) {
          float level = row[x];
          for (int32_t axis = 0; axis < channels_; ++axis) level += back[c][axis] * strip.Change(axis, y)[x];
          levels[2 * x] = level;
        }
        StoreLevels(picture, c, firstRow + y, Rounding::kNearest, levels);
      }
    }
  };
  ForEachTask(parallel, (height + kStripRows - 1) / kStripRows, storeStrip, [](int32_t) { return false; });
}

}  // namespace tessaline
