// filterhost's command line. See docs/filterhost.md.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "testhost/fake_host.h"

namespace tessaline::testhost {

struct FilterHostOptions {
  std::string module;
  std::string input;  // empty: only look at the module
  std::string output;

  // The document.
  std::string modeName;  // empty: as the picture
  std::optional<int32_t> depth;
  std::string selectionFile;
  std::optional<host::VRect> selectedRectangle;

  // The parameters, in the order in which the host hands them over. Empty: none.
  std::vector<DescriptorValue> parameters;
  std::string recordFile;

  // How to run it.
  Switches host;
  bool trace = false;
  bool throughInterface = false;
  int32_t runs = 1;
  bool reload = false;  // the module, before each run but the first
  bool showMessages = false;
  bool hasWindow = false;  // an owner for the filter's windows
};

// Either the options, or the text that was asked for in their place (--help).
struct CommandLine {
  FilterHostOptions options;
  std::string help;  // print this and leave
};

// `arguments` without the program's name. Reads the files of --play. Throws Refusal.
CommandLine ReadCommandLine(const std::vector<std::string>& arguments);

}  // namespace tessaline::testhost
