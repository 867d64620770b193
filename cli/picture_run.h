// One picture from its file to its clean file.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "cli/machine_share.h"
#include "cli/options.h"
#include "cli/progress_bar.h"
#include "cli/report.h"

namespace tessaline::cli {

struct PictureRequest {
  std::string input;   // "-" is stdin
  std::string output;  // may be empty in a dry run; "-" is stdout
  std::string format;  // of stdout
  Settings settings;
  RestorationSettings restoration;
  StorageWishes storage;
  std::string spectrumFile;  // empty: not wanted. Further pages get "-2", "-3", ... before the extension
  std::string maskFile;
  std::string gateFile;
  std::string reportFile;       // "-" is stdout
  std::optional<int> tileSide;  // see PictureCommand
  bool dryRun = false;
  bool overwrite = false;
  int threads = 0;                        // 0: all processors that this process may use
  ThreadShare sharedThreads;              // where several pictures are in work and `threads` is 0
  bool verbose = false;                   // notes tell every peak
  std::vector<FileIdentity> otherInputs;  // of the same call: no output may be one of them either
  bool overwritesReport = false;
  // Called once the outputs are open and before memory is taken for pixels, with the bytes that the largest
  // page needs; returns when they may be taken.
  std::function<void(uint64_t bytes)> beforeReading;
};

// What a command asks of each of its pictures.
PictureRequest RequestOf(const PictureCommand& command, const std::string& input, const std::string& output);

struct PictureOutcome {
  std::vector<std::string> notes;  // lines for the user, the result in the first
  Json report;                     // this picture's part of the report
  std::string found;               // in short; empty where nothing was
};

// Everything that can be refused without decoding is refused before the decoding begins. Either all files
// wanted appear, or none: a Refusal leaves no new file, and no existing one changed.
PictureOutcome CleanPicture(const PictureRequest& request, ProgressBar* progress);

}  // namespace tessaline::cli
