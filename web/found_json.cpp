#include "web/found_json.h"

#include <cstdio>

#include "removal/pattern_name.h"

namespace tessaline::web {
namespace {

// One object; every member is put down with its name.
class JsonObject {
 public:
  JsonObject& Put(const char* name, double value) {
    char digits[32];
    std::snprintf(digits, sizeof digits, "%.10g", value);
    return PutRaw(name, digits);
  }
  JsonObject& Put(const char* name, bool value) { return PutRaw(name, value ? "true" : "false"); }
  // Text of the engine's: nothing in it needs an escape.
  JsonObject& Put(const char* name, const char* value) {
    return PutRaw(name, '"' + std::string(value) + '"');
  }
  JsonObject& PutRaw(const char* name, const std::string& json) {
    text_ += (text_.empty() ? "\"" : ",\"") + std::string(name) + "\":" + json;
    return *this;
  }
  std::string Text() const { return '{' + text_ + '}'; }

 private:
  std::string text_;
};

template <typename List, typename Describe>
std::string JsonArray(const List& list, const Describe& describe) {
  std::string text;
  for (const auto& entry : list) text += (text.empty() ? "" : ",") + describe(entry);
  return '[' + text + ']';
}

template <typename Repeat>
void PutLines(const Repeat& repeat, const Resolution& resolution, JsonObject* json) {
  if (resolution.horizontal > 0.0) {
    json->Put("linesPerInch", LinesPerInch(repeat, resolution.horizontal, resolution.vertical));
  } else {
    json->PutRaw("linesPerInch", "null");
  }
}

std::string DescribePeak(const SpectrumPeak& peak, const PictureCleaning& cleaning,
                         const Resolution& resolution) {
  constexpr const char* kSpreads[] = {"fine", "near", "far", "parts", "local", "lines"};
  JsonObject json;
  json.Put("dx", double(peak.dx)).Put("dy", double(peak.dy));
  json.Put("periodPixels", peak.period).Put("angleDegrees", peak.angle);
  PutLines(peak, resolution, &json);
  json.Put("height", peak.height).Put("isolation", peak.isolation).Put("licensed", peak.isLicensed);
  json.Put("spread", kSpreads[static_cast<size_t>(peak.scale)]);
  json.Put("used", peak.verdict == PeakVerdict::kUsed).Put("verdict", VerdictWords(peak));
  json.Put("takenOut", cleaning.IsTakenOut(peak.dx, peak.dy));
  return json.Text();
}

std::string DescribeNotch(const Notch& notch, bool hasThreshold, const Resolution& resolution) {
  JsonObject json;
  json.Put("dx", double(notch.dx)).Put("dy", double(notch.dy));
  json.Put("periodPixels", notch.periodPixels).Put("angleDegrees", notch.angleDegrees);
  PutLines(notch, resolution, &json);
  json.Put("level", double(notch.level)).Put("cells", double(notch.cells));
  if (hasThreshold) {
    json.Put("aboveThreshold", double(notch.aboveThreshold));
  } else {
    json.PutRaw("aboveThreshold", "null");
  }
  return json.Text();
}

// The peaks that are taken out, whoever chose them.
std::string DescribePattern(const PictureCleaning& cleaning, const Resolution& resolution) {
  std::vector<SpectrumPeak> peaks = cleaning.findings().peaks;
  std::erase_if(peaks, [&](const SpectrumPeak& peak) { return !cleaning.IsTakenOut(peak.dx, peak.dy); });
  for (SpectrumPeak& peak : peaks) peak.verdict = PeakVerdict::kUsed;
  const PatternName name = NamePattern(peaks, cleaning.notches(), resolution.horizontal, resolution.vertical);
  JsonObject json;
  json.Put("text", name.text.c_str()).Put("isPlural", name.isPlural);
  return json.Text();
}

}  // namespace

std::string DescribeFindings(const PictureCleaning& cleaning, const Resolution& resolution) {
  const Findings& findings = cleaning.findings();
  JsonObject json;
  json.Put("transformSize", double(cleaning.analysis().transformSize));
  json.Put("patternFound", findings.seedCells > 0).Put("patternCells", double(findings.seedCells));
  json.Put("logSpan", cleaning.analysis().logSpan);
  if (findings.isAutomatic) {
    json.PutRaw("threshold", "null").Put("light", cleaning.IsOfLight() ? "linear" : "coded");
  } else {
    json.Put("threshold", double(findings.threshold));
  }
  json.PutRaw("pattern", DescribePattern(cleaning, resolution));
  json.PutRaw("notches", JsonArray(cleaning.notches(), [&](const Notch& notch) {
                return DescribeNotch(notch, !findings.isAutomatic, resolution);
              }));
  json.PutRaw("peaks", JsonArray(findings.peaks, [&](const SpectrumPeak& peak) {
                return DescribePeak(peak, cleaning, resolution);
              }));
  return json.Text();
}

}  // namespace tessaline::web
