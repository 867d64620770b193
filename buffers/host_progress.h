// The engine's progress in the words that hosts were always told: loop counters of two-dimensional
// transforms.
#pragma once

#include <cstdint>
#include <vector>

#include "buffers/run_context.h"
#include "fft/row_transform.h"
#include "platform/progress.h"

namespace tessaline {

// Where one transform stands in the caller's run: from firstStep to lastStep of totalSteps.
struct TransformSteps {
  Direction direction;
  int32_t firstStep;
  int32_t lastStep;
  int32_t totalSteps;
};

// Reports, for the part of the work that is done, the loops of transforms of width x height that would be
// done. A transform is told as five loops over its plane, the fifths: rows, transposition, rows (which are
// the columns then), transposition and centring, or for an inverse centring first. The transpositions never
// report.
class HostProgress {
 public:
  // `context` may be null: nobody is told or asked. Both outlive this. Throws std::bad_alloc.
  HostProgress(const RunContext* context, int32_t width, int32_t height,
               std::vector<TransformSteps> transforms);

  // For the engine; its parts 0 to 1 are the transforms in turn. Valid as long as this is.
  Progress progress() { return {Report, this}; }

 private:
  struct Loop {
    const TransformSteps* steps;
    int32_t fifth;
    int32_t iterations;
  };
  static bool Report(void* user, double part);
  // True when the user wants to stop.
  bool ReportAndAsk(const Loop& loop, int32_t index) const;

  const RunContext* context_;
  std::vector<TransformSteps> transforms_;
  std::vector<Loop> loops_;
  int64_t iterations_ = 0;  // of all loops
  int64_t reported_ = 0;
  size_t loop_ = 0;        // the one at hand
  int64_t loopBegin_ = 0;  // its place among all iterations
};

}  // namespace tessaline
