#include "cli/iptc.h"

#include <cstring>
#include <string_view>

namespace tessaline::cli {
namespace {

using namespace std::string_view_literals;
constexpr std::string_view kSignature = "Photoshop 3.0\0"sv;
constexpr std::string_view kResource = "8BIM"sv;
constexpr int kIptcResource = 0x0404;

}  // namespace

std::vector<uint8_t> BareIptcRecords(const uint8_t* bytes, size_t size) {
  if (size < kSignature.size() || memcmp(bytes, kSignature.data(), kSignature.size()) != 0)
    return {bytes, bytes + size};
  // Each resource: "8BIM", number, name (length byte and text, padded to even), length, data (padded to
  // even).
  size_t at = kSignature.size();
  while (at + 8 <= size && memcmp(bytes + at, kResource.data(), kResource.size()) == 0) {
    const int number = bytes[at + 4] << 8 | bytes[at + 5];
    const size_t nameBytes = (size_t{bytes[at + 6]} + 2) / 2 * 2;
    const size_t lengthAt = at + 6 + nameBytes;
    if (lengthAt + 4 > size) return {};
    const size_t length = static_cast<size_t>(bytes[lengthAt]) << 24 |
                          static_cast<size_t>(bytes[lengthAt + 1]) << 16 |
                          static_cast<size_t>(bytes[lengthAt + 2]) << 8 | bytes[lengthAt + 3];
    const size_t dataAt = lengthAt + 4;
    if (length > size - dataAt) return {};
    if (number == kIptcResource) return {bytes + dataAt, bytes + dataAt + length};
    at = dataAt + length + length % 2;
  }
  return {};
}

std::vector<uint8_t> IptcSegmentData(const std::vector<uint8_t>& records) {
  const size_t length = records.size();
  std::vector<uint8_t> data;
  data.reserve(kSignature.size() + 12 + length + length % 2);
  const auto append = [&data](std::string_view text) {
    for (char c : text) data.push_back(static_cast<uint8_t>(c));
  };
  append(kSignature);
  append(kResource);
  data.push_back(kIptcResource >> 8);
  data.push_back(kIptcResource & 0xFF);
  append("\0\0"sv);  // no name, padded
  for (int shift = 24; shift >= 0; shift -= 8) data.push_back(static_cast<uint8_t>(length >> shift));
  for (uint8_t byte : records) data.push_back(byte);
  if (length % 2 != 0) data.push_back(0);
  return data;
}

}  // namespace tessaline::cli
