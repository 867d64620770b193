// The plane that one channel of a picture is transformed in: N x N real samples, two rows to a line, so that
// a transform of complex lines transforms two rows at once and half the memory holds them.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tessaline {

struct RealPlane {
  float* data = nullptr;
  int32_t size = 0;  // N
  int32_t rowsPerLine =
      2;  // 2: row 2m in the real, row 2m + 1 in the imaginary parts of line m; 1: real parts only

  // Sample x of the row is element [2 * x].
  float* Row(int32_t y) const {
    return data + static_cast<size_t>(y / rowsPerLine) * 2 * static_cast<size_t>(size) + y % rowsPerLine;
  }
  // Line m: N complex values.
  float* Line(int32_t m) const { return data + static_cast<size_t>(m) * 2 * static_cast<size_t>(size); }
  int32_t lines() const { return size / rowsPerLine; }
};

// Rows first .. last - 1 of a plane that hold `value` throughout and are not stored.
struct ConstantRows {
  int32_t first = 0;
  int32_t last = 0;
  float value = 0.0f;
};

}  // namespace tessaline
