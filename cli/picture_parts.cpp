#include "cli/picture_parts.h"

#include <errno.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <sstream>

#include "cli/machine_share.h"
#include "cli/picture_writer.h"
#include "cli/refusal.h"
#include "removal/spectrum_grid.h"

namespace tessaline::cli {

std::string NameForPart(const std::string& file, int page, const char* ink) {
  std::string mark;
  if (page > 0) mark.append("-").append(std::to_string(page + 1));
  if (ink != nullptr) mark.append("-").append(ink);
  const size_t slash = file.find_last_of('/');
  size_t dot = file.find_last_of('.');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) dot = file.size();
  return file.substr(0, dot) + mark + file.substr(dot);
}

const char* InkName(const PageKind& kind, int32_t part) {
  return kind.model == ColourModel::kCmyk ? kInkNames[part] : nullptr;
}

const char* ModelName(ColourModel model) {
  switch (model) {
    case ColourModel::kGrey:
      return "grey";
    case ColourModel::kRgb:
      return "rgb";
    case ColourModel::kLab:
      return "lab";
    case ColourModel::kCmyk:
      return "cmyk";
  }
  return "";
}

Outputs::Outputs(const PictureRequest& request, const InputFile& input)
    : request_(&request), inputs_(request.otherInputs) {
  inputs_.push_back(input.identity());
  if (!request.dryRun) {
    picture_ = request.output == "-" ? std::make_unique<OutputFile>(OutputFile::ToStandardOutput())
                                     : Open(request.output, request.overwrite);
    if (!input.isStandardInput()) picture_->TakeModeAndTimes(input.descriptor());
  }
  if (!request.reportFile.empty() && request.reportFile != "-")
    report_ = Open(request.reportFile, request.overwrite || request.overwritesReport);
}

std::unique_ptr<OutputFile> Outputs::Open(const std::string& file, bool overwrite) const {
  return std::make_unique<OutputFile>(file, overwrite, inputs_);
}

void Outputs::OpenDrawings(int page, const PageKind& kind) {
  const std::pair<const std::string&, Files&> drawings[] = {
      {request_->spectrumFile, spectra_}, {request_->maskFile, masks_}, {request_->gateFile, gates_}};
  for (int32_t part = 0; part < kind.parts(); ++part) {
    for (const auto& [file, files] : drawings) {
      if (!file.empty())
        files.push_back(Open(NameForPart(file, page, InkName(kind, part)), request_->overwrite));
    }
  }
}

void Outputs::Draw(size_t index, EngineOutcome* outcome) {
  if (!spectra_.empty()) {
    const auto rows = static_cast<int32_t>(outcome->spectrumPicture.size() / (3 * kSpectrumCells));
    WritePlainPng(outcome->spectrumPicture.data(), kSpectrumCells, rows, 3, spectra_[index].get());
  }
  if (!masks_.empty())
    WritePlainPng(outcome->maskPicture.data(), kSpectrumCells, kSpectrumCells, 1, masks_[index].get());
  if (!gates_.empty()) {
    const ImageView gate = outcome->gatePicture.view();
    WritePlainPng(gate.data, gate.width, gate.height, 1, gates_[index].get());
  }
  outcome->gatePicture.Release();
  outcome->spectrumPicture = {};
  outcome->maskPicture = {};
}

void Outputs::WriteReport(const Json& report) {
  if (request_->reportFile.empty()) return;
  const std::string text = ReportText("pictures", Json::array({report}));
  if (report_) {
    report_->Write(text.data(), text.size());
  } else if (!WriteFully(STDOUT_FILENO, text.data(), text.size())) {
    throw Refusal(ExitStatus::kCannotWrite, "standard output",
                  std::string("cannot be written: ") + strerror(errno));
  }
}

void Outputs::Commit() {
  for (const Files* files : {&spectra_, &masks_, &gates_})
    for (const auto& file : *files) file->Commit();
  if (report_) report_->Commit();
  // The picture last: who sees it finds the others.
  if (picture_) picture_->Commit();
}

EngineWishes WishesFor(const PictureRequest& request, const PageKind& kind) {
  EngineWishes wishes;
  wishes.settings = request.settings;
  wishes.onlyLook = request.dryRun;
  wishes.drawsSpectrum = !request.spectrumFile.empty() || !request.maskFile.empty();
  wishes.restoration = request.restoration;
  if (kind.model == ColourModel::kLab) wishes.restoration.meaning = ChannelMeaning::kOpponents;
  // Inks are told by the share of paper that they cover, which averages as light does.
  if (kind.model == ColourModel::kCmyk) wishes.restoration.light.light = Light::kCoded;
  wishes.drawsGate = !request.gateFile.empty();
  return wishes;
}

std::string Plain(float value) {
  std::ostringstream text;
  text << value;
  return text.str();
}

std::string Advice(const Settings& settings) {
  if (settings.acceptance < kAcceptanceRange.maximum) {
    return "try a higher acceptance (on small pictures 80 to 95 is usual) or -a auto";
  }
  return "try -a auto, or for a coarse pattern a larger protection radius (-p)";
}

double SecondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

bool IsTiled(const PictureRequest& request, const PageKind& kind) {
  return request.tileSide || kind.width > kLargestSide || kind.height > kLargestSide;
}

const PageKind& LargestOf(const std::vector<PageKind>& kinds) {
  return *std::max_element(kinds.begin(), kinds.end(),
                           [](const PageKind& a, const PageKind& b) { return PixelsOf(a) < PixelsOf(b); });
}

int DemandMemory(const PictureRequest& request, const std::string& name, const std::vector<PageKind>& kinds,
                 std::optional<FileFormat> written, uint64_t reading) {
  MemoryUse use = {request.settings.isAutomatic,
                   FixedThreads(request).value_or(UsableProcessors()),
                   written,
                   request.tileSide.has_value(),
                   request.tileSide.value_or(0),
                   reading};
  const auto needed = [&] {
    uint64_t bytes = 0;
    for (const PageKind& kind : kinds) bytes = std::max(bytes, MemoryNeeded(kind, use));
    return bytes;
  };
  if (request.beforeReading) request.beforeReading(needed());
  const uint64_t available = AvailableMemory(), left = LeftByLimits();
  const auto fits = [&] { return needed() <= available && needed() + BytesOfStacks(use.threads) <= left; };
  while (!fits() && use.threads > 1) --use.threads;
  if (fits()) return use.threads;
  const auto inMiB = [](uint64_t bytes) { return std::to_string(bytes >> 20) + " MiB"; };
  const bool isCheap = !written || *written == FileFormat::kPng || *written == FileFormat::kTiff;
  const bool isOfLimit = needed() <= available;
  throw Refusal(
      ExitStatus::kOutOfMemory, name,
      "needs about " + inMiB(isOfLimit ? needed() + BytesOfStacks(1) : needed()) + " of memory, and " +
          (isOfLimit ? inMiB(left) + " are left by this shell's limits (ulimit -v, ulimit -d); raise them"
                     : inMiB(available) + " can be had; close other programs") +
          (isCheap ? "" : ", write PNG or TIFF,") + " or clean it in tiles (--tile 774)");
}

std::optional<int> FixedThreads(const PictureRequest& request) {
  if (request.threads > 0) return request.threads;
  if (request.sharedThreads.threads != nullptr) return std::nullopt;
  return UsableProcessors();
}

std::unique_ptr<Parallel> MakePool(const PictureRequest& request, const PageKind& kind, int most) {
  if (const std::optional<int> threads = FixedThreads(request))
    return MakeThreadPool(std::min(*threads, most));
  return MakeSharedPool(request.sharedThreads, PixelsOf(kind), most);
}

}  // namespace tessaline::cli
