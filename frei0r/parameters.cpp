#include "frei0r/parameters.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace tessaline::frei0r {

namespace {

constexpr SettingRange kOff = {0.0f, 1.0f, 0.0f}, kOn = {0.0f, 1.0f, 1.0f};

// Finer than any of the values needs to be, and coarse enough that 0.3333 of the notch radius is 6 cells.
constexpr double kStepsPerUnit = 100.0;

}  // namespace

const Parameter kParameterTable[kParameters] = {
    {"automatic", "Find the pattern from the picture itself", ParameterKind::kSwitch, kOn},
    {"acceptance", "Where not automatic: higher finds more; 0 to 1 stand for 0 to 100 percent",
     ParameterKind::kNumber, kAcceptanceRange},
    {"sensitivity", "Where automatic: higher takes fainter patterns; 0 to 1 stand for 0.7 to 1.3",
     ParameterKind::kNumber, kSensitivityRange},
    {"notch radius", "How much round each peak is taken out; 0 to 1 stand for 1 to 16 spectrum cells",
     ParameterKind::kNumber, kNotchRadiusRange},
    {"protection radius", "Periods longer than twice this are protected; 0 to 1 stand for 1 to 128 pixels",
     ParameterKind::kNumber, kProtectionRadiusRange},
    {"everywhere", "Where automatic: take the pattern out of the whole picture, also where it is not seen",
     ParameterKind::kSwitch, kOff},
    {"polish", "Where automatic: how much of what the notches leave is smoothed; 0 to 1 stand for 0 to 2",
     ParameterKind::kNumber, kPolishRange},
    {"steady",
     "One decision for all frames, made over the first eight in which something is found; else each frame "
     "decides for itself",
     ParameterKind::kSwitch, kOn},
    {"decide on frame",
     "Where steady: the number of the frame, counted from 0, that decides for all; empty: the first eight",
     ParameterKind::kText, kOff},
};

bool Wishes::DecideAlike(const Wishes& other) const {
  return settings.isAutomatic == other.settings.isAutomatic &&
         settings.acceptance == other.settings.acceptance &&
         settings.sensitivity == other.settings.sensitivity &&
         settings.protectionRadius == other.settings.protectionRadius && isSteady == other.isSteady &&
         decidingFrame == other.decidingFrame;
}

ParameterValues::ParameterValues() {
  for (size_t i = 0; i < numbers_.size(); ++i) {
    const SettingRange& range = kParameterTable[i].range;
    numbers_[i] = (double{range.standard} - range.minimum) / (double{range.maximum} - range.minimum);
  }
}

void ParameterValues::SetNumber(int number, double value) {
  if (!std::isnan(value)) numbers_[static_cast<size_t>(number)] = std::clamp(value, 0.0, 1.0);
}

double ParameterValues::Value(int number) const {
  const SettingRange& range = kParameterTable[number].range;
  const double value = range.minimum + Number(number) * (double{range.maximum} - range.minimum);
  return std::round(value * kStepsPerUnit) / kStepsPerUnit;
}

Wishes ParameterValues::Ask() const {
  const auto isOn = [this](int number) { return Number(number) >= 0.5; };
  Wishes wishes;
  wishes.settings.isAutomatic = isOn(kAutomatic);
  wishes.settings.acceptance = static_cast<float>(Value(kAcceptance));
  wishes.settings.sensitivity = Value(kSensitivity);
  wishes.settings.notchRadius = static_cast<float>(Value(kNotchRadius));
  wishes.settings.protectionRadius = static_cast<float>(Value(kProtectionRadius));
  wishes.restoration.everywhere = isOn(kEverywhere);
  wishes.restoration.polish = static_cast<float>(Value(kPolish));
  wishes.isSteady = isOn(kSteady);
  int64_t frame = 0;
  const char* const end = frame_.data() + frame_.size();
  const auto [last, error] = std::from_chars(frame_.data(), end, frame);
  if (error == std::errc() && last == end && frame >= 0) wishes.decidingFrame = frame;
  return wishes;
}

}  // namespace tessaline::frei0r
