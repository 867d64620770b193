// One run of the removal over a buffer, watched: what it found, how long its stages took.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "cli/notches.h"
#include "cli/options.h"

namespace tessaline::cli {

struct EngineWishes {
  RemovalSettings settings;
  bool onlyLook = false;       // the samples stay as they are, whatever is found
  bool drawsSpectrum = false;  // fill the picture fields below
  bool collectsNotches = true;
};

struct EngineOutcome {
  bool patternFound = false;
  bool samplesChanged = false;  // false: the buffer is untouched
  int32_t transformSize = 0;
  int32_t threshold = 0;  // level that a cell must exceed, 0..32768
  int32_t seedCells = 0;
  std::vector<Notch> notches;
  std::vector<uint8_t> spectrumPicture;  // 512 x 512 RGB
  std::vector<uint8_t> maskPicture;      // 512 x 512 grey
  double stageSeconds[static_cast<size_t>(RemovalStage::kCount)] = {};
};

// How far the run is, 0..1, and what it does.
using EngineProgress = std::function<void(double fraction, const char* doing)>;

// Where nothing is found the buffer comes back untouched: the run itself truncates, so that passing every
// sample through it would darken a picture that has no pattern. Refuses with kOutOfMemory; `name` is for the
// message.
EngineOutcome RunEngine(int32_t slot, const EngineWishes& wishes, const EngineProgress& progress,
                        const std::string& name);

// Name of a stage in reports.
const char* StageName(RemovalStage stage);

}  // namespace tessaline::cli
