// The directory of tags in a TIFF file: what the picture library does not tell or does not carry along (how
// the pixels were compressed, Lab, EXIF).
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace tessaline::cli {

enum TiffTagNumber : uint16_t {
  kTiffCompression = 259,
  kTiffPhotometric = 262,
  kTiffPredictor = 317,
  kTiffSampleFormat = 339,
  kTiffTileWidth = 322,
  kTiffIptc = 33723,
  kTiffExifDirectory = 34665,
  kTiffGpsDirectory = 34853,
  kTiffInteroperabilityDirectory = 40965,  // inside the EXIF directory
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
    uint64_t pointerOffset;  // where the file points to this directory
    uint64_t nextOffset;     // the following directory, 0: none
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

// Adds the tags to a page of the little-endian TIFF file behind `descriptor` (open for reading and writing);
// tags that the page has already stay as they are. False when the file could not be read or written as
// needed.
bool AddDescriptiveTags(int descriptor, size_t page, const DescriptiveTags& tags);

// Overwrites all values of a SHORT tag of a page in place. False when the page has no such tag.
bool SetShortTag(int descriptor, size_t page, uint16_t tag, uint16_t value);

}  // namespace tessaline::cli
