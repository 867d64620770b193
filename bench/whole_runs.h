// What benchmarks of whole runs have in common.
#pragma once

#include <time.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "image/result_codes.h"

namespace tessaline {

struct Size {
  int32_t width, height;
};

struct WholeRunOptions {
  int runs = 5;  // rounds of each size
  int threads = 2;
  std::vector<Size> sizes;  // those of docs/performance.md where none is given
};

// [--runs N] [--threads N] [WIDTHxHEIGHT ...]. Ends the program where that is not what is given.
inline WholeRunOptions ReadWholeRunOptions(int argc, char** argv) {
  WholeRunOptions options;
  for (int i = 1; i < argc; ++i) {
    Size size{};
    if (std::strcmp(argv[i], "--runs") == 0 && i + 1 < argc) {
      options.runs = std::max(1, std::atoi(argv[++i]));
    } else if (std::strcmp(argv[i], "--threads") == 0 && i + 1 < argc) {
      options.threads = std::max(1, std::atoi(argv[++i]));
    } else if (std::sscanf(argv[i], "%dx%d", &size.width, &size.height) == 2 && size.width > 0 &&
               size.height > 0) {
      options.sizes.push_back(size);
    } else {
      std::fprintf(stderr, "usage: %s [--runs N] [--threads N] [WIDTHxHEIGHT ...]\n", argv[0]);
      std::exit(2);
    }
  }
  if (options.sizes.empty()) options.sizes = {{700, 500}, {1700, 1200}, {3600, 2400}, {7400, 7400}};
  return options;
}

inline double SecondsBy(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

inline void Demand(int32_t result) {
  if (result != kSuccess) std::abort();
}

inline double MedianOf(std::vector<double> values) {
  std::nth_element(values.begin(), values.begin() + static_cast<ptrdiff_t>(values.size() / 2), values.end());
  return values[values.size() / 2];
}

}  // namespace tessaline
