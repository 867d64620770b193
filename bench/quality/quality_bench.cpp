// The judge of what users see: prints with known originals and pictures without a pattern, before and after
// runs by number, by the automatic decision with its notches alone, and by all of the automatic run. Notch
// radius 6, protection radius 8.
//
//   build/native/bench/quality_bench                  tables in Markdown
//   build/native/bench/quality_bench --small          some pictures; status 1 where one falls below its floor
//   build/native/bench/quality_bench --save FOLDER    also writes the pictures, to be looked at
//   build/native/bench/quality_bench --random 200 [--seed 1]  prints and others that nobody chose, each from
//   a
//                                                     seed of its own: what no rule was made for; without
//                                                     runs by number and notches alone
//
// "Best blur" is the Gaussian that comes nearest to the original, which only who has the original can pick.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "bench/quality/measures.h"
#include "bench/quality/pictures.h"
#include "removal/steps.h"
#include "restoration/decision.h"
#include "restoration/restoration.h"
#include "samples/picture_files.h"

namespace tessaline::quality {
namespace {

using samples::Picture;
using samples::Printed;

enum Way { kBefore, kBy60, kBy98, kNotchesAlone, kAutomatic, kBlur, kWays };
constexpr const char* kWayNames[kWays] = {"before", "60", "98", "auto, notches alone", "auto", "best blur"};

// A picture as whole samples, which every way starts from.
class Levels {
 public:
  Levels(const Picture& picture, bool is16) : width_(picture.width), levels_(is16 ? 65535.0f : 255.0f) {
    for (const float sample : picture.samples) {
      const auto level = static_cast<uint16_t>(std::lround(std::clamp(sample, 0.0f, 1.0f) * levels_));
      is16 ? wide_.push_back(level) : narrow_.push_back(static_cast<uint8_t>(level));
    }
    const ptrdiff_t bytes = is16 ? 2 : 1, pixel = bytes * picture.channels;
    uint8_t* const data = is16 ? reinterpret_cast<uint8_t*>(wide_.data()) : narrow_.data();
    view_ = {picture.width, picture.height, is16 ? SampleFormat::kFull16 : SampleFormat::kByte,
             picture.channels};
    for (int c = 0; c < picture.channels; ++c) view_.channel[c] = {data + c * bytes, pixel, pixel * width_};
  }
  Levels(const Levels&) = delete;
  Levels& operator=(const Levels&) = delete;

  const PictureView& view() const { return view_; }
  Picture picture() const {
    Picture picture(view_.width, view_.height, view_.channels);
    for (size_t i = 0; i < picture.samples.size(); ++i) {
      picture.samples[i] = (narrow_.empty() ? float(wide_[i]) : float(narrow_[i])) / levels_;
    }
    return picture;
  }

 private:
  int width_;
  float levels_;
  std::vector<uint8_t> narrow_;
  std::vector<uint16_t> wide_;
  PictureView view_;
};

struct Cleaned {
  Picture picture;
  bool isChanged;
};

// One run as the program makes it: where nothing is found, the picture stays sample for sample. `curve` is
// what the file tells, null where it tells nothing.
Cleaned Clean(const Picture& before, bool is16, const ToneCurve* curve, Way way, Workspace& workspace) {
  const Levels levels(before, is16);
  const PictureView& view = levels.view();
  Settings settings;
  settings.isAutomatic = way == kNotchesAlone || way == kAutomatic;
  if (way == kBy98) settings.acceptance = 98;
  Analysis analysis;
  Findings findings;
  Mask mask;
  int32_t result = Analyse(view, workspace, {}, &analysis);
  if (result == kSuccess) {
    result = way == kAutomatic ? DecideWhole(view, analysis, settings, workspace, &findings)
                               : Decide(analysis, settings, &findings);
  }
  if (result == kSuccess) result = Shape(findings, settings, &mask);
  const bool isFound = findings.seedCells > 0;
  const ApplyOptions options = {Rounding::kTruncate, analysis.chain};
  if (result == kSuccess && isFound) {
    RestorationSettings restoration;
    restoration.light.curve = curve;
    result = way == kAutomatic ? Restore(view, view, findings, mask, workspace, options, restoration, {})
                               : Apply(view, view, mask, workspace, options, {});
  }
  if (result != kSuccess) std::fprintf(stderr, "a run ended with %d\n", result);
  return {levels.picture(), isFound};
}

// What became of one picture.
struct Row {
  std::string family, name;
  bool isPrint = false;
  bool isTried[kWays] = {}, isChanged[kWays] = {};
  Nearness nearness[kWays] = {};
  double blurSigma = 0;
  // Of pages.
  bool isPage = false;
  double kept[kWays] = {};
  double rim[kWays] = {};
  double floor = 0, rimFloor = 0;
};

// Ways that were not tried have no figures.
bool IsKnown(const Row& row, int way) {
  return way == kBefore || way == kBlur || row.isTried[way];
}

struct Options {
  bool isSmall = false;
  uint64_t random = 0, seed = 1;
  std::string only, folder;
};

void Save(const Options& options, const Row& row, const char* what, const Picture& picture) {
  if (options.folder.empty()) return;
  std::string name = row.family + "-" + row.name + "-" + what + ".png";
  std::replace_if(
      name.begin(), name.end(), [](char c) { return c == ' ' || c == ','; }, '_');
  samples::WritePng(options.folder + "/" + name, picture, 300);
}

Row JudgePrint(const PrintCase& print, const Options& options, Workspace& workspace) {
  constexpr int kRim = 6, kTextMargin = 8;  // pixels
  Row row{print.family, print.name, true};
  row.floor = print.floor;
  row.rimFloor = print.rimFloor;
  row.isPage = print.spacing > 0;
  const Printed printed = Draw(print);
  const Picture before = Levels(printed.picture, print.is16).picture();
  const auto judge = [&](Way way, const Picture& picture) {
    row.nearness[way] = NearnessOf(picture, printed.original);
    if (!row.isPage) return;
    row.kept[way] = ShareKept(before, picture, print.press.frame, kTextMargin);
    row.rim[way] = PsnrOfRim(picture, printed.original, print.press.frame, kRim);
  };
  const ToneCurve* const curve = print.press.gamma != 1 ? &ToneCurve::Srgb() : nullptr;  // a scanner tells it
  judge(kBefore, before);
  Save(options, row, "before", before);
  Save(options, row, "original", printed.original);
  for (const Way way : {kBy60, kBy98, kNotchesAlone, kAutomatic}) {
    if ((options.isSmall || options.random > 0) && way != kAutomatic) continue;
    row.isTried[way] = true;
    const Cleaned cleaned = Clean(before, print.is16, curve, way, workspace);
    row.isChanged[way] = cleaned.isChanged;
    judge(way, cleaned.picture);
    if (way >= kNotchesAlone) Save(options, row, kWayNames[way], cleaned.picture);
  }
  if (options.isSmall) return row;
  const BestBlur blur = FindBestBlur(before, printed.original);
  row.blurSigma = blur.sigma;
  row.nearness[kBlur] = blur.nearness;
  return row;
}

Row JudgeClean(const CleanCase& clean, const Options& options, Workspace& workspace) {
  Row row{clean.family, clean.name};
  const Picture before = Levels(clean.draw(), false).picture();
  Save(options, row, "before", before);
  for (const Way way : {kBy60, kBy98, kNotchesAlone, kAutomatic}) {
    if ((options.isSmall || options.random > 0) && way != kAutomatic) continue;
    row.isTried[way] = true;
    const Cleaned cleaned = Clean(before, false, nullptr, way, workspace);
    row.isChanged[way] = cleaned.isChanged;
    if (cleaned.isChanged) row.nearness[way] = NearnessOf(cleaned.picture, before);
    if (way == kAutomatic && cleaned.isChanged) Save(options, row, kWayNames[way], cleaned.picture);
  }
  return row;
}

// The wanted pictures, judged by two threads.
std::vector<Row> JudgeAll(const Options& options) {
  std::vector<PrintCase> prints;
  std::vector<CleanCase> cleans;
  for (uint64_t i = 0; i < options.random; ++i) {
    prints.push_back(RandomPrint(options.seed + i));
    cleans.push_back(RandomClean(options.seed + i));
  }
  if (options.random == 0) {
    const auto [fixedPrints, fixedCleans] = std::pair(PrintCases(), CleanCases());
    prints.assign(fixedPrints.begin(), fixedPrints.end());
    cleans.assign(fixedCleans.begin(), fixedCleans.end());
  }
  const auto isUnwanted = [&](const auto& picture, bool isSmall) {
    return (options.isSmall && !isSmall) ||
           (picture.family + ", " + picture.name).find(options.only) == std::string::npos;
  };
  std::erase_if(prints, [&](const PrintCase& print) { return isUnwanted(print, print.floor > 0); });
  std::erase_if(cleans, [&](const CleanCase& clean) { return isUnwanted(clean, clean.isSmall); });
  std::vector<Row> rows(prints.size() + cleans.size());
  std::atomic<size_t> next = 0;
  const auto work = [&] {
    Workspace workspace;
    for (size_t i = next++; i < rows.size(); i = next++) {
      rows[i] = i < prints.size() ? JudgePrint(prints[i], options, workspace)
                                  : JudgeClean(cleans[i - prints.size()], options, workspace);
    }
  };
  std::thread other(work);
  work();
  other.join();
  return rows;
}

// ---- Tables ----

void PrintHead(const char* first) {
  std::printf("\n| %s |", first);
  for (const char* const name : kWayNames) std::printf(" %s |", name);
  std::printf("\n|---|");
  for (int way = 0; way < kWays; ++way) std::printf("---|");
  std::printf("\n");
}

void PrintPicture(const Row& row) {
  std::printf("| %s, %s |", row.family.c_str(), row.name.c_str());
  for (int way = 0; way < kWays; ++way) {
    const Nearness& at = row.nearness[way];
    const bool isRun = way != kBefore && way != kBlur;
    if (!IsKnown(row, way)) {
      std::printf(" -");
    } else if (isRun && !row.isChanged[way]) {
      std::printf(" untouched");
    } else {
      std::printf(" %.2f %.3f", at.psnr, at.ssim);
    }
    if (way == kBlur) std::printf(" (%.1f px)", row.blurSigma);
    std::printf(" |");
  }
  std::printf("\n");
}

void PrintPictures(const std::vector<Row>& rows) {
  PrintHead("print");
  for (const Row& row : rows) {
    if (row.isPrint) PrintPicture(row);
  }
}

void PrintAverages(const std::vector<Row>& rows) {
  struct Sum {
    std::string family;
    double psnr[kWays] = {}, ssim[kWays] = {};
    int count = 0, wonByBlur = 0;
  };
  std::vector<Sum> sums;
  Sum all{"all prints"};
  for (const Row& row : rows) {
    if (!row.isPrint) continue;
    auto own =
        std::find_if(sums.begin(), sums.end(), [&](const Sum& sum) { return sum.family == row.family; });
    if (own == sums.end()) own = sums.insert(own, {row.family});
    for (Sum* const sum : {&*own, &all}) {
      for (int way = 0; way < kWays; ++way) {
        sum->psnr[way] += row.nearness[way].psnr, sum->ssim[way] += row.nearness[way].ssim;
      }
      ++sum->count;
      sum->wonByBlur += row.nearness[kBlur].psnr > row.nearness[kAutomatic].psnr;
    }
  }
  sums.push_back(all);
  PrintHead("mean of prints");
  for (const Sum& sum : sums) {
    std::printf("| %s (%d) |", sum.family.c_str(), sum.count);
    for (int way = 0; way < kWays; ++way) {
      if (sum.psnr[way] == 0.0) {
        std::printf(" - |");
        continue;
      }
      std::printf(" %.2f %.3f", sum.psnr[way] / sum.count, sum.ssim[way] / sum.count);
      if (way == kBlur) std::printf(", wins %d", sum.wonByBlur);
      std::printf(" |");
    }
    std::printf("\n");
  }
}

// Prints that something simpler makes better, or that nothing was found in.
void PrintWorst(const std::vector<Row>& rows) {
  PrintHead("beaten or missed");
  for (const Row& row : rows) {
    constexpr double kMargin = 0.1;  // dB
    const double simpler =
        std::max({row.nearness[kBefore].psnr, row.nearness[kBy60].psnr, row.nearness[kBy98].psnr,
                  row.nearness[kNotchesAlone].psnr, row.nearness[kBlur].psnr});
    if (row.isPrint && row.nearness[kAutomatic].psnr < simpler + kMargin) PrintPicture(row);
  }
}

void PrintPages(const std::vector<Row>& rows) {
  std::printf(
      "\n| page | text kept: 60 | 98 | auto, notches alone | auto | rim of the picture: notches alone | auto "
      "|\n");
  std::printf("|---|---|---|---|---|---|---|\n");
  for (const Row& row : rows) {
    if (!row.isPage) continue;
    std::printf("| %s |", row.name.c_str());
    for (const Way way : {kBy60, kBy98, kNotchesAlone, kAutomatic}) {
      IsKnown(row, way) ? std::printf(" %.4f |", row.kept[way]) : std::printf(" - |");
    }
    for (const Way way : {kNotchesAlone, kAutomatic}) {
      IsKnown(row, way) ? std::printf(" %.2f |", row.rim[way]) : std::printf(" - |");
    }
    std::printf("\n");
  }
}

void PrintFalseLicences(const std::vector<Row>& rows) {
  int count = 0, changed[kWays] = {};
  for (const Row& row : rows) {
    if (row.isPrint) continue;
    ++count;
    for (int way = 0; way < kWays; ++way) changed[way] += row.isChanged[way];
  }
  PrintHead("without a pattern");
  for (const Row& row : rows) {
    if (row.isPrint || std::none_of(row.isChanged, row.isChanged + kWays, [](bool is) { return is; }))
      continue;
    std::printf("| %s, %s |", row.family.c_str(), row.name.c_str());
    for (int way = 0; way < kWays; ++way) {
      row.isChanged[way] ? std::printf(" %.1f |", row.nearness[way].psnr) : std::printf(" |");
    }
    std::printf("\n");
  }
  std::printf("| changed, of %d |", count);
  for (int way = 0; way < kWays; ++way) std::printf(" %d |", changed[way]);
  std::printf("\n");
}

// Of the small form.
int CheckFloors(const std::vector<Row>& rows) {
  int faults = 0;
  for (const Row& row : rows) {
    constexpr double kLeastKept = 0.99;
    const bool isRimFault =
        row.isPage && (row.kept[kAutomatic] < kLeastKept || row.rim[kAutomatic] < row.rimFloor);
    const bool isFault =
        isRimFault || (row.isPrint ? row.nearness[kAutomatic].psnr < row.floor : row.isChanged[kAutomatic]);
    faults += isFault;
    std::printf("%s %s, %s:", isFault ? "FAULT" : "good ", row.family.c_str(), row.name.c_str());
    row.isPrint ? std::printf(" %.2f dB, floor %.2f\n", row.nearness[kAutomatic].psnr, row.floor)
                : std::printf(" %s\n", row.isChanged[kAutomatic] ? "changed" : "untouched");
    if (row.isPage) {
      std::printf("      rim %.2f dB, floor %.2f; text kept %.4f, floor %.2f\n", row.rim[kAutomatic],
                  row.rimFloor, row.kept[kAutomatic], kLeastKept);
    }
  }
  return faults > 0 ? 1 : 0;
}

int Main(int argc, char** argv) {
  CLI::App app("Judges what the automatic run makes of pictures whose originals are known.");
  Options options;
  app.add_flag("--small", options.isSmall, "Some pictures; status 1 where one falls below its floor");
  app.add_option("--only", options.only, "Only pictures whose family and name hold this text");
  app.add_option("--random", options.random,
                 "So many prints and so many others, each from a seed of its own");
  app.add_option("--seed", options.seed, "The first of them")->capture_default_str();
  app.add_option("--save", options.folder, "A folder for the pictures; made when missing");
  CLI11_PARSE(app, argc, argv);
  if (!options.folder.empty()) std::filesystem::create_directories(options.folder);
  const std::vector<Row> rows = JudgeAll(options);
  if (options.isSmall) return CheckFloors(rows);
  std::printf("PSNR in dB and SSIM.\n");
  PrintPictures(rows);
  PrintAverages(rows);
  PrintWorst(rows);
  PrintPages(rows);
  PrintFalseLicences(rows);
  return 0;
}

}  // namespace
}  // namespace tessaline::quality

int main(int argc, char** argv) {  // NOLINT(bugprone-exception-escape): what fails here ends the bench
  return tessaline::quality::Main(argc, argv);
}
