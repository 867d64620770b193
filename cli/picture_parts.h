// The parts that a picture is cleaned in, pages and their inks: what they are called, what came of them, and
// the threads that they are cleaned on.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cli/engine_run.h"
#include "cli/input_file.h"
#include "cli/output_file.h"
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

// The files of one picture, open beside their final names until all is done.
class Outputs {
 public:
  Outputs() = default;
  // The picture and the report, where they are wanted.
  Outputs(const PictureRequest& request, const InputFile& input);
  // What is to be drawn of a page, or of each of its inks; pages are counted from 0.
  void OpenDrawings(int page, const PageKind& kind);
  bool HasDrawings() const { return !(spectra_.empty() && masks_.empty() && gates_.empty()); }

  OutputFile* picture() const { return picture_.get(); }  // null in a dry run
  // Of the part with that index, in the order in which they were opened; lets go of what was drawn.
  void Draw(size_t index, EngineOutcome* outcome);
  // Where it is wanted.
  void WriteReport(const Json& report);
  void Commit();

 private:
  using Files = std::vector<std::unique_ptr<OutputFile>>;
  std::unique_ptr<OutputFile> Open(const std::string& file, bool overwrite) const;

  const PictureRequest* request_ = nullptr;
  std::vector<FileIdentity> inputs_;
  std::unique_ptr<OutputFile> picture_, report_;
  Files spectra_, masks_, gates_;
};

// But for what the file says of itself: its curve of light.
EngineWishes WishesFor(const PictureRequest& request, const PageKind& kind);

// "97.5"
std::string Plain(float value);
// What a user whose pattern was not found can try.
std::string Advice(const Settings& settings);
double SecondsSince(std::chrono::steady_clock::time_point start);

bool IsTiled(const PictureRequest& request, const PageKind& kind);
const PageKind& LargestOf(const std::vector<PageKind>& kinds);
// Waits until the hungriest page's memory may be taken, and refuses with kOutOfMemory where it is not to be
// had: a process that takes more than there is would be killed without a word. Returns for how many threads,
// of those wanted, there is room.
int DemandMemory(const PictureRequest& request, const std::string& name, const std::vector<PageKind>& kinds,
                 std::optional<FileFormat> written, uint64_t reading = 0);

// None where threads are shared with other pictures.
std::optional<int> FixedThreads(const PictureRequest& request);
// Of at most so many threads; null for one.
std::unique_ptr<Parallel> MakePool(const PictureRequest& request, const PageKind& kind, int most);

}  // namespace tessaline::cli
