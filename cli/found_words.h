// What one run found, in words for the user.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "cli/engine_run.h"
#include "cli/picture_file.h"

namespace tessaline::cli {

// What the decision of the picture itself took for its pattern: "an 87.0 lpi screen at 45 deg", "87.0 lpi
// screens at 15, 45 and 75 deg", "a line pattern of period 4.79 px at 99 deg". A screen repeats in two
// directions square to each other and its angle is below 90; lines per inch where the resolution is known.
struct PatternName {
  std::string text;
  bool isPlural = false;
};
PatternName NamePattern(const EngineOutcome& outcome, const std::optional<Resolution>& resolution);

// "3 peaks, the strongest of period 3.45 pixels at 45.0 degrees, 87 lines per inch"
std::string CountNotches(const EngineOutcome& outcome, const std::optional<Resolution>& resolution);

// The run in detail, a line each: the licensed peaks of an automatic decision, otherwise the notches.
std::vector<std::string> DescribeInLines(const EngineOutcome& outcome,
                                         const std::optional<Resolution>& resolution);

}  // namespace tessaline::cli
