// Metadata that goes from a PNG file into a new one byte for byte, and into PNG, JPEG and WebP files from
// others: the picture library would write most of it anew and lose the rest (comments, maker's notes, text
// under names with blanks).
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace tessaline::cli {

struct Resolution {  // pixels per inch
  double horizontal;
  double vertical;
};

// Everything of a PNG file that describes the picture or its colours: profile, EXIF, texts, resolution, time.
std::vector<uint8_t> PngChunksToCarry(int descriptor);

// The data of the first chunk of a type in a PNG file; empty when there is none.
std::vector<uint8_t> PngChunkData(int descriptor, std::string_view wanted);

// True when the PNG file holds an animation.
bool IsAnimatedPng(int descriptor);

// A segment of a JPEG file, by its marker; its data without the length.
struct JpegSegment {
  int marker;
  std::vector<uint8_t> data;
};

// What describes a picture made anew, for a file of another format: what the picture library would write
// invents a resolution and loses parts of the EXIF block (in TIFF form; empty: none). Of JPEG, what does not
// fit into one segment is left out.
std::vector<uint8_t> PngChunksOf(const std::optional<Resolution>& resolution,
                                 const std::vector<uint8_t>& exif, const std::vector<uint8_t>& profile,
                                 const std::vector<uint8_t>& xmp);
std::vector<JpegSegment> JpegSegmentsOf(const std::optional<Resolution>& resolution,
                                        const std::vector<uint8_t>& exif, const std::vector<uint8_t>& xmp,
                                        const std::vector<uint8_t>& iptc);  // bare records

// Puts the block in place of the EXIF chunk of a whole WebP file; without one the chunk goes.
void ReplaceWebpExif(const std::vector<uint8_t>& exif, std::vector<uint8_t>& file);

}  // namespace tessaline::cli
