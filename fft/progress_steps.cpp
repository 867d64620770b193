#include "fft/progress_steps.h"

namespace tessaline {

bool ReportAndAsk(const ProgressSteps& steps, int32_t fifth, int32_t index, int32_t iterations) {
  // Bits 0, 4 and 8 all set: 273, 275, ... 287, 305, ... Deliberate, not a mistaken "every so often": loops
  // of up to 273 iterations never report and cannot be cancelled.
  constexpr int32_t kReportingBits = 0x111;
  if (!steps.show || (index & kReportingBits) != kReportingBits) return false;
  if (steps.context == nullptr || !steps.context->progressEnabled) return false;
  const RunContext& context = *steps.context;
  if (context.progress != nullptr) {
    const int64_t range = int64_t{steps.lastStep} - steps.firstStep;
    const int64_t within = range * (index + int64_t{fifth} * iterations) * 100 / (5 * int64_t{iterations});
    const int64_t done = 100 * int64_t{steps.totalSteps} + 4 * (100 * int64_t{steps.firstStep} + within);
    context.progress(context.user, static_cast<int32_t>(done), 600 * steps.totalSteps);
  }
  // The callback may have switched progress off.
  return context.progressEnabled && context.abortCheck != nullptr && context.abortCheck(context.user);
}

bool LoopReporter::AdvanceTo(int32_t part, int32_t parts) {
  const int64_t end = (int64_t{loops_[0].iterations} + loops_[1].iterations) * part / parts;
  for (; reported_ < end; ++reported_) {
    const bool isFirst = reported_ < loops_[0].iterations;
    const ReportedLoop& loop = loops_[isFirst ? 0 : 1];
    const auto index = static_cast<int32_t>(isFirst ? reported_ : reported_ - loops_[0].iterations);
    if (ReportAndAsk(steps_, loop.fifth, index, loop.iterations)) return true;
  }
  return false;
}

}  // namespace tessaline
