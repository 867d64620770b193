// make_resources PIPL-FILE AETE-FILE: writes the raw resources of the module for the resource compiler. Runs
// on the machine that builds, also when the module is built for another system.
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
  if (argc != 3) {
    std::fprintf(stderr, "usage: make_resources PIPL-FILE AETE-FILE\n");
    return 2;
  }
  const bool isDone = WriteFile(argv[1], tessaline::PluginPropertyList()) &&
                      WriteFile(argv[2], tessaline::ScriptingTerminology());
  return isDone ? 0 : 1;
}
