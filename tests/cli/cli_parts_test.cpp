// Parts of the program that are easier to judge by themselves.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <unistd.h>
#include <cstdlib>
#include <regex>

#include <algorithm>
#include <atomic>
#include <nlohmann/json.hpp>
#include <vector>

#include "buffers/buffer_table.h"
#include "cli/engine_run.h"
#include "cli/iptc.h"
#include "cli/machine_share.h"
#include "cli/refusal.h"
#include "cli/tiff_tags.h"
#include "platform/memory.h"
#include "tests/cli/pictures.h"
#include "tests/cli/program.h"

namespace tessaline::cli {
namespace {

TEST(Memory, IsTheLeastThatSystemAndGroupsLeave) {
  const TemporaryFolder root;
  const auto write = [&](const std::string& name, const std::string& text) {
    std::filesystem::create_directories((root.path() / name).parent_path());
    WriteWholeFile(root / name, text);
  };
  write("proc/meminfo", "MemTotal: 9000 kB\nMemAvailable:  900 kB\n");
  EXPECT_EQ(900u << 10, AvailableMemory(root.path()));
  write("proc/self/cgroup", "4:memory:/job/7\n2:cpu:/\n0::/slice/unit\n");
  EXPECT_EQ(900u << 10, AvailableMemory(root.path()));
  write("sys/fs/cgroup/slice/memory.max", "700000\n");
  write("sys/fs/cgroup/slice/memory.current", "300000\n");
  write("sys/fs/cgroup/slice/memory.stat", "anon 5\ninactive_file 100000\n");
  write("sys/fs/cgroup/slice/unit/memory.max", "max\n");
  EXPECT_EQ(500000u, AvailableMemory(root.path()));
  write("sys/fs/cgroup/memory/job/7/memory.limit_in_bytes", "400000\n");
  write("sys/fs/cgroup/memory/job/7/memory.usage_in_bytes", "500000\n");
  EXPECT_EQ(0u, AvailableMemory(root.path()));
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST(Memory, NeededIsWhatARunTakesAndNotAThirdMore) {
  const TemporaryFolder folder;
  Save(DrawScreen(3, 0, 8, 2200, 1500), folder / "in.png");
  const PageKind kind = {2200, 1500, ColourModel::kRgb};
  for (const auto& [format, output] :
       {std::pair(FileFormat::kPng, "o.png"), std::pair(FileFormat::kTiff, "o.tif"),
        std::pair(FileFormat::kJpeg, "o.jpg")}) {
    for (const char* acceptance : {"auto", kFindingAcceptance}) {
      const Ended ended = RunProgram(
          {"--threads", "2", "-a", acceptance, "-f", "--report", "-", folder / "in.png", folder / output});
      const double peak = nlohmann::json::parse(ended.out)["pictures"][0]["peakMemoryBytes"];
      const auto needed = static_cast<double>(MemoryNeeded(kind, {*acceptance == 'a', 2, format}));
      EXPECT_GT(needed / peak, 1) << output << acceptance;
      EXPECT_LT(needed / peak, 1.3) << output << acceptance;
    }
  }
}
#endif

TEST(SharedThreads, AreOnesOwnWhenOthersWorkAndAllWhenAlone) {
  SharedThreads threads(3);
  const auto pool = MakeSharedPool({&threads, 0}, uint64_t{100} << 20, 3);
  ASSERT_EQ(3, pool->threads());
  for (int place = 0; place < 3; ++place) threads.Begin(place);
  EXPECT_EQ(0, threads.Borrow(0, 8));
  threads.End(1);
  EXPECT_EQ(1, threads.Borrow(2, 8));
  threads.End(2);  // killed, with what it had borrowed
  std::vector<std::atomic<int>> times(1000);
  std::atomic<int> most{0}, working{0};
  EXPECT_FALSE(ForEachTask(
      *pool, 1000,
      [&](int32_t index, int32_t worker) {
        ++times[static_cast<size_t>(index)];
        most = std::max<int>(most, ++working);
        EXPECT_LT(worker, 3);
        --working;
      },
      [](int32_t) { return false; }));
  EXPECT_TRUE(std::all_of(times.begin(), times.end(), [](const auto& count) { return count == 1; }));
  EXPECT_LE(most, 3);
  EXPECT_TRUE(ForEachTask(
      *pool, 1000, [](int32_t, int32_t) {}, [](int32_t finished) { return finished > 5; }));
  EXPECT_EQ(2, threads.Borrow(0, 8));
}

TEST(Pages, TellEveryOptionOfTheHelpAndBashCompletesOptionsAndValues) {
  const TemporaryFolder folder;
  const std::string man = RunProgram({"pages", "man"}).out, zsh = RunProgram({"pages", "zsh"}).out;
  const std::string fish = RunProgram({"pages", "fish"}).out;
  for (const std::vector<std::string>& help : {std::vector<std::string>{"--help"}, {"stream", "--help"}}) {
    const std::string text = RunProgram(help).out;
    const std::regex option("\\n  (?:-., ?)?(?:-.,)?(--[a-z-]+)");
    int options = 0;
    for (std::sregex_iterator at(text.begin(), text.end(), option), end; at != end; ++at, ++options) {
      const std::string name = (*at)[1];
      EXPECT_NE(std::string::npos, zsh.find("'" + name + "[")) << name;
      EXPECT_NE(std::string::npos, fish.find(" -l " + name.substr(2) + " ")) << name;
      EXPECT_NE(std::string::npos, man.find(std::regex_replace(name, std::regex("-"), "\\-"))) << name;
    }
    EXPECT_GT(options, 15);
  }
  WriteWholeFile(folder / "pages", RunProgram({"pages", "bash"}).out);
  const auto complete = [&](const std::string& line) {
    const std::string script =
        ". '" + (folder / "pages") + "'; COMP_WORDS=(" + line +
        "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _tessaline; echo \"${COMPREPLY[*]}\" >'" +
        (folder / "out") + "'";
    WriteWholeFile(folder / "script", script);
    EXPECT_EQ(0, std::system(("bash '" + (folder / "script") + "'").c_str()));
    return ReadWholeFile(folder / "out");
  };
  EXPECT_EQ("--acceptance\n", complete("tessaline --acc"));
  EXPECT_EQ("linear\n", complete("tessaline -a auto --light l"));
  EXPECT_EQ("rgb24 rgb48le\n", complete("tessaline stream --pix-fmt rgb"));
}

}  // namespace
}  // namespace tessaline::cli
