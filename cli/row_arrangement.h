// Rows on their way into a file, arranged for what its format can say of them.
#pragma once

#include <cstdint>
#include <functional>

#include "cli/page_samples.h"

namespace tessaline::cli {

// Fills one row as it is to stand in the file; y counts on through all pages. Called from another thread.
using RowFiller = std::function<void(int32_t y, void* row)>;

// The kind of a picture that was turned upright from an orientation (1..8 as EXIF counts them).
PageKind UprightKind(PageKind kind, int orientation);

// The rows of the upright picture, of one page. Unless `orientation` is 1, the picture is held in memory from
// its first row on; std::bad_alloc where there is none.
RowFiller UprightRows(const PageKind& kind, int orientation, const RowFiller& rows);

// The rows with colours that were multiplied by the alpha behind them divided by it again.
RowFiller RowsOfStraightAlpha(const PageKind& kind, const RowFiller& rows);

}  // namespace tessaline::cli
