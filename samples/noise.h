// Randomness that is the same in every run and on every machine.
#pragma once

#include <cstdint>

namespace tessaline::samples {

// A stream of numbers from a seed (the split-mix generator).
class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed) {}

  double Uniform();  // 0 <= value < 1
  double Normal();   // mean 0, deviation 1, never beyond 6

 private:
  uint64_t state_;
};

// Smooth noise over the plane: one random value 0..1 at every whole coordinate, blended between them.
double ValueNoise(double x, double y);

// `octaves` layers of ValueNoise, each of twice the frequency and half the weight, scaled to 0..1. The layers
// are turned against one another, so that no direction of the lattice shows.
double FractalNoise(double x, double y, int octaves);

}  // namespace tessaline::samples
