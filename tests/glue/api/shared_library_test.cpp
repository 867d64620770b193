// libtessaline.so as other programs meet it: its names, and the C example.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "tests/glue/api/screened_picture.h"
#include "tests/glue/scratch_folder.h"

namespace tessaline {
namespace {

struct Printed {
  int status;
  std::string text;
};

// What a shell command prints on stdout and stderr.
Printed RunShell(const std::string& command) {
  std::FILE* const pipe = popen((command + " 2>&1").c_str(), "r");
  Printed printed;
  char bytes[4096];
  for (size_t count; (count = std::fread(bytes, 1, sizeof bytes, pipe)) > 0;)
    printed.text.append(bytes, count);
  printed.status = WEXITSTATUS(pclose(pipe));
  return printed;
}

TEST(SharedLibrary, ShowsTwelveNamesAndNoMore) {
  std::istringstream lines(
      RunShell(std::string(TESSALINE_NM) + " -D --defined-only " TESSALINE_LIBRARY).text);
  std::set<std::string> names;
  std::string address, kind, name;
  while (lines >> address >> kind >> name) names.insert(kind + " " + name);
  EXPECT_EQ((std::set<std::string>{"T MTAPI_CreateInstance", "T MTAPI_FreeInstance", "T MTAPI_Process",
                                   "T MTAPI_ProcessStream", "T OSAPI_CreateInstance", "T OSAPI_FreeInstance",
                                   "T OSAPI_Process", "T OSAPI_ProcessStream", "T _Alder", "T _Birch",
                                   "T _Cedar", "T _Larch"}),
            names);
}

}  // namespace
}  // namespace tessaline
