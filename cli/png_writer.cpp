#include "cli/png_writer.h"

#include <zlib.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>
#include <utility>

#include "cli/ordered_work.h"

namespace tessaline::cli {
namespace {

enum Filter : uint8_t { kNoFilter, kSub, kUp, kAverage, kPaeth };
constexpr int kFilters = 5;

void PutBigEndian(uint32_t value, std::vector<uint8_t>& target) {
  for (int shift = 24; shift >= 0; shift -= 8) target.push_back(static_cast<uint8_t>(value >> shift));
}

// How a piece is compressed.
struct Coding {
  int level;
  int strategy;
};
constexpr Coding kStored = {0, Z_DEFAULT_STRATEGY};
// What is left of a scanned or photographed picture behind the filters is noise with hardly a repeat in it:
// to search for some costs three to ten times the time and, since the short ones it finds spoil the
// statistics, some per cent in size (measured on halftones before and after the run).
constexpr Coding kRuns = {6, Z_RLE};
constexpr Coding kRepeats = {4, Z_DEFAULT_STRATEGY};
constexpr Coding kValues = {6, Z_HUFFMAN_ONLY};  // frequent values alone
constexpr Coding kSmallRepeats = {7, Z_DEFAULT_STRATEGY};

// Of rows in a piece: enough for the statistics of its own that every piece has.
constexpr size_t kPieceBytes = size_t{512} << 10;
constexpr size_t kProbeBytes = size_t{32} << 10;

uint8_t PaethOf(int16_t left, int16_t up, int16_t corner) {
  // 16 bits throughout, so that many samples are done at a time.
  int16_t toLeft = static_cast<int16_t>(up - corner), toUp = static_cast<int16_t>(left - corner);
  auto toCorner = static_cast<int16_t>(toLeft + toUp);
  toLeft = static_cast<int16_t>(toLeft < 0 ? -toLeft : toLeft);
  toUp = static_cast<int16_t>(toUp < 0 ? -toUp : toUp);
  toCorner = static_cast<int16_t>(toCorner < 0 ? -toCorner : toCorner);
  const int16_t upOrCorner = toUp <= toCorner ? up : corner;
  return static_cast<uint8_t>(toLeft <= toUp && toLeft <= toCorner ? left : upOrCorner);
}

// A row of `bytes`, pixels of `step` bytes, less what the filter predicts from its neighbours. The pixel
// before the first is 0, and so are its two differences: that row begins with `step` zeros in front.
void FilterRow(Filter filter, const uint8_t* row, const uint8_t* above, size_t bytes, size_t step,
               uint8_t* out) {
  const uint8_t* const left = row - step;
  const uint8_t* const corner = above - step;
  switch (filter) {
    case kNoFilter:
      memcpy(out, row, bytes);
      return;
    case kSub:
      for (size_t i = 0; i < bytes; ++i) out[i] = static_cast<uint8_t>(row[i] - left[i]);
      return;
    case kUp:
      for (size_t i = 0; i < bytes; ++i) out[i] = static_cast<uint8_t>(row[i] - above[i]);
      return;
    case kAverage:
      for (size_t i = 0; i < bytes; ++i) out[i] = static_cast<uint8_t>(row[i] - (left[i] + above[i]) / 2);
      return;
    case kPaeth:
      for (size_t i = 0; i < bytes; ++i)
        out[i] = static_cast<uint8_t>(row[i] - PaethOf(left[i], above[i], corner[i]));
      return;
  }
}

// The sum of the differences' sizes, small for what compresses well.
uint64_t CostOf(const uint8_t* bytes, size_t count) {
  constexpr size_t kInOneSum = size_t{1} << 20;
  uint64_t all = 0;
  for (size_t first = 0; first < count; first += kInOneSum) {
    const size_t last = std::min(count, first + kInOneSum);
    uint32_t sum = 0;
    for (size_t i = first; i < last; ++i) sum += static_cast<uint8_t>(bytes[i] < 128 ? bytes[i] : -bytes[i]);
    all += sum;
  }
  return all;
}

// Some rows, as they come and as they go into the file.
class PngPiece {
 public:
  PngPiece(const PageKind& kind, PngEffort effort, int32_t rows)
      : kind_(kind),
        effort_(effort),
        rows_(rows),
        step_(kind.RowBytes() / static_cast<size_t>(kind.width)),
        stride_(step_ + kind.RowBytes()),
        raw_((static_cast<size_t>(rows) + 1) * stride_) {}

  // Row -1 is the last of the piece before; zeros in the first.
  uint8_t* Row(int32_t y) { return raw_.data() + static_cast<size_t>(y + 1) * stride_ + step_; }
  int32_t rows() const { return rows_; }

  void Compress(bool isFirst, bool isLast) {
    constexpr uint8_t kStreamHead[] = {0x78, 0x01};  // a window of 32 KiB, no dictionary
    if (isFirst) packed_.assign(std::begin(kStreamHead), std::end(kStreamHead));
    const std::vector<uint8_t> filtered = Filtered();
    raw_ = {};
    adler_ = adler32_z(adler32_z(0, nullptr, 0), filtered.data(), filtered.size());
    filteredBytes_ = filtered.size();
    const std::vector<Coding> codings = CodingsFor(filtered);
    std::vector<uint8_t> best = Packed(filtered.data(), filtered.size(), codings[0], isLast);
    for (size_t i = 1; i < codings.size(); ++i) {
      std::vector<uint8_t> other = Packed(filtered.data(), filtered.size(), codings[i], isLast);
      if (other.size() < best.size()) best = std::move(other);
    }
    packed_.insert(packed_.end(), best.begin(), best.end());
  }

  // Of the last piece: the checksum of all behind it.
  void End(uint32_t adler) { PutBigEndian(adler, packed_); }
  const std::vector<uint8_t>& packed() const { return packed_; }
  uint32_t AdlerBehind(uint32_t before) const {
    return static_cast<uint32_t>(adler32_combine(before, adler_, static_cast<z_off_t>(filteredBytes_)));
  }

 private:
  std::vector<uint8_t> Filtered() {
    if (kind_.bits == 16 && std::endian::native == std::endian::little) SwapBytes();
    const size_t bytes = kind_.RowBytes();
    std::vector<uint8_t> filtered(static_cast<size_t>(rows_) * (1 + bytes)), attempt(bytes);
    uint8_t* out = filtered.data();
    for (int32_t y = 0; y < rows_; ++y, out += 1 + bytes) {
      const auto use = [&](Filter filter, uint8_t* target) {
        FilterRow(filter, Row(y), Row(y - 1), bytes, step_, target);
      };
      if (effort_ == PngEffort::kNone || effort_ == PngEffort::kFast) {
        out[0] = effort_ == PngEffort::kNone ? kNoFilter : kPaeth;
        use(static_cast<Filter>(out[0]), out + 1);
        continue;
      }
      uint64_t least = UINT64_MAX;
      for (int filter = 0; filter < kFilters; ++filter) {
        use(static_cast<Filter>(filter), attempt.data());
        const uint64_t cost = CostOf(attempt.data(), bytes);
        if (cost >= least) continue;
        least = cost;
        out[0] = static_cast<uint8_t>(filter);
        memcpy(out + 1, attempt.data(), bytes);
      }
    }
    return filtered;
  }

  void SwapBytes() {  // the format's order is not the machine's
    for (size_t i = 0; i + 1 < raw_.size(); i += 2) std::swap(raw_[i], raw_[i + 1]);
  }

  std::vector<Coding> CodingsFor(const std::vector<uint8_t>& filtered) const {
    if (effort_ == PngEffort::kNone) return {kStored};
    if (effort_ == PngEffort::kFast) return {kRuns};
    if (effort_ == PngEffort::kSmall) return {kRuns, kValues, kSmallRepeats};
    // A page of text or a drawing does have repeats: a few rows in the middle tell.
    const size_t count = std::min(kProbeBytes, filtered.size());
    const uint8_t* const middle = filtered.data() + (filtered.size() - count) / 2;
    const bool gains =
        Packed(middle, count, kRepeats, true).size() < Packed(middle, count, kRuns, true).size();
    return {gains ? kRepeats : kRuns};
  }

  static std::vector<uint8_t> Packed(const uint8_t* bytes, size_t count, Coding coding, bool isLast) {
    z_stream stream = {};
    constexpr int kRawWindow = -15, kMemory = 9;
    if (deflateInit2(&stream, coding.level, Z_DEFLATED, kRawWindow, kMemory, coding.strategy) != Z_OK)
      throw std::bad_alloc();
    constexpr size_t kMarks = 64;  // of a flush that ends on a whole byte
    std::vector<uint8_t> packed(deflateBound(&stream, static_cast<uLong>(count)) + kMarks);
    stream.next_in = const_cast<uint8_t*>(bytes);
    stream.avail_in = static_cast<uInt>(count);
    stream.next_out = packed.data();
    stream.avail_out = static_cast<uInt>(packed.size());
    deflate(&stream, isLast ? Z_FINISH : Z_SYNC_FLUSH);
    packed.resize(packed.size() - stream.avail_out);
    deflateEnd(&stream);
    return packed;
  }

  PageKind kind_;
  PngEffort effort_;
  int32_t rows_;
  size_t step_;    // bytes of a pixel
  size_t stride_;  // of a row with the zeros in front
  std::vector<uint8_t> raw_, packed_;
  uLong adler_ = 0;
  size_t filteredBytes_ = 0;
};

void WriteChunk(std::string_view type, const std::vector<uint8_t>& data, OutputFile* output) {
  std::vector<uint8_t> head, tail;
  PutBigEndian(static_cast<uint32_t>(data.size()), head);
  head.insert(head.end(), type.begin(), type.end());
  uLong checksum = crc32_z(0, head.data() + 4, 4);
  // A pointer to nothing would ask for the checksum to begin with.
  if (!data.empty()) checksum = crc32_z(checksum, data.data(), data.size());
  PutBigEndian(static_cast<uint32_t>(checksum), tail);
  output->Write(head.data(), head.size());
  output->Write(data.data(), data.size());
  output->Write(tail.data(), tail.size());
}

std::vector<uint8_t> HeaderOf(const PageKind& kind) {
  constexpr uint8_t kColourTypes[] = {0, 4, 2, 6};  // grey, with alpha, RGB, with alpha
  std::vector<uint8_t> data;
  PutBigEndian(static_cast<uint32_t>(kind.width), data);
  PutBigEndian(static_cast<uint32_t>(kind.height), data);
  data.push_back(static_cast<uint8_t>(kind.bits));
  data.push_back(kColourTypes[kind.channels() - 1]);
  data.insert(data.end(), {0, 0, 0});  // compression, filters, not interlaced
  return data;
}

}  // namespace

void CompressRows(const PageKind& kind, PngEffort effort, int threads, const RowFiller& fillRow,
                  const std::function<void(const std::vector<uint8_t>&)>& take) {
  const auto rowsOfPiece = static_cast<int32_t>(std::max<size_t>(1, kPieceBytes / (1 + kind.RowBytes())));
  std::vector<uint8_t> last(kind.RowBytes());  // row of the piece before
  uLong adler = adler32_z(0, nullptr, 0);
  OrderedWork work(threads);
  for (int32_t top = 0; top < kind.height; top += rowsOfPiece) {
    const int32_t rows = std::min(rowsOfPiece, kind.height - top);
    const bool isLast = top + rows == kind.height;
    const auto piece = std::make_shared<PngPiece>(kind, effort, rows);
    memcpy(piece->Row(-1), last.data(), last.size());
    for (int32_t y = 0; y < rows; ++y) fillRow(top + y, piece->Row(y));
    memcpy(last.data(), piece->Row(rows - 1), last.size());
    work.Add([piece, isFirst = top == 0, isLast] { piece->Compress(isFirst, isLast); },
             [piece, isLast, &adler, &take] {
               adler = piece->AdlerBehind(static_cast<uint32_t>(adler));
               if (isLast) piece->End(static_cast<uint32_t>(adler));
               take(piece->packed());
             });
  }
  work.Finish();
}

void WritePng(const PageKind& kind, const std::vector<uint8_t>& chunks, PngEffort effort, int threads,
              const RowFiller& fillRow, OutputFile* output) {
  constexpr std::string_view kSignature = "\x89PNG\r\n\x1a\n";
  output->Write(kSignature.data(), kSignature.size());
  WriteChunk("IHDR", HeaderOf(kind), output);
  output->Write(chunks.data(), chunks.size());
  CompressRows(kind, effort, threads, fillRow,
               [output](const std::vector<uint8_t>& packed) { WriteChunk("IDAT", packed, output); });
  WriteChunk("IEND", {}, output);
}

}  // namespace tessaline::cli
