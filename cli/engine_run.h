// One run of the removal over a buffer, watched: what it found, how long its stages took.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "cli/film_decision.h"
#include "cli/notches.h"
#include "cli/options.h"

namespace tessaline::cli {

struct EngineWishes {
  RemovalSettings settings;
  const SeedMap* frozenSeeds = nullptr;  // a decision made before, in place of looking; null: look
  FilmDecision* gathersInto = nullptr;   // looks for a decision to be made later; finds nothing itself
  bool onlyLook = false;                 // the samples stay as they are, whatever is found
  bool drawsSpectrum = false;            // fill the picture fields below
  bool collectsNotches = true;
  bool collectsSeeds = false;
};

struct EngineOutcome {
  bool patternFound = false;
  bool samplesChanged = false;  // false: the buffer is untouched
  int32_t transformSize = 0;
  bool isAutomatic = false;   // the peaks below are this picture's
  bool hasThreshold = false;  // decided by an acceptance in percent
  int32_t threshold = 0;      // level that a cell must exceed, 0..32768
  double logSpan = 0;         // natural log of the spectrum's maximum over its minimum
  int32_t seedCells = 0;
  std::vector<Notch> notches;
  std::vector<SpectrumPeak> peaks;  // all that stood out, highest first; only where automatic
  SeedMap seeds;
  std::vector<uint8_t> spectrumPicture;  // RGB in rows of 512 (see DrawSpectrum)
  std::vector<uint8_t> maskPicture;      // 512 x 512 grey
  double stageSeconds[static_cast<size_t>(RemovalStage::kCount)] = {};
};

// How far the run is, 0..1, and what it does.
using EngineProgress = std::function<void(double fraction, const char* doing)>;

// One run over the buffer in `slot`. Refuses with kOutOfMemory; `name` is for the message.
EngineOutcome RunEngine(int32_t slot, const EngineWishes& wishes, const EngineProgress& progress,
                        const std::string& name);

// Name of a stage in reports.
const char* StageName(RemovalStage stage);

}  // namespace tessaline::cli
