// The pictures that quality is judged by: prints with known originals, and pictures without a pattern.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>

#include "samples/screens.h"

namespace tessaline::quality {

struct PrintCase {
  std::string family, name;
  double floor;  // dB that the automatic run reaches at least; 0: not among the few that tests judge
  std::function<samples::Picture()> subject;
  samples::Press press = {};
  int jpeg = 0;        // quality
  double spacing = 0;  // the picture stands on a page of text with such lines, in the press' frame
  samples::Picture (*pattern)(const samples::Picture&) = nullptr;  // in place of a press
  bool is16 = false;
  double rimFloor = 0;  // dB within 6 pixels of the border that the picture on a page has; with `floor`
};
std::span<const PrintCase> PrintCases();
samples::Printed Draw(const PrintCase& print);

struct CleanCase {
  std::string family, name;
  bool isSmall;  // among the few that tests judge: it stays sample for sample
  std::function<samples::Picture()> draw;
};
std::span<const CleanCase> CleanCases();

// Some of each that nobody chose: everything about them is drawn from the seed.
PrintCase RandomPrint(uint64_t seed);
CleanCase RandomClean(uint64_t seed);

}  // namespace tessaline::quality
