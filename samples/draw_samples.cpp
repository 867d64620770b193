// Draws the sample pictures: a scene as a camera sees it, printed and scanned in four ways.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <string>
#include <utility>

#include "samples/picture_files.h"
#include "samples/scene.h"
#include "samples/screens.h"

namespace {

using namespace tessaline::samples;

constexpr double kDotsPerInch = 300;
constexpr double kLinesPerInch = 87;  // as newspapers print

struct Sample {
  const char* name;
  Picture (*make)(const Picture& original);
};
constexpr Sample kSamples[] = {
    {"newsprint", [](const Picture& p) { return PrintNewsprint(p, kLinesPerInch, kDotsPerInch); }},
    {"rosette", [](const Picture& p) { return PrintFourInks(p, kLinesPerInch, kDotsPerInch); }},
    {"line-noise", WithLineNoise},
    {"weave", WithWeave},
};

int Draw(int argc, char** argv) {
  CLI::App app("Draws the sample pictures of tessaline: the same bytes in every run.");
  std::filesystem::path folder;
  std::pair<int, int> size{768, 548};
  bool originals = false;
  app.add_option("FOLDER", folder, "Where the pictures go; made when missing")->required();
  app.add_option("--size", size, "Width and height in pixels, 768 548 when not given")
      ->check(CLI::Range(16, 7500));
  app.add_flag("--originals", originals,
               "Also write the scene itself, scene.png, as it was before all printing");
  CLI11_PARSE(app, argc, argv);

  std::filesystem::create_directories(folder);
  const auto write = [&](const std::string& name, const Picture& picture) {
    const std::string path = folder / (name + ".png");
    WritePng(path, picture, kDotsPerInch);
    std::printf("%s\n", path.c_str());
  };
  const Picture scene = DrawScene(size.first, size.second);
  if (originals) write("scene", scene);
  for (const Sample& sample : kSamples) write(sample.name, sample.make(scene));
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Draw(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "draw_samples: %s\n", error.what());
    return 1;
  }
}
