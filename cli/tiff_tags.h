// The directory of tags in a TIFF file: what the picture library does not tell or does not carry along (how
// the pixels were compressed, Lab, EXIF).
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <utility>
#include <vector>

namespace tessaline::cli {

enum TiffTagNumber : uint16_t {
  kTiffCompression = 259,
  kTiffBitsPerSample = 258,
  kTiffPhotometric = 262,
  kTiffOrientation = 274,
  kTiffXResolution = 282,
  kTiffYResolution = 283,
  kTiffResolutionUnit = 296,
  kTiffPredictor = 317,
  kTiffExtraSamples = 338,
  kTiffSampleFormat = 339,
  kTiffTileWidth = 322,
  kTiffSubDirectories = 330,  // of smaller pictures
  kTiffXmp = 700,
  kTiffIptc = 33723,
  kTiffPhotoshop = 34377,
  kTiffIccProfile = 34675,
  kTiffExifDirectory = 34665,
  kTiffGpsDirectory = 34853,
  kTiffInteroperabilityDirectory = 40965,  // inside the EXIF directory
};

// Those that describe a picture in words. EXIF and GPS have directories of their own.
inline constexpr uint16_t kTiffDescriptive[] = {
    269,    // document name
    270,    // image description
    271,    // maker of the camera or scanner
    272,    // its model
    285,    // page name
    305,    // software
    306,    // date and time
    315,    // artist
    316,    // host computer
    33432,  // copyright
    kTiffIptc,
};

// Bytes of a file or of a block in memory.
class ByteSource {
 public:
  explicit ByteSource(int descriptor) : descriptor_(descriptor) {}
  ByteSource(const uint8_t* bytes, size_t size) : bytes_(bytes), size_(size) {}
  // All `count` bytes from `offset` on, or false.
  bool Read(uint64_t offset, void* bytes, size_t count) const;

 private:
  int descriptor_ = -1;
  const uint8_t* bytes_ = nullptr;
  size_t size_ = 0;
};

// A tag with its value, little-endian whatever the file was.
struct TiffTag {
  uint16_t tag;
  uint16_t type;
  uint64_t count;
  std::vector<uint8_t> bytes;
};

// What describes the picture rather than its pixels: camera or scanner, dates, people, exposure, place.
struct DescriptiveTags {
  std::vector<TiffTag> main;
  std::vector<TiffTag> exif;
  std::vector<TiffTag> gps;
  std::vector<TiffTag> interoperability;
  bool IsEmpty() const { return main.empty() && exif.empty() && gps.empty(); }
};

class TiffStructure {
 public:
  // Nothing when it is no TIFF file or its directories cannot be followed.
  static std::optional<TiffStructure> Read(const ByteSource& source);

  size_t pages() const { return pages_.size(); }
  bool isBigTiff() const { return isBig_; }
  bool isBigEndian() const { return isBigEndian_; }

  // True when the values of all tags lie within so many bytes of file. The decoder does without most of them,
  // but a file that lacks some was cut short.
  bool FitsInto(uint64_t fileBytes) const;

  // First value of an integer tag of a page, or `fallback` when the tag is absent.
  uint64_t Value(size_t page, uint16_t tag, uint64_t fallback) const;
  // All values of an integer tag of a page; none when it is absent or cannot be read.
  std::vector<uint64_t> Values(size_t page, uint16_t tag) const;
  // As many bytes of the file as there is room for; false when there are not so many.
  bool ReadBytes(uint64_t offset, std::vector<uint8_t>& bytes) const {
    return source_.Read(offset, bytes.data(), bytes.size());
  }
  // First value of a RATIONAL tag of a page; nothing when it is absent or stands over 0.
  std::optional<double> Rational(size_t page, uint16_t tag) const;
  // Pixels per inch of a page, horizontal and vertical; nothing when they are not told, or in no unit of
  // length.
  std::optional<std::pair<double, double>> PixelsPerInch(size_t page) const;
  // Those of the tags that a page has and that can be read.
  std::vector<TiffTag> Tags(size_t page, std::span<const uint16_t> wanted) const;
  // Where in the file the values of a SHORT tag stand, two bytes each; none when the tag is absent or of
  // another type.
  std::vector<uint64_t> OffsetsOfShorts(size_t page, uint16_t tag) const;

  // Tags that cannot be read are left out.
  DescriptiveTags Descriptive(size_t page) const;

  struct Entry {
    uint16_t tag;
    uint16_t type;
    uint64_t count;
    uint64_t valueOffset;  // in the file, also where the value stands in the entry itself
  };
  struct Directory {
    std::vector<Entry> entries;
    uint64_t offset;             // of the directory in the file
    uint64_t pointerOffset;      // where the file points to it
    uint64_t nextOffset;         // the following directory, 0: none
    uint64_t nextPointerOffset;  // where that number stands
  };
  const Directory& directory(size_t page) const { return pages_[page]; }
  std::vector<uint8_t> ValueBytes(const Entry& entry) const;  // little-endian; empty when unreadable

 private:
  explicit TiffStructure(const ByteSource& source) : source_(source) {}
  bool ReadHeader();
  std::optional<Directory> ReadDirectory(uint64_t offset) const;
  uint64_t Number(uint64_t offset, size_t bytes, bool* ok) const;
  std::vector<TiffTag> TagsOf(uint64_t directoryOffset) const;

  ByteSource source_;
  bool isBig_ = false;
  bool isBigEndian_ = false;
  std::vector<Directory> pages_;
};

// What is to become different in a page.
struct TiffPageEdit {
  std::vector<uint16_t> removed;
  DescriptiveTags added;  // what the page has already, and is not removed, stays as it is
};

// Edits all pages of the little-endian TIFF file behind `descriptor` (open for reading and writing). False
// when the file could not be read or written as needed.
bool EditTiffPages(int descriptor, const std::function<TiffPageEdit(size_t page)>& editOf);

// The tags as a block of its own, such as other formats hold ("EXIF"), little-endian.
std::vector<uint8_t> ExifBlockOf(const DescriptiveTags& tags);

}  // namespace tessaline::cli
