#include "testhost/filterhost.h"

#define WIN32_LEAN_AND_MEAN
#include <windows.h>
// After windows.h, which it needs.
#include <psapi.h>

#include <algorithm>
#include <iomanip>
#include <memory>
#include <new>
#include <optional>
#include <sstream>
#include <utility>

#include "testhost/descriptor_file.h"
#include "testhost/filterhost_options.h"
#include "testhost/interface_door.h"
#include "testhost/loaded_module.h"
#include "testhost/picture_document.h"
#include "testhost/pixel_file.h"

namespace tessaline::testhost {

namespace {

// Message boxes have no place for a context.
std::ostream* g_messages = nullptr;

void PrintMessage(const char* text, const char* title) {
  *g_messages << "message box \"" << title << "\": " << text << "\n";
}

struct CodeMeaning {
  int32_t code;
  const char* meaning;
};
constexpr CodeMeaning kCodeMeanings[] = {
    {2, "refused by the programmatic interface"},
    {-36, "it cannot take this kind of picture"},
    {-43, "a file or buffer is missing"},
    {-50, "bad parameters"},
    {-108, "out of memory"},
    {-109, "a null handle"},
    {-128, "cancelled"},
    {-30100, "bad parameters for a filter"},
    {-30101, "bad mode for a filter"},
    {-30900, "the host lacks something that it needs"},
    {-30904, "it says why"},
};

std::string Meaning(int32_t code) {
  for (const CodeMeaning& entry : kCodeMeanings) {
    if (entry.code == code) return std::string(" (") + entry.meaning + ")";
  }
  return "";
}

int64_t PrivateBytes() {
  PROCESS_MEMORY_COUNTERS counters = {};
  counters.cb = sizeof counters;
  if (!GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters)) return 0;
  return static_cast<int64_t>(counters.PagefileUsage);
}

std::string Megabytes(int64_t bytes) {
  std::ostringstream text;
  text << std::fixed << std::setprecision(1) << static_cast<double>(bytes) / (1 << 20) << " MB";
  return text.str();
}

void DescribeModule(const PluginProperties& properties, std::ostream& out) {
  out << properties.name << "\n"
      << "  category     " << properties.category << "\n"
      << "  interface    " << properties.versionMajor << "." << properties.versionMinor << "\n"
      << "  entry point  " << properties.entryPoint << "\n"
      << "  modes        ";
  constexpr const char* kNames[] = {"bitmap", "grey", "indexed",      "rgb",     "cmyk",
                                    "hsl",    "hsb",  "multichannel", "duotone", "lab"};
  const char* separator = "";
  for (int16_t mode = 0; mode < static_cast<int16_t>(std::size(kNames)); ++mode) {
    if (!properties.Takes(static_cast<host::ImageModeNumber>(mode))) continue;
    out << separator << kNames[mode];
    separator = ", ";
  }
  out << "\n  enabled      " << (properties.enabledWhen.empty() ? "always" : properties.enabledWhen) << "\n"
      << "  properties  ";
  for (const std::string& key : properties.keys) out << " " << key;
  out << "\n";
}

std::vector<uint8_t> ReadSelection(const FilterHostOptions& options, const Picture& picture) {
  const size_t pixels = static_cast<size_t>(picture.width) * picture.height;
  if (options.selectedRectangle) {
    const host::VRect& r = *options.selectedRectangle;
    std::vector<uint8_t> mask(pixels);
    for (int32_t y = std::max(r.top, 0); y < std::min(r.bottom, picture.height); ++y) {
      for (int32_t x = std::max(r.left, 0); x < std::min(r.right, picture.width); ++x) {
        mask[static_cast<size_t>(y) * picture.width + x] = 255;
      }
    }
    return mask;
  }
  if (options.selectionFile.empty()) return {};
  const Picture selection = ReadPictureFile(options.selectionFile);
  if (selection.Planes() != 1 || selection.white != kWhite8) {
    throw Refusal(ExitStatus::kUnreadable, options.selectionFile, "a selection is a grey picture of 8 bits");
  }
  if (selection.width != picture.width || selection.height != picture.height) {
    throw Refusal(ExitStatus::kUnreadable, options.selectionFile,
                  "is not of the size of " + options.input + ", " + std::to_string(picture.width) + " x " +
                      std::to_string(picture.height));
  }
  return {selection.samples.begin(), selection.samples.end()};
}

void CheckFilterRectangle(const FilterHostOptions& options, const Picture& picture) {
  const host::VRect& r = options.host.filterRectangle;
  if (!options.host.hasFilterRectangle) return;
  if (r.top < 0 || r.left < 0 || r.bottom > picture.height || r.right > picture.width) {
    throw Refusal(ExitStatus::kWrongUsage, "--filter-rect lies outside the picture of " +
                                               std::to_string(picture.width) + " x " +
                                               std::to_string(picture.height));
  }
}

// What both doors tell of a run.
struct Outcome {
  int32_t result = 0;
  Document document;
  bool hasParameters = false;
  std::vector<DescriptorValue> parameters;
  std::string errorString;
  std::vector<std::string> complaints;
};

// The window of an editor, for a filter's dialog to belong to.
class OwnerWindow {
 public:
  OwnerWindow()
      : window_(CreateWindowA("STATIC", "filterhost", WS_OVERLAPPEDWINDOW | WS_VISIBLE, CW_USEDEFAULT,
                              CW_USEDEFAULT, 640, 480, nullptr, nullptr, nullptr, nullptr)) {
    if (window_ == nullptr) throw Refusal(ExitStatus::kWrongUsage, "there is no screen for --window");
  }
  ~OwnerWindow() { DestroyWindow(window_); }
  OwnerWindow(const OwnerWindow&) = delete;
  OwnerWindow& operator=(const OwnerWindow&) = delete;
  HWND get() const { return window_; }

 private:
  HWND window_;
};

class Session {
 public:
  Session(const FilterHostOptions& options, const PluginProperties& properties, std::ostream& out)
      : options_(options), properties_(properties), out_(out), switches_(options.host) {
    if (options.trace) switches_.trace = [this](const std::string& line) { out_ << line << std::endl; };
    if (options.hasWindow) switches_.window = window_.emplace().get();
  }

  Outcome Run(const Document& document) {
    if (!module_ || options_.reload) {
      module_.reset();
      module_ = std::make_unique<LoadedModule>(options_.module);
      if (!options_.showMessages) module_->RedirectMessages(PrintMessage);
    }
    return options_.throughInterface ? RunInterfaceDoor(document) : RunHostDoor(document);
  }

 private:
  Outcome RunHostDoor(const Document& document) {
    const auto entry = module_->Export<host::EntryPoint>(properties_.entryPoint);
    Report report = RunFilter(entry, document, switches_);
    // Without the routines to dispose of them, those that the host handed over stay.
    if (report.handlesLeft > 0 && switches_.handles == HandleTable::kWorking) {
      report.complaints.push_back(std::to_string(report.handlesLeft) +
                                  " handles of the host's were not disposed");
    }
    return {report.result,
            std::move(report.document),
            report.wasRecorded,
            std::move(report.recorded),
            std::move(report.errorString),
            std::move(report.complaints)};
  }

  Outcome RunInterfaceDoor(const Document& document) {
    const InterfaceFunctions functions = {
        module_->Export<decltype(&OSAPI_CreateInstance)>("OSAPI_CreateInstance"),
        module_->Export<decltype(&OSAPI_FreeInstance)>("OSAPI_FreeInstance"),
        module_->Export<decltype(&OSAPI_Process)>("OSAPI_Process"),
    };
    InterfaceReport report =
        RunInterface(functions, document, options_.parameters, switches_.playInfo == host::kDialogDisplay);
    if (switches_.trace) switches_.trace("OSAPI_Process -> " + std::to_string(report.result));
    return {report.result, std::move(report.document), true, std::move(report.parameters), "", {}};
  }

  const FilterHostOptions& options_;
  const PluginProperties& properties_;
  std::ostream& out_;
  Switches switches_;
  std::optional<OwnerWindow> window_;
  std::unique_ptr<LoadedModule> module_;
};

ExitStatus FilterPicture(const FilterHostOptions& options, const PluginProperties& properties,
                         std::ostream& out, std::ostream& err) {
  const Picture picture = ReadPictureFile(options.input);
  CheckFilterRectangle(options, picture);
  DocumentWishes wishes = {std::nullopt, options.depth};
  if (!options.modeName.empty()) {
    const int32_t depth = options.depth.value_or(picture.white == kWhite8 ? 8 : 16);
    wishes.mode = ModeNumber(options.modeName, depth);
    if (!wishes.mode) throw Refusal(ExitStatus::kWrongUsage, "--mode takes " + ModeNames());
  }
  Document document = MakeDocument(picture, wishes);
  document.mask = ReadSelection(options, picture);
  if (!options.host.offer32Bits && std::max(picture.width, picture.height) > INT16_MAX) {
    throw Refusal(ExitStatus::kWrongUsage, "a picture of this size needs --coordinates 32");
  }

  g_messages = &err;
  Session session(options, properties, out);
  Outcome outcome = session.Run(document);
  const int64_t bytesAfterFirst = PrivateBytes();
  for (int32_t run = 2; run <= options.runs && outcome.result == 0; ++run) {
    const Outcome before = std::move(outcome);
    outcome = session.Run(document);
    if (outcome.result == 0 && outcome.document.pixels != before.document.pixels) {
      outcome.complaints.push_back("run " + std::to_string(run) + " gave other pixels than the one before");
    }
    outcome.complaints.insert(outcome.complaints.begin(), before.complaints.begin(), before.complaints.end());
  }
  if (options.runs > 1) {
    out << options.runs << " runs; private memory " << Megabytes(bytesAfterFirst) << " after the first, "
        << Megabytes(PrivateBytes()) << " after the last\n";
  }

  for (const std::string& complaint : outcome.complaints)
    err << "filterhost: rule broken: " << complaint << "\n";
  if (outcome.result != 0) {
    err << "filterhost: the filter answered " << outcome.result << Meaning(outcome.result)
        << (outcome.errorString.empty() ? "" : ": " + outcome.errorString) << "; nothing was written\n";
    return ExitStatus::kFilterFailed;
  }
  WritePictureFile(options.output, PictureOf(outcome.document, document, picture));
  if (!options.recordFile.empty()) {
    if (!outcome.hasParameters) throw Refusal(ExitStatus::kRuleBroken, "the filter recorded no parameters");
    WriteDescriptorFile(options.recordFile, outcome.parameters);
  }
  return outcome.complaints.empty() ? ExitStatus::kDone : ExitStatus::kRuleBroken;
}

}  // namespace

ExitStatus FilterHost(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err) {
  try {
    const CommandLine line = ReadCommandLine(arguments);
    if (!line.help.empty()) {
      out << line.help;
      return ExitStatus::kDone;
    }
    const FilterHostOptions& options = line.options;
    const PluginProperties properties = ReadModuleProperties(options.module);
    if (!options.input.empty()) return FilterPicture(options, properties, out, err);
    DescribeModule(properties, out);
    LoadedModule(options.module).Export<host::EntryPoint>(properties.entryPoint);
    return ExitStatus::kDone;
  } catch (const Refusal& refusal) {
    err << "filterhost: " << refusal.what() << "\n";
    return refusal.status();
  } catch (const std::bad_alloc&) {
    err << "filterhost: not enough memory\n";
    return ExitStatus::kOutOfMemory;
  }
}

}  // namespace tessaline::testhost
