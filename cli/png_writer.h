// PNG files of our own form: pieces of the picture are filtered and compressed on all threads, and stand one
// behind the other in a single stream of compressed data.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "cli/output_file.h"
#include "cli/page_samples.h"
#include "cli/row_arrangement.h"

namespace tessaline::cli {

enum class PngEffort {
  kNone,      // stored as it is
  kFast,      // one filter for all rows; runs and frequent values are kept short
  kStandard,  // the filter row by row; repeats too where a look at the samples promises something
  kSmall,     // every way tried
};

// The rows of a picture of any number of channels, filtered as PNG filters them, as one stream of the zlib
// form, which `take` has a piece of at a time. Rows are asked for as below.
void CompressRows(const PageKind& kind, PngEffort effort, int threads, const RowFiller& fillRow,
                  const std::function<void(const std::vector<uint8_t>& piece)>& take);

// Writes a picture of up to 4 channels. `chunks`: what stands between the header and the pixels, whole. Rows
// are asked for once each, from the first to the last, on the caller's thread; only some pieces of the
// picture are in memory at a time. Refuses with kCannotWrite.
void WritePng(const PageKind& kind, const std::vector<uint8_t>& chunks, PngEffort effort, int threads,
              const RowFiller& fillRow, OutputFile* output);

}  // namespace tessaline::cli
