// What a run is asked to do.
#pragma once

#include <cstdint>

namespace tessaline {

struct SettingRange {
  float minimum;
  float maximum;
  float standard;  // the default
};
constexpr SettingRange kAcceptanceRange = {0.0f, 100.0f, 60.0f};       // percent
constexpr SettingRange kNotchRadiusRange = {1.0f, 16.0f, 6.0f};        // spectrum cells
constexpr SettingRange kProtectionRadiusRange = {1.0f, 128.0f, 8.0f};  // image pixels
// More than 1.3 does harm.
constexpr SettingRange kSensitivityRange = {0.7f, 1.3f, 1.0f};

struct Settings {
  bool isAutomatic = false;  // the acceptance is found from the picture itself; `acceptance` is not looked at
  float acceptance = kAcceptanceRange.standard;
  double sensitivity = kSensitivityRange.standard;  // of the automatic one
  float notchRadius = kNotchRadiusRange.standard;
  float protectionRadius = kProtectionRadiusRange.standard;
};

// The one check of the values before detection and mask, which turn them into whole numbers: those that are
// no number take their defaults, others are cut to their ranges. Doors check what is typed and scripted; what
// a damaged preferences file or a careless caller holds comes here as it is.
Settings UsableSettings(const Settings& settings);

}  // namespace tessaline
