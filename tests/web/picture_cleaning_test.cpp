#include "web/picture_cleaning.h"

#include <gtest/gtest.h>

#include <cmath>
#include <new>
#include <random>

#include "image/result_codes.h"
#include "tests/support/failing_allocations.h"

namespace tessaline::web {
namespace {

constexpr PixelLayout kLayout = {240, 180, 2, 1, SampleFormat::kByte};
constexpr Part kPart = {20, 10, 180, 150};
constexpr Settings kBefore = {true, 60.0f, 1.0, 6.0f, 8.0f}, kAfter = {true, 60.0f, 1.1, 9.0f, 12.0f};

struct Results {
  std::vector<uint8_t> whole, part;
};

// As the page asks for it when a slider was moved.
int32_t Follow(PictureCleaning& picture, const Settings& settings, Results* results) try {
  int32_t code = picture.Decide(settings);
  if (code == kSuccess) code = picture.DrawLive(kPart, &results->part);
  if (code == kSuccess) code = picture.Restore({});
  if (code == kSuccess) code = picture.PrepareLive(kPart);
  if (code == kSuccess) results->whole.assign(picture.result(), picture.result() + kLayout.Bytes());
  return code;
} catch (const std::bad_alloc&) {
  return kOutOfMemory;
}

// A coarse print.
void OpenPrint(PictureCleaning* picture) {
  ASSERT_EQ(kSuccess, picture->Open(kLayout));
  for (int32_t i = 0; i < kLayout.width * kLayout.height; ++i) {
    const int32_t x = i % kLayout.width, y = i / kLayout.width;
    const bool isInk = std::cos(1.1 * (x + y)) + std::cos(1.1 * (x - y)) < std::sin(0.02 * x + 0.03 * y);
    for (int32_t s = 0; s < kLayout.samples; ++s) {
      picture->pixels()[kLayout.samples * i + s] = static_cast<uint8_t>(isInk ? 40 + 9 * s : 220);
    }
  }
  ASSERT_EQ(kSuccess, picture->Analyse({}));
}

TEST(PictureCleaning, WhereMemoryRanOutForAChangeItAndWhatWasBeforeAreMadeAsEver) {
  PictureCleaning usual;
  Results before, after, made;
  OpenPrint(&usual);
  ASSERT_EQ(kSuccess, Follow(usual, kBefore, &before));
  ASSERT_EQ(kSuccess, Follow(usual, kAfter, &after));
  ASSERT_NE(before.whole, after.whole);
  for (FailingAllocations failing; failing.Next();) {
    PictureCleaning picture;
    OpenPrint(&picture);
    ASSERT_EQ(kSuccess, picture.Decide(kBefore));
    const int32_t code = failing.During([&] { return Follow(picture, kAfter, &made); });
    ASSERT_EQ(failing.hasFailed() ? kOutOfMemory : kSuccess, code);
    ASSERT_EQ(kSuccess, Follow(picture, kAfter, &made));
    ASSERT_EQ(after.whole, made.whole);
    if (kIsWatched) continue;
    ASSERT_EQ(kSuccess, Follow(picture, kBefore, &made));
    ASSERT_EQ(before.whole, made.whole);
  }
}

// Notches along an axis, as everything else has them here, would take the level edge.
TEST(PictureCleaning, APartThatFollowsASliderIsCleanedOfTheOffsetsOfRowsAsTheWholeIs) {
  constexpr PixelLayout kSensor = {480, 400, 2, 1, SampleFormat::kByte};
  constexpr Part kSeen = {100, 60, 300, 280};
  PictureCleaning picture;
  ASSERT_EQ(kSuccess, picture.Open(kSensor));
  std::mt19937 random(7);
  for (int32_t y = 0; y < kSensor.height; ++y) {
    const double offset = static_cast<double>(random() % 13) - 6;
    for (int32_t x = 0; x < kSensor.width; ++x) {
      const double grain = static_cast<double>(random() % 9) - 4;
      uint8_t* const pixel = picture.pixels() + 2 * (y * kSensor.width + x);
      pixel[0] = static_cast<uint8_t>(90 + 40 * std::sin(0.013 * x + 0.02 * y) + (y > 200 ? 60 : 0) + offset +
                                      grain);
      pixel[1] = 77;
    }
  }
  ASSERT_EQ(kSuccess, picture.Analyse({}));
  ASSERT_EQ(kSuccess, picture.Decide(kBefore));
  std::vector<uint8_t> seen;
  ASSERT_EQ(kSuccess, picture.DrawLive(kSeen, &seen));
  ASSERT_EQ(kSuccess, picture.Restore({}));
  double taken = 0, apart = 0;
  for (int32_t y = 0; y < kSeen.height; ++y) {
    for (int32_t x = 0; x < kSeen.width; ++x) {
      const int32_t place = 2 * ((kSeen.y + y) * kSensor.width + kSeen.x + x);
      const uint8_t* const pixel = &seen[static_cast<size_t>(4 * (y * kSeen.width + x))];
      taken += std::pow(picture.pixels()[place] - picture.result()[place], 2);
      apart += std::pow(pixel[0] - picture.result()[place], 2);
      ASSERT_EQ(77, pixel[3]);
      ASSERT_TRUE(pixel[0] == pixel[1] && pixel[0] == pixel[2]);
    }
  }
  EXPECT_LT(apart, 0.1 * taken) << apart / taken;
}

}  // namespace
}  // namespace tessaline::web
