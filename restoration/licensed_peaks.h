// The licensed peaks, and what steps ask about them and about many values of a kind.
#pragma once

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <vector>

#include "removal/picture.h"
#include "removal/steps.h"

namespace tessaline {

inline double MagnitudeOf(const SpectrumPeak& peak) {
  return peak.height + peak.background;
}

// The strongest first; equally strong ones in the order they were found in. May throw std::bad_alloc.
inline std::vector<SpectrumPeak> LicensedByMagnitude(const Findings& findings) {
  std::vector<SpectrumPeak> licensed;
  std::copy_if(findings.peaks.begin(), findings.peaks.end(), std::back_inserter(licensed),
               [](const SpectrumPeak& peak) { return peak.isLicensed; });
  std::stable_sort(licensed.begin(), licensed.end(), [](const SpectrumPeak& a, const SpectrumPeak& b) {
    return MagnitudeOf(a) > MagnitudeOf(b);
  });
  return licensed;
}

// The value that a share of the values, at least one, lies below; between two of them in proportion.
inline double Percentile(double share, std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const double place = share * static_cast<double>(values.size() - 1);
  const auto lower = static_cast<size_t>(place);
  const size_t upper = std::min(lower + 1, values.size() - 1);
  return values[lower] + (place - static_cast<double>(lower)) * (values[upper] - values[lower]);
}

}  // namespace tessaline
