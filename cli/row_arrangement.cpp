#include "cli/row_arrangement.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <utility>
#include <vector>

namespace tessaline::cli {
namespace {

// Where a pixel of the upright picture stands in the stored one: the upright axes swapped, then counted from
// the far end or not.
struct Turn {
  bool swapsAxes, mirrorsX, mirrorsY;  // mirrors: of the stored picture
};
constexpr Turn kTurns[8] = {{false, false, false}, {false, true, false}, {false, true, true},
                            {false, false, true},  {true, false, false}, {true, false, true},
                            {true, true, true},    {true, true, false}};

template <typename Sample>
void DivideByAlpha(const PageKind& kind, Sample* row) {
  constexpr uint32_t kMost = std::numeric_limits<Sample>::max();
  for (int32_t x = 0; x < kind.width; ++x, row += kind.channels()) {
    const uint32_t alpha = row[kind.colours()];
    if (alpha == 0) continue;  // nothing is seen, and nothing can be told
    for (int32_t colour = 0; colour < kind.colours(); ++colour) {
      row[colour] = static_cast<Sample>(std::min(kMost, (row[colour] * kMost + alpha / 2) / alpha));
    }
  }
}

}  // namespace

PageKind UprightKind(PageKind kind, int orientation) {
  if (kTurns[orientation - 1].swapsAxes) std::swap(kind.width, kind.height);
  return kind;
}

RowFiller UprightRows(const PageKind& kind, int orientation, const RowFiller& rows) {
  if (orientation == 1) return rows;
  const auto stored = std::make_shared<std::vector<uint8_t>>();
  return [kind, rows, stored, turn = kTurns[orientation - 1]](int32_t upY, void* row) {
    const size_t rowBytes = kind.RowBytes();
    const size_t pixelBytes = rowBytes / static_cast<size_t>(kind.width);
    if (stored->empty()) {
      stored->resize(rowBytes * static_cast<size_t>(kind.height));
      for (int32_t y = 0; y < kind.height; ++y) rows(y, stored->data() + static_cast<size_t>(y) * rowBytes);
    }
    const int32_t upWidth = turn.swapsAxes ? kind.height : kind.width;
    auto* out = static_cast<uint8_t*>(row);
    for (int32_t upX = 0; upX < upWidth; ++upX, out += pixelBytes) {
      int32_t x = turn.swapsAxes ? upY : upX, y = turn.swapsAxes ? upX : upY;
      if (turn.mirrorsX) x = kind.width - 1 - x;
      if (turn.mirrorsY) y = kind.height - 1 - y;
      std::copy_n(stored->data() + static_cast<size_t>(y) * rowBytes + static_cast<size_t>(x) * pixelBytes,
                  pixelBytes, out);
    }
  };
}

RowFiller RowsOfStraightAlpha(const PageKind& kind, const RowFiller& rows) {
  return [kind, rows](int32_t y, void* row) {
    rows(y, row);
    kind.bits == 16 ? DivideByAlpha(kind, static_cast<uint16_t*>(row))
                    : DivideByAlpha(kind, static_cast<uint8_t*>(row));
  };
}

}  // namespace tessaline::cli
