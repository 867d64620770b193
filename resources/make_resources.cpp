// make_resources PIPL AETE AUTO-PIPL AUTO-AETE: writes the raw resources of both modules, into files of these
// names, for the resource compiler. Runs on the machine that builds, also when the module is built for
// another system.
#include <cstdio>

#include "resources/resource_bytes.h"

namespace {

bool WriteFile(const char* path, const std::vector<uint8_t>& bytes) {
  std::FILE* const file = std::fopen(path, "wb");
  if (file == nullptr) {
    std::perror(path);
    return false;
  }
  const bool isWritten = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
  const bool isClosed = std::fclose(file) == 0;
  if (!isWritten || !isClosed) std::perror(path);
  return isWritten && isClosed;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) {
    std::fprintf(stderr, "usage: make_resources PIPL AETE AUTO-PIPL AUTO-AETE\n");
    return 2;
  }
  using namespace tessaline;
  const bool isDone = WriteFile(argv[1], PluginPropertyList(kDialogFilter)) &&
                      WriteFile(argv[2], ScriptingTerminology(kDialogFilter)) &&
                      WriteFile(argv[3], PluginPropertyList(kAutomaticFilter)) &&
                      WriteFile(argv[4], ScriptingTerminology(kAutomaticFilter));
  return isDone ? 0 : 1;
}
