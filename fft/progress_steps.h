// How the loops of the two-dimensional transforms report and ask.
#pragma once

#include <cstdint>

#include "fft/run_context.h"

namespace tessaline {

// What a transform was told about its place in the caller's run.
struct ProgressSteps {
  bool show;
  const RunContext* context;  // may be null: nobody is told or asked
  int32_t firstStep;
  int32_t lastStep;
  int32_t totalSteps;
};

// Called by iteration `index` of `iterations` of a loop that is the `fifth`-th (0 .. 4) fifth of a transform.
// True when the user wants to stop.
bool ReportAndAsk(const ProgressSteps& steps, int32_t fifth, int32_t index, int32_t iterations);

// A loop whose iterations are reported.
struct ReportedLoop {
  int32_t fifth;
  int32_t iterations;
};

// Reports loops one after the other for work that does them together.
class LoopReporter {
 public:
  LoopReporter(const ProgressSteps& steps, ReportedLoop first, ReportedLoop second = {0, 0})
      : steps_(steps), loops_{first, second} {}

  // Reports the iterations up to `part` of `parts` of all of them. True when the user wants to stop.
  bool AdvanceTo(int32_t part, int32_t parts);

 private:
  ProgressSteps steps_;
  ReportedLoop loops_[2];
  int64_t reported_ = 0;
};

}  // namespace tessaline
