// Runs the real program, and holds the folder that a test works in.
#pragma once

#include <sys/resource.h>
#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace tessaline::cli {

// A folder of its own for a test, removed with everything in it.
class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();
  std::string operator/(const std::string& name) const { return (path_ / name).string(); }
  const std::filesystem::path& path() const { return path_; }
  // Names of all entries, hidden ones included, in order.
  std::vector<std::string> Names() const;

 private:
  std::filesystem::path path_;
};

struct Ended {
  int status;  // exit status, or -signal
  std::string out;
  std::string err;
  int ErrorLines() const;
};

// A running `tessaline ARGUMENTS`. Its stdin is a pipe unless `inputFile` is given.
class RunningProgram {
 public:
  struct Start {
    std::string inputFile;
    rlim_t largestFile = RLIM_INFINITY;  // bytes that it may write to one file
  };
  explicit RunningProgram(const std::vector<std::string>& arguments) : RunningProgram(arguments, Start()) {}
  RunningProgram(const std::vector<std::string>& arguments, const Start& start);
  ~RunningProgram();

  void Write(const std::string& bytes);  // to its stdin
  void CloseInput();
  void CloseOutput();  // this side's reading end of its stdout
  // Reads until stdout has so many bytes (in all), stderr contains the text, or the program ends; true unless
  // ended.
  bool WaitForOutput(size_t bytes);
  bool WaitForError(const std::string& text);
  void Signal(int signal);
  // The most memory that it has held so far; 0 when it has ended.
  int64_t PeakKilobytes() const;
  Ended Wait();

 private:
  bool ReadUntil(const std::function<bool()>& isDone);

  pid_t process_ = -1;
  int in_ = -1, out_ = -1, err_ = -1;
  Ended ended_ = {};
};

// From start to end; `input` goes to its stdin.
Ended RunProgram(const std::vector<std::string>& arguments, const std::string& input = "");

std::string ReadWholeFile(const std::string& path);
void WriteWholeFile(const std::string& path, const std::string& bytes);

}  // namespace tessaline::cli
