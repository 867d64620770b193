// clean_frames: takes the pattern of the first frame out of all frames, from raw frames on standard input to
// raw frames on standard output.
//
//   clean_frames WIDTH HEIGHT CHANNELS < in.raw > out.raw
//
// CHANNELS is 1 to 4, 8 bits each; a fourth is left alone. What is taken out is told on standard error. Exit
// status: 0 done, 1 failed, 2 wrong usage.
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <span>
#include <tessaline/tessaline.hpp>
#include <vector>

namespace {

bool ReadFrame(std::vector<char>* frame) {
  std::cin.read(frame->data(), static_cast<std::streamsize>(frame->size()));
  if (std::cin.gcount() == 0) return false;
  if (!std::cin) throw std::runtime_error("the last frame is cut short");
  return true;
}

void CleanFrames(int32_t width, int32_t height, int32_t channels) {
  std::vector<char> frame(static_cast<size_t>(width) * static_cast<size_t>(height) *
                          static_cast<size_t>(channels));
  const tessaline::TargetPicture picture(std::span(reinterpret_cast<uint8_t*>(frame.data()), frame.size()),
                                         width, height, channels);
  tessaline::Engine engine;
  for (int32_t number = 0; ReadFrame(&frame); ++number) {
    if (number == 0) {  // one decision for all, so that nothing flickers
      engine.Analyse(picture);
      engine.Decide();
      for (const TessalineNotch& notch : engine.Notches()) {
        std::cerr << "period " << notch.periodPixels << " pixels at " << notch.angleDegrees << " degrees\n";
      }
    }
    engine.Apply(picture, TESSALINE_ROUND_TO_NEAREST);
    if (!std::cout.write(frame.data(), static_cast<std::streamsize>(frame.size()))) {
      throw std::runtime_error("standard output takes no more");
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  const int32_t width = argc == 4 ? std::atoi(argv[1]) : 0;
  const int32_t height = argc == 4 ? std::atoi(argv[2]) : 0;
  const int32_t channels = argc == 4 ? std::atoi(argv[3]) : 0;
  if (width < 1 || height < 1 || channels < 1 || channels > 4) {
    std::cerr << "usage: clean_frames WIDTH HEIGHT CHANNELS < in.raw > out.raw\n";
    return 2;
  }
  try {
    CleanFrames(width, height, channels);
  } catch (const std::exception& error) {  // tessaline::Error among them
    std::cerr << "clean_frames: " << error.what() << '\n';
    return 1;
  }
  return std::cout.flush() ? 0 : 1;
}
