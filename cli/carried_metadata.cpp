#include "cli/carried_metadata.h"

#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>
#include <string_view>

#include "cli/iptc.h"

namespace tessaline::cli {
namespace {

constexpr size_t kPngSignature = 8;
constexpr size_t kPngHead = 8;         // length and type of a chunk
constexpr size_t kPngChunkFrame = 12;  // these and the checksum

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

std::vector<JpegSegment> JpegSegmentsOf(const std::optional<Resolution>& resolution,
                                        const std::vector<uint8_t>& exif, const std::vector<uint8_t>& xmp,
                                        const std::vector<uint8_t>& iptc) {
  using std::operator""sv;
  constexpr int kApp0 = 0xE0, kApp1 = 0xE1, kApp13 = 0xED;
  std::vector<JpegSegment> segments;
  const auto add = [&](int marker, std::string_view mark, const std::vector<uint8_t>& bytes) {
    constexpr size_t kMostBytes = 0xFFFF - 2;
    if (mark.size() + bytes.size() > kMostBytes) return;
    segments.push_back({marker, {}});
    PutText(mark, segments.back().data);
    segments.back().data.insert(segments.back().data.end(), bytes.begin(), bytes.end());
  };
  const auto dots = [](double perInch) {
    return static_cast<uint32_t>(std::clamp(std::lround(perInch), 1L, 65535L));
  };
  std::vector<uint8_t> jfif = {1, 1};  // the version
  // Without a resolution the two numbers are the shape of a pixel.
  jfif.push_back(resolution ? 1 : 0);
  PutBigEndian(resolution ? dots(resolution->horizontal) : 1, 2, jfif);
  PutBigEndian(resolution ? dots(resolution->vertical) : 1, 2, jfif);
  PutBigEndian(0, 2, jfif);  // no thumbnail
  add(kApp0, "JFIF\0"sv, jfif);
  if (!exif.empty()) add(kApp1, "Exif\0\0"sv, exif);
  if (!xmp.empty()) add(kApp1, "http://ns.adobe.com/xap/1.0/\0"sv, xmp);
  if (!iptc.empty()) add(kApp13, "", IptcSegmentData(iptc));
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

}  // namespace tessaline::cli
