#include "cli/carried_metadata.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>
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
// What a decoder needs for the pixels themselves.
constexpr std::string_view kPixelChunks[] = {"IHDR", "PLTE", "tRNS", "IDAT", "IEND"};

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

constexpr int kStartOfScan = 0xDA, kEndOfImage = 0xD9, kApp0 = 0xE0, kApp2 = 0xE2, kApp14 = 0xEE,
              kApp15 = 0xEF, kComment = 0xFE;

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

MetadataFilter::MetadataFilter(const Rules& rules, std::vector<uint8_t> carried, Write write)
    : rules_(rules), carried_(std::move(carried)), write_(std::move(write)) {
  // The lead counts as a piece of known size.
  piece_ = {rules.leadBytes, true, rules.insertsAfterLead, false};
  left_ = rules.leadBytes;
}

std::unique_ptr<MetadataFilter> MetadataFilter::ForPng(std::vector<uint8_t> carried, Write write) {
  const Rules rules = {kPngSignature, kPngHead, false, JudgePng};
  return std::unique_ptr<MetadataFilter>(new MetadataFilter(rules, std::move(carried), std::move(write)));
}

std::unique_ptr<MetadataFilter> MetadataFilter::ForJpeg(std::vector<uint8_t> carried, Write write) {
  const Rules rules = {kJpegStartMark, kJpegHead, true, JudgeJpeg};
  return std::unique_ptr<MetadataFilter>(new MetadataFilter(rules, std::move(carried), std::move(write)));
}

MetadataFilter::Piece MetadataFilter::JudgePng(const uint8_t* head) {
  const uint8_t* type = head + 4;
  return {kPngChunkFrame + uint64_t{BigEndian32(head)}, Lists(kPixelChunks, type),
          memcmp(type, "IHDR", 4) == 0, false};
}

MetadataFilter::Piece MetadataFilter::JudgeJpeg(const uint8_t* head) {
  const int marker = head[1];
  return {SegmentBytes(head), !IsDescriptiveMarker(marker), false, marker == kStartOfScan};
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
      const size_t taken = std::min(count, rules_.headBytes - head_.size());
      head_.insert(head_.end(), bytes, bytes + taken);
      bytes += taken;
      count -= taken;
      if (head_.size() < rules_.headBytes) return true;
      piece_ = rules_.judge(head_.data());
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
    if (left_ == 0 && piece_.isInsertedAfter && !Insert()) return false;
  }
  return true;
}

}  // namespace tessaline::cli
