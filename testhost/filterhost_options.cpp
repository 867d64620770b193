#include "testhost/filterhost_options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <map>

#include "glue/parameters/filter_parameters.h"
#include "glue/parameters/parameter_list.h"
#include "testhost/descriptor_file.h"
#include "testhost/host_refusal.h"

namespace tessaline::testhost {

namespace {

constexpr const char* kUsage =
    "Usage: filterhost [options] MODULE INPUT OUTPUT\n"
    "       filterhost MODULE";

constexpr const char* kFooter = R"(
Pictures: PNG, PNM (P5, P6) and PAM, 8 or 16 bits; grey or RGB, in PAM also CMYK and LAB, with extra planes.

Exit status: 0 done; 1 the filter answered with a code; 2 wrong usage; 3 no usable module; 4 input unreadable;
5 output cannot be written; 6 the filter broke a rule; 7 out of memory.

Examples:
  filterhost Tessaline64.8bf
  filterhost -a 90 Tessaline64.8bf scan.png clean.png
  filterhost --play run.txt --selection mask.png --trace Tessaline64.8bf scan.png clean.png)";

[[noreturn]] void RefuseUsage(const std::string& what) {
  throw Refusal(ExitStatus::kWrongUsage, what + " (filterhost --help tells more)");
}

// Numbers of an option, separated by commas.
std::vector<int32_t> Numbers(const std::string& option, const std::string& text, size_t least, size_t most) {
  std::vector<int32_t> numbers;
  const char* at = text.data();
  const char* const end = text.data() + text.size();
  for (;;) {
    int32_t number = 0;
    const auto [next, error] = std::from_chars(at, end, number);
    if (error != std::errc()) break;
    numbers.push_back(number);
    at = next;
    if (at == end || *at != ',') break;
    ++at;
  }
  if (at != end || numbers.size() < least || numbers.size() > most) {
    RefuseUsage(option + " takes " + std::to_string(most) +
                (most > 1 ? " whole numbers with commas" : " whole number") + ", not '" + text + "'");
  }
  return numbers;
}

host::VRect Rectangle(const std::string& option, const std::string& text) {
  const std::vector<int32_t> sides = Numbers(option, text, 4, 4);
  return {sides[0], sides[1], sides[2], sides[3]};
}

// Texts of options as they were given; read into the options after all of them are known.
struct Texts {
  std::string depth, selected, filterRectangle, padding, style, handles, descriptors, coordinates, playFile;
  std::string acceptance, notchRadius, protectionRadius, failAdvance;
  bool dialog = false, stableAddresses = false, noParameters = false, noBlend = false;
};

// The choices of an option, by name.
template <typename Value>
Value Choice(const std::string& option, const std::string& text,
             const std::map<std::string, Value>& choices) {
  const auto found = choices.find(text);
  if (found != choices.end()) return found->second;
  std::string names;
  for (const auto& [name, value] : choices) names += (names.empty() ? "" : ", ") + name;
  RefuseUsage(option + " takes one of " + names + ", not '" + text + "'");
}

// Options under one heading of the help text.
class Group {
 public:
  Group(CLI::App& app, const char* heading) : app_(app), heading_(heading) {}

  template <typename Target>
  CLI::Option* Add(const char* names, Target& target, const char* type, const char* help) {
    return app_.add_option(names, target, help)->type_name(type)->group(heading_);
  }
  template <typename Number>
  void AddNumber(const char* names, Number& target, Number least, Number most, const char* help) {
    Add(names, target, "N", help)->check(CLI::Range(least, most).description(""));
  }
  void AddFlag(const char* name, bool& target, const char* help) {
    app_.add_flag(name, target, help)->group(heading_);
  }

 private:
  CLI::App& app_;
  const char* heading_;
};

constexpr const char* kSides = "TOP,LEFT,BOTTOM,RIGHT";

void AddDocumentOptions(Group group, FilterHostOptions& options, Texts& texts) {
  group.Add(
      "--mode", options.modeName, "NAME",
      "Colour mode: grey, rgb, cmyk, lab, bitmap, indexed, hsl, hsb, multichannel, duotone, or the host's "
      "number (default: as the picture)");
  group.Add("--depth", texts.depth, "BITS", "Per channel in the host: 8, 16 or 32 (default: as the picture)");
  group.Add("--selection", options.selectionFile, "FILE",
            "Selection: a grey 8-bit picture of INPUT's size, white = selected");
  group.Add("--select", texts.selected, kSides, "Selection: this rectangle");
  group.Add("--filter-rect", texts.filterRectangle, kSides,
            "Area handed to the filter (default: everything)");
  group.AddFlag("--no-blend", texts.noBlend,
                "Write what the filter returned, not blended through the selection");
}

void AddParameterOptions(Group group, FilterHostOptions& options, Texts& texts) {
  group.Add("-a,--acceptance", texts.acceptance, "PERCENT", "Pattern Frequency Acceptance, 0..100 (60)");
  group.Add("-n,--notch-radius", texts.notchRadius, "CELLS", "1..16 (6)");
  group.Add("-p,--protection-radius", texts.protectionRadius, "PIXELS", "1..128 (8)");
  group.Add("--play", texts.playFile, "FILE", "Hand over the parameters in this file");
  group.Add("--record", options.recordFile, "FILE", "Write the parameters that the filter recorded");
  group.AddFlag("--dialog", texts.dialog, "Ask the filter to show its dialog");
}

void AddRunOptions(Group group, FilterHostOptions& options) {
  group.AddFlag("--trace", options.trace, "Print every call with its rectangles and result");
  group.AddFlag("--interface", options.throughInterface,
                "Through the module's programmatic interface, not as its host");
  group.AddNumber("--runs", options.runs, 1, INT32_MAX,
                  "So many runs on the same input, and what happens to memory");
  group.AddFlag("--reload", options.reload, "Load the module anew for every run");
  group.AddFlag("--show-messages", options.showMessages,
                "Let message boxes appear instead of printing their text");
}

void AddHostOptions(Group group, FilterHostOptions& options, Texts& texts) {
  Switches& host = options.host;
  group.Add("--coordinates", texts.coordinates, "BITS",
            "16, or 32 with nonsense in the 16-bit rectangles (16)");
  group.Add(
      "--style", texts.style, "NAME",
      "Input is refilled always, or on change of its rectangle; clip: on change, and a rectangle is empty by "
      "its right and bottom alone (always)");
  group.Add("--row-padding", texts.padding, "IN,OUT,MASK", "Bytes between the rows handed out (0,0,0)");
  group.AddFlag("--stable-addresses", texts.stableAddresses,
                "Hand out the same memory again (default: fresh, the old overwritten)");
  group.AddFlag("--window", options.hasWindow, "Has a window for the filter's dialog to belong to");
  group.AddFlag("--about", host.about, "Ask for the about box first");
  group.AddFlag("--no-parameters-call", texts.noParameters, "As when a filter is run a second time");
  group.Add("--handles", texts.handles, "NAME",
            "Handle routines: working, none, seven, missing, zero-sizes (working)");
  group.Add("--descriptors", texts.descriptors, "NAME",
            "Descriptor routines: working, none, no-tables (working)");
  group.AddFlag("--no-tables", host.otherTablesAreNull,
                "Buffer, resource and property routines and suites are null");
  group.AddFlag("--no-callbacks", host.callbacksAreNull, "Abort, progress, window and error string are null");
  group.AddFlag("--no-mask-data", host.maskIsNotDelivered,
                "There is a selection, yet its mask is never delivered");
  group.AddNumber("--record-bytes", host.recordBytes, size_t{512}, size_t{65536},
                  "Size of the filter record, 512 or more (608)");
}

void AddFailureOptions(Group group, FilterHostOptions& options, Texts& texts) {
  Switches& host = options.host;
  group.Add("--fail-advance", texts.failAdvance, "N[,CODE]", "The N-th advance fails, with CODE (-108)");
  group.AddNumber("--deliver-nothing", host.deliverNothingAt, 1, INT32_MAX,
                  "The N-th advance succeeds and delivers null pointers");
  group.AddNumber("--fail-call", host.failCallAt, 1, INT32_MAX,
                  "The N-th call of any host routine that can fail does so");
  group.AddNumber("--abort", host.abortAtCall, 1, INT32_MAX,
                  "The user wants to stop, from the N-th time the filter asks");
}

double InRange(const std::string& option, const std::string& text, const SettingRange& range) {
  double number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() ||
      !(number >= range.minimum && number <= range.maximum)) {
    RefuseUsage(option + " takes a number from " + std::to_string(static_cast<int>(range.minimum)) + " to " +
                std::to_string(static_cast<int>(range.maximum)) + ", not '" + text + "'");
  }
  return number;
}

void ReadParameters(const Texts& texts, FilterHostOptions& options) {
  std::vector<DescriptorValue>& parameters = options.parameters;
  if (!texts.playFile.empty()) parameters = ReadDescriptorFile(texts.playFile);
  if (!texts.acceptance.empty()) {
    const double percent = InRange("--acceptance", texts.acceptance, kAcceptanceRange);
    if (percent != static_cast<int32_t>(percent)) RefuseUsage("--acceptance takes a whole number");
    parameters.push_back({kKeyAcceptance, host::kDescriptorInteger, static_cast<int32_t>(percent), 0, ""});
  }
  if (!texts.notchRadius.empty()) {
    const double cells = InRange("--notch-radius", texts.notchRadius, kNotchRadiusRange);
    parameters.push_back({kKeyNotchRadius, host::kDescriptorFloat, 0, cells, ""});
  }
  if (!texts.protectionRadius.empty()) {
    const double pixels = InRange("--protection-radius", texts.protectionRadius, kProtectionRadiusRange);
    parameters.push_back({kKeyProtectionRadius, host::kDescriptorFloat, 0, pixels, ""});
  }
  // Where the protection radius is missing all three take their defaults, so that one alone would change
  // nothing.
  const auto add = [&parameters](const DescriptorValue& standard) {
    const auto hasKey = [&standard](const DescriptorValue& value) { return value.key == standard.key; };
    if (std::none_of(parameters.begin(), parameters.end(), hasKey)) parameters.push_back(standard);
  };
  if (!(texts.acceptance.empty() && texts.notchRadius.empty() && texts.protectionRadius.empty())) {
    add({kKeyAcceptance, host::kDescriptorInteger, static_cast<int32_t>(kAcceptanceRange.standard), 0, ""});
    add({kKeyNotchRadius, host::kDescriptorFloat, 0, kNotchRadiusRange.standard, ""});
    add({kKeyProtectionRadius, host::kDescriptorFloat, 0, kProtectionRadiusRange.standard, ""});
  }
}

void ReadHost(const Texts& texts, FilterHostOptions& options) {
  Switches& host = options.host;
  if (!texts.coordinates.empty()) {
    host.offer32Bits = Choice<bool>("--coordinates", texts.coordinates, {{"16", false}, {"32", true}});
  }
  if (!texts.style.empty()) {
    host.style = Choice<Style>("--style", texts.style,
                               {{"always", Style::kRefillAlways},
                                {"change", Style::kRefillOnChange},
                                {"clip", Style::kRefillOnChangeAndClip}});
  }
  if (!texts.handles.empty()) {
    host.handles = Choice<HandleTable>("--handles", texts.handles,
                                       {{"working", HandleTable::kWorking},
                                        {"none", HandleTable::kNull},
                                        {"seven", HandleTable::kSevenRoutines},
                                        {"missing", HandleTable::kMissingRoutine},
                                        {"zero-sizes", HandleTable::kSizesAreZero}});
  }
  if (!texts.descriptors.empty()) {
    host.descriptors = Choice<DescriptorTables>("--descriptors", texts.descriptors,
                                                {{"working", DescriptorTables::kWorking},
                                                 {"none", DescriptorTables::kRecordNull},
                                                 {"no-tables", DescriptorTables::kTablesNull}});
  }
  if (!texts.padding.empty()) {
    const std::vector<int32_t> bytes = Numbers("--row-padding", texts.padding, 3, 3);
    if (*std::min_element(bytes.begin(), bytes.end()) < 0)
      RefuseUsage("--row-padding takes no negative numbers");
    host.inputPadding = bytes[0];
    host.outputPadding = bytes[1];
    host.maskPadding = bytes[2];
  }
  if (!texts.filterRectangle.empty()) {
    host.hasFilterRectangle = true;
    host.filterRectangle = Rectangle("--filter-rect", texts.filterRectangle);
  }
  if (!texts.failAdvance.empty()) {
    const std::vector<int32_t> numbers = Numbers("--fail-advance", texts.failAdvance, 1, 2);
    host.failAdvanceAt = numbers[0];
    if (numbers.size() > 1) host.failCode = static_cast<int16_t>(numbers[1]);
  }
  host.freshAddresses = !texts.stableAddresses;
  host.parameters = !texts.noParameters;
  host.autoMask = !texts.noBlend;
  host.playInfo = texts.dialog ? host::kDialogDisplay : host::kDialogDontDisplay;
  host.hasRecording = !options.parameters.empty();
  host.recording = options.parameters;
}

void ReadDocument(const Texts& texts, FilterHostOptions& options) {
  if (!texts.depth.empty()) {
    options.depth = Choice<int32_t>("--depth", texts.depth, {{"8", 8}, {"16", 16}, {"32", 32}});
  }
  if (!texts.selected.empty()) options.selectedRectangle = Rectangle("--select", texts.selected);
}

void RefuseContradictions(const FilterHostOptions& options) {
  if (!options.input.empty() && options.output.empty())
    RefuseUsage("OUTPUT is missing: where is the picture to go?");
  if (!options.selectionFile.empty() && options.selectedRectangle) {
    RefuseUsage("--selection and --select are both a selection");
  }
  if (!options.parameters.empty() && options.host.descriptors != DescriptorTables::kWorking) {
    RefuseUsage("parameters cannot be handed over without descriptor routines");
  }
  const bool hasSelection = !options.selectionFile.empty() || options.selectedRectangle;
  if (options.throughInterface && (hasSelection || options.host.hasFilterRectangle)) {
    RefuseUsage("--interface takes whole pictures only");
  }
}

// The first lines of the help text are this program's own.
class HelpFormatter : public CLI::Formatter {
 public:
  HelpFormatter() { column_width(34); }
  std::string make_usage(const CLI::App*, std::string) const override { return std::string(kUsage) + "\n"; }
};

}  // namespace

CommandLine ReadCommandLine(const std::vector<std::string>& arguments) {
  CLI::App app("Runs a filter module on a picture, as an image editor would.", "filterhost");
  app.formatter(std::make_shared<HelpFormatter>());
  app.allow_windows_style_options(false);  // paths may begin with a slash
  app.footer(kFooter);
  CommandLine line;
  FilterHostOptions& options = line.options;
  Texts texts;
  Group files(app, "Files");
  files.Add("MODULE", options.module, " ", "The filter, an .8bf file")->required();
  files.Add("INPUT", options.input, " ", "Picture to filter; without it, tells what the module is");
  files.Add("OUTPUT", options.output, " ", "Where the result goes: .png, .pam, .pgm or .ppm");
  AddDocumentOptions({app, "Document"}, options, texts);
  AddParameterOptions({app, "Parameters"}, options, texts);
  AddRunOptions({app, "Run"}, options);
  AddHostOptions({app, "Host"}, options, texts);
  AddFailureOptions({app, "Failures"}, options, texts);

  std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
  try {
    app.parse(reversed);
  } catch (const CLI::CallForHelp&) {
    line.help = app.help();
    return line;
  } catch (const CLI::ParseError& error) {
    std::string what = error.what();
    std::replace(what.begin(), what.end(), '\n', ' ');
    RefuseUsage(what);
  }
  ReadParameters(texts, options);
  ReadHost(texts, options);
  ReadDocument(texts, options);
  RefuseContradictions(options);
  return line;
}

}  // namespace tessaline::testhost
