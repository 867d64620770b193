// The roots of unity all twiddle factors come from: one derivation at compile time, so that the native and
// the Windows build share every bit. cos(2 pi i / n) written out in doubles is often off by one in the last
// place; these are correctly rounded.
#pragma once

#include <array>
#include <cstdint>

#include "fft/double_double.h"

namespace tessaline {

struct UnitRootValue {
  double cosine;
  double sine;
};

constexpr int32_t kOctantCircle = 8192;  // points on the full circle
constexpr int32_t kOctantPoints = kOctantCircle / 8;

// exp(2 pi i j / 8192) for the first octant, j = 0 .. 1024. Each point is the product of a coarse one
// (multiples of 32) and a fine one in double-double arithmetic.
consteval std::array<UnitRootValue, kOctantPoints + 1> MakeOctant() {
  constexpr int32_t kFine = 32;
  std::array<DoubleDoubleSinCos, kFine> fine{};
  std::array<DoubleDoubleSinCos, kOctantPoints / kFine + 1> coarse{};
  const auto pointOf = [](int32_t j) { return SinCos(kHalfPi * DoubleDouble{4.0 * j / kOctantCircle, 0.0}); };
  for (int32_t j = 0; j < kFine; ++j) fine[j] = pointOf(j);
  for (int32_t j = 0; j <= kOctantPoints / kFine; ++j) coarse[j] = pointOf(j * kFine);

  std::array<UnitRootValue, kOctantPoints + 1> octant{};
  for (int32_t j = 0; j <= kOctantPoints; ++j) {
    const DoubleDoubleSinCos& a = coarse[j / kFine];
    const DoubleDoubleSinCos& b = fine[j % kFine];
    octant[j] = {(a.cosine * b.cosine - a.sine * b.sine).high, (a.sine * b.cosine + a.cosine * b.sine).high};
  }
  return octant;
}

inline constexpr std::array<UnitRootValue, kOctantPoints + 1> kOctant = MakeOctant();
static_assert(kOctant[0].cosine == 1.0 && kOctant[0].sine == 0.0);
static_assert(kOctant[kOctantPoints].cosine == 0.7071067811865476);
static_assert(kOctant[kOctantPoints].sine == 0.7071067811865476);
static_assert(kOctant[kOctantPoints / 2].cosine == 0.9238795325112867);
static_assert(kOctant[kOctantPoints / 2].sine == 0.3826834323650898);

// exp(2 pi i j / n) for n a power of two up to 8192 and any j >= 0: the octant, folded.
constexpr UnitRootValue UnitRoot(int32_t n, int64_t j) {
  const auto point = static_cast<int32_t>(j % n * (kOctantCircle / n));
  const int32_t eighth = point / kOctantPoints;
  const int32_t rest = point % kOctantPoints;
  const UnitRootValue& up = kOctant[rest];
  const UnitRootValue& down = kOctant[kOctantPoints - rest];
  switch (eighth) {
    case 0:
      return {up.cosine, up.sine};
    case 1:
      return {down.sine, down.cosine};
    case 2:
      return {-up.sine, up.cosine};
    case 3:
      return {-down.cosine, down.sine};
    case 4:
      return {-up.cosine, -up.sine};
    case 5:
      return {-down.sine, -down.cosine};
    case 6:
      return {up.sine, -up.cosine};
    default:
      return {down.cosine, -down.sine};
  }
}

}  // namespace tessaline
