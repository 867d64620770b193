// Metadata that goes from a PNG or JPEG file into a new one of the same format byte for byte: the picture
// library would write most of it anew and lose the rest (comments, maker's notes, text under names with
// blanks).
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
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
std::vector<uint8_t> PngChunkData(int descriptor, std::string_view type);

// True when the PNG file holds an animation.
bool IsAnimatedPng(int descriptor);

// The application segments and comments of a JPEG file, but for those that speak of its coding or of further
// pictures in it.
std::vector<uint8_t> JpegSegmentsToCarry(int descriptor);

// The same made anew, for a file of another format: what the picture library would write invents a resolution
// and loses parts of the EXIF block (in TIFF form; empty: none).
std::vector<uint8_t> PngChunksOf(const std::optional<Resolution>& resolution,
                                 const std::vector<uint8_t>& exif, const std::vector<uint8_t>& profile,
                                 const std::vector<uint8_t>& xmp);
std::vector<uint8_t> JpegSegmentsOf(const std::optional<Resolution>& resolution,
                                    const std::vector<uint8_t>& exif, const std::vector<uint8_t>& xmp);

// Puts the block in place of the EXIF chunk of a whole WebP file; without one the chunk goes.
void ReplaceWebpExif(const std::vector<uint8_t>& exif, std::vector<uint8_t>& file);

// A JPEG file on its way out: what describes the picture in it is left out, what is carried put in its place.
class MetadataFilter {
 public:
  using Write = std::function<bool(const uint8_t* bytes, size_t count)>;

  enum class Drops {
    kAll,           // whatever describes the picture
    kExifAndSizes,  // EXIF and resolution (and the XMP that stands in the same kind of segment)
  };
  static std::unique_ptr<MetadataFilter> ForJpeg(std::vector<uint8_t> carried, Drops drops, Write write);

  // The next bytes of the file, in pieces of any size. False when writing failed.
  bool Feed(const uint8_t* bytes, size_t count);

 private:
  // A segment: what to do with it is told by its first bytes.
  struct Piece {
    uint64_t bytes;  // with its head
    bool isKept;
    bool endsFiltering;  // from here on everything passes
  };
  using Judge = Piece (*)(const uint8_t* head);
  MetadataFilter(Judge judge, std::vector<uint8_t> carried, Write write);
  bool Insert();
  static Piece JudgeJpeg(const uint8_t* head);
  static Piece JudgeJpegForExif(const uint8_t* head);

  Judge judge_;
  std::vector<uint8_t> carried_;
  Write write_;
  bool isInserted_ = false;
  std::vector<uint8_t> head_;  // of the piece that begins, so far
  Piece piece_ = {};           // the one under way
  uint64_t left_ = 0;          // bytes of it to come
  bool passesAll_ = false;
};

}  // namespace tessaline::cli
