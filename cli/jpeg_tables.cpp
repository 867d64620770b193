#include "cli/jpeg_tables.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <vector>

namespace tessaline::cli {
namespace {

using Table = std::array<int, 64>;

// The example tables of the JPEG standard (its Annex K), which the common encoders scale by their quality
// setting. Row by row.
constexpr Table kLuminance = {16, 11, 10, 16, 24,  40,  51,  61,  12, 12, 14, 19, 26,  58,  60,  55,  //
                              14, 13, 16, 24, 40,  57,  69,  56,  14, 17, 22, 29, 51,  87,  80,  62,  //
                              18, 22, 37, 56, 68,  109, 103, 77,  24, 35, 55, 64, 81,  104, 113, 92,  //
                              49, 64, 78, 87, 103, 121, 120, 101, 72, 92, 95, 98, 112, 100, 103, 99};
constexpr Table kChrominance = {17, 18, 24, 47, 99, 99, 99, 99, 18, 21, 26, 66, 99, 99, 99, 99,  //
                                24, 26, 56, 99, 99, 99, 99, 99, 47, 66, 99, 99, 99, 99, 99, 99,  //
                                99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99,  //
                                99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99};

// Position in the file to position row by row.
constexpr int kZigZag[64] = {0,  1,  8,  16, 9,  2,  3,  10, 17, 24, 32, 25, 18, 11, 4,  5,   //
                             12, 19, 26, 33, 40, 48, 41, 34, 27, 20, 13, 6,  7,  14, 21, 28,  //
                             35, 42, 49, 56, 57, 50, 43, 36, 29, 22, 15, 23, 30, 37, 44, 51,  //
                             58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54, 47, 55, 62, 63};

// An entry of a standard table at a quality, as the common encoders scale it.
int ScaledEntry(int entry, int quality) {
  const int percent = quality < 50 ? 5000 / quality : 200 - 2 * quality;
  const int scaled = (entry * percent + 50) / 100;
  return scaled < 1 ? 1 : scaled > 255 ? 255 : scaled;
}

// How far a file's table is from a standard one: sum of |log ratio|, so that fine steps count as much as
// coarse.
double Distance(const Table& table, const Table& standard, int quality) {
  double distance = 0;
  for (int i = 0; i < 64; ++i) {
    distance += std::abs(std::log(static_cast<double>(table[i]) / ScaledEntry(standard[i], quality)));
  }
  return distance;
}

struct Markers {
  Table tables[4];
  bool hasTable[4] = {};
  int firstSampling = 0x11;  // horizontal << 4 | vertical, of component 1
  int secondSampling = 0x11;
  int luminanceTable = 0;
  int chrominanceTable = 0;
  int components = 0;
  bool isProgressive = false;
};

void ReadTables(const std::vector<uint8_t>& segment, Markers& markers) {
  size_t at = 0;
  while (at < segment.size()) {
    const int precision = segment[at] >> 4;
    const int index = segment[at] & 15;
    const size_t bytes = precision == 0 ? 64 : 128;
    if (index > 3 || at + 1 + bytes > segment.size()) return;
    const uint8_t* value = segment.data() + at + 1;
    for (int i = 0; i < 64; ++i) {
      const int step = precision == 0 ? value[i] : value[2 * i] << 8 | value[2 * i + 1];
      markers.tables[index][kZigZag[i]] = step > 0 ? step : 1;
    }
    markers.hasTable[index] = true;
    at += 1 + bytes;
  }
}

void ReadFrame(const std::vector<uint8_t>& segment, Markers& markers) {
  constexpr size_t kHead = 6;  // precision, height, width, components
  if (segment.size() < kHead) return;
  markers.components = segment[5];
  if (segment.size() < kHead + 3u * static_cast<size_t>(markers.components) || markers.components < 1) return;
  markers.firstSampling = segment[kHead + 1];
  markers.luminanceTable = segment[kHead + 2] & 3;
  markers.chrominanceTable = markers.luminanceTable;
  if (markers.components >= 3) {
    markers.secondSampling = segment[kHead + 4];
    markers.chrominanceTable = segment[kHead + 5] & 3;
  }
}

bool IsFrameMarker(int marker) {  // SOF0..SOF15 without DHT, JPG and DAC
  return marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
}

std::optional<Markers> ReadMarkers(int descriptor) {
  uint8_t head[4];
  if (pread(descriptor, head, 2, 0) != 2 || head[0] != 0xFF || head[1] != 0xD8) return std::nullopt;
  Markers markers;
  off_t at = 2;
  for (;;) {
    if (pread(descriptor, head, 4, at) != 4 || head[0] != 0xFF) break;
    const int marker = head[1];
    if (marker == 0xFF) {  // fill byte
      ++at;
      continue;
    }
    constexpr int kStartOfScan = 0xDA, kQuantisation = 0xDB;
    if (marker == kStartOfScan) break;
    const int length = head[2] << 8 | head[3];  // with these two bytes
    if (length < 2) break;
    if (marker == kQuantisation || IsFrameMarker(marker)) {
      std::vector<uint8_t> segment(static_cast<size_t>(length) - 2);
      if (pread(descriptor, segment.data(), segment.size(), at + 4) != static_cast<ssize_t>(segment.size()))
        break;
      if (marker == kQuantisation) {
        ReadTables(segment, markers);
      } else {
        ReadFrame(segment, markers);
        markers.isProgressive = (marker & 3) == 2;
      }
    }
    at += 2 + length;
  }
  return markers;
}

}  // namespace

std::optional<JpegCompression> ReadJpegCompression(int descriptor) {
  const std::optional<Markers> markers = ReadMarkers(descriptor);
  if (!markers || !markers->hasTable[markers->luminanceTable]) return std::nullopt;
  const bool hasChrominance = markers->components >= 3 && markers->hasTable[markers->chrominanceTable];
  int best = 100;
  double bestDistance = INFINITY;
  for (int quality = 100; quality >= 1; --quality) {
    double distance = Distance(markers->tables[markers->luminanceTable], kLuminance, quality);
    if (hasChrominance) {
      distance += Distance(markers->tables[markers->chrominanceTable], kChrominance, quality);
    }
    if (distance < bestDistance) {  // of equal ones the higher quality
      bestDistance = distance;
      best = quality;
    }
  }
  const auto ratio = [&](int first, int second) {
    return markers->components >= 3 && second > 0 ? std::max(first / second, 1) : 1;
  };
  return JpegCompression{best, ratio(markers->firstSampling >> 4, markers->secondSampling >> 4),
                         ratio(markers->firstSampling & 15, markers->secondSampling & 15),
                         markers->isProgressive};
}

}  // namespace tessaline::cli
