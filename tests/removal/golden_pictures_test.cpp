// Three pictures with every product of a correct run, computed independently (tests/data/*/case.json tells
// how).
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "buffers/buffer_table.h"
#include "removal/padding_fill.h"
#include "removal/removal_run.h"
#include "tests/support/picture_files.h"

namespace tessaline {
namespace {

struct GoldenCase {
  const char* name;
  FilterParameters parameters;
  int seedCells;
  int resultTolerance;
  std::vector<float> meanLevels;  // of each channel's plane before the padding fill, first pass, then second
};

// The numbers of the case.json files.
const GoldenCase kCases[] = {
    {"lines-grey8", {98, 3.5f, 16}, 2, 1, {9355.0302734375f, 11614.7412109375f}},
    {"rosette-rgb8",
     {98, 6, 8},
     34,
     1,
     {9110.6259765625f, 9827.044921875f, 11315.0595703125f, 11951.9306640625f, 12992.9921875f,
      13249.79296875f}},
    {"weave-rgb16",
     {98, 6, 2.72f},
     34,
     4,
     {5597.8056640625f, 28874.919921875f, 30829.611328125f, 32338.314453125f, 23054.958984375f,
      17931.5234375f}},
};

struct Products {
  Picture gray16, enhanced, seeds, mask;
  int32_t seedCells = 0;
  std::vector<float> meanLevels;
};

int32_t FindSlot(const char* name) {
  for (int32_t slot = 1; slot < kBufferSlots; ++slot) {
    if (BufferTable[slot].data != nullptr && std::strcmp(BufferTable[slot].name, name) == 0) return slot;
  }
  return 0;
}

RemovalContext CollectInto(Products* products) {
  RemovalContext context;
  context.user = products;
  context.inspect = [](void* user, const RemovalFindings& findings) {
    auto* const p = static_cast<Products*>(user);
    p->gray16 = PictureOf(findings.spectrum.rawGray16Slot);
    p->enhanced = PictureOf(findings.spectrum.gray16Slot);
    p->seeds = PictureOf(findings.seedSlot);
    p->mask = PictureOf(findings.maskSlot);
    p->seedCells = findings.seedCells;
    return true;
  };
  context.enterStage = [](void* user, RemovalStage stage) {
    if (stage != RemovalStage::kPaddingFill) return;
    static_cast<Products*>(user)->meanLevels.push_back(MeanLevel(FindSlot("FFTbuf")));
  };
  return context;
}

class GoldenPictures : public testing::TestWithParam<GoldenCase> {};

TEST_P(GoldenPictures, EveryStageAgrees) {
  const GoldenCase& golden = GetParam();
  const auto read = [&](const char* file) { return ReadPicture(std::string(golden.name) + "/" + file); };
  ResetBufferTable();
  const int32_t slot = MakeBuffer(read("input.png"));
  Products products;
  FilterParameters parameters = golden.parameters;
  ASSERT_EQ(0, RunRemoval(slot, &parameters, nullptr, true, CollectInto(&products)));

  ASSERT_EQ(golden.meanLevels.size(), products.meanLevels.size());
  for (size_t i = 0; i < golden.meanLevels.size(); ++i) {
    EXPECT_NEAR(golden.meanLevels[i], products.meanLevels[i], 1e-4 * golden.meanLevels[i]) << "plane " << i;
  }
  EXPECT_LE(LargestDifference(read("gray16.png"), products.gray16), 1);
  EXPECT_LE(LargestDifference(read("enhanced.png"), products.enhanced), 2);
  EXPECT_EQ(LargestDifference(read("seed.png"), products.seeds), 0);
  EXPECT_EQ(golden.seedCells, products.seedCells);
  EXPECT_LE(LargestDifference(read("mask512.png"), products.mask), 1);
  EXPECT_LE(LargestDifference(read("result.png"), PictureOf(slot)), golden.resultTolerance);
  ReleaseBuffer(slot);
  EXPECT_EQ(0, liveBufferCount);
}

INSTANTIATE_TEST_SUITE_P(All, GoldenPictures, testing::ValuesIn(kCases), [](const auto& test) {
  std::string name = test.param.name;
  name.erase(name.find('-'), 1);
  return name;
});

}  // namespace
}  // namespace tessaline
