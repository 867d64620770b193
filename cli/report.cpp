#include "cli/report.h"

#include <sys/resource.h>

namespace tessaline::cli {
namespace {

constexpr int kReportVersion = 1;

Json DescribeNotch(const Notch& notch, const std::optional<Resolution>& resolution) {
  Json lines = nullptr;
  if (resolution) lines = LinesPerInch(notch, resolution->horizontal, resolution->vertical);
  return {
      {"dx", notch.dx},
      {"dy", notch.dy},
      {"periodPixels", notch.periodPixels},
      {"angleDegrees", notch.angleDegrees},
      {"linesPerInch", lines},
      {"level", notch.level},
      {"aboveThreshold", notch.aboveThreshold},
      {"cells", notch.cells},
  };
}

}  // namespace

Json DescribeSettings(const RemovalSettings& settings) {
  return {
      {"acceptance", settings.acceptance},
      {"notchRadius", settings.notchRadius},
      {"protectionRadius", settings.protectionRadius},
  };
}

Json DescribeRun(const EngineOutcome& outcome, const std::optional<Resolution>& resolution) {
  Json notches = Json::array();
  for (const Notch& notch : outcome.notches) notches.push_back(DescribeNotch(notch, resolution));
  Json seconds = Json::object();
  for (size_t stage = 0; stage < static_cast<size_t>(RemovalStage::kCount); ++stage) {
    if (outcome.stageSeconds[stage] > 0) {
      seconds[StageName(static_cast<RemovalStage>(stage))] = outcome.stageSeconds[stage];
    }
  }
  return {
      {"transformSize", outcome.transformSize},
      {"threshold", outcome.threshold},
      {"patternFound", outcome.patternFound},
      {"patternCells", outcome.seedCells},
      {"notches", notches},
      {"seconds", seconds},
  };
}

Json DescribeFailure(const std::string& input, const Refusal& refusal) {
  return {
      {"input", input},
      {"status", static_cast<int>(refusal.status())},
      {"error", refusal.what()},
  };
}

std::string ReportText(const char* kind, const Json& content) {
  const Json report = {
      {"report", "tessaline"},
      {"reportVersion", kReportVersion},
      {"programVersion", TESSALINE_VERSION},
      {kind, content},
  };
  // File names need not be UTF-8; what is not becomes replacement characters.
  return report.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

uint64_t PeakMemoryBytes() {
  struct rusage usage = {};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<uint64_t>(usage.ru_maxrss) * 1024;
}

}  // namespace tessaline::cli
