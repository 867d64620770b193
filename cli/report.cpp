#include "cli/report.h"

#include <glib.h>
#include <sys/resource.h>

#include <charconv>

namespace tessaline::cli {
namespace {

constexpr int kReportVersion = 1;

// A float with the digits that tell it from its neighbours, and no more: 97.3, not 97.30000305.
double AsWritten(float value) {
  char digits[32];
  const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
  double written = 0;
  std::from_chars(digits, end, written);
  return written;
}

Json DescribePeak(const SpectrumPeak& peak, const std::optional<Resolution>& resolution) {
  constexpr const char* kSpreads[] = {"fine", "near", "far", "parts", "local", "lines"};
  Json lines = nullptr;
  if (resolution) lines = LinesPerInch(peak, resolution->horizontal, resolution->vertical);
  return {
      {"dx", peak.dx},
      {"dy", peak.dy},
      {"periodPixels", peak.period},
      {"angleDegrees", peak.angle},
      {"linesPerInch", lines},
      {"height", peak.height},
      {"isolation", peak.isolation},
      {"licensed", peak.isLicensed},
      {"spread", kSpreads[static_cast<size_t>(peak.scale)]},
      {"used", peak.verdict == PeakVerdict::kUsed},
      {"verdict", VerdictWords(peak)},
  };
}

void KeepBytes(const char* member, const std::string& name, Json* entry) {
  if (g_utf8_validate(name.data(), static_cast<gssize>(name.size()), nullptr) != 0) return;
  gchar* const text = g_base64_encode(reinterpret_cast<const guchar*>(name.data()), name.size());
  (*entry)[member] = text;
  g_free(text);
}

Json DescribeNotch(const Notch& notch, bool hasThreshold, const std::optional<Resolution>& resolution) {
  Json lines = nullptr;
  if (resolution) lines = LinesPerInch(notch, resolution->horizontal, resolution->vertical);
  return {
      {"dx", notch.dx},
      {"dy", notch.dy},
      {"periodPixels", notch.periodPixels},
      {"angleDegrees", notch.angleDegrees},
      {"linesPerInch", lines},
      {"level", notch.level},
      {"aboveThreshold", hasThreshold ? Json(notch.aboveThreshold) : Json(nullptr)},
      {"cells", notch.cells},
  };
}

}  // namespace

Json DescribeSettings(const Settings& settings, const RestorationSettings& restoration) {
  Json parameters = {
      {"acceptance", settings.isAutomatic ? Json("auto") : Json(AsWritten(settings.acceptance))},
      {"notchRadius", AsWritten(settings.notchRadius)},
      {"protectionRadius", AsWritten(settings.protectionRadius)},
  };
  if (settings.isAutomatic) {
    parameters["sensitivity"] = settings.sensitivity;
    parameters["everywhere"] = restoration.everywhere;
    parameters["polish"] = AsWritten(restoration.polish);
    constexpr const char* kLights[] = {"auto", "coded", "linear"};
    parameters["light"] = kLights[static_cast<size_t>(restoration.light.light)];
  }
  return parameters;
}

Json DescribeRun(const EngineOutcome& outcome, const std::optional<Resolution>& resolution) {
  Json notches = Json::array();
  for (const Notch& notch : outcome.notches) {
    notches.push_back(DescribeNotch(notch, outcome.hasThreshold, resolution));
  }
  Json seconds = Json::object();
  const std::pair<const char*, double> steps[] = {{"analyse", outcome.seconds.analyse},
                                                  {"decide", outcome.seconds.decide},
                                                  {"shape", outcome.seconds.shape},
                                                  {"apply", outcome.seconds.apply}};
  for (const auto& [name, spent] : steps) {
    if (spent > 0) seconds[name] = spent;
  }
  Json run = {
      {"transformSize", outcome.transformSize},
      {"threshold", outcome.hasThreshold ? Json(outcome.threshold) : Json(nullptr)},
      {"patternFound", outcome.patternFound},
      {"patternCells", outcome.seedCells},
      {"notches", notches},
      {"seconds", seconds},
  };
  if (outcome.isAutomatic) {
    Json peaks = Json::array();
    for (const SpectrumPeak& peak : outcome.peaks) peaks.push_back(DescribePeak(peak, resolution));
    if (outcome.patternFound) run["light"] = outcome.isOfLight ? "linear" : "coded";
    run["logSpan"] = outcome.logSpan;
    run["peaks"] = peaks;
  }
  return run;
}

Json DescribeNames(const std::string& input, const std::optional<std::string>& output) {
  Json names = {{"input", input}};
  KeepBytes("nameBytes", input, &names);
  names["output"] = output ? Json(*output) : Json(nullptr);
  if (output) KeepBytes("outputNameBytes", *output, &names);
  return names;
}

std::string ReportText(const char* kind, const Json& content) {
  const Json report = {
      {"report", "tessaline"},
      {"reportVersion", kReportVersion},
      {"programVersion", TESSALINE_VERSION},
      {kind, content},
  };
  // File names need not be UTF-8; what is not becomes replacement characters (see DescribeNames).
  return report.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

uint64_t PeakMemoryBytes() {
  struct rusage usage = {};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<uint64_t>(usage.ru_maxrss) * 1024;
}

}  // namespace tessaline::cli
