// JPEG files by libjpeg: what one says before its pixels, and others written like it.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "cli/carried_metadata.h"
#include "cli/output_file.h"
#include "cli/page_samples.h"
#include "cli/row_arrangement.h"

namespace tessaline::cli {

// How a file was compressed, and what in it describes the picture.
struct JpegHeader {
  struct Component {
    int across, down;  // samples where the coarsest component has one
    int table;
    friend bool operator==(const Component&, const Component&) = default;
  };
  std::vector<Component> components;
  std::array<std::vector<uint16_t>, 4> tables;  // of quantisation, row by row; empty: not there
  int colourSpace = 0;                          // that its components stand for, the library's number
  bool hasMarkOfCoding = false;                 // Adobe's: of inks, that they are inverted
  bool isProgressive = false;
  unsigned restartInterval = 0;
  off_t scan = 0;  // where in the file its first coded pixels are
  // Application segments and comments, but for those that speak of the coding or of further pictures. That of
  // JFIF comes first, as the format wants it.
  std::vector<JpegSegment> segments;
  std::optional<Resolution> resolution;  // as JFIF tells it
};

// Of the file behind `descriptor`, whose position is left alone. Nothing when it is no JPEG file, or damaged
// before its first scan.
std::optional<JpegHeader> ReadJpegHeader(int descriptor);

// Whether the end mark stands somewhere behind the beginning of the first scan. The library does without it
// where it has all pixels of a picture of one component.
bool JpegReachesItsEnd(int descriptor, off_t scan, off_t size);

struct JpegForm {
  const JpegHeader* like = nullptr;  // whose colour space, sampling and, without a quality, tables to use
  std::optional<int> quality;        // 1..100; without either 95, no chroma halved
};

// Rows of 8 bits: grey, RGB, or CMYK, whose inks are inverted in the file. Refuses with kCannotWrite.
void WriteJpeg(const PageKind& kind, const JpegForm& form, const std::vector<JpegSegment>& segments,
               const std::vector<uint8_t>& profile, const RowFiller& fillRow, OutputFile* output);

}  // namespace tessaline::cli
