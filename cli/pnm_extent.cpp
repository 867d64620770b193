#include "cli/pnm_extent.h"

#include <unistd.h>

#include <algorithm>
#include <cstdint>

namespace tessaline::cli {
namespace {

struct PnmKind {
  char digit;  // behind the P
  bool isPlain;
  bool isBitmap;  // no largest value in the header, eight pixels in a byte
  int samples;    // of a pixel
};
constexpr PnmKind kKinds[] = {{'1', true, true, 1},  {'2', true, false, 1},  {'3', true, false, 3},
                              {'4', false, true, 1}, {'5', false, false, 1}, {'6', false, false, 3}};

bool IsBlank(int c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

bool IsDigit(int c) {
  return c >= '0' && c <= '9';
}

class PnmReader {
 public:
  explicit PnmReader(int descriptor) : descriptor_(descriptor) {}

  // The next byte, -1 at the end of the file.
  int Next() {
    if (at_ == count_) {
      start_ += count_;
      at_ = 0;
      const ssize_t count = pread(descriptor_, bytes_, sizeof bytes_, start_);
      count_ = count > 0 ? count : 0;
      if (count_ == 0) return -1;
    }
    return bytes_[at_++];
  }

  // The next byte that is neither blank nor part of a comment.
  int NextOfToken() {
    for (int c = Next();; c = Next()) {
      if (c == '#') c = SkipComment();
      if (!IsBlank(c)) return c;
    }
  }

  // A number of the header and the blank behind it; -1 when there is none or the file ends within it.
  int64_t HeaderNumber() {
    constexpr int64_t kMost = 1'000'000'000;
    int c = NextOfToken();
    if (!IsDigit(c)) return -1;
    int64_t number = 0;
    for (; IsDigit(c); c = Next()) number = number < kMost ? number * 10 + (c - '0') : kMost;
    if (c == '#') c = SkipComment();
    return IsBlank(c) ? number : -1;
  }

  off_t position() const { return start_ + at_; }

 private:
  // To the end of the line, which is returned.
  int SkipComment() {
    int c;
    do c = Next();
    while (c != '\n' && c != -1);
    return c;
  }

  int descriptor_;
  off_t start_ = 0;  // of the block in the file
  ssize_t at_ = 0;
  ssize_t count_ = 0;
  uint8_t bytes_[16384];
};

// Counts to `wanted` and no farther.
bool HasPlainSamples(PnmReader* reader, bool isBitmap, uint64_t wanted) {
  for (uint64_t found = 0; found < wanted; ++found) {
    int c = reader->NextOfToken();
    if (!IsDigit(c)) return false;
    if (isBitmap) continue;  // its digits may stand without blanks
    while (IsDigit(c)) c = reader->Next();
  }
  return true;
}

// As far as it could be read: -1 where it could not.
struct PnmHeader {
  const PnmKind* kind = nullptr;
  int64_t width = -1, height = -1, largest = -1;
};

PnmHeader ReadHeader(PnmReader* reader) {
  PnmHeader header;
  if (reader->Next() != 'P') return header;
  const int digit = reader->Next();
  for (const PnmKind& kind : kKinds) {
    if (kind.digit != digit) continue;
    header.kind = &kind;
    header.width = reader->HeaderNumber();
    header.height = header.width < 0 ? -1 : reader->HeaderNumber();
    header.largest = header.height < 0 ? -1 : kind.isBitmap ? 0 : reader->HeaderNumber();
  }
  return header;
}

}  // namespace

const char* MissingFromPnm(int descriptor, off_t size) {
  constexpr const char* kEnd = "its end is missing";
  PnmReader reader(descriptor);
  const PnmHeader header = ReadHeader(&reader);
  if (header.kind == nullptr || header.largest < 0) return "its header is incomplete";
  if (!header.kind->isBitmap && (header.largest < 1 || header.largest > 65535)) {
    return "the largest level in its header is not 1 to 65535";
  }
  if (header.width == 0 || header.height == 0) return "its header tells of no pixels";
  const uint64_t rowSamples = static_cast<uint64_t>(header.width) * header.kind->samples;
  if (header.kind->isPlain) {
    return HasPlainSamples(&reader, header.kind->isBitmap, rowSamples * header.height) ? nullptr : kEnd;
  }
  const uint64_t rowBytes =
      header.kind->isBitmap ? (rowSamples + 7) / 8 : rowSamples * (header.largest > 255 ? 2 : 1);
  const auto held = static_cast<uint64_t>(size - reader.position());
  return held / rowBytes >= static_cast<uint64_t>(header.height) ? nullptr : kEnd;
}

uint32_t LargestPnmLevel(int descriptor) {
  PnmReader reader(descriptor);
  return static_cast<uint32_t>(std::clamp<int64_t>(ReadHeader(&reader).largest, 0, 65535));
}

}  // namespace tessaline::cli
