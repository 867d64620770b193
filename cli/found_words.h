// What one run found, in words for the user.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "cli/engine_run.h"
#include "cli/picture_file.h"
#include "removal/pattern_name.h"

namespace tessaline::cli {

// What the decision of the picture itself took for its pattern (removal/pattern_name.h).
PatternName NamePattern(const EngineOutcome& outcome, const std::optional<Resolution>& resolution);

// "3 peaks, the strongest of period 3.45 pixels at 45.0 degrees, 87 lines per inch"
std::string CountNotches(const EngineOutcome& outcome, const std::optional<Resolution>& resolution);

// The run in detail, a line each: the licensed peaks of an automatic decision, otherwise the notches.
std::vector<std::string> DescribeInLines(const EngineOutcome& outcome,
                                         const std::optional<Resolution>& resolution);

}  // namespace tessaline::cli
