#include "cli/picture_run.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <sstream>

#include "cli/engine_run.h"
#include "cli/found_words.h"
#include "cli/light_curve.h"
#include "cli/output_file.h"
#include "cli/page_samples.h"
#include "cli/pdf_document.h"
#include "cli/pdf_run.h"
#include "cli/picture_file.h"
#include "cli/picture_parts.h"
#include "cli/picture_writer.h"
#include "cli/tiled_page.h"

namespace tessaline::cli {
namespace {

// Finished rows of a picture with several pages, in a file without a name: such pictures need not fit in
// memory.
class PageStore {
 public:
  PageStore(const std::string& folder, const std::string& outputPath, const std::vector<PageKind>& kinds)
      : outputPath_(outputPath) {
    Place place = {0, 0, 0};
    for (const PageKind& kind : kinds) {
      place.rowBytes = kind.RowBytes();
      places_.push_back(place);
      place.firstRow += kind.height;
      place.offset += static_cast<off_t>(place.rowBytes) * kind.height;
    }
    descriptor_ = OpenNameless(folder);
    if (descriptor_ < 0)
      throw Refusal(ExitStatus::kCannotWrite, outputPath_,
                    std::string("cannot be written: ") + strerror(errno));
  }
  ~PageStore() { close(descriptor_); }
  PageStore(const PageStore&) = delete;
  PageStore& operator=(const PageStore&) = delete;

  // A page's rows stand one behind the other.
  void Begin(int page) {
    rowBytes_ = places_[static_cast<size_t>(page)].rowBytes;
    lseek(descriptor_, places_[static_cast<size_t>(page)].offset, SEEK_SET);
  }
  void Append(const void* row) {
    if (WriteFully(descriptor_, row, rowBytes_)) return;
    throw Refusal(ExitStatus::kCannotWrite, outputPath_,
                  std::string("cannot be written: ") + strerror(errno));
  }
  // Row `y` of all pages.
  void Read(int32_t y, void* row) const {
    const auto behind =
        std::upper_bound(places_.begin(), places_.end(), y,
                         [](int32_t wanted, const Place& place) { return wanted < place.firstRow; });
    const Place& place = *(behind - 1);
    const off_t offset = place.offset + static_cast<off_t>(place.rowBytes) * (y - place.firstRow);
    if (pread(descriptor_, row, place.rowBytes, offset) != static_cast<ssize_t>(place.rowBytes)) {
      throw Refusal(ExitStatus::kCannotWrite, outputPath_,
                    "cannot be written: its finished pages cannot be read back");
    }
  }

 private:
  struct Place {
    int32_t firstRow;  // of all pages
    size_t rowBytes;
    off_t offset;
  };
  std::string outputPath_;
  std::vector<Place> places_;  // by page
  size_t rowBytes_ = 0;
  int descriptor_ = -1;
};

Outputs OpenOutputs(const PictureRequest& request, const PictureFile& input) {
  Outputs outputs(request, input.file());
  for (int page = 0; page < input.pages(); ++page) outputs.OpenDrawings(page, input.kind(page));
  return outputs;
}

// What writing takes for a second of an automatic run: measured at 2400 x 1800 RGB on two threads.
struct WritingCost {
  FileFormat format;
  double seconds;
};
constexpr WritingCost kWritingCosts[] = {
    {FileFormat::kPng, 0.16},     {FileFormat::kTiff, 0.06}, {FileFormat::kJpeg, 0.08},
    {FileFormat::kWebp, 0.25},    {FileFormat::kPnm, 0.07},  {FileFormat::kJpegXl, 1.2},
    {FileFormat::kJpeg2000, 0.5},
};

// Of the whole; nothing is written in a dry run.
double ShareOfWriting(const FormatTraits* written, bool isAutomatic) {
  constexpr double kRunByNumber = 0.45;
  for (const WritingCost& cost : kWritingCosts) {
    if (written != nullptr && written->format == cost.format)
      return cost.seconds / (cost.seconds + (isAutomatic ? 1 : kRunByNumber));
  }
  return 0;
}

bool NamesFolder(const std::string& path) {
  std::error_code none;
  return std::filesystem::is_directory(path, none);
}

// A folder is called a folder before its name is searched for an extension.
const FormatTraits* FormatWanted(const PictureRequest& request) {
  if (NamesFolder(request.input)) {
    throw Refusal(ExitStatus::kUnreadable, request.input, "is a folder; name the pictures in it");
  }
  if (request.output.empty()) return nullptr;
  if (NamesFolder(request.output)) {
    throw Refusal(ExitStatus::kCannotWrite, request.output,
                  "is a folder; give the name of a file, or --output-dir to put the picture there");
  }
  const FormatTraits& format =
      request.output == "-" ? FormatNamed(request.format) : FormatToWrite(request.output);
  RefuseUnknownStorage(format, request.storage, request.output);
  return &format;
}

// The run over all pages of one picture.
class PictureRun {
 public:
  PictureRun(const PictureRequest& request, InputFile input, const FormatTraits* outputFormat,
             ProgressBar* progress)
      : request_(request), progress_(progress), outputFormat_(outputFormat), input_(std::move(input)) {
    wishes_.storage = request_.storage;
    if (outputFormat_ != nullptr) RefuseWhatDoesNotFit(*outputFormat_, input_, outputName_);
    for (const PageKind& kind : input_.kinds()) pixels_ += static_cast<double>(PixelsOf(kind));
    const bool hasTiles = std::any_of(input_.kinds().begin(), input_.kinds().end(),
                                      [this](const PageKind& kind) { return IsTiled(kind); });
    if (hasTiles && !request_.gateFile.empty()) {
      throw Refusal(ExitStatus::kTooLarge, input_.path(),
                    "is cleaned in tiles, of which no gate is drawn; leave --gate out");
    }
    outputs_ = OpenOutputs(request_, input_);
    threads_ = DemandMemory(request_, input_.path(), input_.kinds(),
                            outputFormat_ != nullptr ? std::optional(outputFormat_->format) : std::nullopt,
                            input_.BytesHeldWhileReading());
    engine_.emplace(MakePool(request_, LargestOf(input_.kinds()), threads_));
  }

  PictureOutcome Run() {
    const int pages = input_.pages();
    if (pages > 1 && !request_.dryRun) {
      const std::string folder = request_.output == "-" ? FolderOfTemporaries() : FolderOf(request_.output);
      store_ = std::make_unique<PageStore>(folder, outputName_, input_.kinds());
    }
    for (int page = 0; page < pages; ++page) {
      RunPage(page);
      pixelsBehind_ += static_cast<double>(PixelsOf(input_.kind(page)));
    }
    const auto writing = std::chrono::steady_clock::now();
    if (!request_.dryRun) Write();
    writeSeconds_ = SecondsSince(writing);
    input_.file().DemandUnchanged();  // it may have been read more than once
    PictureOutcome outcome = {Notes(), Report(), Found()};
    outputs_.WriteReport(outcome.report);
    outputs_.Commit();
    return outcome;
  }

 private:
  bool IsTiled(const PageKind& kind) const { return cli::IsTiled(request_, kind); }

  // The share of the whole that is behind when `part` of a page is cleaned.
  double ShareOfPages(int page, double part) const {
    if (IsTiled(input_.kind(page)) && !store_) return part;  // written while it is cleaned
    const double pixels = pixelsBehind_ + part * static_cast<double>(PixelsOf(input_.kind(page)));
    return pixels / pixels_ * (1 - writingShare_);
  }
  void ShowProgress(double share, const std::string& doing) {
    progress_->Show(share, FileNameOf(input_.path()) + ": " + doing);
  }

  void RunPage(int page) {
    const std::string ofPages =
        input_.pages() > 1 ? " page " + std::to_string(page + 1) + " of " + std::to_string(input_.pages())
                           : "";
    const PageKind& kind = input_.kind(page);
    tiled_.clear();
    if (IsTiled(kind)) return RunTiledPage(page, ofPages);
    constexpr double kReading = 0.1;  // of a page's share
    const auto reading = std::chrono::steady_clock::now();
    const auto showReading = [&](int rows) {
      ShowProgress(ShareOfPages(page, kReading * rows / kind.height), "reading" + ofPages);
    };
    showReading(0);
    input_.ReadPage(page, &samples_, showReading);
    readSeconds_ += SecondsSince(reading);
    const int32_t parts = kind.parts();
    for (int32_t part = 0; part < parts; ++part) {
      const auto show = [&](double fraction, const char* doing) {
        ShowProgress(ShareOfPages(page, kReading + (1 - kReading) * (part + fraction) / parts),
                     doing + ofPages);
      };
      show(0, "looking");
      TakeOutcome(page, part,
                  IsPassedOver(page) ? EngineOutcome()
                                     : RunEngine(samples_.picture(part), engine_->workspace(), Wishes(page),
                                                 show, input_.path()));
      if (outcomes_.back().samplesChanged) samples_.SetChanged(part);
    }
    StorePage(page, [this, y = 0](void* row) mutable { samples_.FillRow(y++, row); });
  }

  // Looked at here; cleaned while it is written, or stored.
  void RunTiledPage(int page, const std::string& ofPages) {
    const double looked = request_.dryRun ? 1.0 : 0.4;
    const auto show = [this, page, ofPages](double fraction, const char* doing) {
      ShowProgress(ShareOfPages(page, fraction), doing + ofPages);
    };
    const int32_t parts = input_.kind(page).parts();
    for (int32_t part = 0; part < parts; ++part) {
      tiled_.push_back(std::make_unique<TiledPage>(input_, page, part, *engine_,
                                                   request_.tileSide.value_or(0),
                                                   [show, looked](double fraction, const char* doing) {
                                                     show(looked + (1 - looked) * fraction, doing);
                                                   }));
      const auto showLooking = [=](double fraction, const char* doing) {
        show(looked * (part + fraction) / parts, doing);
      };
      TakeOutcome(page, part,
                  IsPassedOver(page) ? EngineOutcome() : tiled_.back()->Look(Wishes(page), showLooking));
    }
    StorePage(page, [this](void* row) { NextTiledRow(row); });
    TellCleaningTime();
  }

  void NextTiledRow(void* row) {
    for (const auto& part : tiled_) part->NextRow(row);
  }
  void TellCleaningTime() {
    for (size_t part = 0; part < tiled_.size(); ++part) {
      outcomes_[outcomes_.size() - tiled_.size() + part].seconds.apply = tiled_[part]->cleaningSeconds();
    }
  }

  // A page of single bits stays as it is; it is looked at only where that is to be drawn.
  bool IsPassedOver(int page) const { return input_.IsOfSingleBits(page) && !outputs_.HasDrawings(); }

  EngineWishes Wishes(int page) {
    EngineWishes wishes = WishesFor(request_, input_.kind(page));
    if (input_.IsOfSingleBits(page)) wishes.onlyLook = true;
    if (request_.settings.isAutomatic) curve_ = LightCurveOf(input_, page);
    if (curve_) wishes.restoration.light.curve = &*curve_;
    return wishes;
  }

  void TakeOutcome(int page, int32_t part, EngineOutcome outcome) {
    const size_t index = outcomes_.size();
    outputs_.Draw(index, &outcome);
    if (input_.IsOfSingleBits(page)) outcome.patternFound = false;
    wishes_.isUntouched.resize(static_cast<size_t>(page) + 1, true);
    if (outcome.samplesChanged) wishes_.isUntouched.back() = false;
    outcomes_.push_back({std::move(outcome), page, InkName(input_.kind(page), part)});
  }

  // Of several pages the finished one, for the writer. next(row) fills its rows in their order.
  template <typename Next>
  void StorePage(int page, Next next) {
    if (!store_ || CopiesPage(outputFormat_->format, input_, page, wishes_)) return;
    const PageKind& kind = input_.kind(page);
    store_->Begin(page);
    std::vector<uint8_t> row(kind.RowBytes());
    for (int32_t y = 0; y < kind.height; ++y) {
      next(row.data());
      store_->Append(row.data());
    }
  }

  size_t PartsWithPattern() const {
    size_t count = 0;
    for (const EngineOutcome& outcome : outcomes_) count += outcome.patternFound;
    return count;
  }

  // In short, for the log.
  std::string Found() const {
    const auto strongest = std::find_if(outcomes_.begin(), outcomes_.end(),
                                        [](const EngineOutcome& outcome) { return outcome.patternFound; });
    if (strongest == outcomes_.end()) return "";
    if (!request_.settings.isAutomatic) return CountNotches(*strongest, input_.resolution());
    return NamePattern(*strongest, input_.resolution()).text;
  }

  bool CopiesInput() const {
    return PartsWithPattern() == 0 && outputFormat_->format == input_.format().format &&
           request_.storage.IsLeftOpen();
  }

  void Write() {
    if (CopiesInput()) {
      // Nothing to change and nothing to convert: no compression, depth or tag can come out different.
      input_.CopyTo(outputs_.picture());
      return;
    }
    const bool isCleanedMeanwhile = !tiled_.empty() && !store_;
    const double begun = ShareOfPages(input_.pages() - 1, 0);
    double rows = 0;
    for (const PageKind& kind : input_.kinds()) rows += kind.height;
    ShowProgress(begun, "writing");
    const RowFiller fill = [&](int32_t y, void* row) {
      if (isCleanedMeanwhile) return NextTiledRow(row);
      ShowProgress(begun + (1 - begun) * y / rows, "writing");
      if (store_) {
        store_->Read(y, row);
      } else {
        samples_.FillRow(y, row);
      }
    };
    const BorrowedThreads borrowed(request_.threads > 0 ? ThreadShare() : request_.sharedThreads);
    wishes_.threads = std::min(FixedThreads(request_).value_or(1 + borrowed.count()), threads_);
    WritePicture(*outputFormat_, input_, fill, outputs_.picture(), wishes_);
    if (isCleanedMeanwhile) TellCleaningTime();
  }

  // What the picture's own decision came to, in one sentence.
  std::string AutomaticSentence() const {
    const size_t found = PartsWithPattern();
    if (found == 0) {
      std::string text = "auto: no regular pattern found, image unchanged";
      if (request_.settings.sensitivity < kSensitivityRange.maximum) {
        text += " (--sensitivity " + Plain(kSensitivityRange.maximum) + " takes fainter ones)";
      }
      return text;
    }
    const auto strongest = std::find_if(outcomes_.begin(), outcomes_.end(),
                                        [](const EngineOutcome& outcome) { return outcome.patternFound; });
    const PatternName name = NamePattern(*strongest, input_.resolution());
    const bool isPlural = name.isPlural || outcomes_.size() > 1;
    const std::string verb =
        std::string(isPlural ? " were " : " was ") + (request_.dryRun ? "found" : "taken out");
    if (outcomes_.size() == 1)
      return name.text + verb + (strongest->isOfLight && !request_.dryRun ? " in linear light" : "");
    return "patterns " + OnPartsOf(found) + verb + ", " + PlaceOf(*strongest, "on page ", " in ") + " " +
           name.text;
  }

  // "on 2 of 3 pages", "in 2 of 4 inks"; of pages in CMYK the inks are counted, too.
  std::string OnPartsOf(size_t found) const {
    const std::string ofAll = std::to_string(found) + " of " + std::to_string(outcomes_.size());
    return outcomes_[0].ink != nullptr ? "in " + ofAll + " inks" : "on " + ofAll + " pages";
  }
  std::string PlaceOf(const PartOutcome& outcome, const char* beforePage, const char* beforeInk) const {
    std::string place;
    if (input_.pages() > 1) place = beforePage + std::to_string(outcome.page + 1);
    if (outcome.ink != nullptr) place += std::string(place.empty() ? beforeInk + 1 : beforeInk) + outcome.ink;
    return place;
  }

  std::string NumberSentence() const {
    const size_t found = PartsWithPattern();
    if (found == 0) {
      const std::string kept = request_.dryRun ? "" : "; " + outputName_ + " has the same samples";
      return "found no pattern at acceptance " + Plain(request_.settings.acceptance) + kept +
             ". To find more, " + Advice(request_.settings) + ".";
    }
    const std::string verb = request_.dryRun ? "found " : "took out ";
    if (outcomes_.size() == 1) return verb + CountNotches(outcomes_[0], input_.resolution());
    return verb + "patterns " + OnPartsOf(found);
  }

  std::vector<std::string> Notes() const {
    const bool isAutomatic = request_.settings.isAutomatic;
    std::string sentence = input_.path() + ": " + (isAutomatic ? AutomaticSentence() : NumberSentence());
    const bool tellsWhere = isAutomatic || PartsWithPattern() > 0;
    if (tellsWhere && !request_.dryRun) sentence += "; written to " + outputName_;
    std::vector<std::string> notes = {sentence};
    if (!request_.dryRun && !CopiesInput()) {
      for (const std::string& line : WhatIsNotKept(*outputFormat_, input_)) {
        notes.push_back(input_.path() + ": " + line);
      }
    }
    for (int page = 0; page < input_.pages(); ++page) {
      if (!input_.IsOfSingleBits(page)) continue;
      notes.push_back(input_.path() + ": " +
                      (input_.pages() > 1 ? "page " + std::to_string(page + 1) + " " : "") +
                      "is of single bits, black and white, and left as it is");
    }
    for (size_t i = 0; request_.verbose && i < outcomes_.size(); ++i) {
      std::string subject = input_.path() + ": ";
      if (outcomes_.size() > 1) subject += PlaceOf(outcomes_[i], "page ", " ") + ": ";
      for (const std::string& line : DescribeInLines(outcomes_[i], input_.resolution(outcomes_[i].page)))
        notes.push_back(subject + line);
    }
    return notes;
  }

  static Json DescribeKind(const PageKind& kind) {
    return {{"width", kind.width},
            {"height", kind.height},
            {"colours", ModelName(kind.model)},
            {"bitsPerSample", kind.bits},
            {"extraChannels", kind.extras}};
  }

  Json Report() const {
    const auto resolution = input_.resolution();
    Json pages = Json::array();
    for (const PartOutcome& outcome : outcomes_) {
      Json description = {{"page", outcome.page + 1}};
      if (outcome.ink != nullptr) description["ink"] = outcome.ink;
      if (input_.kind(outcome.page) != input_.kind(0))
        description.update(DescribeKind(input_.kind(outcome.page)));
      description.update(DescribeRun(outcome, input_.resolution(outcome.page)));
      pages.push_back(description);
    }
    Json report =
        DescribeNames(request_.input, request_.dryRun ? std::nullopt : std::optional(request_.output));
    report.update(Json{
        {"status", static_cast<int>(ExitStatus::kDone)},
        {"format", input_.format().name},
    });
    report.update(DescribeKind(input_.kind(0)));
    report.update(Json{
        {"pixelsPerInch", resolution ? Json{resolution->horizontal, resolution->vertical} : Json(nullptr)},
        {"parameters", DescribeSettings(request_.settings, request_.restoration)},
        {"pages", pages},
        {"seconds", {{"read", readSeconds_}, {"write", writeSeconds_}, {"total", SecondsSince(begun_)}}},
        {"peakMemoryBytes", PeakMemoryBytes()},
    });
    return report;
  }

  std::chrono::steady_clock::time_point begun_ = std::chrono::steady_clock::now();
  const PictureRequest& request_;
  ProgressBar* progress_;
  const std::string outputName_ = request_.output == "-" ? "standard output" : request_.output;
  const FormatTraits* outputFormat_;
  const double writingShare_ =
      request_.dryRun ? 0 : ShareOfWriting(outputFormat_, request_.settings.isAutomatic);
  PictureFile input_;
  Outputs outputs_;
  WritingWishes wishes_;
  std::optional<ToneCurve> curve_;  // of the page in work, by its file
  PageSamples samples_;
  int threads_ = 1;  // at most
  std::optional<Engine> engine_;
  std::vector<std::unique_ptr<TiledPage>> tiled_;  // of the last page, by part, where they are done in tiles
  std::unique_ptr<PageStore> store_;               // only with several pages
  std::vector<PartOutcome> outcomes_;              // by page and part
  double pixels_ = 0, pixelsBehind_ = 0;           // of all pages, and of those that are done
  double readSeconds_ = 0;
  double writeSeconds_ = 0;
};

}  // namespace

PictureRequest RequestOf(const PictureCommand& command, const std::string& input, const std::string& output) {
  PictureRequest request;
  request.input = input;
  request.output = output;
  request.settings = command.settings;
  request.restoration = command.restoration;
  request.storage = command.storage;
  request.threads = command.threads;
  request.tileSide = command.tileSide;
  request.dryRun = command.dryRun;
  request.overwrite = command.overwrite;
  request.verbose = command.talk.verbose;
  return request;
}

PictureOutcome CleanPicture(const PictureRequest& request, ProgressBar* progress) {
  try {
    const FormatTraits* const outputFormat = FormatWanted(request);
    InputFile input(request.input);
    const bool becomesPdf = outputFormat != nullptr && outputFormat->format == FileFormat::kPdf;
    if (IsPdf(input)) {
      if (outputFormat != nullptr && !becomesPdf) {
        throw Refusal(ExitStatus::kUnsupported, input.name(),
                      "is a PDF document, which stays one; let OUTPUT end in .pdf");
      }
      return CleanPdf(request, input, progress);
    }
    if (becomesPdf) {
      throw Refusal(ExitStatus::kUnsupported, input.name(),
                    "is no PDF document, and such are written from PDF documents alone; write TIFF or PNG");
    }
    return PictureRun(request, std::move(input), outputFormat, progress).Run();
  } catch (const std::bad_alloc&) {
    throw Refusal(ExitStatus::kOutOfMemory, request.input, "not enough memory; close other programs");
  }
}

}  // namespace tessaline::cli
