// The operation by the program gegl, and in a graph of GEGL's.
#include <gegl-plugin.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "tests/support/failing_allocations.h"
#include "tests/support/module_allocations.h"

namespace {

using Floats = std::vector<float>;
std::string message;  // the last one

struct GeglRuns : ::testing::Environment {
  void SetUp() override {
    setenv("GEGL_PATH", TESSALINE_GEGL_PATH, 1);
    const auto keep = [](const char*, GLogLevelFlags, const char* text, gpointer) { message = text; };
    g_log_set_default_handler(keep, nullptr);
    gegl_init(nullptr, nullptr);
  }
};
[[maybe_unused]] const auto* const kGegl = ::testing::AddGlobalTestEnvironment(new GeglRuns);

constexpr char kColours[] = "R'G'B'A float";

// A node's picture, computed in two parts.
Floats Read(GeglNode* node, const char* format = kColours) {
  const GeglRectangle all = gegl_node_get_bounding_box(node);
  const int row = all.width * babl_format_get_n_components(babl_format(format)), half = all.height / 2;
  Floats values(size_t(all.height) * row);
  for (const int y : {0, half}) {
    const GeglRectangle part = {all.x, all.y + y, all.width, y == 0 ? half : all.height - half};
    gegl_node_blit(node, 1.0, &part, babl_format(format), &values.data()[y * row], row * 4,
                   GEGL_BLIT_DEFAULT);
  }
  return values;
}

Floats Load(const std::string& path) {
  GeglNode* const load = gegl_node_new();
  gegl_node_set(load, "operation", "gegl:load", "path", path.c_str(), nullptr);
  const Floats values = Read(load);
  g_object_unref(load);
  return values;
}

// A picture of `format`, and the operation on it.
struct Graph {
  Graph(const Floats& values, const GeglRectangle& all, const char* format, const char* from = kColours)
      : input(gegl_buffer_new(&all, babl_format(format))) {
    gegl_buffer_set(input, &all, 0, babl_format(from), values.data(), GEGL_AUTO_ROWSTRIDE);
    gegl_node_set(source, "buffer", input, nullptr);
    gegl_node_link(source, operation);
    const auto told = +[](GeglNode*, double part, double* first) { *first = std::min(*first, part); };
    g_signal_connect(operation, "progress", G_CALLBACK(told), &begin);
  }
  ~Graph() {
    g_object_unref(root);
    g_object_unref(input);
  }
  // Afterwards `begin` is 1 where nothing was computed, and 0.5 or more where nothing was analysed.
  Floats After(const char* format = kColours) {
    begin = 1.0;
    return Read(operation, format);
  }

  GeglNode* const root = gegl_node_new();
  GeglNode* const source = gegl_node_new_child(root, "operation", "gegl:buffer-source", nullptr);
  GeglNode* const operation = gegl_node_new_child(root, "operation", "tessaline:remove-pattern", nullptr);
  GeglBuffer* const input;
  double begin = 1.0;
};

// In levels of 255, of what shows.
double Difference(const Floats& a, const Floats& b) {
  double largest = a.size() == b.size() ? 0.0 : HUGE_VAL;
  for (size_t i = 0; i < std::min(a.size(), b.size()); ++i) {
    const float shown = std::clamp(a[i], 0.0f, 1.0f), other = std::clamp(b[i], 0.0f, 1.0f);
    largest = std::max(largest, 255.0 * std::abs(shown - other));
  }
  return largest;
}

const std::string kNewsprint = TESSALINE_SAMPLES "newsprint.png", kRosette = TESSALINE_SAMPLES "rosette.png";
constexpr GeglRectangle kArea = {-7, 11, 768, 548};

// The newsprint with alpha that rises from left to right.
Floats Newsprint() {
  Floats values = Load(kNewsprint);
  for (size_t i = 3; i < values.size(); i += 4) values[i] = 0.25f + 0.75f * float(i / 4 % 768) / 768;
  return values;
}

TEST(RemovePattern, ByTheProgramGivesWhatOursGives) {
  const std::string name = ::testing::TempDir() + "tessaline-gegl-" + std::to_string(getpid());
  const std::string ours = name + "-1.png", theirs = name + "-2.png", deep = name + "-3.png",
                    bright = name + ".exr";
  const auto run = [](const std::string& command) {
    ASSERT_EQ(std::system((command + " >/dev/null 2>&1").c_str()), 0) << command;
  };
  const auto difference = [&](std::string input, std::string wishes, std::string reference,
                              std::string ourWishes) {
    run(TESSALINE_PROGRAM " -f " + ourWishes + " " + reference + " " + ours);
    run(TESSALINE_GEGL_PROGRAM " " + input + " -- tessaline:remove-pattern " + wishes + theirs);
    return Difference(Load(ours), Load(theirs));
  };
  EXPECT_EQ(difference(kNewsprint, "gegl:png-save bitdepth=8 path=", kNewsprint, "-a auto"), 0.0);
  EXPECT_EQ(
      difference(kRosette, "automatic=false acceptance=97 notch-radius=4 gegl:png-save bitdepth=8 path=",
                 kRosette, "-a 97 --notch-radius 4"),
      0.0);
  // With levels between those of 8 bits. babl picks its conversions by how fast they were, so their last
  // digits vary.
  for (const std::string& made : {deep, bright}) {
    run(TESSALINE_GEGL_PROGRAM " " + kRosette + " -o " + made + " -- gegl:gaussian-blur std-dev-x=0.4");
    EXPECT_LE(difference(made, "light=linear gegl:png-save path=", deep, "-a auto --light linear"), 0.5)
        << made;
  }
  for (const std::string& file : {ours, theirs, deep, bright}) std::remove(file.c_str());
}

TEST(RemovePattern, TakesEveryFormatAndKeepsItsAlpha) {
  for (const std::vector<const char*>& alike :
       std::vector<std::vector<const char*>>{{"Y'A u8", "Y u16", "Y' float"},
                                             {"R'G'B'A u8", "R'G'B'A u16", "RGBA float", "RaGaBaA float",
                                              "R'G'B'A half", "CIE Lab alpha float"}}) {
    const Floats wanted = Graph(Newsprint(), kArea, alike[0]).After("Y' float");
    for (const char* format : alike) {
      Graph graph(Newsprint(), kArea, format);
      EXPECT_LE(Difference(graph.After("Y' float"), wanted), 1.5) << format;
      GeglOperation* const operation = gegl_node_get_gegl_operation(graph.operation);
      EXPECT_EQ(gegl_operation_get_format(operation, "output"), babl_format(format));
      const Floats before = Read(graph.source), after = graph.After();
      for (size_t i = 3; i < after.size(); i += 4) ASSERT_EQ(after[i], before[i]) << format << " " << i;
    }
  }
}

TEST(RemovePattern, ComputesOnceForAllPartsAndOnlyWhatAValueChanges) {
  Graph graph(Newsprint(), kArea, "R'G'B'A u8");
  const Floats before = Read(graph.source), after = graph.After();
  EXPECT_LT(graph.begin, 0.5);
  gegl_node_set(graph.operation, "show", 1, nullptr);
  const Floats taken = graph.After();
  EXPECT_EQ(graph.begin, 1.0);
  for (size_t i = 0; i < taken.size(); ++i) {
    const float lost = std::clamp(128 / 255.0f + before[i] - after[i], 0.0f, 1.0f);
    ASSERT_NEAR(taken[i], i % 4 == 3 ? before[i] : lost, 1e-5) << i;
  }
  gegl_node_set(graph.operation, "show", 0, "notch-radius", 3.0, nullptr);
  EXPECT_NE(graph.After(), after);
  EXPECT_TRUE(graph.begin >= 0.5 && graph.begin < 1.0) << graph.begin;
  const GeglRectangle corner = {0, 20, 40, 40};
  gegl_buffer_set(graph.input, &corner, 0, babl_format(kColours), Floats(6400, 1.0f).data(), 0);
  graph.After();
  EXPECT_LT(graph.begin, 0.5);
}

TEST(RemovePattern, BridgesWhatIsNoNumber) {
  const Floats wanted = Graph(Newsprint(), kArea, kColours).After();
  Floats holes = Newsprint();  // a stripe in red, and a block in all colours
  std::vector<bool> isHole(holes.size());
  for (size_t i = 0, x = 0; i < holes.size(); x = ++i / 4 % 768) {
    isHole[i] = (i % 4 == 0 && x / 3 == 100) || (i % 4 < 3 && x < 20 && i / 4 / 768 < 20);
    if (isHole[i]) holes[i] = i % 8 == 0 ? NAN : i % 8 == 4 ? -HUGE_VALF : 3e6f;
  }
  const Floats cleaned = Graph(holes, kArea, kColours).After();
  double sum = 0.0;
  for (size_t i = 0; i < cleaned.size(); ++i) {
    if (!isHole[i]) sum += std::abs(cleaned[i] - wanted[i]) * 255.0 / double(cleaned.size());
    ASSERT_TRUE(!isHole[i] || std::memcmp(&cleaned[i], &holes[i], sizeof(float)) == 0) << i;
  }
  EXPECT_LT(sum, 0.25);
}

TEST(RemovePattern, PassesOnWhatHasNoPatternOrNoEdges) {
  Floats smooth(200 * 150 * 4);
  for (size_t i = 0; i < smooth.size(); ++i) smooth[i] = i % 997 == 0 ? NAN : std::sqrt(float(i)) / 400;
  Graph graph(smooth, {-7, 11, 200, 150}, "RGBA float", "RGBA float");
  EXPECT_EQ(std::memcmp(graph.After("RGBA float").data(), smooth.data(), smooth.size() * sizeof(float)), 0);
  gegl_node_set(graph.operation, "show", 1, nullptr);
  EXPECT_LE(Difference(graph.After("R~G~B~ float"), Floats(200 * 150 * 3, 0.5f)), 0.01);

  GeglNode* const plane = gegl_node_new_child(graph.root, "operation", "gegl:checkerboard", nullptr);
  GeglNode* const crop = gegl_node_new_child(graph.root, "operation", "gegl:crop", "width", 90.0, nullptr);
  gegl_node_set(crop, "height", 90.0, nullptr);
  gegl_node_link(plane, crop);
  const Floats wanted = Read(crop);
  gegl_node_link_many(plane, graph.operation, crop, nullptr);
  EXPECT_EQ(Read(crop), wanted);
  EXPECT_NE(message.find("no edges"), std::string::npos) << message;
  EXPECT_TRUE(Graph({}, {0, 0, 0, 5}, kColours).After().empty());
}

// The module's own; what GEGL does without memory is its own affair.
TEST(RemovePattern, WithoutMemoryThePictureIsPassedOnAsItIs) {
  constexpr GeglRectangle kPart = {0, 0, 768, 100};
  Floats part = Newsprint();
  part.resize(size_t{768} * 100 * 4);
  Graph graph(part, kPart, "R'G'B'A u8");
  const Floats before = Read(graph.source), wanted = graph.After();
  ASSERT_NE(before, wanted);
  ASSERT_TRUE(tessaline::FailAllocationsOfModule("/gegl-0.4/tessaline.so"));
  for (const int show : {0, 1}) {
    for (tessaline::FailingAllocations failing; failing.Next();) {
      gegl_node_set(graph.operation, "show", show, "notch-radius", 5.0, nullptr);
      gegl_node_set(graph.operation, "notch-radius", 6.0, nullptr);  // forgets what was computed
      message.clear();
      const Floats after = failing.During([&] { return graph.After(); });
      if (!failing.hasFailed()) continue;
      if (!message.empty()) {
        EXPECT_NE(message.find("is left as it is"), std::string::npos) << message;
        EXPECT_EQ(after, before);
      } else if (show == 0) {
        EXPECT_EQ(after, wanted);
      }
    }
  }
  EXPECT_EQ(Graph(part, kPart, "R'G'B'A u8").After(), wanted);
}

}  // namespace
