#include "buffers/host_progress.h"

#include <utility>

namespace tessaline {

HostProgress::HostProgress(const RunContext* context, int32_t width, int32_t height,
                           std::vector<TransformSteps> transforms)
    : context_(context), transforms_(std::move(transforms)) {
  for (const TransformSteps& steps : transforms_) {
    const bool isForward = steps.direction == Direction::kForward;
    if (isForward) {
      loops_.insert(loops_.end(), {{&steps, 0, height}, {&steps, 2, width}, {&steps, 4, height / 2}});
    } else {
      loops_.insert(loops_.end(), {{&steps, 0, height / 2}, {&steps, 1, width}, {&steps, 3, height}});
    }
  }
  for (const Loop& loop : loops_) iterations_ += loop.iterations;
}

bool HostProgress::Report(void* user, double part) {
  auto& self = *static_cast<HostProgress*>(user);
  const auto end = static_cast<int64_t>(part * static_cast<double>(self.iterations_) + 1e-6);
  for (; self.reported_ < end && self.loop_ < self.loops_.size(); ++self.reported_) {
    while (self.reported_ - self.loopBegin_ >= self.loops_[self.loop_].iterations) {
      self.loopBegin_ += self.loops_[self.loop_].iterations;
      if (++self.loop_ == self.loops_.size()) return false;
    }
    const Loop& loop = self.loops_[self.loop_];
    if (self.ReportAndAsk(loop, static_cast<int32_t>(self.reported_ - self.loopBegin_))) return true;
  }
  return false;
}

bool HostProgress::ReportAndAsk(const Loop& loop, int32_t index) const {
  // Bits 0, 4 and 8 all set: 273, 275, ... 287, 305, ... Deliberate, not a mistaken "every so often": loops
  // of up to 273 iterations never report and cannot be cancelled.
  constexpr int32_t kReportingBits = 0x111;
  if ((index & kReportingBits) != kReportingBits) return false;
  if (context_ == nullptr || !context_->progressEnabled) return false;
  if (context_->progress != nullptr) {
    const TransformSteps& steps = *loop.steps;
    const int64_t range = int64_t{steps.lastStep} - steps.firstStep;
    const int64_t within =
        range * (index + int64_t{loop.fifth} * loop.iterations) * 100 / (5 * int64_t{loop.iterations});
    const int64_t done = 100 * int64_t{steps.totalSteps} + 4 * (100 * int64_t{steps.firstStep} + within);
    context_->progress(context_->user, static_cast<int32_t>(done), 600 * steps.totalSteps);
  }
  // The callback may have switched progress off.
  return context_->progressEnabled && context_->abortCheck != nullptr && context_->abortCheck(context_->user);
}

}  // namespace tessaline
