#include "cli/carried_metadata.h"

#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>
#include <string_view>

namespace tessaline::cli {
namespace {

constexpr size_t kPngSignature = 8;
constexpr size_t kPngHead = 8;         // length and type of a chunk
constexpr size_t kPngChunkFrame = 12;  // these and the checksum
constexpr size_t kJpegStartMark = 2;
constexpr size_t kJpegHead = 4;  // marker and length of a segment

// Nobody's metadata is larger; a broken file's may seem so.
constexpr uint64_t kMostCarriedBytes = uint64_t{64} << 20;

constexpr std::string_view kCarriedChunks[] = {"cHRM", "gAMA", "iCCP", "sRGB", "cICP", "mDCv", "cLLi", "pHYs",
                                               "oFFs", "sCAL", "eXIf", "tEXt", "zTXt", "iTXt", "tIME"};

template <size_t N>
bool Lists(const std::string_view (&list)[N], const uint8_t* type) {
  return std::find(std::begin(list), std::end(list),
                   std::string_view(reinterpret_cast<const char*>(type), 4)) != std::end(list);
}

uint32_t BigEndian32(const uint8_t* bytes) {
  return static_cast<uint32_t>(bytes[0]) << 24 | static_cast<uint32_t>(bytes[1]) << 16 |
         static_cast<uint32_t>(bytes[2]) << 8 | bytes[3];
}

bool ReadAt(int descriptor, uint64_t offset, uint8_t* bytes, size_t count) {
  return pread(descriptor, bytes, count, static_cast<off_t>(offset)) == static_cast<ssize_t>(count);
}

void AppendFrom(int descriptor, uint64_t offset, uint64_t count, std::vector<uint8_t>& target) {
  if (target.size() + count > kMostCarriedBytes) return;
  const size_t before = target.size();
  target.resize(before + static_cast<size_t>(count));
  if (!ReadAt(descriptor, offset, target.data() + before, static_cast<size_t>(count))) target.resize(before);
}

constexpr int kStartOfScan = 0xDA, kEndOfImage = 0xD9, kApp0 = 0xE0, kApp1 = 0xE1, kApp2 = 0xE2,
              kApp14 = 0xEE, kApp15 = 0xEF, kComment = 0xFE;

// All but APP14, which tells how the colours are coded.
bool IsDescriptiveMarker(int marker) {
  return (marker >= kApp0 && marker <= kApp15 && marker != kApp14) || marker == kComment;
}

// Of a segment by its head, with the two bytes of the marker.
uint64_t SegmentBytes(const uint8_t* head) {
  return 2u + (static_cast<uint64_t>(head[2]) << 8 | head[3]);
}

// The segments of a JPEG file before its first scan: visit(marker, offset, bytes with the head).
template <typename Visit>
void ForEachJpegSegment(int descriptor, const Visit& visit) {
  uint64_t at = kJpegStartMark;
  uint8_t head[kJpegHead];
  while (ReadAt(descriptor, at, head, sizeof head) && head[0] == 0xFF) {
    const int marker = head[1];
    if (marker == 0xFF) {  // fill byte
      ++at;
      continue;
    }
    if (marker == kStartOfScan || marker == kEndOfImage) return;
    visit(marker, at, SegmentBytes(head));
    at += SegmentBytes(head);
  }
}

template <typename Visit>
void ForEachPngChunk(int descriptor, const Visit& visit) {
  uint64_t at = kPngSignature;
  uint8_t head[kPngHead];
  while (ReadAt(descriptor, at, head, sizeof head)) {
    const uint64_t bytes = uint64_t{kPngChunkFrame} + BigEndian32(head);
    visit(head + 4, at, bytes);
    at += bytes;
  }
}

bool BeginsWith(const std::vector<uint8_t>& bytes, size_t offset, std::string_view text) {
  return bytes.size() >= offset + text.size() && memcmp(bytes.data() + offset, text.data(), text.size()) == 0;
}

}  // namespace

std::vector<uint8_t> PngChunksToCarry(int descriptor) {
  std::vector<uint8_t> carried;
  ForEachPngChunk(descriptor, [&](const uint8_t* type, uint64_t offset, uint64_t bytes) {
    if (Lists(kCarriedChunks, type)) AppendFrom(descriptor, offset, bytes, carried);
  });
  return carried;
}

std::vector<uint8_t> PngChunkData(int descriptor, std::string_view wanted) {
  std::vector<uint8_t> data;
  ForEachPngChunk(descriptor, [&](const uint8_t* type, uint64_t offset, uint64_t bytes) {
    if (!data.empty() || memcmp(type, wanted.data(), 4) != 0) return;
    AppendFrom(descriptor, offset + kPngHead, bytes - kPngChunkFrame, data);
  });
  return data;
}

bool IsAnimatedPng(int descriptor) {
  bool isAnimated = false;
  ForEachPngChunk(descriptor, [&](const uint8_t* type, uint64_t, uint64_t) {
    isAnimated = isAnimated || memcmp(type, "acTL", 4) == 0;
  });
  return isAnimated;
}

std::vector<uint8_t> JpegSegmentsToCarry(int descriptor) {
  using std::operator""sv;
  std::vector<uint8_t> first, others;
  ForEachJpegSegment(descriptor, [&](int marker, uint64_t offset, uint64_t bytes) {
    const bool isDescriptive =
        (marker >= kApp0 && marker <= kApp15 && marker != kApp14) || marker == kComment;
    if (!isDescriptive) return;  // APP14 tells how colours are coded
    std::vector<uint8_t> segment;
    AppendFrom(descriptor, offset, bytes, segment);
    // A list of further pictures behind this one, which do not come along.
    if (marker == kApp2 && BeginsWith(segment, kJpegHead, "MPF\0"sv)) return;
    // The format wants its own segment in front.
    const bool isJfif = marker == kApp0 && BeginsWith(segment, kJpegHead, "JFIF\0"sv) && first.empty();
    std::vector<uint8_t>& target = isJfif ? first : others;
    target.insert(target.end(), segment.begin(), segment.end());
  });
  first.insert(first.end(), others.begin(), others.end());
  return first;
}

namespace {

void PutBigEndian(uint32_t value, int bytes, std::vector<uint8_t>& target) {
  for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8)
    target.push_back(static_cast<uint8_t>(value >> shift));
}

void PutText(std::string_view text, std::vector<uint8_t>& target) {
  target.insert(target.end(), text.begin(), text.end());
}

void PutPngChunk(std::string_view type, const std::vector<uint8_t>& data, std::vector<uint8_t>& target) {
  PutBigEndian(static_cast<uint32_t>(data.size()), 4, target);
  const size_t start = target.size();
  PutText(type, target);
  target.insert(target.end(), data.begin(), data.end());
  PutBigEndian(static_cast<uint32_t>(crc32_z(0, target.data() + start, target.size() - start)), 4, target);
}

// What does not fit into one segment is left out.
void PutJpegSegment(int marker, std::string_view mark, const std::vector<uint8_t>& data,
                    std::vector<uint8_t>& target) {
  const size_t length = 2 + mark.size() + data.size();
  if (length > 0xFFFF) return;
  target.push_back(0xFF);
  target.push_back(static_cast<uint8_t>(marker));
  PutBigEndian(static_cast<uint32_t>(length), 2, target);
  PutText(mark, target);
  target.insert(target.end(), data.begin(), data.end());
}

}  // namespace

std::vector<uint8_t> PngChunksOf(const std::optional<Resolution>& resolution,
                                 const std::vector<uint8_t>& exif, const std::vector<uint8_t>& profile,
                                 const std::vector<uint8_t>& xmp) {
  using std::operator""sv;
  std::vector<uint8_t> chunks;
  if (resolution) {
    constexpr double kInchesPerMetre = 1000 / 25.4;
    constexpr uint8_t kPerMetre = 1;
    std::vector<uint8_t> data;
    PutBigEndian(static_cast<uint32_t>(std::lround(resolution->horizontal * kInchesPerMetre)), 4, data);
    PutBigEndian(static_cast<uint32_t>(std::lround(resolution->vertical * kInchesPerMetre)), 4, data);
    data.push_back(kPerMetre);
    PutPngChunk("pHYs", data, chunks);
  }
  if (!exif.empty()) PutPngChunk("eXIf", exif, chunks);
  if (!profile.empty()) {
    std::vector<uint8_t> data;
    PutText("icc\0\0"sv, data);  // its name, and how it is compressed
    const size_t head = data.size();
    uLongf packedBytes = compressBound(static_cast<uLong>(profile.size()));
    data.resize(head + packedBytes);
    if (compress(&data[head], &packedBytes, profile.data(), static_cast<uLong>(profile.size())) != Z_OK)
      throw std::bad_alloc();
    data.resize(head + packedBytes);
    PutPngChunk("iCCP", data, chunks);
  }
  if (!xmp.empty()) {
    std::vector<uint8_t> data;
    PutText("XML:com.adobe.xmp\0\0\0\0\0"sv, data);  // not compressed, of no language, not translated
    data.insert(data.end(), xmp.begin(), xmp.end());
    PutPngChunk("iTXt", data, chunks);
  }
  return chunks;
}

std::vector<uint8_t> JpegSegmentsOf(const std::optional<Resolution>& resolution,
                                    const std::vector<uint8_t>& exif, const std::vector<uint8_t>& xmp) {
  using std::operator""sv;
  const auto dots = [](double perInch) {
    return static_cast<uint32_t>(std::clamp(std::lround(perInch), 1L, 65535L));
  };
  std::vector<uint8_t> segments, jfif = {1, 1};  // the version
  // Without a resolution the two numbers are the shape of a pixel.
  jfif.push_back(resolution ? 1 : 0);
  PutBigEndian(resolution ? dots(resolution->horizontal) : 1, 2, jfif);
  PutBigEndian(resolution ? dots(resolution->vertical) : 1, 2, jfif);
  PutBigEndian(0, 2, jfif);  // no thumbnail
  PutJpegSegment(kApp0, "JFIF\0"sv, jfif, segments);
  if (!exif.empty()) PutJpegSegment(kApp1, "Exif\0\0"sv, exif, segments);
  if (!xmp.empty()) PutJpegSegment(kApp1, "http://ns.adobe.com/xap/1.0/\0"sv, xmp, segments);
  return segments;
}

void ReplaceWebpExif(const std::vector<uint8_t>& exif, std::vector<uint8_t>& file) {
  constexpr size_t kRiffHead = 12, kHead = 8, kSizeAt = 4;
  constexpr uint8_t kHasExif = 8;  // a flag of the extended header
  const auto number = [&](size_t at) {
    return size_t{file[at]} | size_t{file[at + 1]} << 8 | size_t{file[at + 2]} << 16 |
           size_t{file[at + 3]} << 24;
  };
  const auto put = [](size_t value, uint8_t* at) {
    for (int i = 0; i < 4; ++i) at[i] = static_cast<uint8_t>(value >> (8 * i));
  };
  for (size_t at = kRiffHead; at + kHead <= file.size();) {
    const size_t bytes = kHead + number(at + kSizeAt) + number(at + kSizeAt) % 2;
    const std::string_view type(reinterpret_cast<const char*>(&file[at]), 4);
    if (at + bytes > file.size()) return;
    if (type == "VP8X" && exif.empty()) file[at + kHead] &= static_cast<uint8_t>(~kHasExif);
    if (type != "EXIF") {
      at += bytes;
      continue;
    }
    const auto start = file.begin() + static_cast<ptrdiff_t>(at);
    file.erase(start, start + static_cast<ptrdiff_t>(bytes));
    if (exif.empty()) continue;
    std::vector<uint8_t> chunk = {'E', 'X', 'I', 'F', 0, 0, 0, 0};
    put(exif.size(), &chunk[kSizeAt]);
    chunk.insert(chunk.end(), exif.begin(), exif.end());
    if (chunk.size() % 2 != 0) chunk.push_back(0);
    file.insert(file.begin() + static_cast<ptrdiff_t>(at), chunk.begin(), chunk.end());
    at += chunk.size();
  }
  put(file.size() - kHead, &file[kSizeAt]);
}

MetadataFilter::MetadataFilter(Judge judge, std::vector<uint8_t> carried, Write write)
    : judge_(judge), carried_(std::move(carried)), write_(std::move(write)) {
  // The start mark counts as a segment of known size.
  piece_ = {kJpegStartMark, true, false};
  left_ = kJpegStartMark;
}

std::unique_ptr<MetadataFilter> MetadataFilter::ForJpeg(std::vector<uint8_t> carried, Drops drops,
                                                        Write write) {
  const Judge judge = drops == Drops::kAll ? JudgeJpeg : JudgeJpegForExif;
  return std::unique_ptr<MetadataFilter>(new MetadataFilter(judge, std::move(carried), std::move(write)));
}

MetadataFilter::Piece MetadataFilter::JudgeJpeg(const uint8_t* head) {
  const int marker = head[1];
  return {SegmentBytes(head), !IsDescriptiveMarker(marker), marker == kStartOfScan};
}

MetadataFilter::Piece MetadataFilter::JudgeJpegForExif(const uint8_t* head) {
  Piece piece = JudgeJpeg(head);
  piece.isKept = head[1] != kApp0 && head[1] != kApp1;
  return piece;
}

bool MetadataFilter::Insert() {
  if (isInserted_) return true;
  isInserted_ = true;
  return write_(carried_.data(), carried_.size());
}

bool MetadataFilter::Feed(const uint8_t* bytes, size_t count) {
  while (count > 0) {
    if (passesAll_) return write_(bytes, count);
    if (left_ == 0) {  // a piece begins
      const size_t taken = std::min(count, kJpegHead - head_.size());
      head_.insert(head_.end(), bytes, bytes + taken);
      bytes += taken;
      count -= taken;
      if (head_.size() < kJpegHead) return true;
      piece_ = judge_(head_.data());
      left_ = piece_.bytes - std::min<uint64_t>(piece_.bytes, head_.size());
      if (piece_.isKept && !write_(head_.data(), head_.size())) return false;
      head_.clear();
      if (piece_.endsFiltering) passesAll_ = true;
    }
    const auto part = static_cast<size_t>(std::min<uint64_t>(left_, count));
    if (piece_.isKept && part > 0 && !write_(bytes, part)) return false;
    bytes += part;
    count -= part;
    left_ -= part;
    if (left_ == 0 && !Insert()) return false;  // behind the start mark
  }
  return true;
}

}  // namespace tessaline::cli
