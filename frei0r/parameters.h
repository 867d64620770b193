// The filter's parameters as its hosts know them: numbers from 0 to 1, switches, a text. And what they ask
// for.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "removal/settings.h"
#include "restoration/restoration.h"

namespace tessaline::frei0r {

// Numbers of the parameters are a contract: ffmpeg gives values by their order, project files by number.
enum ParameterNumber {
  kAutomatic,
  kAcceptance,
  kSensitivity,
  kNotchRadius,
  kProtectionRadius,
  kEverywhere,
  kPolish,
  kSteady,
  kDecideOnFrame,
  kParameters
};

enum class ParameterKind { kSwitch, kNumber, kText };

struct Parameter {
  const char* name;
  const char* explanation;
  ParameterKind kind;
  SettingRange range;  // what 0 and 1 stand for, and the value to begin with
};
extern const Parameter kParameterTable[kParameters];

// What a host has asked for.
struct Wishes {
  Settings settings;
  RestorationSettings restoration;
  bool isSteady = true;                  // one decision for all frames
  std::optional<int64_t> decidingFrame;  // whose decision that is; absent: gathered over several

  // Whether what was decided under other wishes serves under these, too.
  bool DecideAlike(const Wishes& other) const;
};

class ParameterValues {
 public:
  ParameterValues();

  // Out of its range a number is cut to it; one that is none leaves the parameter as it is.
  void SetNumber(int number, double value);
  double Number(int number) const { return numbers_[static_cast<size_t>(number)]; }

  // Of kDecideOnFrame. A text that is no whole number, 0 or more, stands for none.
  void SetText(const char* text) { frame_ = text; }
  const std::string& Text() const { return frame_; }

  Wishes Ask() const;

 private:
  // In the range's own unit.
  double Value(int number) const;

  std::array<double, kParameters> numbers_ = {};
  std::string frame_;
};

}  // namespace tessaline::frei0r
