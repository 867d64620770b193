// draw_dialog_art SAMPLES FOLDER: draws the pictures of the dialogs, which the resource script reads from
// FOLDER. SAMPLES is the folder of the sample pictures.
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>

#include "resources/art/guide_page.h"
#include "resources/art/icons.h"

namespace {

using namespace tessaline::art;

void WriteFile(const std::filesystem::path& path, const Bytes& bytes) {
  std::ofstream file(path, std::ios::binary);
  file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  if (!file.flush()) throw std::runtime_error(path.string() + ": cannot be written");
  std::printf("%s\n", path.c_str());
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: draw_dialog_art SAMPLES FOLDER\n");
    return 2;
  }
  try {
    const std::filesystem::path folder = argv[2];
    std::filesystem::create_directories(folder);
    for (const Icon& icon : Icons()) WriteFile(folder / icon.fileName, icon.draw());
    WriteFile(folder / "guide_page.bmp", DrawGuidePage(argv[1]));
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "draw_dialog_art: %s\n", error.what());
    return 1;
  }
}
