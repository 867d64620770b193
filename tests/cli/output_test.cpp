// Where results go: whole or not at all, never over anything unasked, never over the input.
#include <fcntl.h>
#include <glib.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "tests/cli/pictures.h"
#include "tests/cli/program.h"

namespace tessaline::cli {
namespace {

class Outputs : public testing::Test {
 protected:
  Outputs() { Save(DrawScreen(1, 0, 8), folder / "in.png"); }

  void ExpectCannotWrite(const std::vector<std::string>& arguments, const std::string& words) {
    const std::string before = ReadWholeFile(folder / "in.png");
    const std::vector<std::string> names = folder.Names();
    const Ended ended = RunProgram(arguments);
    EXPECT_EQ(7, ended.status) << ended.err;
    EXPECT_EQ(1, ended.ErrorLines()) << ended.err;
    EXPECT_NE(std::string::npos, ended.err.find(words)) << ended.err;
    EXPECT_EQ(before, ReadWholeFile(folder / "in.png"));
    EXPECT_EQ(names, folder.Names());
  }

  // A picture large enough to be caught in the middle.
  void SaveLarge(const std::string& name) { Save(DrawScreen(3, 0, 8, 1700, 1200), folder / name); }

  bool HasTemporary() const {
    for (const std::string& name : folder.Names()) {
      if (name.find(".tessaline-") != std::string::npos) return true;
    }
    return false;
  }

  TemporaryFolder folder;
};

TEST_F(Outputs, ExistingFileStaysUnlessForced) {
  WriteWholeFile(folder / "out.png", "precious");
  ASSERT_EQ(0, chmod((folder / "out.png").c_str(), 0640));
  ExpectCannotWrite({"-a", "97", folder / "in.png", folder / "out.png"}, "-f");
  EXPECT_EQ("precious", ReadWholeFile(folder / "out.png"));
  ASSERT_EQ(0, RunProgram({"-f", "-a", "97", folder / "in.png", folder / "out.png"}).status);
  EXPECT_LT(ScreenAmplitude(Load(folder / "out.png"), 0), kGone);
  struct stat status = {};
  stat((folder / "out.png").c_str(), &status);
  EXPECT_EQ(0640u, status.st_mode & 07777);
}

TEST_F(Outputs, InputIsNeverAnOutputWhateverItsName) {
  std::filesystem::create_hard_link(folder / "in.png", folder / "hard.png");
  std::filesystem::create_symlink("in.png", folder / "soft.png");
  for (const std::string& name : std::vector<std::string>{
           "in.png", "hard.png", "soft.png", "../" + folder.path().filename().string() + "/in.png"}) {
    ExpectCannotWrite({"-f", "-a", "97", folder / "in.png", folder / name}, "input");
  }
  ExpectCannotWrite({"-f", folder / "in.png", folder / "out.png", "--report", folder / "hard.png"}, "input");
  ExpectCannotWrite({"-f", folder / "in.png", "--output-dir", folder.path().string()}, "input");
}

TEST_F(Outputs, WhatCannotBeWrittenLeavesNothing) {
  ExpectCannotWrite({folder / "in.png", folder / "no/such/out.png"}, "does not exist");
  ExpectCannotWrite({folder / "in.png", folder / "in.png/out.png"}, "");
  ExpectCannotWrite({folder / "in.png", "/proc/out.png"}, "cannot be written");
  std::filesystem::create_symlink("no/such.png", folder / "nowhere.png");
  ExpectCannotWrite({"-f", folder / "in.png", folder / "nowhere.png"}, "leads nowhere");
  // Neither picture nor mask appears when the report cannot be written.
  ExpectCannotWrite({"-a", "97", folder / "in.png", folder / "out.png", "--mask", folder / "m.png",
                     "--report", "/dev/full"},
                    "/dev/full");
  std::filesystem::create_symlink("/dev/full", folder / "full.png");
  ExpectCannotWrite({"-a", "97", folder / "in.png", folder / "full.png"}, "full.png");
  for (const char* name : {"out.png", "out.tif", "out.jpg", "out.webp", "out.jp2", "out.jxl", "out.pgm"}) {
    const std::vector<std::string> names = folder.Names();
    RunningProgram::Start start;
    start.largestFile = 5000;
    RunningProgram program({"-a", "97", folder / "in.png", folder / name}, start);
    const Ended ended = program.Wait();
    EXPECT_EQ(7, ended.status) << name << ": " << ended.err;
    EXPECT_EQ(1, ended.ErrorLines()) << ended.err;
    EXPECT_EQ(names, folder.Names());
  }
}

TEST_F(Outputs, WithoutStandardStreamsAPictureOfTheInputsModeAndTime) {
  chmod((folder / "in.png").c_str(), 0604);
  const timespec times[2] = {{1000, 0}, {2000, 5}};
  utimensat(AT_FDCWD, (folder / "in.png").c_str(), times, 0);
  const std::string words =
      TESSALINE_PROGRAM " -a 97 '" + folder / "in.png" + "' '" + folder / "out.png" + "'";
  ASSERT_EQ(0, system((words + " <&- >&- 2>&-").c_str()));
  EXPECT_LT(ScreenAmplitude(Load(folder / "out.png"), 0), kGone);
  struct stat status = {};
  stat((folder / "out.png").c_str(), &status);
  EXPECT_EQ(std::tuple(0604u, 2000, 5),
            std::tuple(status.st_mode & 07777, status.st_mtim.tv_sec, status.st_mtim.tv_nsec));
}

TEST_F(Outputs, StandardStreamsCarryPicturesWholeOrNotAtAll) {
  const std::string input = ReadWholeFile(folder / "in.png");
  for (const char* format : {"png", "tiff", "webp"}) {
    const std::string file = folder / ("out." + std::string(format));
    ASSERT_EQ(0, RunProgram({"-a", "97", folder / "in.png", file}).status);
    const Ended ended = RunProgram({"-a", "97", "--format", format, "-", "-"}, input);
    EXPECT_EQ(ReadWholeFile(file), ended.out) << ended.err;
    EXPECT_NE(std::string::npos, ended.err.find("standard input: took out")) << ended.err;
  }
  const Ended cut = RunProgram({"-a", "97", "--format", "png", "-", "-"}, input.substr(0, input.size() / 2));
  EXPECT_EQ(3, cut.status) << cut.err;
  EXPECT_EQ("", cut.out);
  const std::vector<std::string> wrong[] = {{"-", "-"},
                                            {"-", "-", "--format", "gif"},
                                            {"-", folder / "a.png", "--format", "png"},
                                            {"-", "-", "--format", "png", "--report", "-"},
                                            {"-", "--output-dir", folder / ""}};
  for (const auto& arguments : wrong) EXPECT_EQ(2, RunProgram(arguments, input).status);
  RunningProgram onItself({"-f", "-a", "97", "-", folder / "in.png"}, {folder / "in.png"});
  EXPECT_EQ(7, onItself.Wait().status);
  EXPECT_EQ(input, ReadWholeFile(folder / "in.png"));
}

TEST_F(Outputs, OneBarFromReadingToWriting) {
  SaveLarge("large.png");
  Save(DrawScreen(1, 0, 8, 1700, 1200), folder / "grey.tif");
  for (const char* name : {"large.png", "grey.tif"}) {
    const std::string told =
        RunProgram({"--progress", "-a", "97", folder / name, folder / "out.png", "-f"}).err;
    size_t at = 0;
    for (const char* doing : {"reading", "looking", "removing", "writing"}) {
      at = told.find(std::string("% ") + name + ": " + doing, at);
      ASSERT_NE(std::string::npos, at) << doing;
    }
    std::vector<int> percents;
    for (size_t mark = told.find("] "); mark != std::string::npos; mark = told.find("] ", mark + 1))
      percents.push_back(std::stoi(told.substr(mark + 2)));
    EXPECT_TRUE(std::is_sorted(percents.begin(), percents.end())) << told;
    EXPECT_LT(percents.back(), 100);
  }
}

TEST_F(Outputs, InterruptedRunLeavesNothing) {
  SaveLarge("large.png");
  for (const int signal : {SIGINT, SIGTERM}) {
    for (const char* moment : {"looking", "removing"}) {
      RunningProgram program({"--progress", "-a", "97", folder / "large.png", folder / "out.png"});
      ASSERT_TRUE(program.WaitForError(moment));
      EXPECT_TRUE(HasTemporary());
      program.Signal(signal);
      const Ended ended = program.Wait();
      EXPECT_EQ(130, ended.status);
      EXPECT_NE(std::string::npos, ended.err.find("interrupted"));
      EXPECT_EQ((std::vector<std::string>{"in.png", "large.png"}), folder.Names());
    }
  }
}

class Batch : public Outputs {
 protected:
  Batch() {
    std::filesystem::create_directory(folder / "a");
    std::filesystem::create_directory(folder / "out");
  }
};

TEST_F(Batch, EveryPictureInItsOrderAndSomeFailed) {
  std::vector<std::string> arguments = {"-a",           "97",           "--jobs",   "3",
                                        "--output-dir", folder / "out", "--report", "-"};
  for (int i = 0; i < 5; ++i) {
    const std::string name = folder / ("a/" + std::to_string(i) + ".png");
    // Different sizes: later ones are done first.
    if (i == 2) {
      WriteWholeFile(name, "not a picture");
    } else {
      Save(DrawScreen(1, 0, 8, 800 - 120 * i, 300), name);
    }
    arguments.push_back(name);
  }
  const Ended ended = RunProgram(arguments);
  EXPECT_EQ(1, ended.status);
  EXPECT_EQ(6, ended.ErrorLines()) << ended.err;
  EXPECT_NE(std::string::npos, ended.err.find("4 cleaned, 1 failed (1 missing, unreadable or damaged)"));
  size_t at = 0;
  for (int i = 0; i < 5; ++i) {
    const size_t found = ended.err.find("a/" + std::to_string(i) + ".png: ");
    ASSERT_NE(std::string::npos, found) << ended.err;
    EXPECT_GE(found, at);
    at = found;
    EXPECT_EQ(i != 2, std::filesystem::exists(folder / ("out/" + std::to_string(i) + ".png")));
  }
  const auto report = nlohmann::json::parse(ended.out);
  ASSERT_EQ(5u, report["pictures"].size());
  EXPECT_EQ(0, report["pictures"][0]["status"]);
  EXPECT_EQ(3, report["pictures"][2]["status"]);
  EXPECT_EQ(0, RunProgram({"-q", "-f", "-a", "97", "-j", "2", "--output-dir", folder / "out",
                           folder / "a/0.png", folder / "a/1.png"})
                   .status);
}

// A name with an escape sequence, a line break and a byte that is no UTF-8, beside a folder, in one call.
TEST_F(Batch, NamesOfAllKindsAreToldWithoutHarmAndKeptInTheReport) {
  const std::string name = folder / "a/\x1B[31m\n\xE9.png";
  std::filesystem::copy_file(folder / "in.png", name);
  const Ended ended = RunProgram(
      {"-a", "97", "--output-dir", folder / "out", "--report", "-", folder / "a/", name, folder / "in.png"});
  EXPECT_EQ(1, ended.status);
  EXPECT_EQ(4, ended.ErrorLines()) << ended.err;
  EXPECT_NE(std::string::npos, ended.err.find("a/: is a folder; name the pictures in it")) << ended.err;
  EXPECT_NE(std::string::npos, ended.err.find("/a/\\x1B[31m\\n\\xE9.png: took out")) << ended.err;
  EXPECT_TRUE(std::filesystem::exists(folder / "out/\x1B[31m\n\xE9.png"));
  const auto pictures = nlohmann::json::parse(ended.out)["pictures"];
  EXPECT_EQ(3, pictures[0]["status"]);
  const std::string bytes = pictures[1]["nameBytes"];
  gsize count = 0;
  const std::unique_ptr<guchar, decltype(&g_free)> decoded(g_base64_decode(bytes.c_str(), &count), g_free);
  EXPECT_EQ(name, std::string(reinterpret_cast<const char*>(decoded.get()), count));
  EXPECT_FALSE(pictures[2].contains("nameBytes"));
}

// The results in a log, whose lines are all whole, with their counts.
std::map<std::string, int> ResultsIn(const std::string& log) {
  std::map<std::string, int> results;
  std::istringstream lines(ReadWholeFile(log));
  for (std::string line; std::getline(lines, line);) {
    const auto entry = nlohmann::json::parse(line);
    ++results[entry.contains("summary") ? "summary" : entry["result"].get<std::string>()];
  }
  return results;
}

TEST_F(Batch, FoldersAreMirroredAndWhatIsDoneIsLeftOut) {
  for (const char* name : {"a/1.png", "a/b/1.png", "a/b/2.png"}) {
    std::filesystem::create_directories((folder.path() / name).parent_path());
    std::filesystem::copy_file(folder / "in.png", folder / name);
  }
  WriteWholeFile(folder / "a/notes", "no picture");
  char host[256] = {};
  gethostname(host, sizeof host - 1);
  const std::string mark = std::string("out/.x.png.tessaline-") + host;
  WriteWholeFile(folder / (mark + ".4194305.77-abcdef"), "of a process that cannot be");
  WriteWholeFile(folder / (mark + ".elsewhere.4194305.77-abcdef"), "of another machine");
  WriteWholeFile(folder / "list",
                 (folder / "a/1.png\n") + (folder / "a/1.png\n") + (folder / "a/none.png\n"));
  const std::vector<std::string> arguments = {"-a",          "97",           "--recursive",
                                              folder / "a",  "--output-dir", folder / "out",
                                              "--skip-done", "--log",        folder / "log"};
  const auto run = [&](std::vector<std::string> more) {
    more.insert(more.end(), arguments.begin(), arguments.end());
    std::filesystem::remove(folder / "log");
    return RunProgram(more).status;
  };
  using Results = std::map<std::string, int>;
  EXPECT_EQ(0, run({"--reports"}));
  EXPECT_EQ((Results{{"cleaned", 3}, {"summary", 1}}), ResultsIn(folder / "log"));
  EXPECT_TRUE(std::filesystem::exists(folder / "out/b/2.png.json"));
  EXPECT_FALSE(std::filesystem::exists(folder / (mark + ".4194305.77-abcdef")));
  EXPECT_TRUE(std::filesystem::exists(folder / (mark + ".elsewhere.4194305.77-abcdef")));
  std::filesystem::resize_file(folder / "out/b/2.png", 0);
  std::filesystem::last_write_time(folder / "a/1.png", std::filesystem::file_time_type::clock::now());
  EXPECT_EQ(1, run({}));  // both are there
  EXPECT_EQ((Results{{"skipped", 1}, {"failed", 2}, {"summary", 1}}), ResultsIn(folder / "log"));
  EXPECT_EQ(0, run({"-f"}));
  EXPECT_EQ((Results{{"skipped", 1}, {"cleaned", 2}, {"summary", 1}}), ResultsIn(folder / "log"));
  std::filesystem::create_directory(folder / "out2");
  const Ended listed =
      RunProgram({"--files-from", folder / "list", "--output-dir", folder / "out2", "--log", "/dev/full"});
  EXPECT_EQ(7, listed.status) << listed.err;
  EXPECT_TRUE(std::filesystem::exists(folder / "out2/1.png"));
}

// One is killed, and two at once do the rest.
TEST_F(Batch, RunsShareAFolderAndGoOnWhereTheyWere) {
  constexpr int kPictures = 12;
  for (int i = 0; i < kPictures; ++i)
    Save(DrawScreen(1, 0, 8, 900, 600), folder / ("a/" + std::to_string(i) + ".png"));
  const std::vector<std::string> arguments = {"-a",          "97",         "-j",           "2",
                                              "--recursive", folder / "a", "--output-dir", folder / "out",
                                              "--skip-done", "--log",      folder / "log"};
  RunningProgram killed(arguments);
  ASSERT_TRUE(killed.WaitForError(".png"));
  killed.Signal(SIGKILL);
  EXPECT_EQ(-SIGKILL, killed.Wait().status);  // its processes hold stderr too: they are gone
  RunningProgram other(arguments);
  EXPECT_EQ(0, RunProgram(arguments).status);
  EXPECT_EQ(0, other.Wait().status);
  const auto results = ResultsIn(folder / "log");
  EXPECT_LE(results.at("cleaned"), kPictures);
  EXPECT_GE(results.at("cleaned"), kPictures - 2);  // of those it had in work the lines may be missing
  EXPECT_EQ(2, results.at("summary"));
  EXPECT_EQ(kPictures, std::distance(std::filesystem::directory_iterator(folder / "out"),
                                     std::filesystem::directory_iterator()));
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
// The reports of pictures that are all peaks, 100 kilobytes each, pass through the parent and are not held.
TEST_F(Batch, MemoryDoesNotGrowWithThePictures) {
  Picture dense = DrawScreen(1, 0, 8, 160, 120);
  for (size_t i = 0; i < dense.samples.size(); ++i)
    if (i / 160 % 5 == 0 && i % 160 % 7 == 0) dense.samples[i] = 255;
  std::string list;
  for (int i = 0; i < 80; ++i) {
    list += folder / ("a/" + std::to_string(i) + ".pgm") + "\n";
    Save(dense, folder / ("a/" + std::to_string(i) + ".pgm"));
  }
  WriteWholeFile(folder / "list", list);
  RunningProgram program({"-q", "-a", "auto", "--files-from", folder / "list", "--dry-run", "--log", "-",
                          "--report", folder / "report"});
  ASSERT_TRUE(program.WaitForOutput(1));
  const int64_t atFirst = program.PeakKilobytes();
  int64_t atLast = atFirst;
  while (const int64_t now = program.PeakKilobytes()) atLast = now;
  EXPECT_EQ(0, program.Wait().status);
  EXPECT_GT(std::filesystem::file_size(folder / "report"), 6000000u);
  EXPECT_LT(atLast - atFirst, 3000);
}
#endif

TEST_F(Batch, OneInterruptionEndsAllProcesses) {
  SaveLarge("a/1.png");
  SaveLarge("a/2.png");
  RunningProgram program({"-a", "97", "--jobs", "2", "--output-dir", folder / "out", "--log", folder / "log",
                          folder / "a/1.png", folder / "a/2.png"});
  const auto entries = [&] {
    return std::distance(std::filesystem::directory_iterator(folder / "out"),
                         std::filesystem::directory_iterator());
  };
  while (entries() < 2) usleep(2000);  // both have begun
  program.Signal(SIGTERM);
  const Ended ended = program.Wait();  // the children hold stderr too: this returns when they are gone
  EXPECT_EQ(130, ended.status);
  EXPECT_EQ(1, ended.ErrorLines()) << ended.err;
  EXPECT_NE(std::string::npos, ended.err.find(": 2 pictures: 2 not done")) << ended.err;
  EXPECT_EQ(1, ResultsIn(folder / "log").at("summary"));
  EXPECT_EQ(0, entries());
}

}  // namespace
}  // namespace tessaline::cli
