// The report: JSON whose form docs/report.md describes and later versions only add to.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "cli/engine_run.h"
#include "cli/options.h"
#include "cli/picture_file.h"

namespace tessaline::cli {

using Json = nlohmann::ordered_json;

Json DescribeSettings(const Settings& settings, const RestorationSettings& restoration);

// What one run found; lines per inch where the resolution is known.
Json DescribeRun(const EngineOutcome& outcome, const std::optional<Resolution>& resolution);

// The members `input` and `output` (null where none is written). JSON is UTF-8: of a name that is not, the
// bytes stand beside it in base64, as `nameBytes` and `outputNameBytes`.
Json DescribeNames(const std::string& input, const std::optional<std::string>& output);

// The whole report. `kind` is "pictures" or "stream", whose value `content` becomes.
std::string ReportText(const char* kind, const Json& content);

// The most memory that this process has held so far.
uint64_t PeakMemoryBytes();

}  // namespace tessaline::cli
