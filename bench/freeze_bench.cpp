// How steady a film becomes by one decision for all its frames: noisy clips with a faint pattern and a known
// original, cleaned with every frame deciding for itself and with --freeze.
//
//   build/native/bench/freeze_bench          prints a table in Markdown
//
// "As it comes" is the filter of frei0r/, which sees no frame before its time: its first frames are cleaned
// by what the frames up to them decide together, where --freeze lets them wait for eight.
//
// Flicker is the deviation over time of a pixel's error (the cleaned frame less the original), averaged over
// the pixels, in levels of 255. Grain is part of it, and stays: what freezing can give is the film's own.
#include <stdlib.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "cli/stream_run.h"
#include "frei0r/video_filter.h"
#include "samples/film.h"

namespace tessaline {
namespace {

constexpr int kWidth = 400, kHeight = 300, kFrames = 24;

// A folder that goes with its files.
struct TemporaryFolder {
  std::string path = "/tmp/freeze_bench-XXXXXX";
  TemporaryFolder() {
    if (mkdtemp(path.data()) == nullptr) std::perror(path.c_str());
  }
  ~TemporaryFolder() { std::filesystem::remove_all(path); }
};

double FlickerAfterCleaning(const samples::Film& film, bool isFrozen) {
  const TemporaryFolder folder;
  cli::StreamCommand command;
  command.input = folder.path + "/in.raw";
  command.output = folder.path + "/out.raw";
  command.width = kWidth;
  command.height = kHeight;
  command.settings.isAutomatic = true;
  command.isFrozen = isFrozen;
  std::ofstream(command.input, std::ios::binary) << samples::ToBytes(film.frames);
  cli::ProgressBar progress(false);
  for (const std::string& note : cli::CleanStream(command, &progress)) {
    std::fprintf(stderr, "%s: %s\n", isFrozen ? "frozen" : "unfrozen", note.c_str());
  }
  std::ifstream file(command.output, std::ios::binary);
  return samples::FlickerOf({std::istreambuf_iterator<char>(file), {}}, film.originals);
}

double FlickerAsItComes(const samples::Film& film) {
  frei0r::VideoFilter filter(kWidth, kHeight);
  std::string cleaned;
  for (const samples::Picture& frame : film.frames) {
    const std::string grey = samples::ToBytes({frame});
    std::string rgba;
    for (const char level : grey) rgba.append(4, level);
    filter.Clean(0.0, reinterpret_cast<uint8_t*>(rgba.data()));
    for (size_t i = 0; i < rgba.size(); i += 4) cleaned += rgba[i];
  }
  return samples::FlickerOf(cleaned, film.originals);
}

void PrintClip(const char* name, const samples::FilmFaults& faults) {
  const samples::Film film = samples::ShootFilm(kWidth, kHeight, kFrames, faults);
  const double unfrozen = FlickerAfterCleaning(film, false);
  const double frozen = FlickerAfterCleaning(film, true);
  std::printf("| %s | %.2f | %.2f | %.2f | %.2f | %.2f |\n", name,
              samples::FlickerOf(samples::ToBytes(film.frames), film.originals), unfrozen, frozen,
              frozen / unfrozen, FlickerAsItComes(film));
  std::fflush(stdout);
}

}  // namespace
}  // namespace tessaline

int main() {
  std::printf("| pattern | as shot | unfrozen | frozen | ratio | as it comes |\n|---|---|---|---|---|---|\n");
  tessaline::PrintClip("standing", tessaline::samples::kStandingPattern);
  tessaline::PrintClip("rolling", tessaline::samples::kRollingPattern);
}
