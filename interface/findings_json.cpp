#include "interface/findings_json.h"

#include <charconv>
#include <cmath>
#include <string_view>
#include <type_traits>

namespace tessaline {
namespace {

// What JSON needs of itself here: members of objects, with commas between them.
class JsonObject {
 public:
  explicit JsonObject(std::string* text) : text_(text) { *text_ += '{'; }
  void End() { *text_ += '}'; }

  // The name and its colon; whatever is appended next is the value.
  std::string* Member(std::string_view name) {
    if (!isFirst_) *text_ += ", ";
    isFirst_ = false;
    *text_ += '"';
    *text_ += name;
    *text_ += "\": ";
    return text_;
  }

  template <typename Value>
  JsonObject& Add(std::string_view name, Value value) {
    std::string* const text = Member(name);
    if constexpr (std::is_same_v<Value, bool>) {
      *text += value ? "true" : "false";
    } else if constexpr (std::is_same_v<Value, std::string_view>) {
      *text += '"';
      *text += value;  // words of our own, nothing to escape
      *text += '"';
    } else if constexpr (std::is_floating_point_v<Value>) {
      AddNumber(std::isfinite(value), value);
    } else {
      AddNumber(true, value);
    }
    return *this;
  }
  JsonObject& AddNull(std::string_view name) {
    *Member(name) += "null";
    return *this;
  }

 private:
  template <typename Value>
  void AddNumber(bool isFinite, Value value) {
    char digits[32];
    if (isFinite) {
      text_->append(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
    } else {
      *text_ += "null";  // JSON knows no infinity
    }
  }

  std::string* text_;
  bool isFirst_ = true;
};

template <typename Item, typename Write>
void AddList(const std::vector<Item>& items, std::string* text, Write write) {
  *text += '[';
  const char* before = "\n  ";
  for (const Item& item : items) {
    *text += before;
    JsonObject object(text);
    write(item, &object);
    object.End();
    before = ",\n  ";
  }
  *text += ']';
}

void WriteNotch(const Notch& notch, bool hasThreshold, JsonObject* object) {
  object->Add("dx", notch.dx)
      .Add("dy", notch.dy)
      .Add("periodPixels", notch.periodPixels)
      .Add("angleDegrees", notch.angleDegrees)
      .Add("level", notch.level);
  if (hasThreshold) {
    object->Add("aboveThreshold", notch.aboveThreshold);
  } else {
    object->AddNull("aboveThreshold");
  }
  object->Add("cells", notch.cells);
}

void WritePeak(const SpectrumPeak& peak, JsonObject* object) {
  object->Add("dx", peak.dx)
      .Add("dy", peak.dy)
      .Add("periodPixels", peak.period)
      .Add("angleDegrees", peak.angle)
      .Add("height", peak.height)
      .Add("isolation", peak.isolation)
      .Add("licensed", peak.isLicensed)
      .Add("used", peak.verdict == PeakVerdict::kUsed)
      .Add("verdict", std::string_view(VerdictWords(peak)));
}

}  // namespace

std::string FindingsAsJson(const Analysis& analysis, const Findings& findings,
                           const std::vector<Notch>& notches) {
  std::string text;
  JsonObject run(&text);
  run.Add("transformSize", analysis.transformSize);
  if (findings.isAutomatic) {
    run.AddNull("threshold");
  } else {
    run.Add("threshold", findings.threshold);
  }
  run.Add("patternFound", findings.seedCells > 0).Add("patternCells", findings.seedCells);
  AddList(notches, run.Member("notches"),
          [&](const Notch& notch, JsonObject* object) { WriteNotch(notch, !findings.isAutomatic, object); });
  if (findings.isAutomatic) {
    run.Add("logSpan", analysis.logSpan);
    AddList(findings.peaks, run.Member("peaks"), WritePeak);
  }
  run.End();
  return text;
}

}  // namespace tessaline
