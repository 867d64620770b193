#include "cli/pdf_run.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "cli/engine_run.h"
#include "cli/found_words.h"
#include "cli/light_curve.h"
#include "cli/machine_share.h"
#include "cli/page_samples.h"
#include "cli/pdf_document.h"
#include "cli/picture_file.h"
#include "cli/picture_parts.h"
#include "cli/picture_writer.h"
#include "cli/png_writer.h"
#include "cli/tiled_page.h"

namespace tessaline::cli {
namespace {

constexpr char kUnlikeItsData[] = "of another size or kind than their data";

std::string CountedPictures(size_t count) {
  return std::to_string(count) + (count == 1 ? " picture" : " pictures");
}

// What came of an image, or of one of its inks.
struct ImageOutcome : PartOutcome {
  size_t image = 0;  // index in the document
};

// One image in memory or in tiles, and its rows when it is clean.
class ImageCleaning {
 public:
  ImageCleaning(const PictureFile& picture, Engine& engine, const PictureRequest& request)
      : picture_(picture), engine_(engine), request_(request) {}

  // Runs over every part; progress from 0 to 1.
  std::vector<EngineOutcome> Run(const EngineWishes& wishes, bool isTiled, const EngineProgress& progress) {
    const int32_t parts = picture_.kind(0).parts();
    if (!isTiled) picture_.ReadPage(0, &samples_);
    std::vector<EngineOutcome> outcomes;
    for (int32_t part = 0; part < parts; ++part) {
      const EngineProgress ofPart = [&progress, part, parts](double fraction, const char* doing) {
        progress((part + fraction) / parts, doing);
      };
      if (isTiled) {
        tiles_.push_back(std::make_unique<TiledPage>(picture_, 0, part, engine_,
                                                     request_.tileSide.value_or(0), EngineProgress()));
        outcomes.push_back(tiles_.back()->Look(wishes, ofPart));
        continue;
      }
      outcomes.push_back(
          RunEngine(samples_.picture(part), engine_.workspace(), wishes, ofPart, picture_.path()));
      if (outcomes.back().samplesChanged) samples_.SetChanged(part);
    }
    return outcomes;
  }

  void FillRow(int32_t y, void* row) {
    if (tiles_.empty()) return samples_.FillRow(y, row);
    for (const auto& part : tiles_) part->NextRow(row);
  }

 private:
  const PictureFile& picture_;
  Engine& engine_;
  const PictureRequest& request_;
  PageSamples samples_;
  std::vector<std::unique_ptr<TiledPage>> tiles_;
};

class PdfRun {
 public:
  PdfRun(const PictureRequest& request, const InputFile& input, ProgressBar* progress)
      : request_(request), input_(input), progress_(progress) {
    for (size_t i = 0; i < images_.size(); ++i)
      if (images_[i].isLookedAt) order_.push_back(i);
    if (!request_.gateFile.empty() &&
        std::any_of(order_.begin(), order_.end(), [this](size_t i) { return IsTiled(images_[i].kind); })) {
      throw Refusal(ExitStatus::kTooLarge, input_.name(),
                    "has a picture that is cleaned in tiles, of which no gate is drawn; leave --gate out");
    }
    for (size_t i = 0; i < order_.size(); ++i)
      outputs_.OpenDrawings(static_cast<int>(i), images_[order_[i]].kind);
    // A document is refused before its first picture, not in the middle. Rows are compressed as PNG does it.
    threads_ = DemandMemory(request_, input_.name(), KindsLookedAt(),
                            request_.dryRun ? std::nullopt : std::optional(FileFormat::kPng));
  }

  PictureOutcome Run() {
    const std::vector<PageKind> kinds = KindsLookedAt();
    Engine engine(MakePool(request_, kinds.empty() ? PageKind() : LargestOf(kinds), threads_));
    if (!request_.dryRun) store_.emplace(OutputFile::Nameless(), folder_, outputName_);
    for (size_t i = 0; i < order_.size(); ++i) RunImage(i, engine);
    const auto writing = std::chrono::steady_clock::now();
    if (!request_.dryRun) Write();
    writeSeconds_ += SecondsSince(writing);
    input_.DemandUnchanged();
    PictureOutcome outcome = {Notes(), Report(), Found()};
    outputs_.WriteReport(outcome.report);
    outputs_.Commit();
    return outcome;
  }

 private:
  bool IsTiled(const PageKind& kind) const { return cli::IsTiled(request_, kind); }
  std::vector<PageKind> KindsLookedAt() const {
    std::vector<PageKind> kinds;
    for (const size_t i : order_) kinds.push_back(images_[i].kind);
    return kinds;
  }

  std::string NameOf(size_t image) const {
    return input_.name() + ", picture " + std::to_string(image + 1) + " (page " +
           std::to_string(images_[image].page + 1) + ")";
  }

  void RunImage(size_t place, Engine& engine) {
    PdfImage& image = images_[order_[place]];
    const auto reading = std::chrono::steady_clock::now();
    const PictureFile picture(TakeOutPdfImage(image, folder_, NameOf(order_[place])));
    readSeconds_ += SecondsSince(reading);
    if (!IsAsTold(image, picture)) {
      image.isLookedAt = false;
      image.whyNot = kUnlikeItsData;
      return;
    }
    const std::string doing =
        " picture " + std::to_string(place + 1) + " of " + std::to_string(order_.size());
    const auto show = [&](double fraction, const char* what) {
      constexpr double kBeforeWriting = 0.95;
      const double share = (static_cast<double>(place) + fraction) / static_cast<double>(order_.size());
      progress_->Show(share * kBeforeWriting, FileNameOf(input_.name()) + ": " + what + doing);
    };
    ImageCleaning cleaning(picture, engine, request_);
    curve_ = request_.settings.isAutomatic ? CurveOf(image) : std::nullopt;
    bool isChanged = false;
    for (EngineOutcome& outcome : cleaning.Run(WishesOf(image), IsTiled(image.kind), show)) {
      outputs_.Draw(outcomes_.size(), &outcome);
      isChanged = isChanged || outcome.samplesChanged;
      const char* const ink = InkName(image.kind, static_cast<int32_t>(outcomes_.size() - firstOfImage_));
      outcomes_.push_back({{std::move(outcome), image.page, ink}, order_[place]});
    }
    firstOfImage_ = outcomes_.size();
    if (!isChanged) return;
    const auto writing = std::chrono::steady_clock::now();
    Store(image, picture, [&](int32_t y, void* row) { cleaning.FillRow(y, row); });
    writeSeconds_ += SecondsSince(writing);
  }

  // Data that are coded as a picture of their own tell what they hold; the document must agree.
  static bool IsAsTold(const PdfImage& image, const PictureFile& picture) {
    if (image.coding == PdfCoding::kSamples) return true;
    PageKind told = image.kind;
    if (told.model == ColourModel::kLab) told.model = ColourModel::kRgb;
    if (!(picture.kind(0) == told)) return false;
    if (image.coding == PdfCoding::kJpeg) return picture.format().format == FileFormat::kJpeg;
    // In memory any number of bits is on the scale of 8 or 16.
    return picture.format().format == FileFormat::kJpeg2000 && BitsOfJpeg2000(picture.file()) == told.bits;
  }

  static std::optional<ToneCurve> CurveOf(const PdfImage& image) {
    const ColourModel model = image.kind.model;
    if (!image.areColours || model == ColourModel::kLab || model == ColourModel::kCmyk) return std::nullopt;
    if (!image.profile.empty()) return LightCurveOfProfile(image.profile, image.kind.colours());
    return image.gamma ? LightCurveOfPower(*image.gamma) : std::nullopt;
  }

  EngineWishes WishesOf(const PdfImage& image) const {
    EngineWishes wishes = WishesFor(request_, image.kind);
    if (curve_) wishes.restoration.light.curve = &*curve_;
    if (!image.areColours) wishes.restoration.light.light = Light::kCoded;
    return wishes;
  }

  // The cleaned image as its stream is to hold it: JPEG again where it was, all else as rows without loss.
  void Store(const PdfImage& image, const PictureFile& picture, const RowFiller& fillRow) {
    const off_t begin = lseek(store_->descriptor(), 0, SEEK_CUR);
    PdfFilter filter = FilterOfRows(image.kind);
    const BorrowedThreads borrowed(request_.threads > 0 ? ThreadShare() : request_.sharedThreads);
    WritingWishes wishes;
    wishes.threads = std::min(FixedThreads(request_).value_or(1 + borrowed.count()), threads_);
    wishes.storage = request_.storage;
    if (image.coding == PdfCoding::kJpeg) {
      filter = FilterOfJpeg();
      WritePicture(picture.format(), picture, fillRow, &*store_, wishes);
    } else {
      CompressRows(image.kind, PngEffort::kStandard, wishes.threads, fillRow,
                   [this](const std::vector<uint8_t>& piece) { store_->Write(piece.data(), piece.size()); });
    }
    document_.Replace(image, filter, store_->descriptor(), begin, lseek(store_->descriptor(), 0, SEEK_CUR));
  }

  void Write() {
    if (ImagesWithPattern() == 0) return input_.CopyTo(outputs_.picture());
    progress_->Show(0.95, FileNameOf(input_.name()) + ": writing");
    document_.Write(outputs_.picture());
  }

  const ImageOutcome* Strongest() const {
    const auto at = std::find_if(outcomes_.begin(), outcomes_.end(),
                                 [](const ImageOutcome& outcome) { return outcome.patternFound; });
    return at == outcomes_.end() ? nullptr : &*at;
  }
  size_t ImagesWithPattern() const {
    size_t count = 0;
    const ImageOutcome* last = nullptr;
    for (const ImageOutcome& outcome : outcomes_) {
      if (!outcome.patternFound || (last != nullptr && last->image == outcome.image)) continue;
      ++count;
      last = &outcome;
    }
    return count;
  }
  size_t ImagesLookedAt() const {
    return static_cast<size_t>(std::count_if(images_.begin(), images_.end(),
                                             [](const PdfImage& image) { return image.isLookedAt; }));
  }

  std::string NameOfPattern(const ImageOutcome& outcome) const {
    const auto& resolution = images_[outcome.image].resolution;
    return request_.settings.isAutomatic ? NamePattern(outcome, resolution).text
                                         : CountNotches(outcome, resolution);
  }
  std::string Found() const { return Strongest() != nullptr ? NameOfPattern(*Strongest()) : ""; }

  std::string Sentence() const {
    const size_t looked = ImagesLookedAt();
    if (looked == 0) return "has no picture that could be cleaned, document unchanged";
    const ImageOutcome* const strongest = Strongest();
    if (strongest == nullptr) {
      const bool isAutomatic = request_.settings.isAutomatic;
      const std::string in = "found in " + CountedPictures(looked);
      if (!isAutomatic)
        return "no pattern " + in + " at acceptance " + Plain(request_.settings.acceptance) +
               ", document unchanged; " + Advice(request_.settings);
      return "auto: no regular pattern " + in + ", document unchanged" +
             (request_.settings.sensitivity < kSensitivityRange.maximum
                  ? " (--sensitivity " + Plain(kSensitivityRange.maximum) + " takes fainter ones)"
                  : "");
    }
    const std::string verb = request_.dryRun ? "found" : "taken out";
    if (outcomes_.size() == 1) {
      const bool isPlural = NamePattern(*strongest, std::nullopt).isPlural;
      return NameOfPattern(*strongest) + (isPlural || !request_.settings.isAutomatic ? " were " : " was ") +
             verb;
    }
    return "patterns in " + std::to_string(ImagesWithPattern()) + " of " + CountedPictures(looked) +
           " were " + (request_.dryRun ? "found" : "taken out") + ", on page " +
           std::to_string(strongest->page + 1) + " " + NameOfPattern(*strongest);
  }

  std::vector<std::string> Notes() const {
    const std::string subject = input_.name() + ": ";
    std::vector<std::string> notes = {subject + Sentence() +
                                      (request_.dryRun ? "" : "; written to " + outputName_)};
    std::map<std::string, size_t> left;
    for (const PdfImage& image : images_)
      if (!image.whyNot.empty()) ++left[image.whyNot];
    std::string list;
    for (const auto& [why, count] : left)
      list += (list.empty() ? "" : ", ") + CountedPictures(count) + " " + why;
    if (!list.empty()) notes.push_back(subject + "left as they are: " + list);
    for (const ImageOutcome& outcome : outcomes_) {
      if (!request_.verbose) break;
      const std::string ink = outcome.ink != nullptr ? std::string(", ") + outcome.ink : "";
      for (const std::string& line : DescribeInLines(outcome, images_[outcome.image].resolution))
        notes.push_back(NameOf(outcome.image) + ink + ": " + line);
    }
    return notes;
  }

  static Json ResolutionOf(const PdfImage& image) {
    if (!image.resolution) return nullptr;
    return Json{image.resolution->horizontal, image.resolution->vertical};
  }
  Json DescribeImage(size_t index) const {
    const PdfImage& image = images_[index];
    return {{"page", image.page + 1},
            {"picture", index + 1},
            {"width", image.kind.width},
            {"height", image.kind.height},
            {"pixelsPerInch", ResolutionOf(image)}};
  }

  Json Report() const {
    Json runs = Json::array(), left = Json::array();
    for (const ImageOutcome& outcome : outcomes_) {
      const PdfImage& image = images_[outcome.image];
      Json run = DescribeImage(outcome.image);
      run["colours"] = ModelName(image.kind.model);
      run["bitsPerSample"] = image.kind.bits;
      if (outcome.ink != nullptr) run["ink"] = outcome.ink;
      run.update(DescribeRun(outcome, image.resolution));
      runs.push_back(run);
    }
    for (size_t i = 0; i < images_.size(); ++i) {
      if (images_[i].isLookedAt) continue;
      left.push_back(DescribeImage(i));
      left.back()["reason"] = images_[i].whyNot.empty() ? "a mask, or small" : images_[i].whyNot;
    }
    Json report =
        DescribeNames(request_.input, request_.dryRun ? std::nullopt : std::optional(request_.output));
    report.update(Json{
        {"status", static_cast<int>(ExitStatus::kDone)},
        {"format", "PDF"},
        {"width", nullptr},
        {"height", nullptr},
        {"colours", nullptr},
        {"bitsPerSample", nullptr},
        {"extraChannels", 0},
        {"pixelsPerInch", nullptr},
        {"documentPages", document_.pages()},
        {"parameters", DescribeSettings(request_.settings, request_.restoration)},
        {"pages", runs},
        {"leftAsTheyAre", left},
        {"seconds", {{"read", readSeconds_}, {"write", writeSeconds_}, {"total", SecondsSince(begun_)}}},
        {"peakMemoryBytes", PeakMemoryBytes()},
    });
    return report;
  }

  const std::chrono::steady_clock::time_point begun_ = std::chrono::steady_clock::now();
  const PictureRequest& request_;
  const InputFile& input_;
  ProgressBar* progress_;
  const std::string outputName_ = request_.output == "-" ? "standard output" : request_.output;
  // Pictures on their way; beside the output, where there is room for a whole document.
  const std::string folder_ =
      request_.dryRun || request_.output == "-" ? FolderOfTemporaries() : FolderOf(request_.output);
  PdfDocument document_{input_};
  std::vector<PdfImage>& images_ = document_.images();
  std::vector<size_t> order_;  // of the images that are looked at
  Outputs outputs_{request_, input_};
  std::optional<OutputFile> store_;  // cleaned images, one behind the other
  std::optional<ToneCurve> curve_;   // of the image in work
  std::vector<ImageOutcome> outcomes_;
  size_t firstOfImage_ = 0;  // outcome of the image in work
  int threads_ = 1;          // at most
  double readSeconds_ = 0, writeSeconds_ = 0;
};

}  // namespace

PictureOutcome CleanPdf(const PictureRequest& request, const InputFile& input, ProgressBar* progress) {
  return PdfRun(request, input, progress).Run();
}

}  // namespace tessaline::cli
