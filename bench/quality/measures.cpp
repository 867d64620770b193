#include "bench/quality/measures.h"

#include <algorithm>
#include <cmath>

namespace tessaline::quality {

namespace {

using samples::Frame;
using samples::Picture;

double SquaredError(const Picture& a, const Picture& b) {
  double error = 0;
  for (size_t i = 0; i < a.samples.size(); ++i) error += std::pow(double(a.samples[i]) - b.samples[i], 2);
  return error / static_cast<double>(a.samples.size());
}
double Decibels(double squaredError) {
  return squaredError == 0 ? INFINITY : -10 * std::log10(squaredError);
}

double LumaAt(const Picture& picture, int x, int y) {
  if (picture.channels == 1) return picture.At(x, y, 0);
  return 0.299 * picture.At(x, y, 0) + 0.587 * picture.At(x, y, 1) + 0.114 * picture.At(x, y, 2);
}

double Ssim(const Picture& a, const Picture& b) {
  constexpr int kWindow = 8, kStep = 4;
  constexpr double kLuminance = 0.01 * 0.01, kContrast = 0.03 * 0.03;
  constexpr double kCount = kWindow * kWindow;
  double sum = 0;
  int windows = 0;
  for (int top = 0; top + kWindow <= a.height; top += kStep) {
    for (int left = 0; left + kWindow <= a.width; left += kStep) {
      double sumA = 0, sumB = 0, squareA = 0, squareB = 0, product = 0;
      for (int y = top; y < top + kWindow; ++y) {
        for (int x = left; x < left + kWindow; ++x) {
          const double p = LumaAt(a, x, y), q = LumaAt(b, x, y);
          sumA += p, sumB += q, squareA += p * p, squareB += q * q, product += p * q;
        }
      }
      const double meanA = sumA / kCount, meanB = sumB / kCount;
      const double varianceA = squareA / kCount - meanA * meanA, varianceB = squareB / kCount - meanB * meanB;
      const double covariance = product / kCount - meanA * meanB;
      sum += (2 * meanA * meanB + kLuminance) * (2 * covariance + kContrast) /
             ((meanA * meanA + meanB * meanB + kLuminance) * (varianceA + varianceB + kContrast));
      ++windows;
    }
  }
  return sum / windows;
}

Picture Blurred(const Picture& picture, double sigma) {
  const int reach = static_cast<int>(std::ceil(3.5 * sigma));
  std::vector<float> weights;
  float total = 0;
  for (int i = -reach; i <= reach; ++i) {
    weights.push_back(static_cast<float>(std::exp(-0.5 * i * i / (sigma * sigma))));
    total += weights.back();
  }
  Picture across = picture, blurred = picture;
  const int rowSamples = picture.width * picture.channels;
  for (int y = 0; y < picture.height; ++y) {
    for (int x = 0; x < rowSamples; ++x) {
      float sum = 0;
      for (int i = -reach; i <= reach; ++i) {
        int from = x + i * picture.channels;
        while (from < 0) from += picture.channels;
        while (from >= rowSamples) from -= picture.channels;
        sum += weights[i + reach] * picture.samples[static_cast<size_t>(y) * rowSamples + from];
      }
      across.samples[static_cast<size_t>(y) * rowSamples + x] = sum / total;
    }
  }
  for (int y = 0; y < picture.height; ++y) {
    float* const row = &blurred.samples[static_cast<size_t>(y) * rowSamples];
    std::fill_n(row, rowSamples, 0.0f);
    for (int i = -reach; i <= reach; ++i) {
      const int from = std::clamp(y + i, 0, picture.height - 1);
      const float* const other = &across.samples[static_cast<size_t>(from) * rowSamples];
      for (int x = 0; x < rowSamples; ++x) row[x] += weights[i + reach] / total * other[x];
    }
  }
  return blurred;
}

bool IsFarOutside(const Frame& frame, int margin, int x, int y) {
  return !Frame{frame.left - margin, frame.top - margin, frame.right + margin, frame.bottom + margin}
              .Contains(x, y);
}

}  // namespace

Nearness NearnessOf(const Picture& picture, const Picture& original) {
  return {Decibels(SquaredError(picture, original)), Ssim(picture, original)};
}

double PsnrOfRim(const Picture& picture, const Picture& original, const Frame& frame, int rim) {
  const Frame inner = {frame.left + rim, frame.top + rim, frame.right - rim, frame.bottom - rim};
  double error = 0, count = 0;
  for (int y = frame.top; y < frame.bottom; ++y) {
    for (int x = frame.left; x < frame.right; ++x) {
      if (inner.Contains(x, y)) continue;
      for (int c = 0; c < picture.channels; ++c) {
        error += std::pow(double(picture.At(x, y, c)) - original.At(x, y, c), 2);
        count += 1;
      }
    }
  }
  return Decibels(error / count);
}

double ShareKept(const Picture& before, const Picture& after, const Frame& frame, int margin) {
  double kept = 0, count = 0;
  for (int y = 0; y < before.height; ++y) {
    for (int x = 0; x < before.width; ++x) {
      if (!IsFarOutside(frame, margin, x, y)) continue;
      for (int c = 0; c < before.channels; ++c) {
        kept += before.At(x, y, c) == after.At(x, y, c);
        count += 1;
      }
    }
  }
  return kept / count;
}

BestBlur FindBestBlur(const Picture& picture, const Picture& original) {
  const auto error = [&](double sigma) { return SquaredError(Blurred(picture, sigma), original); };
  constexpr double kFinest = 0.3, kCoarsest = 4, kRatio = 1.3, kNearEnough = 1.03;
  double best = kFinest, least = error(best);
  while (best * kRatio < kCoarsest) {
    const double sigma = best * kRatio, here = error(sigma);
    if (here > least) break;  // errors fall to one valley
    best = sigma, least = here;
  }
  double step = std::sqrt(kRatio);
  while (step > kNearEnough) {
    for (const double sigma : {best / step, best * step}) {
      const double here = error(sigma);
      if (here < least) best = sigma, least = here;
    }
    step = std::sqrt(step);
  }
  return {best, NearnessOf(Blurred(picture, best), original)};
}

Picture FitTone(const Picture& original, const Picture& picture) {
  Picture fitted = original;
  const auto channels = static_cast<size_t>(original.channels);
  for (size_t c = 0; c < channels; ++c) {
    double n = 0, x = 0, y = 0, xx = 0, xy = 0;
    for (size_t i = c; i < picture.samples.size(); i += channels) {
      const double from = original.samples[i], to = picture.samples[i];
      n += 1, x += from, y += to, xx += from * from, xy += from * to;
    }
    const double gain = (n * xy - x * y) / (n * xx - x * x);
    for (size_t i = c; i < picture.samples.size(); i += channels) {
      fitted.samples[i] = static_cast<float>(y / n + gain * (original.samples[i] - x / n));
    }
  }
  return fitted;
}

}  // namespace tessaline::quality
