#include "buffers/buffer_transforms.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "buffers/buffer_table.h"
#include "image/pixel_kind.h"
#include "image/result_codes.h"
#include "platform/memory.h"
#include "tests/fft/slow_dft.h"

namespace tessaline {
namespace {

using test::Wide;

float* Floats(int32_t slot, int32_t row) {
  return reinterpret_cast<float*>(BufferRow(slot, row));
}

// All values of a buffer, and a buffer of noise.
std::vector<float> Contents(int32_t slot) {
  const BufferShape shape = ShapeOf(slot);
  std::vector<float> all(static_cast<size_t>(shape.width) * shape.height * shape.bytesPerPixel /
                         sizeof(float));
  std::memcpy(all.data(), BufferRow(slot, 0), all.size() * sizeof(float));
  return all;
}

void MakeNoise(OwnedBuffer& buffer, int32_t width, int32_t height, int32_t bytesPerPixel = kGrayComplex) {
  ASSERT_EQ(0, buffer.Create("FFTbuf", width, height, bytesPerPixel));
  test::Noise noise;
  for (int32_t y = 0; y < height; ++y) {
    float* const row = Floats(buffer.slot(), y);
    for (int32_t i = 0; i < width * bytesPerPixel / 4; ++i) row[i] = static_cast<float>(noise.Next());
  }
}

int32_t Forward(int32_t slot, bool useDoubleKernels) {
  return ForwardFft2D(slot, false, useDoubleKernels, nullptr, 0, 1, 1);
}

int32_t Inverse(int32_t slot, bool useDoubleKernels) {
  return InverseFft2D(slot, false, useDoubleKernels, nullptr, 0, 1, 1);
}

// The centred two-dimensional spectrum of one channel by the definition, rows then columns.
std::vector<Wide> SlowSpectrum(const std::vector<float>& data, int32_t width, int32_t height,
                               int32_t channels, int32_t channel) {
  std::vector<Wide> plane(static_cast<size_t>(width) * height);
  const auto alongRow = test::CircleOf(width, -1);
  const auto alongColumn = test::CircleOf(height, -1);
  for (int32_t y = 0; y < height; ++y) {
    std::vector<Wide> row(width);
    for (int32_t x = 0; x < width; ++x) {
      const size_t value = 2 * ((static_cast<size_t>(y) * width + x) * channels + channel);
      row[x] = {data[value], data[value + 1]};
    }
    for (int32_t x = 0; x < width; ++x) plane[y * width + x] = test::SlowDftAt(row, alongRow, x);
  }
  std::vector<Wide> centred(plane.size());
  for (int32_t x = 0; x < width; ++x) {
    std::vector<Wide> column(height);
    for (int32_t y = 0; y < height; ++y) column[y] = plane[y * width + x];
    for (int32_t y = 0; y < height; ++y) {
      centred[(y + height / 2) % height * width + (x + width / 2) % width] =
          test::SlowDftAt(column, alongColumn, y);
    }
  }
  return centred;
}

struct Shape {
  int32_t width;
  int32_t height;
  int32_t bytesPerPixel;
};

class Fft2DShapes : public testing::TestWithParam<Shape> {};

TEST_P(Fft2DShapes, ForwardAgreesWithTheDefinitionAndInverseReturns) {
  const auto [width, height, bytesPerPixel] = GetParam();
  for (const bool useDoubleKernels : {true, false}) {
    OwnedBuffer buffer;
    MakeNoise(buffer, width, height, bytesPerPixel);
    const std::vector<float> before = Contents(buffer.slot());
    ASSERT_EQ(0, Forward(buffer.slot(), useDoubleKernels));
    const std::vector<float> spectrum = Contents(buffer.slot());
    const int32_t channels = bytesPerPixel / 8;
    for (int32_t channel = 0; channel < channels; ++channel) {
      const std::vector<Wide> expected = SlowSpectrum(before, width, height, channels, channel);
      const double size = std::sqrt(static_cast<double>(width) * height);
      for (size_t i = 0; i < expected.size(); ++i) {
        const size_t value = 2 * (i * channels + channel);
        ASSERT_LT(std::abs(Wide(spectrum[value], spectrum[value + 1]) - expected[i]), 3e-6 * size)
            << width << "x" << height << " " << useDoubleKernels << " at " << i;
      }
    }
    ASSERT_EQ(0, Inverse(buffer.slot(), useDoubleKernels));
    const float scale = useDoubleKernels ? static_cast<float>(width * height) : 1.0f;
    const std::vector<float> after = Contents(buffer.slot());
    for (size_t i = 0; i < after.size(); ++i) ASSERT_NEAR(before[i], after[i] / scale, 3e-6) << i;
  }
}

// Colour squares from 32 on are transposed; the others gather columns, some with fewer than eight of them,
// and an odd side has no half to swap.
INSTANTIATE_TEST_SUITE_P(AllPaths, Fft2DShapes,
                         testing::Values(Shape{32, 32, 8}, Shape{64, 64, 8}, Shape{16, 16, 8},
                                         Shape{64, 32, 8}, Shape{4, 128, 8}, Shape{1, 64, 8}, Shape{64, 1, 8},
                                         Shape{32, 32, 24}, Shape{16, 16, 24}, Shape{4, 32, 24},
                                         Shape{64, 64, 24}, Shape{1, 32, 24}));

TEST(ForwardFft2D, SizesWithoutATransformAreOnlyCentred) {
  for (const auto& [width, height] : {std::pair{100, 100}, std::pair{7, 5}}) {
    OwnedBuffer buffer;
    MakeNoise(buffer, width, height);
    std::vector<float> before = Contents(buffer.slot());
    ASSERT_EQ(0, Forward(buffer.slot(), width == 7));
    std::vector<float> after = Contents(buffer.slot());
    EXPECT_EQ(before[0], after[2 * (static_cast<size_t>(height / 2) * width + width / 2)]);
    std::sort(before.begin(), before.end());
    std::sort(after.begin(), after.end());
    EXPECT_EQ(before, after);
  }
}

TEST(ForwardFft2D, WithoutMemoryNothingIsChanged) {
  for (const Shape& shape : {Shape{64, 64, 8}, Shape{64, 16, 8}, Shape{64, 64, 24}, Shape{64, 16, 24}}) {
    for (const bool useDoubleKernels : {true, false}) {
      OwnedBuffer buffer;
      MakeNoise(buffer, shape.width, shape.height, shape.bytesPerPixel);
      const std::vector<float> before = Contents(buffer.slot());
      int32_t result = kOutOfMemory;
      for (int failures = 0; result != 0; ++failures) {
        FailAllocationAfter(failures);
        result = Forward(buffer.slot(), useDoubleKernels);
        ClearAllocationFailure();
        ASSERT_EQ(failures == 0 || result != 0 ? kOutOfMemory : 0, result);
        if (result != 0) {
          ASSERT_EQ(before, Contents(buffer.slot()));
        }
      }
    }
  }
}

TEST(ForwardFft2D, SlotsWithoutAComplexBufferAreHarmless) {
  OwnedBuffer grey;
  ASSERT_EQ(0, grey.Create("grey", 64, 64, kGray8));
  for (const int32_t slot : {0, -1, 2047, 2048, 100000, grey.slot()}) {
    const int32_t expected = slot == grey.slot() ? kUnknownPixelKind : kSuccess;
    EXPECT_EQ(expected, Forward(slot, true));
    EXPECT_EQ(expected, Inverse(slot, false));
  }
}

struct Call {
  int32_t done;
  int32_t total;
  bool operator==(const Call&) const = default;
};

struct Listener {
  std::vector<Call> calls;
  int stopAfter = -1;  // this many calls
  bool switchesOff = false;
  RunContext context;

  Listener() {
    context.progressEnabled = true;
    context.user = this;
    context.progress = [](void* user, int32_t done, int32_t total) {
      auto* const self = static_cast<Listener*>(user);
      self->calls.push_back({done, total});
      self->context.progressEnabled = !self->switchesOff;
    };
    context.abortCheck = [](void* user) {
      auto* const self = static_cast<Listener*>(user);
      return static_cast<int>(self->calls.size()) == self->stopAfter;
    };
  }
};

// The calls for steps 2 .. 5 of 7 of a transform whose reporting loops are these fifths with these
// iterations.
std::vector<Call> ExpectedCalls(std::vector<std::pair<int32_t, int32_t>> fifthsAndCounts) {
  const int32_t firstStep = 2;
  const int32_t lastStep = 5;
  const int32_t totalSteps = 7;
  std::vector<Call> calls;
  for (const auto& [fifth, count] : fifthsAndCounts) {
    for (int32_t r = 0; r < count; ++r) {
      if ((r & 1) == 0 || (r & 16) == 0 || (r & 256) == 0) continue;
      const int32_t within = (lastStep - firstStep) * (r + fifth * count) * 100 / (5 * count);
      calls.push_back({100 * totalSteps + 4 * (100 * firstStep + within), 600 * totalSteps});
    }
  }
  return calls;
}

TEST(Progress, IsToldOnRowsWithBits0And4And8Only) {
  for (const bool useDoubleKernels : {true, false}) {
    for (const int32_t bytesPerPixel : {8, 24}) {
      OwnedBuffer buffer;
      MakeNoise(buffer, 1024, 1024, bytesPerPixel);
      Listener forward;
      ASSERT_EQ(0, ForwardFft2D(buffer.slot(), true, useDoubleKernels, &forward.context, 2, 5, 7));
      EXPECT_EQ(ExpectedCalls({{0, 1024}, {2, 1024}, {4, 512}}), forward.calls);
      EXPECT_EQ(2 * 2 * 64 + 64, static_cast<int>(forward.calls.size()));
      Listener inverse;
      ASSERT_EQ(0, InverseFft2D(buffer.slot(), true, useDoubleKernels, &inverse.context, 2, 5, 7));
      EXPECT_EQ(ExpectedCalls({{0, 512}, {1, 1024}, {3, 1024}}), inverse.calls);
    }
  }
}

TEST(Progress, StopsWhenAskedAndIsSilentWhenNotWanted) {
  OwnedBuffer buffer;
  MakeNoise(buffer, 512, 512);
  const auto run = [&](bool isShown, Listener* listener) {
    return ForwardFft2D(buffer.slot(), isShown, true, listener != nullptr ? &listener->context : nullptr, 0,
                        1, 1);
  };
  for (const int32_t stopAfter : {1, 32, 63}) {
    Listener listener;
    listener.stopAfter = stopAfter;
    EXPECT_EQ(kUserCancelled, run(true, &listener));
    EXPECT_EQ(stopAfter, static_cast<int32_t>(listener.calls.size()));
  }
  Listener switchedOff;  // in the callback, which spares the question
  switchedOff.switchesOff = true;
  switchedOff.stopAfter = 1;
  EXPECT_EQ(0, run(true, &switchedOff));
  EXPECT_EQ(1u, switchedOff.calls.size());
  EXPECT_EQ(0, run(true, &switchedOff));
  EXPECT_EQ(0, run(true, nullptr));
  Listener unwanted;
  EXPECT_EQ(0, run(false, &unwanted));
  MakeNoise(buffer, 256, 256);
  EXPECT_EQ(0, run(true, &unwanted));
  EXPECT_TRUE(unwanted.calls.empty() && switchedOff.calls.size() == 1);
}

}  // namespace
}  // namespace tessaline
