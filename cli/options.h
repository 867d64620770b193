// What the user asked for, read from the command line into plain records. Nothing is written here.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "cli/picture_format.h"
#include "removal/settings.h"
#include "restoration/restoration.h"

namespace tessaline::cli {

struct Talk {
  bool quiet = false;         // no notes, only errors
  bool showProgress = false;  // decided: asked for, or stderr is a terminal and not quiet
  bool verbose = false;       // of pictures: every peak, not only the result
};

struct PictureCommand {
  struct Files {
    std::string input;
    std::string output;             // empty only in a dry run
  };                                // "-" is stdin, and stdout
  std::vector<Files> pictures;      // one; none in a batch
  bool isBatch = false;             // pictures by arguments, lists and folders, see picture_list.h
  std::vector<std::string> inputs;  // of a batch
  std::string outputFolder;         // empty: beside the inputs
  std::string suffix;               // of outputs' names, before the extension
  std::string listFile;             // names of inputs; "-" is stdin
  bool listHasNuls = false;         // between its names, in place of line breaks
  bool recursive = false;           // folders among the inputs are walked, and mirrored in the output folder
  bool skipsDone = false;           // leaves out what an earlier run has done
  std::string logFile;              // empty: none; "-" is stdout
  bool writesReports = false;       // each picture's beside it
  uint64_t memory = 0;              // bytes for all pictures in work; 0: what is available
  int jobs = 0;                     // pictures at a time; 0: as many as processors
  Settings settings;
  RestorationSettings restoration;  // of an automatic run
  StorageWishes storage;
  std::string format;        // of a picture on stdout
  std::string spectrumFile;  // empty: not wanted; only with one picture
  std::string maskFile;      // likewise
  std::string gateFile;      // likewise
  std::string reportFile;    // "-" is stdout
  bool dryRun = false;
  bool overwrite = false;
  std::optional<int> tileSide;  // clean in tiles: of that side, 0 what suits; absent: where it is too large
  int threads = 0;  // of each picture; 0: those of the processors that this process may use, shared
  Talk talk;
};

// Samples of a raw frame, under the names that ffmpeg has for them.
struct FramePixels {
  const char* name;
  int32_t bytesPerPixel;  // the buffer's pixel kind
  int32_t bits;           // per sample; 16-bit ones are little-endian, full range
};
constexpr FramePixels kFramePixels[] = {
    {"gray", 1, 8},
    {"rgb24", 3, 8},
    {"gray16le", 2, 16},
    {"rgb48le", 6, 16},
};

struct StreamCommand {
  std::string input;   // "-" is stdin
  std::string output;  // "-" is stdout
  int32_t width = 0;
  int32_t height = 0;
  FramePixels pixels = kFramePixels[0];
  int64_t firstFrame = 0;            // counted from 0; frames before it are read and dropped
  std::optional<int64_t> lastFrame;  // included; absent: to the end
  // One decision for all frames, so that a film does not flicker: gathered over several of them, or of a
  // frame by its number.
  bool isFrozen = false;
  std::optional<int64_t> frozenFrame;  // absent: gathered over the first frames in which something is found
  Settings settings;
  int threads = 0;                  // 0: all processors that this process may use
  RestorationSettings restoration;  // of an automatic run
  std::string reportFile;
  bool overwrite = false;
  Talk talk;
};

// Help or version: something to print on stdout, with status 0.
struct PrintAndLeave {
  std::string text;
};

using Command = std::variant<PictureCommand, StreamCommand, PrintAndLeave>;

// Refuses with kWrongUsage; the message names the option and its range.
Command ReadCommandLine(int argc, const char* const* argv);

}  // namespace tessaline::cli
