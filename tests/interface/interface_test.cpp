// The interface as its callers use it. The judge is the steps themselves, on a packed float picture.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <nlohmann/json.hpp>
#include <numbers>
#include <random>
#include <thread>

#include "include/tessaline/tessaline.hpp"
#include "platform/memory.h"
#include "restoration/decision.h"
#include "restoration/restoration.h"
#include "tests/support/failing_allocations.h"
#include "tests/support/sanitizers.h"

namespace tessaline {
namespace {

constexpr int32_t kWidth = 300, kHeight = 200;
constexpr uint8_t kUntouched = 0xA5;

// A slope with a pattern, 0..255; channel 3 is alpha.
int32_t LevelAt(int32_t x, int32_t y, int32_t c) {
  if (c == 3) return (x * 7 + y) % 256;
  return 60 + 20 * c + x / 4 +
         static_cast<int32_t>(30 * std::sin(2 * std::numbers::pi * (x / 3.7 + y / 9.0)));
}

struct Layout {
  int32_t format;
  double white;
  int32_t bytes;
  bool isPlanar;
  ptrdiff_t pixelStep, rowStep;  // samples
};
const Layout kLayouts[] = {
    {TESSALINE_UINT8, 255, 1, false, 5, 5 * kWidth + 7},        // gaps after pixels and rows
    {TESSALINE_UINT8, 255, 1, true, 1, -kWidth},                // bottom-up
    {TESSALINE_UINT16, 65535, 2, true, -kHeight - 1, 1},        // transposed and mirrored
    {TESSALINE_UINT16_EDITOR, 32768, 2, false, 4, 4 * kWidth},  // packed
    {TESSALINE_FLOAT32, 1, 4, true, 1, 4 * kWidth},             // a row of each channel in turn
};

class LaidOut {
 public:
  explicit LaidOut(const Layout& layout) : layout_(layout), bytes_(kWidth * kHeight * 40, kUntouched) {
    record_ = {kWidth,
               kHeight,
               layout.format,
               4,
               nullptr,
               {},
               layout.pixelStep * layout.bytes,
               layout.rowStep * layout.bytes};
    const bool isInTurn = layout.rowStep == 4 * kWidth;
    for (int32_t c = 0; c < 4; ++c) {
      record_.planes[c] =
          bytes_.data() + kWidth * kHeight * 4 * 2 +
          c * (layout.isPlanar ? (isInTurn ? kWidth : kWidth * kHeight * 3 / 2) : 1) * layout.bytes;
    }
    for (int32_t c = 0; c < 4; ++c) {
      for (int32_t y = 0; y < kHeight; ++y) {
        for (int32_t x = 0; x < kWidth; ++x) Set(x, y, c, LevelAt(x, y, c) / 255.0);
      }
    }
    if (!layout.isPlanar) {
      record_.pixels = record_.planes[0];
      std::fill(record_.planes, record_.planes + 4, nullptr);
    }
  }
  uint8_t* At(int32_t x, int32_t y, int32_t c) const {
    auto* const first = static_cast<uint8_t*>(record_.pixels ? record_.pixels : record_.planes[c]);
    return first + (record_.pixels ? c * layout_.bytes : 0) + x * record_.pixelStride + y * record_.rowStride;
  }
  double Get(int32_t x, int32_t y, int32_t c) const {
    if (layout_.format == TESSALINE_FLOAT32) return *reinterpret_cast<float*>(At(x, y, c));
    return (layout_.bytes == 1 ? *At(x, y, c) : *reinterpret_cast<uint16_t*>(At(x, y, c))) / layout_.white;
  }
  void Set(int32_t x, int32_t y, int32_t c, double value) {
    if (layout_.format == TESSALINE_FLOAT32)
      *reinterpret_cast<float*>(At(x, y, c)) = static_cast<float>(value);
    if (layout_.bytes == 1) *At(x, y, c) = static_cast<uint8_t>(std::lround(value * 255));
    if (layout_.bytes == 2) {
      *reinterpret_cast<uint16_t*>(At(x, y, c)) = static_cast<uint16_t>(std::lround(value * layout_.white));
    }
  }
  TargetPicture picture() const { return TargetPicture(record_); }
  TessalinePicture& record() { return record_; }
  const std::vector<uint8_t>& bytes() const { return bytes_; }

 private:
  Layout layout_;
  TessalinePicture record_ = {};
  std::vector<uint8_t> bytes_;
};

// The steps on three packed planes of floats.
std::vector<float> CleanedBySteps() {
  std::vector<float> planes(kWidth * kHeight * 3);
  PictureView view{kWidth, kHeight, SampleFormat::kFloat, 3, {}};
  for (int32_t c = 0; c < 3; ++c) {
    float* const plane = planes.data() + c * kWidth * kHeight;
    view.channel[c] = {reinterpret_cast<uint8_t*>(plane), 4, 4 * kWidth};
    for (int32_t i = 0; i < kWidth * kHeight; ++i) {
      plane[i] = static_cast<float>(LevelAt(i % kWidth, i / kWidth, c) / 255.0);
    }
  }
  Settings settings;
  settings.isAutomatic = true;
  Workspace workspace;
  Analysis analysis;
  Findings findings;
  tessaline::Mask mask;
  EXPECT_EQ(kSuccess, Analyse(view, workspace, {}, &analysis));
  EXPECT_EQ(kSuccess, DecideWhole(view, analysis, settings, workspace, &findings));
  EXPECT_EQ(kSuccess, Shape(findings, settings, &mask));
  EXPECT_GT(findings.seedCells, 0);
  EXPECT_EQ(kSuccess, Restore(view, view, findings, mask, workspace,
                              {Rounding::kNearest, analysis.chain, nullptr}, {}, {}));
  return planes;
}

TEST(Interface, FormatsAndStridesAgreeWithTheStepsAndLeaveTheRestAlone) {
  const std::vector<float> wanted = CleanedBySteps();
  Engine engine;
  for (const Layout& layout : kLayouts) {
    SCOPED_TRACE(&layout - kLayouts);
    const LaidOut source(layout);
    LaidOut inPlace(layout), other({layout.format, layout.white, layout.bytes, false, 6, 6 * kWidth});
    for (int32_t x = 0; x < kWidth; ++x) other.Set(x, 3, 3, 0);  // alpha comes along out of place
    engine.Clean(inPlace.picture(), StandardSettings(), TESSALINE_ROUND_TO_NEAREST);
    engine.Clean(source.picture(), other.picture(), StandardSettings(), TESSALINE_ROUND_TO_NEAREST);
    EXPECT_EQ(LaidOut(layout).bytes(), source.bytes());
    double worst = 0;
    for (int32_t i = 0; i < kWidth * kHeight * 3; ++i) {
      const int32_t c = i / (kWidth * kHeight), x = i % kWidth, y = i / kWidth % kHeight;
      worst = std::max(worst, std::fabs(inPlace.Get(x, y, c) - std::clamp<double>(wanted[i], 0, 1)));
      ASSERT_EQ(inPlace.Get(x, y, c), other.Get(x, y, c));
      ASSERT_EQ(source.Get(x, y, 3), other.Get(x, y, 3));
      std::memcpy(inPlace.At(x, y, c), source.At(x, y, c), static_cast<size_t>(layout.bytes));
    }
    EXPECT_LT(worst, layout.format == TESSALINE_FLOAT32 ? 2e-5 : 0.6 / layout.white + 1e-4);
    EXPECT_EQ(source.bytes(), inPlace.bytes());  // all but the samples of the three channels
  }
}

TEST(Interface, BadInputIsNamedAndChangesNothing) {
  struct Bad {
    int32_t code;
    const char* word;
    void (*spoil)(TessalinePicture*, TessalineSettings*);
  };
  using P = TessalinePicture*;
  using S = TessalineSettings*;
  const Bad bads[] = {
      {TESSALINE_ERROR_PICTURE, "0 x 200", [](P p, S) { p->width = 0; }},
      {TESSALINE_ERROR_PICTURE, "1000001", [](P p, S) { p->height = 1000001; }},
      {TESSALINE_ERROR_PICTURE, "channels", [](P p, S) { p->channels = 5; }},
      {TESSALINE_ERROR_PICTURE, "format 9", [](P p, S) { p->format = 9; }},
      {TESSALINE_ERROR_PICTURE, "overlap", [](P p, S) { p->rowStride = kWidth; }},
      {TESSALINE_ERROR_PICTURE, "multiple", [](P p, S) { p->pixelStride = 10; }},
      {TESSALINE_ERROR_PICTURE, "multiple", [](P p, S) { p->rowStride = PTRDIFF_MIN; }},
      {TESSALINE_ERROR_PICTURE, "multiples",
       [](P p, S) { p->planes[0] = static_cast<uint8_t*>(p->planes[0]) + 1; }},
      {TESSALINE_ERROR_PICTURE, "no memory", [](P p, S) { p->planes[3] = nullptr; }},
      {TESSALINE_ERROR_SAMPLES, "x 0, y 1",
       [](P p, S) { static_cast<float*>(p->planes[2])[4 * kWidth] = NAN; }},
      {TESSALINE_ERROR_SETTINGS, "acceptance", [](P, S s) { s->acceptance = 101; }},
      {TESSALINE_ERROR_SETTINGS, "sensitivity", [](P, S s) { s->sensitivity = NAN; }},
      {TESSALINE_ERROR_SETTINGS, "light is 3", [](P, S s) { s->light = 3; }},
      {TESSALINE_ERROR_SETTINGS, "lightCurve", [](P, S s) { s->lightCurveCount = 2; }},
      {TESSALINE_ERROR_SETTINGS, "recordBytes", [](P, S s) { s->recordBytes = 8; }},
  };
  Engine engine(1);
  const LaidOut before(kLayouts[4]);
  for (const Bad& bad : bads) {
    SCOPED_TRACE(bad.word);
    LaidOut laidOut(kLayouts[4]);
    TessalineSettings settings = StandardSettings();
    bad.spoil(&laidOut.record(), &settings);
    EXPECT_EQ(bad.code, tessaline_clean(engine.get(), &laidOut.record(), nullptr, &settings, 0));
    EXPECT_NE(nullptr, std::strstr(tessaline_error_text(engine.get()), bad.word))
        << tessaline_error_text(engine.get());
    if (bad.code == TESSALINE_ERROR_SAMPLES)
      *reinterpret_cast<float*>(laidOut.At(0, 1, 2)) = static_cast<float>(before.Get(0, 1, 2));
    EXPECT_EQ(before.bytes(), laidOut.bytes());
  }
  // Calls out of turn, of other pictures than the one before, and with what has no meaning.
  LaidOut picture(kLayouts[4]), narrow(kLayouts[4]);
  narrow.record().width -= 1;
  const float falling[] = {1, 0};
  TessalineSettings curved = StandardSettings();
  curved.lightCurve = falling, curved.lightCurveCount = 2;
  const auto refused = [&](int32_t code, const char* word, int32_t got) {
    EXPECT_EQ(code, got) << word;
    EXPECT_NE(nullptr, std::strstr(tessaline_error_text(engine.get()), word))
        << tessaline_error_text(engine.get());
    EXPECT_EQ(before.bytes(), picture.bytes());
  };
  TessalineEngine* const e = engine.get();
  TessalinePicture* const p = &picture.record();
  refused(TESSALINE_ERROR_ORDER, "tessaline_analyse first", tessaline_analyse_more(e, p));
  refused(TESSALINE_ERROR_ARGUMENT, "bits without a meaning",
          tessaline_clean(e, p, nullptr, nullptr, 1 << 30));
  refused(TESSALINE_ERROR_SETTINGS, "lightCurve", tessaline_clean(e, p, nullptr, &curved, 0));
  refused(TESSALINE_ERROR_PICTURE, "`from`", tessaline_clean(e, p, &narrow.record(), nullptr, 0));
  EXPECT_STRNE(tessaline_code_text(TESSALINE_ERROR_ORDER), tessaline_code_text(TESSALINE_ERROR_ORDER + 1000));
  EXPECT_STREQ(tessaline_code_text(-1), tessaline_code_text(TESSALINE_ERROR_BUSY + 1));
  EXPECT_EQ(TESSALINE_ERROR_ORDER, tessaline_decide(engine.get(), nullptr));
  EXPECT_EQ(TESSALINE_ERROR_ORDER, tessaline_apply(engine.get(), &before.picture().record(), nullptr, 0));
  EXPECT_EQ(nullptr, tessaline_findings_json(engine.get()));
}

// An engine that was refused memory in any call says so, has changed nothing, and works again.
#if !defined(__SANITIZE_THREAD__)  // takes minutes there, and shows nothing about threads
TEST(Interface, EveryAllocationThatFailsEndsInACodeAndChangesNothing) {
  const LaidOut original(kLayouts[0]);
  LaidOut cleaned(kLayouts[0]);
  Engine engine;
  engine.Clean(cleaned.picture());
  std::vector<uint8_t> cells(TESSALINE_MASK_BYTES);
  ASSERT_EQ(0, tessaline_get_mask(engine.get(), cells.data()));
  TessalineEngine* made = nullptr;
  for (FailingAllocations failing; failing.Next();) {
    const int32_t code = failing.During([&] { return tessaline_create(1, &made); });
    EXPECT_EQ(failing.hasFailed() ? TESSALINE_ERROR_NO_MEMORY : TESSALINE_OK, code);
    EXPECT_EQ(failing.hasFailed(), made == nullptr);
    tessaline_destroy(made);
  }
  using Call = std::function<int32_t(TessalineEngine*, TessalinePicture*)>;
  TessalineSettings fixed = StandardSettings();
  fixed.isAutomatic = 0;
  fixed.acceptance = 100;
  const Call calls[] = {
      [](TessalineEngine* e, TessalinePicture* p) { return tessaline_clean(e, p, nullptr, nullptr, 0); },
      [&](TessalineEngine* e, TessalinePicture* p) { return tessaline_clean(e, p, nullptr, &fixed, 0); },
      [](TessalineEngine* e, TessalinePicture* p) { return tessaline_analyse(e, p); },
      [](TessalineEngine* e, TessalinePicture* p) { return tessaline_analyse_more(e, p); },
      [](TessalineEngine* e, TessalinePicture*) { return tessaline_decide(e, nullptr); },
      [&](TessalineEngine* e, TessalinePicture*) { return tessaline_set_mask(e, cells.data()); },
      [](TessalineEngine* e, TessalinePicture* p) { return tessaline_apply(e, p, nullptr, 0); },
      [](TessalineEngine* e, TessalinePicture*) { return tessaline_clean(e, nullptr, nullptr, nullptr, 0); }};
  const auto prepare = [&](LaidOut* picture) {
    ASSERT_EQ(0, tessaline_analyse(engine.get(), &picture->record()));
    ASSERT_EQ(0, tessaline_set_mask(engine.get(), cells.data()));
  };
  for (const Call& call : calls) {
    SCOPED_TRACE(&call - calls);
    LaidOut finished(kLayouts[0]);
    prepare(&finished);
    const int32_t usual = call(engine.get(), &finished.record());
    prepare(&finished);  // once: a call that fails leaves the engine as it was, too
    for (FailingAllocations failing; failing.Next();) {
      LaidOut picture(kLayouts[0]);
      ASSERT_EQ(0, tessaline_release_memory(engine.get()));  // or the call takes what there is
      const int32_t code = failing.During([&] { return call(engine.get(), &picture.record()); });
      ASSERT_TRUE(code == usual || (failing.hasFailed() && code == TESSALINE_ERROR_NO_MEMORY)) << code;
      ASSERT_EQ(code == TESSALINE_OK ? finished.bytes() : original.bytes(), picture.bytes());
    }
    LaidOut again(kLayouts[0]);
    engine.Clean(again.picture());
    ASSERT_EQ(cleaned.bytes(), again.bytes());
  }
}
#endif

TEST(Interface, StepsMaskAndFindingsTellTheSameAsAllInOneAndCancellingLeavesAllAsItWas) {
  LaidOut whole(kLayouts[0]), stepped(kLayouts[0]), frozen(kLayouts[0]), masked(kLayouts[0]),
      told(kLayouts[0]);
  Engine engine, another(2);
  engine.Clean(whole.picture());
  another.Analyse(stepped.picture());
  another.Decide();
  std::vector<uint8_t> cells(TESSALINE_MASK_BYTES);
  const std::span<uint8_t, TESSALINE_MASK_BYTES> mask(cells.data(), cells.size());
  another.GetMask(mask);
  another.Apply(stepped.picture(), TESSALINE_PICTURE_OF_ANALYSIS);
  another.Apply(frozen.picture());
  EXPECT_EQ(whole.bytes(), stepped.bytes());

  const std::string json(engine.Json());
  EXPECT_EQ(json, another.Json());
  const auto report = nlohmann::json::parse(json);
  const TessalineFindings findings = engine.Findings();
  EXPECT_EQ(findings.patternCells, report["patternCells"]);
  ASSERT_EQ(findings.notchCount, report["notches"].size());
  ASSERT_EQ(findings.peakCount, report["peaks"].size());
  EXPECT_EQ(engine.Notches().at(0).periodPixels, report["notches"][0]["periodPixels"]);
  EXPECT_EQ(engine.Peaks().at(0).height, report["peaks"][0]["height"]);
  const auto notches = engine.Notches();
  EXPECT_TRUE(std::any_of(notches.begin(), notches.end(), [](const TessalineNotch& notch) {
    return std::fabs(notch.periodPixels - 1 / std::hypot(1 / 3.7, 1 / 9.0)) < 0.02 &&
           std::fabs(notch.angleDegrees - 157.65) < 0.5;
  }));
  EXPECT_TRUE(report["peaks"][0]["used"] && report["threshold"].is_null());

  // Cancelled in whatever report, nothing has changed; what another engine's mask takes out is the same.
  for (int32_t allowed = 0;; allowed += kIsWatched ? 4 : 1) {
    int32_t left = allowed;
    engine.SetProgress([&](double) { return left-- == 0; });
    const int32_t code = tessaline_clean(engine.get(), &told.record(), nullptr, nullptr, 0);
    if (code == TESSALINE_OK) break;
    EXPECT_EQ(TESSALINE_ERROR_CANCELLED, code);
    EXPECT_EQ(LaidOut(kLayouts[0]).bytes(), told.bytes());
  }
  EXPECT_EQ(whole.bytes(), told.bytes());
  engine.SetProgress([&](double) -> bool {
    EXPECT_EQ(TESSALINE_ERROR_BUSY, tessaline_set_mask(engine.get(), cells.data()));
    throw std::domain_error("out of the progress");
  });
  engine.SetMask(mask);  // as it stands, not with the decision's polish
  another.SetMask(mask);
  LaidOut byMask(kLayouts[0]);
  another.Apply(byMask.picture());
  EXPECT_NE(frozen.bytes(), byMask.bytes());
  EXPECT_THROW(engine.Apply(masked.picture()), std::domain_error);
  EXPECT_EQ(LaidOut(kLayouts[0]).bytes(), masked.bytes());
  engine.SetProgress(nullptr);
  engine.Apply(masked.picture());
  EXPECT_EQ(byMask.bytes(), masked.bytes());
  engine.SetMask(std::array<uint8_t, TESSALINE_MASK_BYTES>{});
  engine.Apply(masked.picture());
  EXPECT_EQ(byMask.bytes(), masked.bytes());
}

TEST(LargePictures, AreDoneInTilesAndUntouchedWhenCancelled) {
  constexpr int32_t kLong = 7600, kShort = 120;
  std::vector<uint8_t> samples;
  for (int32_t i = 0; i < kLong * kShort; ++i) {
    samples.push_back(static_cast<uint8_t>(LevelAt(i % kLong % 400, i / kLong, 0)));
  }
  const std::vector<uint8_t> before = samples;
  const TargetPicture picture(std::span<uint8_t>(samples), kLong, kShort, 1);
  TessalineSettings settings = StandardSettings();
  settings.isAutomatic = 1;
  Engine engine(1);
  double most = 0.0;
  engine.SetProgress([&](double part) {
    most = part;
    return part > 0.9;
  });
  EXPECT_THROW(engine.Clean(picture, settings), Error);
  EXPECT_GT(most, 0.9);
  EXPECT_EQ(before, samples);
  engine.SetProgress(nullptr);
  engine.Clean(picture, settings);
  double left = 0.0, was = 0.0;  // from pixel to pixel
  for (int32_t i = 1; i < kLong * kShort; ++i) {
    left += std::abs(samples[i] - samples[i - 1]);
    was += std::abs(before[i] - before[i - 1]);
  }
  EXPECT_LT(left, 0.2 * was);
}

// Offsets of rows are known in eight tiles and more; one such picture has six.
TEST(FurtherPictures, TellByTheirTilesToo) {
  constexpr int32_t kColumns = 192, kRows = 256;
  TessalineSettings settings = StandardSettings();
  settings.isAutomatic = 1;
  std::mt19937 random(3);
  std::normal_distribution<double> normal(0.0, 3.0);
  std::vector<uint8_t> samples;
  for (int32_t y = 0; y < kRows; ++y) {
    const double offset = normal(random);
    for (int32_t x = 0; x < kColumns; ++x) {
      samples.push_back(
          static_cast<uint8_t>(128.5 + 30 * std::sin(x / 31.0 + y / 17.0) + offset + normal(random) / 2));
    }
  }
  const TargetPicture picture(std::span<uint8_t>(samples), kColumns, kRows, 1);
  const auto isKnown = [](const Engine& engine) {
    const std::vector<TessalinePeak> peaks = engine.Peaks();
    return std::any_of(peaks.begin(), peaks.end(),
                       [](const TessalinePeak& peak) { return peak.isLicensed != 0; });
  };
  Engine engine(1);
  engine.Analyse(picture);
  engine.Decide(settings);
  EXPECT_FALSE(isKnown(engine));
  engine.AnalyseMore(picture);
  engine.Decide(settings);
  EXPECT_TRUE(isKnown(engine));
}

TEST(ParallelHandles, GiveTheSameBitsAsOneAfterTheOther) {
  LaidOut one(kLayouts[0]), two(kLayouts[2]), first(kLayouts[0]), second(kLayouts[2]);
  const auto clean = [](const LaidOut& picture) {
    Engine engine(2);
    engine.Analyse(picture.picture());
    engine.AnalyseMore(picture.picture());
    engine.Decide();
    engine.Apply(picture.picture());
  };
  clean(one);
  clean(two);
  std::thread beside(clean, std::cref(first));
  clean(second);
  beside.join();
  EXPECT_EQ(one.bytes(), first.bytes());
  EXPECT_EQ(two.bytes(), second.bytes());
  EXPECT_NE(LaidOut(kLayouts[0]).bytes(), first.bytes());
}

}  // namespace
}  // namespace tessaline
