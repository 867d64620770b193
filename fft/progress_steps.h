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

}  // namespace tessaline
