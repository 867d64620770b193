// The parts that a picture is cleaned in, pages and their inks: what they are called, what came of them, and
// the threads that they are cleaned on.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "cli/engine_run.h"
#include "cli/page_samples.h"
#include "cli/picture_run.h"

namespace tessaline::cli {

// "spectrum.png" for the first page, "spectrum-2.png" for the second; "spectrum-2-cyan.png" for an ink.
std::string NameForPart(const std::string& file, int page, const char* ink);

// Of a part of a picture with several; null: there is one.
const char* InkName(const PageKind& kind, int32_t part);

// As the report has it.
const char* ModelName(ColourModel model);

// What came of a page, or of one of its inks.
struct PartOutcome : EngineOutcome {
  int page = 0;
  const char* ink = nullptr;
};

// None where threads are shared with other pictures.
std::optional<int> FixedThreads(const PictureRequest& request);
// Null for one thread.
std::unique_ptr<Parallel> MakePool(const PictureRequest& request, const PageKind& kind);

}  // namespace tessaline::cli
