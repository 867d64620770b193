// What a process does with one picture of many.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "cli/machine_share.h"
#include "cli/options.h"
#include "cli/picture_list.h"
#include "cli/picture_worker.h"
#include "cli/report.h"

namespace tessaline::cli {

// What all processes know from the parent.
struct BatchFacts {
  const PictureCommand& command;
  const PictureList& list;
  const std::vector<FileIdentity>& inputs;  // of all pictures, sorted
};

// Of one picture: lines for the user and the entry of the log.
struct PictureEnd {
  Json entry;
  std::vector<std::string> lines;
};
PictureEnd EndOfFailed(const BatchFacts& facts, size_t index, const Refusal& refusal);
PictureEnd EndOfSkipped(const BatchFacts& facts, size_t index, const std::string& why);
std::string Encode(const PictureEnd& end);
std::optional<PictureEnd> Decode(const std::string& text);

// Takes tasks until the process is ended.
void ServeTasks(const BatchFacts& facts, const ThreadShare& threads, const ParentLine& line);

// The entry of a picture in the report, as it stands in the list of pictures there.
std::string ReportEntryText(const Json& report);

}  // namespace tessaline::cli
