#include "cli/options.h"

#include <jconfig.h>
#include <tiffio.h>
#include <unistd.h>
#include <vips/vips.h>
#include <zlib.h>

#include <CLI/CLI.hpp>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <qpdf/QPDF.hh>
#include <sstream>

#include "cli/option_pages.h"
#include "cli/output_file.h"
#include "cli/picture_list.h"
#include "cli/refusal.h"
#include "tiling/tiled_run.h"

namespace tessaline::cli {
namespace {

constexpr const char* kPictureUsage = "tessaline [options] INPUT OUTPUT";
constexpr const char* kStreamUsage =
    "tessaline stream --width W --height H --pix-fmt F [options] INPUT OUTPUT";
constexpr int64_t kMostJobs = 256;
constexpr int kMostThreads = 256;
constexpr int64_t kMostFrames = int64_t{1} << 53;  // what a report's numbers hold exactly

Refusal WrongUsage(const std::string& what, const char* usage) {
  return Refusal(ExitStatus::kWrongUsage, what + " (usage: " + usage + "; more with --help)");
}

// The whole text as a number, whatever the locale; nothing else before or behind it.
template <typename Number>
std::optional<Number> WholeTextAsNumber(const std::string& text) {
  Number value{};
  const char* first = text.c_str();
  const char* last = first + text.size();
  if (first != last && *first == '+') ++first;
  const auto [end, error] = std::from_chars(first, last, value);
  if (error != std::errc() || end != last) return std::nullopt;
  return value;
}

std::string Plain(double value) {
  std::ostringstream text;
  text << value;
  return text.str();
}

// One numeric option: its text as given, checked after the whole line was read.
struct NumberOption {
  const char* name;  // as messages have it
  const char* unit;
  double minimum;
  double maximum;
  bool isWhole;
};

double Checked(const NumberOption& option, const std::string& text, const char* usage) {
  std::optional<double> value;
  if (option.isWhole) {
    if (const auto whole = WholeTextAsNumber<int64_t>(text)) value = static_cast<double>(*whole);
  } else {
    value = WholeTextAsNumber<double>(text);
  }
  // Written so that not-a-number fails too.
  if (!value || !(*value >= option.minimum && *value <= option.maximum)) {
    std::ostringstream range;
    range.precision(12);
    range << option.minimum;
    const bool isOpen = option.maximum >= static_cast<double>(kMostFrames);
    if (isOpen) {
      range << " or more";
    } else {
      range << ".." << option.maximum;
    }
    throw WrongUsage(std::string(option.name) + " takes " + (option.isWhole ? "a whole number" : "a number") +
                         ", " + range.str() + (*option.unit ? std::string(" ") + option.unit : "") +
                         ", not '" + text + "'",
                     usage);
  }
  return *value;
}

NumberOption FromRange(const char* name, const char* unit, const SettingRange& range) {
  // The bounds as they are written: the double that a user's 1.3 is lies above the float.
  const auto written = [](float bound) { return std::round(double{bound} * 1e6) / 1e6; };
  return {name, unit, written(range.minimum), written(range.maximum), false};
}

// The options that pictures and streams share.
struct SharedTexts {
  std::string acceptance, sensitivity, polish, light, notchRadius, protectionRadius, threads, report;
  bool everywhere = false, progress = false, quiet = false, overwrite = false;
};

std::string Describe(const char* what, const SettingRange& range, const char* unit) {
  return std::string(what) + ", " + Plain(range.minimum) + ".." + Plain(range.maximum) + " " + unit +
         " (default " + Plain(range.standard) + ")";
}

// What the options are for, as the help texts have it.
constexpr const char* kFinding = "What is found";
constexpr const char* kRemoving = "What is taken out";
constexpr const char* kShowing = "To see what was found";
constexpr const char* kManyPictures = "Many pictures";
constexpr const char* kWriting = "How pictures are written";
constexpr const char* kFrames = "Frames";
constexpr const char* kWork = "How the work is done";

CLI::Option* AddLastWins(CLI::App& app, const std::string& names, std::string& target,
                         const std::string& description, const char* placeholder) {
  return app.add_option(names, target, description)
      ->type_name(placeholder)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
}

void AddSharedOptions(CLI::App& app, SharedTexts& texts) {
  AddLastWins(app, "-a,--acceptance", texts.acceptance,
              Describe("Pattern frequency acceptance: higher finds more", kAcceptanceRange, "percent") +
                  "; or auto, found from the picture itself",
              "PERCENT|auto");
  AddLastWins(app, "--sensitivity", texts.sensitivity,
              "With -a auto: higher takes fainter patterns, " + Plain(kSensitivityRange.minimum) + ".." +
                  Plain(kSensitivityRange.maximum) + " (default " + Plain(kSensitivityRange.standard) + ")",
              "S");
  app.add_flag("--everywhere", texts.everywhere,
               "With -a auto: take the pattern out of the whole picture, also where it is not seen");
  AddLastWins(app, "--polish", texts.polish,
              "With -a auto: how much of what the notches leave is smoothed, " + Plain(kPolishRange.minimum) +
                  ".." + Plain(kPolishRange.maximum) + " (default " + Plain(kPolishRange.standard) +
                  "; 0 nothing)",
              "P");
  AddLastWins(
      app, "--light", texts.light,
      "With -a auto: keep tones as light (linear) or as levels (coded); auto (default): light, for dot "
      "screens in files that tell how they are coded",
      "LIGHT");
  AddLastWins(app, "-n,--notch-radius", texts.notchRadius,
              Describe("Radius of what is taken out round each peak", kNotchRadiusRange, "spectrum cells"),
              "CELLS");
  AddLastWins(app, "-p,--protection-radius", texts.protectionRadius,
              Describe("Periods longer than twice this are protected", kProtectionRadiusRange, "pixels"),
              "PIXELS");
  AddLastWins(app, "--threads", texts.threads,
              "Threads for one picture, 1..256 (default: the processors it may use); the result is the same",
              "N");
  AddLastWins(app, "--report", texts.report, "Write what was found as JSON; - is stdout", "FILE");
  app.add_flag("--progress", texts.progress, "Progress on stderr (default where stderr is a terminal)");
  app.add_flag("-q,--quiet", texts.quiet, "Only errors on stderr");
  app.add_flag("-f,--force", texts.overwrite, "Overwrite existing output files");
}

// A section of the help for every option but --help and --version.
constexpr std::pair<const char*, const char*> kSections[] = {
    {"--acceptance", kFinding},
    {"--sensitivity", kFinding},
    {"--everywhere", kRemoving},
    {"--polish", kRemoving},
    {"--light", kRemoving},
    {"--notch-radius", kRemoving},
    {"--protection-radius", kFinding},
    {"--threads", kWork},
    {"--report", kShowing},
    {"--progress", kWork},
    {"--quiet", kWork},
    {"--force", kWriting},
    {"--spectrum", kShowing},
    {"--mask", kShowing},
    {"--gate", kShowing},
    {"--dry-run", kShowing},
    {"--output-dir", kManyPictures},
    {"--compression", kWriting},
    {"--quality", kWriting},
    {"--format", kWriting},
    {"--suffix", kManyPictures},
    {"--recursive", kManyPictures},
    {"--files-from", kManyPictures},
    {"--null", kManyPictures},
    {"--skip-done", kManyPictures},
    {"--log", kManyPictures},
    {"--reports", kManyPictures},
    {"--memory", kWork},
    {"--jobs", kManyPictures},
    {"--tile", kWork},
    {"--verbose", kShowing},
    {"--width", kFrames},
    {"--height", kFrames},
    {"--pix-fmt", kFrames},
    {"--first", kFrames},
    {"--last", kFrames},
    {"--freeze", kFrames},
};

void PutIntoSections(CLI::App& app) {
  // Asking the library for an option by its name without an exception ends the program where memory does.
  for (CLI::Option* const option : app.get_options()) {
    for (const auto& [name, section] : kSections) {
      if (option->check_lname(name + 2)) option->group(section);
    }
  }
}

int ReadThreads(const SharedTexts& texts, const char* usage) {
  const NumberOption range = {"--threads", "", 1, kMostThreads, true};
  return texts.threads.empty() ? 0 : static_cast<int>(Checked(range, texts.threads, usage));
}

Settings ReadSettings(const SharedTexts& texts, const char* usage) {
  Settings settings;
  const auto read = [usage](const std::string& text, const NumberOption& option, float& value) {
    if (!text.empty()) value = static_cast<float>(Checked(option, text, usage));
  };
  settings.isAutomatic = texts.acceptance == "auto";
  if (!settings.isAutomatic) {
    const NumberOption acceptance = FromRange("--acceptance", "percent or auto", kAcceptanceRange);
    read(texts.acceptance, acceptance, settings.acceptance);
  }
  if (!texts.sensitivity.empty()) {
    if (!settings.isAutomatic) throw WrongUsage("--sensitivity belongs to --acceptance auto", usage);
    settings.sensitivity =
        Checked(FromRange("--sensitivity", "", kSensitivityRange), texts.sensitivity, usage);
  }
  read(texts.notchRadius, FromRange("--notch-radius", "spectrum cells", kNotchRadiusRange),
       settings.notchRadius);
  read(texts.protectionRadius, FromRange("--protection-radius", "pixels", kProtectionRadiusRange),
       settings.protectionRadius);
  return settings;
}

constexpr std::pair<const char*, Light> kLights[] = {
    {"auto", Light::kAuto}, {"coded", Light::kCoded}, {"linear", Light::kLinear}};

Light ReadLight(const std::string& text, const char* usage) {
  for (const auto& [name, light] : kLights) {
    if (text == name) return light;
  }
  throw WrongUsage("--light takes linear, coded or auto, not '" + text + "'", usage);
}

RestorationSettings ReadRestoration(const SharedTexts& texts, bool isAutomatic, const char* usage) {
  RestorationSettings restoration;
  if (!isAutomatic && texts.everywhere) throw WrongUsage("--everywhere belongs to --acceptance auto", usage);
  if (!isAutomatic && !texts.polish.empty()) {
    throw WrongUsage("--polish belongs to --acceptance auto", usage);
  }
  if (!isAutomatic && !texts.light.empty()) throw WrongUsage("--light belongs to --acceptance auto", usage);
  if (!texts.light.empty()) restoration.light.light = ReadLight(texts.light, usage);
  restoration.everywhere = texts.everywhere;
  if (!texts.polish.empty()) {
    restoration.polish =
        static_cast<float>(Checked(FromRange("--polish", "", kPolishRange), texts.polish, usage));
  }
  return restoration;
}

Talk ReadTalk(const SharedTexts& texts) {
  return {texts.quiet, texts.progress || (!texts.quiet && isatty(STDERR_FILENO) != 0)};
}

// CLI11 takes an option given with an empty value as given; to this program that is a mistake.
void RefuseEmptyValues(const CLI::App& app, const char* usage) {
  for (const CLI::Option* option : app.get_options()) {
    for (const std::string& value : option->results()) {
      if (value.empty()) throw WrongUsage(option->get_name() + " needs a value", usage);
    }
  }
}

// The first lines of a help text are this program's own.
class HelpFormatter : public CLI::Formatter {
 public:
  explicit HelpFormatter(std::string usage) : usage_(std::move(usage)) { column_width(34); }
  std::string make_usage(const CLI::App*, std::string) const override { return usage_ + "\n"; }

 private:
  std::string usage_;
};

// The help text when that was asked for.
std::optional<PrintAndLeave> Parse(CLI::App& app, int argc, const char* const* argv, const char* usage) {
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp&) {
    return PrintAndLeave{app.help()};
  } catch (const CLI::ParseError& error) {
    std::string what = error.what();
    for (char& c : what) {
      if (c == '\n') c = ' ';
    }
    throw WrongUsage(what, usage);
  }
  RefuseEmptyValues(app, usage);
  return std::nullopt;
}

#define TESSALINE_AS_TEXT(words) #words
#define TESSALINE_TEXT_OF(macro) TESSALINE_AS_TEXT(macro)

// "LIBTIFF, Version 4.5.0", and a line of copyright after it.
std::string TiffVersion() {
  const std::string text = TIFFGetVersion();
  const size_t number = text.find_last_of(' ', text.find('\n')) + 1;
  return text.substr(number, text.find('\n') - number);
}

std::string VersionText() {
  std::ostringstream text;
  text << "tessaline " << TESSALINE_VERSION << "\n"
       << "libvips " << vips_version(0) << "." << vips_version(1) << "." << vips_version(2) << "\n"
       << "libtiff " << TiffVersion() << "\n"
       << "libjpeg-turbo " << TESSALINE_TEXT_OF(LIBJPEG_TURBO_VERSION) << "\n"
       << "zlib " << zlibVersion() << "\n"
       << "qpdf " << QPDF::QPDFVersion() << "\n"
       << "CLI11 " << CLI11_VERSION << "\n"
       << "nlohmann-json " << NLOHMANN_JSON_VERSION_MAJOR << "." << NLOHMANN_JSON_VERSION_MINOR << "."
       << NLOHMANN_JSON_VERSION_PATCH << "\n";
  return text.str();
}

constexpr const char* kPictureFooter = R"(
Pictures: reads PNG, TIFF (all pages), JPEG, WebP, GIF, PNM, JPEG 2000, JPEG XL, HEIF and AVIF; writes PNG, TIFF,
JPEG, WebP, PNM, JPEG 2000 and JPEG XL, decided by the extension of OUTPUT. Of a PDF document the pictures are cleaned in
their places. Grey, RGB, Lab and CMYK of 8 or 16 bits, of any size; alpha and metadata are kept. INPUT is never changed.
- is stdin, and stdout with --format.

Not sure of a number? -a auto finds it from the picture itself, also in real press halftones that no number reaches.
Nothing found with a number? Try a higher one: 80 to 95 is usual on small pictures.

Exit status: 0 done; 1 some of several pictures failed; 2 wrong usage; 3 input unreadable or damaged; 4 kind of
picture not supported; 5 too large for what is asked; 6 out of memory; 7 output cannot be written;
130 interrupted.

Examples:
  tessaline -a auto scan.png clean.png --spectrum spectrum.png
  tessaline --dry-run -a 95 --report - scan.png
  tessaline -a 90 --jobs 4 --output-dir cleaned scans/*.tif

Frames of a film: see tessaline stream --help.)";

constexpr const char* kStreamFooter = R"(
INPUT and OUTPUT are files of raw frames, one after the other, or - for stdin and stdout. Frames outside
--first..--last are read and dropped. 16-bit samples are little-endian and use the full range 0..65535.

With --freeze all frames get one decision, gathered over the first eight in which something is found (they wait
for it; frames before them stay as they are); with --freeze F that of frame F, which from a pipe must not lie
behind --first.

Example:
  ffmpeg -i in.mkv -f rawvideo -pix_fmt rgb24 - |
    tessaline stream --width 1920 --height 1080 --pix-fmt rgb24 -a auto --freeze - - |
    ffmpeg -f rawvideo -pix_fmt rgb24 -s 1920x1080 -r 25 -i - out.mkv)";

// INPUT OUTPUT. The output of a single picture may also be named by its folder or suffix.
PictureCommand::Files PairFiles(const std::vector<std::string>& arguments, const PictureCommand& command) {
  if (arguments.empty()) throw WrongUsage("INPUT is missing", kPictureUsage);
  if (!command.outputFolder.empty() || !command.suffix.empty()) {
    PictureCommand one = command;
    one.inputs = arguments;
    const PictureList list(one);
    return {list.Input(0), list.Output(0)};
  }
  if (arguments.size() == 1 && !command.dryRun) {
    throw WrongUsage("OUTPUT is missing: where is the clean picture to go?", kPictureUsage);
  }
  if (arguments.size() > 2) {
    throw WrongUsage("more than one INPUT needs --output-dir or --suffix", kPictureUsage);
  }
  return {arguments[0], arguments.size() == 2 ? arguments[1] : ""};
}

// What goes with many pictures only, and what they need.
void CheckBatch(const PictureCommand& command) {
  const bool hasPlace = !command.outputFolder.empty() || !command.suffix.empty();
  if (!hasPlace && !command.dryRun) {
    throw WrongUsage("many pictures need --output-dir or --suffix: where are the clean ones to go?",
                     kPictureUsage);
  }
  if (command.inputs.empty() && command.listFile.empty()) throw WrongUsage("INPUT is missing", kPictureUsage);
  if (!(command.spectrumFile.empty() && command.maskFile.empty() && command.gateFile.empty())) {
    throw WrongUsage("--spectrum, --mask and --gate take one picture at a time", kPictureUsage);
  }
  if (command.skipsDone && command.dryRun) {
    throw WrongUsage("--skip-done looks for outputs, and --dry-run writes none", kPictureUsage);
  }
  if (command.writesReports && !hasPlace) {
    throw WrongUsage("--reports go beside the outputs: give --output-dir or --suffix", kPictureUsage);
  }
  if (!command.reportFile.empty() && command.reportFile == command.logFile) {
    throw WrongUsage("--report and --log are the same file, " + command.logFile, kPictureUsage);
  }
}

void CheckStandardStreams(const PictureCommand& command) {
  const bool isNamedByInput = command.isBatch || !command.outputFolder.empty() || !command.suffix.empty();
  const auto isStandard = [](const std::string& input) { return input == "-"; };
  if (isNamedByInput && (std::any_of(command.inputs.begin(), command.inputs.end(), isStandard) ||
                         (!command.pictures.empty() && isStandard(command.pictures[0].input)))) {
    throw WrongUsage("- is one picture without a name: give INPUT OUTPUT", kPictureUsage);
  }
  const bool goesOut = !command.pictures.empty() && command.pictures[0].output == "-" && !command.dryRun;
  if (goesOut && command.format.empty()) {
    throw WrongUsage("OUTPUT - has no extension: --format tells what to write", kPictureUsage);
  }
  if (!goesOut && !command.format.empty()) {
    throw WrongUsage("--format is for OUTPUT -; the extension of any other tells what to write",
                     kPictureUsage);
  }
  if (goesOut) FormatNamed(command.format);
}

void RefuseSameFileTwice(const PictureCommand& command) {
  std::map<std::string, const char*> roleOfFile;
  const auto add = [&roleOfFile](const std::string& file, const char* role) {
    if (file.empty()) return;
    const std::string name = file == "-" ? file : std::filesystem::absolute(file).lexically_normal().string();
    const auto [other, isNew] = roleOfFile.emplace(name, role);
    if (!isNew) {
      throw WrongUsage(std::string(other->second) + " and " + role + " are the same file, " + file,
                       kPictureUsage);
    }
  };
  if (!command.dryRun) {
    for (const auto& picture : command.pictures) add(picture.output, "OUTPUT");
  }
  add(command.spectrumFile, "--spectrum");
  add(command.maskFile, "--mask");
  add(command.gateFile, "--gate");
  add(command.reportFile, "--report");
}

void RefuseOtherThanPng(const std::string& file, const char* option) {
  const std::string extension = std::filesystem::path(file).extension();
  if (extension.empty() || extension == ".png" || extension == ".PNG") return;
  throw WrongUsage(std::string(option) + " writes PNG; let " + file + " end in .png", kPictureUsage);
}

void AddBatchOptions(CLI::App& app, PictureCommand& command) {
  AddLastWins(app, "--suffix", command.suffix,
              "Add this to the name, before the extension; beside INPUT where there is no --output-dir",
              "TEXT");
  app.add_flag("--recursive", command.recursive,
               "Take the pictures in folders, too, and mirror the folders in --output-dir");
  AddLastWins(app, "--files-from", command.listFile,
              "Take the names in this list, too, a line each; - is stdin", "FILE");
  app.add_flag("-0,--null", command.listHasNuls, "Names in the list end with NUL bytes, not with lines");
  app.add_flag("--skip-done", command.skipsDone,
               "Leave out pictures whose output is there and not older: a run goes on where it was");
  AddLastWins(app, "--log", command.logFile, "Append a line of JSON for each picture as it ends; - is stdout",
              "FILE");
  app.add_flag("--reports", command.writesReports, "Write each picture's report beside it, as OUTPUT.json");
}

// What the picture's line fills in, before it is checked.
struct PictureTexts {
  SharedTexts shared;
  PictureCommand command;
  std::vector<std::string> arguments;
  std::string jobs, memory, quality, tile;
  bool wantsVersion = false, verbose = false;
};

constexpr const char* kPictureTitle =
    "Takes repeating patterns (halftones, line noise, weaves) out of pictures.";
constexpr const char* kStreamTitle = "Takes repeating patterns out of raw frames, one by one.";

void AddPictureOptions(CLI::App& app, PictureTexts& texts) {
  app.formatter(std::make_shared<HelpFormatter>(
      "Usage: tessaline [options] INPUT OUTPUT\n"
      "       tessaline [options] INPUT... --output-dir FOLDER [--jobs N]\n"
      "       tessaline [options] --recursive FOLDER... --output-dir FOLDER\n"
      "       tessaline [options] --files-from LIST --output-dir FOLDER\n"
      "       tessaline stream --width W --height H --pix-fmt F [options] INPUT OUTPUT"));
  app.footer(kPictureFooter);
  app.add_option("files", texts.arguments, "INPUT picture, then OUTPUT; or several INPUTs with --output-dir")
      ->type_name("INPUT OUTPUT");
  AddSharedOptions(app, texts.shared);
  AddLastWins(
      app, "--spectrum", texts.command.spectrumFile,
      "Write the power spectrum, what is taken out highlighted in red, the protected disc in blue (PNG)",
      "FILE");
  AddLastWins(app, "--mask", texts.command.maskFile,
              "Write the notch mask, white where taken out (8-bit grey PNG)", "FILE");
  AddLastWins(app, "--gate", texts.command.gateFile,
              "With -a auto: write where the pattern was found, white there (8-bit grey PNG)", "FILE");
  app.add_flag("--dry-run", texts.command.dryRun,
               "Look and report, write no picture (OUTPUT may be left out)");
  AddLastWins(app, "--output-dir", texts.command.outputFolder,
              "Put every picture into this folder under its own name", "FOLDER");
  AddLastWins(
      app, "--compression", texts.command.storage.compression,
      "PNG: none, fast, standard or small; TIFF: none, lzw, deflate, zstd or packbits; WebP: lossless "
      "or lossy (default: as INPUT where it is of the same format)",
      "NAME");
  AddLastWins(app, "--quality", texts.quality, "Of JPEG and lossy WebP, 1..100 (default: of JPEG as INPUT)",
              "Q");
  AddLastWins(app, "--format", texts.command.format,
              "Of a picture that goes to stdout: png, tif, jpg, webp, ppm, jp2, jxl, pdf", "NAME");
  AddBatchOptions(app, texts.command);
  AddLastWins(app, "--memory", texts.memory, "For all pictures in work together (default: what is available)",
              "MIB");
  AddLastWins(app, "-j,--jobs", texts.jobs,
              "At most so many pictures at a time, 1..256 (default: as many as processors)", "N");
  AddLastWins(
      app, "--tile", texts.tile,
      "Clean in tiles of SIDE x SIDE pixels, 512..3700, or auto; pictures of more than 7500 pixels on "
      "a side always are",
      "SIDE");
  app.add_flag("-v,--verbose", texts.verbose, "Tell every peak on stderr, not the result alone");
  app.add_flag("--version", texts.wantsVersion, "Versions of the program and its libraries");
  PutIntoSections(app);
}

Command ReadPictureCommand(int argc, const char* const* argv) {
  CLI::App app(kPictureTitle, "tessaline");
  PictureTexts texts;
  AddPictureOptions(app, texts);
  auto& [shared, command, arguments, jobs, memory, quality, tile, wantsVersion, verbose] = texts;
  if (const auto help = Parse(app, argc, argv, kPictureUsage)) return *help;
  if (wantsVersion) return PrintAndLeave{VersionText()};

  command.settings = ReadSettings(shared, kPictureUsage);
  command.threads = ReadThreads(shared, kPictureUsage);
  command.restoration = ReadRestoration(shared, command.settings.isAutomatic, kPictureUsage);
  if (!command.gateFile.empty() && !command.settings.isAutomatic) {
    throw WrongUsage("--gate belongs to --acceptance auto", kPictureUsage);
  }
  command.reportFile = shared.report;
  command.overwrite = shared.overwrite;
  command.talk = ReadTalk(shared);
  command.talk.verbose = verbose;
  if (verbose && shared.quiet) throw WrongUsage("--quiet and --verbose exclude each other", kPictureUsage);
  if (!jobs.empty()) {
    const NumberOption range = {"--jobs", "pictures at a time", 1, kMostJobs, true};
    command.jobs = static_cast<int>(Checked(range, jobs, kPictureUsage));
  }
  if (!quality.empty()) {
    command.storage.quality =
        static_cast<int>(Checked({"--quality", "", 1, 100, true}, quality, kPictureUsage));
  }
  if (!tile.empty()) {
    const NumberOption range = {"--tile", "pixels on a side of a tile, or auto", kSmallestTile, kLargestTile,
                                true};
    command.tileSide = tile == "auto" ? 0 : static_cast<int>(Checked(range, tile, kPictureUsage));
    if (!command.gateFile.empty()) throw WrongUsage("--gate and --tile exclude each other", kPictureUsage);
  }
  if (!memory.empty()) {
    const NumberOption range = {"--memory", "MiB", 1, 1 << 30, true};
    command.memory = static_cast<uint64_t>(Checked(range, memory, kPictureUsage)) << 20;
  }
  if (command.suffix.find('/') != std::string::npos) {
    throw WrongUsage("--suffix is a part of a name, without /; folders are --output-dir's", kPictureUsage);
  }
  if (command.listHasNuls && command.listFile.empty()) {
    throw WrongUsage("-0 belongs to --files-from", kPictureUsage);
  }
  const bool hasPlace = !command.outputFolder.empty() || !command.suffix.empty();
  command.isBatch = command.recursive || !command.listFile.empty() || command.skipsDone ||
                    !command.logFile.empty() || command.writesReports || (hasPlace && arguments.size() > 1);
  if (command.isBatch) {
    command.inputs = arguments;
    CheckBatch(command);
  } else {
    command.pictures = {PairFiles(arguments, command)};
  }
  CheckStandardStreams(command);
  RefuseOtherThanPng(command.spectrumFile, "--spectrum");
  RefuseOtherThanPng(command.maskFile, "--mask");
  RefuseOtherThanPng(command.gateFile, "--gate");
  RefuseSameFileTwice(command);
  return command;
}

FramePixels ReadFramePixels(const std::string& name) {
  std::string names;
  for (const FramePixels& pixels : kFramePixels) {
    if (name == pixels.name) return pixels;
    names += (names.empty() ? "" : ", ") + std::string(pixels.name);
  }
  throw WrongUsage("--pix-fmt takes one of " + names + ", not '" + name + "'", kStreamUsage);
}

constexpr const char* kFreezeFirstFound = "first";

// The number behind --freeze is optional, and a file name may follow instead: only an argument that is all
// digits belongs to it. (A file of such a name is written ./12.)
std::vector<std::string> JoinFreezeFrame(int argc, const char* const* argv) {
  std::vector<std::string> joined;
  for (int i = 0; i < argc; ++i) {
    std::string argument = argv[i];
    if (argument == "--freeze") {
      const std::string next = i + 1 < argc ? argv[i + 1] : "";
      const bool isNumber = !next.empty() && next.find_first_not_of("0123456789") == std::string::npos;
      argument += std::string("=") + (isNumber ? next : kFreezeFirstFound);
      i += isNumber;
    }
    joined.push_back(argument);
  }
  return joined;
}

struct StreamTexts {
  SharedTexts shared;
  std::string width, height, pixels, first, last, freeze;
  std::vector<std::string> arguments;
};

void AddStreamOptions(CLI::App& app, StreamTexts& texts) {
  app.formatter(std::make_shared<HelpFormatter>(std::string("Usage: ") + kStreamUsage));
  app.footer(kStreamFooter);
  app.add_option("files", texts.arguments, "INPUT frames, then OUTPUT; - is stdin or stdout")
      ->type_name("INPUT OUTPUT");
  AddLastWins(app, "--width", texts.width, "Pixels per row of a frame, 1..7500", "W");
  AddLastWins(app, "--height", texts.height, "Rows of a frame, 1..7500", "H");
  AddLastWins(app, "--pix-fmt", texts.pixels, "Samples: gray, rgb24, gray16le or rgb48le", "F");
  AddLastWins(app, "--first", texts.first, "First frame to take, counted from 0 (default 0)", "A");
  AddLastWins(app, "--last", texts.last, "Last frame to take (default: to the end)", "B");
  AddLastWins(app, "--freeze", texts.freeze,
              "One decision for all frames: over the first that show a pattern, or of frame F", "[F]");
  AddSharedOptions(app, texts.shared);
  PutIntoSections(app);
}

Command ReadStreamCommand(int argc, const char* const* argv) {
  CLI::App app(kStreamTitle, "tessaline stream");
  StreamTexts texts;
  StreamCommand command;
  AddStreamOptions(app, texts);
  auto& [shared, width, height, pixels, first, last, freeze, arguments] = texts;
  std::vector<std::string> joined = JoinFreezeFrame(argc, argv);
  std::vector<const char*> pointers;
  pointers.reserve(joined.size());
  for (const std::string& argument : joined) pointers.push_back(argument.c_str());
  if (const auto help = Parse(app, static_cast<int>(pointers.size()), pointers.data(), kStreamUsage))
    return *help;

  const auto required = [](const char* name, const std::string& text) {
    if (text.empty()) throw WrongUsage(std::string(name) + " is missing", kStreamUsage);
  };
  required("--width", width);
  required("--height", height);
  required("--pix-fmt", pixels);
  // Sizes above the limit are a matter of the picture (status 5), not of the option.
  constexpr double kAnySize = 2147483647.0;
  const auto side = [](const char* name, const std::string& text) {
    return static_cast<int32_t>(Checked({name, "pixels", 1, kAnySize, true}, text, kStreamUsage));
  };
  command.width = side("--width", width);
  command.height = side("--height", height);
  command.pixels = ReadFramePixels(pixels);
  const auto frame = [](const char* name, const std::string& text) {
    return static_cast<int64_t>(
        Checked({name, "", 0, static_cast<double>(kMostFrames), true}, text, kStreamUsage));
  };
  if (!first.empty()) command.firstFrame = frame("--first", first);
  if (!last.empty()) command.lastFrame = frame("--last", last);
  if (command.lastFrame && *command.lastFrame < command.firstFrame) {
    throw WrongUsage("--last " + std::to_string(*command.lastFrame) + " lies before --first " +
                         std::to_string(command.firstFrame) + ": no frame to take",
                     kStreamUsage);
  }
  command.isFrozen = !freeze.empty();
  if (command.isFrozen && freeze != kFreezeFirstFound) command.frozenFrame = frame("--freeze", freeze);
  command.settings = ReadSettings(shared, kStreamUsage);
  command.threads = ReadThreads(shared, kStreamUsage);
  command.restoration = ReadRestoration(shared, command.settings.isAutomatic, kStreamUsage);
  command.reportFile = shared.report;
  command.overwrite = shared.overwrite;
  command.talk = ReadTalk(shared);
  if (arguments.size() < 2) {
    throw WrongUsage(arguments.empty() ? "INPUT and OUTPUT are missing" : "OUTPUT is missing", kStreamUsage);
  }
  if (arguments.size() > 2) throw WrongUsage("'" + arguments[2] + "' is one file too many", kStreamUsage);
  command.input = arguments[0];
  command.output = arguments[1];
  if (command.frozenFrame && command.input == "-" && *command.frozenFrame > command.firstFrame) {
    throw WrongUsage("--freeze " + freeze +
                         " lies behind the first frame taken, and standard input cannot be read twice" +
                         ": give it a file, or a frame up to " + std::to_string(command.firstFrame),
                     kStreamUsage);
  }
  if (command.output == "-" && command.reportFile == "-") {
    throw WrongUsage("OUTPUT and --report cannot both be stdout", kStreamUsage);
  }
  if (command.output != "-" && command.output == command.reportFile) {
    throw WrongUsage("OUTPUT and --report are the same file, " + command.output, kStreamUsage);
  }
  return command;
}

// `tessaline pages man|bash|zsh|fish`, of which the help says nothing: what the build installs beside the
// program.
Command WritePages(const std::string& kind) {
  CLI::App pictures(kPictureTitle, "tessaline"), frames(kStreamTitle, "tessaline stream");
  PictureTexts pictureTexts;
  StreamTexts streamTexts;
  AddPictureOptions(pictures, pictureTexts);
  AddStreamOptions(frames, streamTexts);
  const auto page = PageOf(kind, pictures, frames);
  if (!page) throw Refusal(ExitStatus::kWrongUsage, "usage: tessaline pages man|bash|zsh|fish");
  return PrintAndLeave{*page};
}

}  // namespace

Command ReadCommandLine(int argc, const char* const* argv) {
  if (argc == 3 && std::string(argv[1]) == "pages") return WritePages(argv[2]);
  if (argc > 1 && std::string(argv[1]) == "stream") return ReadStreamCommand(argc - 1, argv + 1);
  return ReadPictureCommand(argc, argv);
}

}  // namespace tessaline::cli
