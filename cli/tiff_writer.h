// TIFF files written by libtiff, their strips and tiles compressed on all threads.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "cli/output_file.h"
#include "cli/page_samples.h"
#include "cli/row_arrangement.h"
#include "cli/tiff_tags.h"

namespace tessaline::cli {

struct TiffForm {
  uint16_t compression = 1;  // the tag's number: none, LZW, deflate, PackBits or Zstandard
  bool predicts = false;     // horizontal differences, where the compression knows them
  int level = 0;             // of deflate and Zstandard
  int32_t tileWidth = 0;     // 0: strips
  int32_t tileHeight = 0;
};

struct TiffPage {
  PageKind kind;
  TiffForm form;
  bool isCopied = false;  // its compressed data go over as they are
};

// True where the page's compressed data stand for themselves and can go into another file as they are.
bool CanCopyTiffPage(const TiffStructure& file, size_t page);

// A file of these pages with the tags that tell of their samples and no others, in the big form or the
// classic one. Those that are copied come out of `source` (which may be null where none is):
// EditOfCopiedPage gives them their tags. Of the others rows are asked for once each, from the first to the
// last, on the caller's thread; y counts on through all pages. Refuses with kCannotWrite.
void WriteTiff(const std::vector<TiffPage>& pages, bool isBig, const TiffStructure* source, int threads,
               const RowFiller& fillRow, OutputFile* output);

// What EditTiffPages is to make of a page that was copied.
TiffPageEdit EditOfCopiedPage(const TiffStructure& source, size_t page);

}  // namespace tessaline::cli
