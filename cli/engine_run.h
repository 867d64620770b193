// One run of the removal over a picture, watched: what it found, how long its steps took.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "removal/notches.h"
#include "removal/steps.h"
#include "restoration/film_decision.h"
#include "restoration/restoration.h"

namespace tessaline::cli {

struct EngineWishes {
  Settings settings;
  RestorationSettings restoration;       // of an automatic run
  const KeptDecision* frozen = nullptr;  // a decision made before, in place of looking; null: look
  FilmDecision* gathersInto = nullptr;   // looks for a decision to be made later; finds nothing itself
  bool onlyLook = false;                 // the samples stay as they are, whatever is found
  bool drawsSpectrum = false;            // fill the picture fields below; not with a frozen decision
  bool collectsNotches = true;           // likewise
  bool drawsGate = false;                // of an automatic run
  bool collectsSeeds = false;
};

// The threads and the memory of runs, kept from picture to picture.
class Engine {
 public:
  // 0: as many threads as processors that this process may use. Where threads cannot be had, one works alone.
  explicit Engine(int threads) : Engine(MakeThreadPool(threads > 0 ? threads : UsableProcessors())) {}
  // On threads of the caller's making; null: one works alone.
  explicit Engine(std::unique_ptr<Parallel> pool)
      : pool_(std::move(pool)), workspace_(pool_ ? *pool_ : SerialWork()) {}
  Workspace& workspace() { return workspace_; }

 private:
  std::unique_ptr<Parallel> pool_;
  Workspace workspace_;
};

// Of the four steps, in seconds; 0 for a step that was left out.
struct StepSeconds {
  double analyse = 0, decide = 0, shape = 0, apply = 0;
};

// Seconds since the last time it was asked.
class StepClock {
 public:
  double Lap() {
    const auto now = std::chrono::steady_clock::now();
    const double seconds = std::chrono::duration<double>(now - begun_).count();
    begun_ = now;
    return seconds;
  }

 private:
  std::chrono::steady_clock::time_point begun_ = std::chrono::steady_clock::now();
};

struct EngineOutcome {
  bool patternFound = false;
  bool samplesChanged = false;  // false: the picture is untouched
  int32_t transformSize = 0;
  bool isAutomatic = false;   // the peaks below are this picture's
  bool isOfLight = false;     // automatic: tones are kept as light, not as levels
  bool hasThreshold = false;  // decided by an acceptance in percent
  int32_t threshold = 0;      // level that a cell must exceed, 0..32768
  double logSpan = 0;         // natural log of the spectrum's maximum over its minimum
  int32_t seedCells = 0;
  std::vector<Notch> notches;
  std::vector<SpectrumPeak> peaks;  // all that stood out, highest first; only where automatic
  SeedMap seeds;
  std::vector<uint8_t> spectrumPicture;  // RGB in rows of 512 (see DrawSpectrum)
  std::vector<uint8_t> maskPicture;      // 512 x 512 grey
  Image gatePicture;  // the picture's size, grey: 255 where the pattern is taken out, 0 where nothing is
  StepSeconds seconds;
};

// How far the run is, 0..1, and what it does.
using EngineProgress = std::function<void(double fraction, const char* doing)>;

// A stretch of the run, told as the user's progress; outlives what it gives.
struct EngineStretch {
  const EngineProgress& progress;
  const char* doing;
  double begin, end;

  Progress OfStep() { return {Report, this}; }

 private:
  static bool Report(void* stretch, double part);
};

// Refuses what a step of the engine says other than kSuccess.
void DemandStep(int32_t result, const std::string& name);

// Everything in the outcome that does not come from the samples.
void DescribeDecision(const Analysis& analysis, const Findings& findings, const Mask& mask,
                      const EngineWishes& wishes, EngineOutcome* outcome);

// One run over a picture, in place. Refuses with kOutOfMemory; `name` is for the message.
EngineOutcome RunEngine(const PictureView& picture, Workspace& workspace, const EngineWishes& wishes,
                        const EngineProgress& progress, const std::string& name);

}  // namespace tessaline::cli
