// What became of each picture of many: a line of JSON in the log, and the counts told at the end.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "cli/output_file.h"
#include "cli/report.h"

namespace tessaline::cli {

// The members that docs/archives.md lists: what a line of the log says of one picture.
Json LogEntryOfDone(const std::string& input, const std::string& output, bool isDry, const std::string& found,
                    const std::string& message, const Json& report);
Json LogEntryOfSkipped(const std::string& input, const std::string& output, const std::string& message);
Json LogEntryOfFailed(const std::string& input, const std::string& output, const Refusal& refusal);

// A file to which whole lines are appended, by any number of processes at once: each line is one write under
// the file's lock, and one that the disk did not take whole is taken back.
class BatchLog {
 public:
  // "" for none, "-" for stdout. Refuses with kCannotWrite: what cannot be opened, is one of `inputs`, or is
  // there and no log. A last line that was cut short, by a machine that went down, is taken off.
  BatchLog(const std::string& path, const std::vector<FileIdentity>& inputs);
  ~BatchLog();
  BatchLog(const BatchLog&) = delete;
  BatchLog& operator=(const BatchLog&) = delete;

  // The entry with the time in front. Refuses with kCannotWrite.
  void Append(const Json& entry) const;

 private:
  void MendEnd() const;

  std::string path_;
  int descriptor_ = -1;  // none is wanted
  bool isFile_ = false;
};

// How many pictures ended how.
class Tally {
 public:
  explicit Tally(size_t pictures) : pictures_(pictures) {}
  void Count(const Json& entry);
  size_t finished() const { return finished_; }
  size_t skipped() const;
  bool HasFailed() const { return !failed_.empty(); }

  // For the user, on one line; and for the log.
  std::string Words(double seconds, bool isInterrupted) const;
  Json Description(double seconds, bool isInterrupted) const;

 private:
  size_t pictures_, finished_ = 0;
  std::map<std::string, size_t> results_;  // all but failures
  std::map<int, size_t> failed_;           // by exit status
};

// "40 s", "12 min", "3 h 20 min"
std::string Duration(double seconds);

}  // namespace tessaline::cli
