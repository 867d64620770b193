#include "cli/tiff_writer.h"

#include <errno.h>
#include <string.h>
#include <tiffio.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <new>
#include <string>
#include <utility>

#include "cli/ordered_work.h"
#include "cli/refusal.h"

namespace tessaline::cli {
namespace {

// Of rows in a strip: readers hold a strip in memory, and the statistics of the compression want some length.
constexpr size_t kStripBytes = size_t{256} << 10;

// A file for the library, behind a descriptor or in memory.
class LibraryFile {
 public:
  virtual ~LibraryFile() = default;
  virtual ssize_t Read(void* bytes, size_t count) = 0;
  virtual ssize_t Write(const void* bytes, size_t count) = 0;
  virtual int64_t Seek(int64_t offset, int whence) = 0;

  // Null where there is no memory.
  TIFF* OpenToWrite(const char* mode) {
    const auto read = [](thandle_t self, void* bytes, tmsize_t count) -> tmsize_t {
      return static_cast<LibraryFile*>(self)->Read(bytes, static_cast<size_t>(count));
    };
    const auto write = [](thandle_t self, void* bytes, tmsize_t count) -> tmsize_t {
      return static_cast<LibraryFile*>(self)->Write(bytes, static_cast<size_t>(count));
    };
    const auto seek = [](thandle_t self, toff_t offset, int whence) -> toff_t {
      return static_cast<toff_t>(static_cast<LibraryFile*>(self)->Seek(static_cast<int64_t>(offset), whence));
    };
    const auto close = [](thandle_t) { return 0; };
    const auto size = [](thandle_t self) -> toff_t {
      auto* const file = static_cast<LibraryFile*>(self);
      const int64_t at = file->Seek(0, SEEK_CUR), end = file->Seek(0, SEEK_END);
      file->Seek(at, SEEK_SET);
      return static_cast<toff_t>(end);
    };
    return TIFFClientOpen("picture", mode, this, read, write, seek, close, size, nullptr, nullptr);
  }
};

class DescriptorFile final : public LibraryFile {
 public:
  explicit DescriptorFile(int descriptor) : descriptor_(descriptor) {}
  ssize_t Read(void* bytes, size_t count) override { return read(descriptor_, bytes, count); }
  ssize_t Write(const void* bytes, size_t count) override {
    if (error_ != 0) return -1;  // what follows a failed write has no place to stand
    if (WriteFully(descriptor_, bytes, count)) return static_cast<ssize_t>(count);
    error_ = errno;
    return -1;
  }
  int64_t Seek(int64_t offset, int whence) override { return lseek(descriptor_, offset, whence); }
  int error() const { return error_; }

 private:
  int descriptor_;
  int error_ = 0;
};

class MemoryFile final : public LibraryFile {
 public:
  ssize_t Read(void* bytes, size_t count) override {
    count = std::min(count, bytes_.size() - std::min(at_, bytes_.size()));
    if (count > 0) memcpy(bytes, bytes_.data() + at_, count);
    at_ += count;
    return static_cast<ssize_t>(count);
  }
  ssize_t Write(const void* bytes, size_t count) override {
    try {
      bytes_.resize(std::max(bytes_.size(), at_ + count));
    } catch (const std::bad_alloc&) {  // must not pass through the library's C code
      return -1;
    }
    if (count > 0) memcpy(bytes_.data() + at_, bytes, count);
    at_ += count;
    return static_cast<ssize_t>(count);
  }
  int64_t Seek(int64_t offset, int whence) override {
    const size_t base = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? at_ : bytes_.size();
    at_ = base + static_cast<size_t>(offset);
    return static_cast<int64_t>(at_);
  }
  const std::vector<uint8_t>& bytes() const { return bytes_; }

 private:
  std::vector<uint8_t> bytes_;
  size_t at_ = 0;
};

// The library's picture, dropped without the directory that closing would write.
struct Drop {
  void operator()(TIFF* tiff) const { TIFFCleanup(tiff); }
};
using TiffPointer = std::unique_ptr<TIFF, Drop>;

struct BlockSize {
  int32_t width, height;
};

// What the library needs to know of the samples of a page, or of a single strip.
void DescribeSamples(const PageKind& kind, BlockSize size, TIFF* tiff) {
  TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, static_cast<uint32_t>(size.width));
  TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, static_cast<uint32_t>(size.height));
  TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, kind.bits);
  TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, kind.channels());
  TIFFSetField(tiff, TIFFTAG_SAMPLEFORMAT,
               kind.isFloat()  ? SAMPLEFORMAT_IEEEFP
               : kind.isSigned ? SAMPLEFORMAT_INT
                               : SAMPLEFORMAT_UINT);
  TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  constexpr uint16_t kPhotometrics[] = {PHOTOMETRIC_MINISBLACK, PHOTOMETRIC_RGB, PHOTOMETRIC_RGB,
                                        PHOTOMETRIC_SEPARATED};  // by model; Lab gets its name afterwards
  TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, kPhotometrics[static_cast<size_t>(kind.model)]);
}

bool KnowsPredictor(uint16_t compression) {
  return compression == COMPRESSION_LZW || compression == COMPRESSION_ADOBE_DEFLATE ||
         compression == COMPRESSION_DEFLATE || compression == COMPRESSION_ZSTD;
}

void DescribeCompression(const PageKind& kind, const TiffForm& form, TIFF* tiff) {
  TIFFSetField(tiff, TIFFTAG_COMPRESSION, form.compression);
  if (form.predicts && KnowsPredictor(form.compression))
    TIFFSetField(tiff, TIFFTAG_PREDICTOR, kind.isFloat() ? PREDICTOR_FLOATINGPOINT : PREDICTOR_HORIZONTAL);
}

// The samples of a strip as the library compresses them: it writes them into a file of their own.
std::vector<uint8_t> Compressed(const PageKind& kind, BlockSize size, const TiffForm& form,
                                std::vector<uint8_t> samples) {
  if (form.compression == COMPRESSION_NONE) return samples;
  MemoryFile file;
  const TiffPointer tiff(file.OpenToWrite("wl"));
  if (!tiff) throw std::bad_alloc();
  DescribeSamples(kind, size, tiff.get());
  DescribeCompression(kind, form, tiff.get());
  TIFFSetField(tiff.get(), TIFFTAG_ROWSPERSTRIP, static_cast<uint32_t>(size.height));
  if (form.compression == COMPRESSION_ZSTD) {
    TIFFSetField(tiff.get(), TIFFTAG_ZSTD_LEVEL, form.level);
  } else if (KnowsPredictor(form.compression) && form.compression != COMPRESSION_LZW) {
    TIFFSetField(tiff.get(), TIFFTAG_ZIPQUALITY, form.level);
  }
  if (TIFFWriteEncodedStrip(tiff.get(), 0, samples.data(), static_cast<tmsize_t>(samples.size())) < 0)
    throw std::bad_alloc();
  const auto first = file.bytes().begin() + static_cast<ptrdiff_t>(TIFFGetStrileOffset(tiff.get(), 0));
  return {first, first + static_cast<ptrdiff_t>(TIFFGetStrileByteCount(tiff.get(), 0))};
}

constexpr uint16_t kStripOffsets = 273, kStripByteCounts = 279, kTileOffsets = 324, kTileByteCounts = 325,
                   kSamplesPerPixel = 277, kRowsPerStrip = 278, kPlanarConfiguration = 284;

class TiffFile {
 public:
  TiffFile(bool isBig, OutputFile* output)
      : output_(output), file_(output->descriptor()), tiff_(file_.OpenToWrite(isBig ? "w8l" : "wl")) {
    Check(tiff_ != nullptr);
  }

  void BeginPage(int page, int pages) {
    if (pages == 1) return;
    TIFFSetField(tiff_.get(), TIFFTAG_SUBFILETYPE, FILETYPE_PAGE);
    TIFFSetField(tiff_.get(), TIFFTAG_PAGENUMBER, page, pages);
  }
  void DescribePage(const PageKind& kind, const TiffForm& form, int32_t rowsPerStrip) {
    DescribeSamples(kind, {kind.width, kind.height}, tiff_.get());
    DescribeCompression(kind, form, tiff_.get());
    if (form.tileWidth > 0) {
      TIFFSetField(tiff_.get(), TIFFTAG_TILEWIDTH, static_cast<uint32_t>(form.tileWidth));
      TIFFSetField(tiff_.get(), TIFFTAG_TILELENGTH, static_cast<uint32_t>(form.tileHeight));
    } else {
      TIFFSetField(tiff_.get(), TIFFTAG_ROWSPERSTRIP, static_cast<uint32_t>(rowsPerStrip));
    }
    if (kind.extras == 0) return;
    std::vector<uint16_t> extras(static_cast<size_t>(kind.extras), EXTRASAMPLE_UNSPECIFIED);
    extras[0] = EXTRASAMPLE_UNASSALPHA;
    TIFFSetField(tiff_.get(), TIFFTAG_EXTRASAMPLES, kind.extras, extras.data());
  }

  void AddBlock(uint32_t index, std::vector<uint8_t>& bytes) {
    auto* const data = bytes.data();
    const auto count = static_cast<tmsize_t>(bytes.size());
    const bool isTiled = TIFFIsTiled(tiff_.get()) != 0;
    Check((isTiled ? TIFFWriteRawTile : TIFFWriteRawStrip)(tiff_.get(), index, data, count) == count);
  }

  // The page's compressed data as they stand in `source`, under a directory that has no use but to point to
  // them: uncompressed, for the library to keep its hands off.
  void CopyPage(const TiffStructure& source, size_t page) {
    constexpr uint16_t kKept[] = {TIFFTAG_IMAGEWIDTH, TIFFTAG_IMAGELENGTH,  TIFFTAG_BITSPERSAMPLE,
                                  kSamplesPerPixel,   kPlanarConfiguration, kRowsPerStrip,
                                  TIFFTAG_TILEWIDTH,  TIFFTAG_TILELENGTH};
    for (const uint16_t tag : kKept) {
      if (const uint64_t value = source.Value(page, tag, 0))
        TIFFSetField(tiff_.get(), tag, static_cast<uint32_t>(value));
    }
    TIFFSetField(tiff_.get(), TIFFTAG_COMPRESSION, COMPRESSION_NONE);
    TIFFSetField(tiff_.get(), TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
    const bool isTiled = source.Value(page, kTiffTileWidth, 0) != 0;
    const std::vector<uint64_t> offsets = source.Values(page, isTiled ? kTileOffsets : kStripOffsets);
    const std::vector<uint64_t> counts = source.Values(page, isTiled ? kTileByteCounts : kStripByteCounts);
    for (size_t i = 0; i < offsets.size(); ++i) {
      std::vector<uint8_t> bytes(counts[i]);
      if (!source.ReadBytes(offsets[i], bytes)) {
        throw Refusal(ExitStatus::kUnreadable, output_->path(),
                      "cannot be written: a page of the input cannot be read any more; try again");
      }
      if (!bytes.empty()) AddBlock(static_cast<uint32_t>(i), bytes);
    }
  }

  void EndPage() { Check(TIFFWriteDirectory(tiff_.get()) != 0); }

 private:
  void Check(bool isWell) const {
    if (isWell) return;
    const std::string why = file_.error() != 0 ? std::string(": ") + strerror(file_.error())
                                               : "; is there room on the disk, and memory?";
    throw Refusal(ExitStatus::kCannotWrite, output_->path(), "cannot be written" + why);
  }

  OutputFile* output_;
  DescriptorFile file_;
  TiffPointer tiff_;
};

// Columns `left` on of some rows, as a whole tile: what lies beyond the picture repeats nothing and is 0.
std::vector<uint8_t> TileOf(const std::vector<uint8_t>& rows, const PageKind& kind, int32_t left,
                            BlockSize size) {
  const size_t rowBytes = kind.RowBytes(), pixelBytes = rowBytes / static_cast<size_t>(kind.width);
  const size_t tileBytes = static_cast<size_t>(size.width) * pixelBytes;
  const size_t offset = static_cast<size_t>(left) * pixelBytes;
  std::vector<uint8_t> tile(tileBytes * static_cast<size_t>(size.height));
  for (size_t y = 0; y * rowBytes < rows.size(); ++y) {
    memcpy(&tile[y * tileBytes], &rows[y * rowBytes + offset], std::min(tileBytes, rowBytes - offset));
  }
  return tile;
}

void WritePage(const PageKind& kind, const TiffForm& form, const std::function<void(int32_t, void*)>& fillRow,
               OrderedWork& work, TiffFile& file) {
  const size_t rowBytes = kind.RowBytes();
  const bool isTiled = form.tileWidth > 0;
  const auto wanted = static_cast<int32_t>(std::clamp<size_t>(kStripBytes / rowBytes, 1, 65535));
  const int32_t rowsPerBlock = isTiled ? form.tileHeight : std::min(wanted, kind.height);
  file.DescribePage(kind, form, rowsPerBlock);
  uint32_t index = 0;
  const auto add = [&](BlockSize size, std::vector<uint8_t> samples) {
    const auto block = std::make_shared<std::vector<uint8_t>>(std::move(samples));
    work.Add([=] { *block = Compressed(kind, size, form, std::move(*block)); },
             [block, index, &file] { file.AddBlock(index, *block); });
    ++index;
  };
  for (int32_t top = 0; top < kind.height; top += rowsPerBlock) {
    const int32_t rows = std::min(rowsPerBlock, kind.height - top);
    std::vector<uint8_t> samples(static_cast<size_t>(rows) * rowBytes);
    for (int32_t y = 0; y < rows; ++y) fillRow(top + y, &samples[static_cast<size_t>(y) * rowBytes]);
    if (!isTiled) {
      add({kind.width, rows}, std::move(samples));
      continue;
    }
    const BlockSize tile = {form.tileWidth, form.tileHeight};
    for (int32_t left = 0; left < kind.width; left += tile.width)
      add(tile, TileOf(samples, kind, left, tile));
  }
  work.Finish();
}

// Tags whose values are places in the file.
constexpr uint16_t kOffsetTags[] = {
    kStripOffsets, kStripByteCounts,    kTileOffsets,       kTileByteCounts,   288,
    289,           kTiffSubDirectories, kTiffExifDirectory, kTiffGpsDirectory, 400};

bool IsOffsetTag(uint16_t tag) {
  return std::find(std::begin(kOffsetTags), std::end(kOffsetTags), tag) != std::end(kOffsetTags);
}

uint64_t BlocksAcross(uint64_t length, uint64_t block) {
  return block == 0 ? 0 : length / block + (length % block != 0);
}

// So many strips or tiles the page must have by its tags.
uint64_t BlocksOf(const TiffStructure& file, size_t page) {
  const uint64_t width = file.Value(page, TIFFTAG_IMAGEWIDTH, 0),
                 height = file.Value(page, TIFFTAG_IMAGELENGTH, 0);
  const uint64_t planes = file.Value(page, kPlanarConfiguration, PLANARCONFIG_CONTIG) == PLANARCONFIG_SEPARATE
                              ? file.Value(page, kSamplesPerPixel, 1)
                              : 1;
  if (const uint64_t tileWidth = file.Value(page, kTiffTileWidth, 0)) {
    return planes * BlocksAcross(width, tileWidth) *
           BlocksAcross(height, file.Value(page, TIFFTAG_TILELENGTH, 0));
  }
  return planes * BlocksAcross(height, file.Value(page, kRowsPerStrip, UINT32_MAX));
}

}  // namespace

bool CanCopyTiffPage(const TiffStructure& file, size_t page) {
  const uint64_t compression = file.Value(page, kTiffCompression, COMPRESSION_NONE);
  if (compression == COMPRESSION_OJPEG) return false;  // scattered over the file
  // Samples of several bytes would stand in the wrong order.
  const bool hasOrder = compression != COMPRESSION_JPEG && file.Value(page, kTiffBitsPerSample, 1) > 8;
  if (file.isBigEndian() && hasOrder) return false;
  const bool isTiled = file.Value(page, kTiffTileWidth, 0) != 0;
  const std::vector<uint64_t> offsets = file.Values(page, isTiled ? kTileOffsets : kStripOffsets);
  const std::vector<uint64_t> counts = file.Values(page, isTiled ? kTileByteCounts : kStripByteCounts);
  if (offsets.empty() || offsets.size() != counts.size() || offsets.size() != BlocksOf(file, page))
    return false;
  for (size_t i = 0; i < offsets.size(); ++i) {
    std::vector<uint8_t> last(1);
    if (counts[i] > 0 && !file.ReadBytes(offsets[i] + counts[i] - 1, last)) return false;
  }
  return true;
}

TiffPageEdit EditOfCopiedPage(const TiffStructure& source, size_t page) {
  TiffPageEdit edit;
  edit.added = source.Descriptive(page);
  edit.added.main.clear();
  for (const TiffStructure::Entry& entry : source.directory(page).entries) {
    if (IsOffsetTag(entry.tag)) continue;
    std::vector<uint8_t> bytes = source.ValueBytes(entry);
    if (!bytes.empty()) edit.added.main.push_back({entry.tag, entry.type, entry.count, std::move(bytes)});
  }
  // What the library had to be told.
  edit.removed = {TIFFTAG_IMAGEWIDTH,  TIFFTAG_IMAGELENGTH, TIFFTAG_BITSPERSAMPLE, TIFFTAG_COMPRESSION,
                  TIFFTAG_PHOTOMETRIC, kSamplesPerPixel,    kPlanarConfiguration,  kRowsPerStrip,
                  TIFFTAG_TILEWIDTH,   TIFFTAG_TILELENGTH,  TIFFTAG_SUBFILETYPE,   TIFFTAG_PAGENUMBER};
  return edit;
}

void WriteTiff(const std::vector<TiffPage>& pages, bool isBig, const TiffStructure* source, int threads,
               const RowFiller& fillRow, OutputFile* output) {
  TiffFile file(isBig, output);
  OrderedWork work(threads);
  int32_t first = 0;  // row
  for (size_t index = 0; index < pages.size(); ++index) {
    const TiffPage& page = pages[index];
    file.BeginPage(static_cast<int>(index), static_cast<int>(pages.size()));
    if (page.isCopied) {
      file.CopyPage(*source, index);
    } else {
      const auto fillRowOfPage = [&](int32_t y, void* row) { fillRow(first + y, row); };
      WritePage(page.kind, page.form, fillRowOfPage, work, file);
    }
    file.EndPage();
    first += page.kind.height;
  }
}

}  // namespace tessaline::cli
