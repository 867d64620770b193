#include "cli/picture_file.h"

#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string_view>

#include "cli/carried_metadata.h"
#include "cli/full_range.h"
#include "cli/pnm_extent.h"
#include "cli/refusal.h"
#include "removal/steps.h"

namespace tessaline::cli {
namespace {

constexpr uint16_t kPhotometricRgb = 2;
constexpr uint16_t kPhotometricCieLab = 8;  // a and b signed
constexpr uint16_t kPhotometricIccLab = 9;  // a and b with their zero in the middle
constexpr uint64_t kUnsigned = 1, kSigned = 2, kFloat = 3, kUntold = 4;  // sample formats of TIFF
constexpr double kMillimetresPerInch = 25.4;

// Rows decoded at a time.
constexpr int kStripRows = 64;

Refusal Damaged(const std::string& path, const std::string& detail) {
  return Refusal(ExitStatus::kUnreadable, path,
                 "is damaged or cut short" + (detail.empty() ? "" : " (" + detail + ")") +
                     "; get a whole copy of the file");
}

// The library tells want of memory apart in its text only.
bool IsMemoryError(const std::string& error) {
  return error.find("out of memory") != std::string::npos ||
         error.find("unable to allocate") != std::string::npos;
}

Refusal LoadingRefusal(const std::string& path) {
  const std::string error = TakeLibraryError();
  if (IsMemoryError(error)) return Refusal(ExitStatus::kOutOfMemory, path, "not enough memory to decode it");
  return Damaged(path, "");
}

Refusal Unsupported(const std::string& path, const std::string& what) {
  return Refusal(ExitStatus::kUnsupported, path, what);
}

std::string PageWords(int page, int pages) {
  return pages > 1 ? " (page " + std::to_string(page + 1) + ")" : "";
}

// A PNG decoder is content once it has all pixels; the end mark tells whether the file is whole.
bool PngReachesItsEnd(int descriptor) {
  constexpr off_t kSignature = 8, kFrame = 12;  // length, type and checksum round a chunk's data
  for (off_t at = kSignature;;) {
    uint8_t head[8];
    if (pread(descriptor, head, sizeof head, at) != static_cast<ssize_t>(sizeof head)) return false;
    const off_t length = static_cast<off_t>(head[0]) << 24 | head[1] << 16 | head[2] << 8 | head[3];
    at += kFrame + length;
    if (memcmp(head + 4, "IEND", 4) == 0) {
      uint8_t last;
      return pread(descriptor, &last, 1, at - 1) == 1;
    }
  }
}

bool IsInterlacedPng(int descriptor) {
  constexpr off_t kInterlaceAt = 28;
  uint8_t way = 0;
  return pread(descriptor, &way, 1, kInterlaceAt) == 1 && way != 0;
}

// Of a strip or a row of tiles, which are decoded as a whole.
uint64_t BytesOfTiffPiece(const TiffStructure& tiff, int page, const PageKind& kind) {
  constexpr uint16_t kRowsPerStrip = 278, kTileHeight = 323;
  const auto index = static_cast<size_t>(page);
  const auto height = static_cast<uint64_t>(kind.height);
  const bool isOfTiles = tiff.Value(index, kTiffTileWidth, 0) > 0;
  const uint64_t rows = std::min(height, tiff.Value(index, isOfTiles ? kTileHeight : kRowsPerStrip, height));
  return rows * kind.RowBytes();
}

bool GifReachesItsEnd(int descriptor, off_t size) {
  constexpr uint8_t kTrailer = 0x3B;
  // Some writers pad the file with zeros behind the trailer.
  for (off_t at = size - 1; at > 0; --at) {
    uint8_t byte;
    if (pread(descriptor, &byte, 1, at) != 1) return false;
    if (byte != 0) return byte == kTrailer;
  }
  return false;
}

// JPEG warnings that say nothing against the pixels. All others (bad codes, missing restart marks) mean
// damage that the decoder painted over.
constexpr std::string_view kHarmlessJpegWarnings[] = {
    "extraneous bytes before marker 0xd9",  // padding before the end mark
    "unknown JFIF revision",
    "Unknown Adobe color transform",
};

bool TellsOfJpegDamage(const std::string& warnings) {
  if (warnings.empty()) return false;
  return std::none_of(
      std::begin(kHarmlessJpegWarnings), std::end(kHarmlessJpegWarnings),
      [&](std::string_view harmless) { return warnings.find(harmless) != std::string::npos; });
}

}  // namespace

struct PictureFile::Patch {
  uint64_t offset;
  std::vector<uint8_t> bytes;
};

PictureFile::PictureFile(InputFile file)
    : file_(std::move(file)), path_(file_.name()), descriptor_(file_.descriptor()) {
  StartPictureLibrary();
  const StderrSilenced silenced;
  TakeLibraryError();
  format_ = &FormatOfContents(descriptor_, path_);
  // What a document holds as a picture may be a document in turn.
  if (format_->loader == nullptr) throw Unsupported(path_, "is a document where a picture is wanted");
  LoadModuleFor(format_->loader);
  CheckEnding();
  if (format_->format == FileFormat::kTiff) {
    tiff_ = TiffStructure::Read(ByteSource(descriptor_));
    if (!tiff_) throw Damaged(path_, "its directory cannot be read");
    if (!tiff_->FitsInto(static_cast<uint64_t>(file_.size())))
      throw Damaged(path_, "parts of it lie behind its end");
    pages_ = static_cast<int>(tiff_->pages());
    RefuseTiffKinds();
  }
  if (format_->format == FileFormat::kJpeg) jpeg_ = ReadJpegHeader(descriptor_);
  if (jpeg_ && !JpegReachesItsEnd(descriptor_, jpeg_->scan, file_.size()))
    throw Damaged(path_, "its end is missing");
  metadata_ = LoadPage(0);
  if (!tiff_ && format_->hasPages && vips_image_get_typeof(metadata_.get(), VIPS_META_N_PAGES) != 0) {
    vips_image_get_int(metadata_.get(), VIPS_META_N_PAGES, &pages_);
  }
  if (pages_ > 1 && format_->format == FileFormat::kHeif) {
    throw Unsupported(
        path_, "holds " + std::to_string(pages_) + " pictures; save the wanted one as PNG or TIFF first");
  }
  kinds_.assign(static_cast<size_t>(pages_), KindOf(metadata_.get(), 0));
  for (int page = 1; page < pages_ && tiff_; ++page)
    kinds_[static_cast<size_t>(page)] = KindOf(LoadPage(page).get(), page);
}

void PictureFile::CheckEnding() {
  const bool isWhole = format_->format == FileFormat::kPng   ? PngReachesItsEnd(descriptor_)
                       : format_->format == FileFormat::kGif ? GifReachesItsEnd(descriptor_, file_.size())
                                                             : true;
  if (!isWhole) throw Damaged(path_, "its end is missing");
  if (format_->format == FileFormat::kPnm) {
    const char* const missing = MissingFromPnm(descriptor_, file_.size());
    if (missing != nullptr) throw Damaged(path_, missing);
    if (const uint32_t largest = LargestPnmLevel(descriptor_); largest > 0) pnmLargest_ = largest;
  }
  if (format_->format == FileFormat::kPng && IsAnimatedPng(descriptor_)) {
    throw Unsupported(path_, "is an animated PNG; take its frames apart first, or turn it into WebP");
  }
}

bool PictureFile::IsLabPage(int page) const {
  if (!tiff_ || static_cast<size_t>(page) >= tiff_->pages()) return false;
  const uint64_t photometric = tiff_->Value(static_cast<size_t>(page), kTiffPhotometric, kPhotometricRgb);
  return photometric == kPhotometricCieLab || photometric == kPhotometricIccLab;
}

bool PictureFile::IsOfSingleBits(int page) const {
  return tiff_ && tiff_->Value(static_cast<size_t>(page), kTiffBitsPerSample, 1) == 1;
}

// Of 16 bits, and not for being Lab.
bool PictureFile::IsSignedPage(int page) const {
  return tiff_ && !IsLabPage(page) &&
         tiff_->Value(static_cast<size_t>(page), kTiffSampleFormat, kUnsigned) == kSigned;
}

// Inks of other names than the four of print.
bool PictureFile::HasOtherInks(int page) const {
  constexpr uint16_t kInkSet = 332;
  constexpr uint64_t kCmykInks = 1;
  return tiff_ && tiff_->Value(static_cast<size_t>(page), kInkSet, kCmykInks) != kCmykInks;
}

namespace {

// What the format calls colours, and what the decoder makes of them.
constexpr uint64_t kPhotometricTaken[] = {0, 1, 2, 3, 5, 6, 8, 9};
constexpr uint64_t kPlainPhotometrics[] = {1, 2, 5};  // grey, RGB, inks
constexpr uint64_t kBitsTaken[] = {1, 2, 4, 8, 16};
constexpr uint64_t kCompressionsTaken[] = {1, 2, 3, 4, 5, 6, 7, 8, 32773, 32946, 34661, 34925, 50000, 50001};

template <size_t N>
bool Lists(const uint64_t (&list)[N], uint64_t value) {
  return std::find(std::begin(list), std::end(list), value) != std::end(list);
}

}  // namespace

// The decoder's word for everything it does not know would be that of a damaged file.
void PictureFile::RefuseTiffKinds() const {
  for (int page = 0; page < pages_; ++page) {
    const auto index = static_cast<size_t>(page);
    const std::string where = PageWords(page, pages_);
    const uint64_t format = tiff_->Value(index, kTiffSampleFormat, kUnsigned);
    const uint64_t compression = tiff_->Value(index, kTiffCompression, 1);
    const uint64_t bits = tiff_->Value(index, kTiffBitsPerSample, 1);
    const bool isPlain = Lists(kPlainPhotometrics, tiff_->Value(index, kTiffPhotometric, 1));
    if (format == kFloat && (bits != 32 || !isPlain)) {
      throw Unsupported(path_, "holds floating-point samples other than grey, RGB or CMYK of 32 bits" +
                                   where + "; convert it to 16 bits per sample first");
    }
    const bool isSignedTaken = format == kSigned && (IsLabPage(page) || (bits == 16 && isPlain));
    const bool isCounted = format == kUnsigned || format == kUntold || isSignedTaken;
    const bool isLongTaken = bits == 32 && isPlain && format != kSigned;
    if (format != kFloat && (!isCounted || !(Lists(kBitsTaken, bits) || isLongTaken))) {
      throw Unsupported(path_, "its samples are neither 8 nor 16 bits nor floats" + where +
                                   "; convert it to 16 bits per sample first");
    }
    if (!Lists(kPhotometricTaken, tiff_->Value(index, kTiffPhotometric, 1))) {
      throw Unsupported(path_, "its colours are neither grey nor RGB nor Lab nor CMYK" + where +
                                   "; convert it to RGB first");
    }
    if (!Lists(kCompressionsTaken, compression)) {
      throw Unsupported(path_, "is compressed in a way that cannot be read (number " +
                                   std::to_string(compression) + ")" + where +
                                   "; save it without compression first");
    }
  }
}

// What the decoder is to see of a TIFF file.
std::vector<PictureFile::Patch> PictureFile::PatchesFor(int page) const {
  std::vector<Patch> patches;
  if (!tiff_) return patches;
  const auto index = static_cast<size_t>(page);
  const auto present = [&](uint64_t offset, uint64_t value, size_t bytes) {
    Patch patch = {offset, {}};
    for (size_t i = 0; i < bytes; ++i) patch.bytes.push_back(static_cast<uint8_t>(value >> (8 * i)));
    if (tiff_->isBigEndian()) std::reverse(patch.bytes.begin(), patch.bytes.end());
    patches.push_back(std::move(patch));
  };
  // Of several pages the wanted one alone: the decoder would follow the chain from its beginning for each.
  if (pages_ > 1) {
    const TiffStructure::Directory& directory = tiff_->directory(index);
    const size_t bytes = tiff_->isBigTiff() ? 8 : 4;
    present(tiff_->directory(0).pointerOffset, directory.offset, bytes);
    present(directory.nextPointerOffset, 0, bytes);
  }
  // Colours multiplied by alpha would be divided by it and rounded; they are wanted as they are.
  constexpr uint64_t kAssociated = 1, kUnassociated = 2;
  const std::vector<uint64_t> extras = tiff_->OffsetsOfShorts(index, kTiffExtraSamples);
  if (!extras.empty() && tiff_->Value(index, kTiffExtraSamples, 0) == kAssociated) {
    present(extras[0], kUnassociated, 2);
  }
  // The library unpacks Lab into its own forms, which drop alpha and the lowest bit of 16-bit lightness. To
  // it, the three planes are shown as RGB: sample for sample what is in the file.
  // Signed samples are turned round their zero here (see PageSamples).
  if (!IsLabPage(page) && !IsSignedPage(page)) return patches;
  if (IsLabPage(page))
    for (uint64_t offset : tiff_->OffsetsOfShorts(index, kTiffPhotometric))
      present(offset, kPhotometricRgb, 2);
  // Some writers mark the samples as signed, for a and b are.
  if (tiff_->Value(index, kTiffSampleFormat, kUnsigned) != kSigned) return patches;
  for (uint64_t offset : tiff_->OffsetsOfShorts(index, kTiffSampleFormat)) present(offset, kUnsigned, 2);
  return patches;
}

namespace {

// A file read through its descriptor, with some bytes replaced. Belongs to the source that reads from it.
struct PatchedFile {
  int descriptor;
  int64_t position = 0;
  int64_t size = 0;
  struct Bytes {
    int64_t offset;
    uint8_t value;
  };
  std::vector<Bytes> replaced;
};

gint64 ReadPatched(VipsSourceCustom*, void* buffer, gint64 length, PatchedFile* file) {
  const ssize_t count = pread(file->descriptor, buffer, static_cast<size_t>(length), file->position);
  if (count <= 0) return count;
  for (const PatchedFile::Bytes& bytes : file->replaced) {
    const int64_t at = bytes.offset - file->position;
    if (at >= 0 && at < count) static_cast<uint8_t*>(buffer)[at] = bytes.value;
  }
  file->position += count;
  return count;
}

gint64 SeekPatched(VipsSourceCustom*, gint64 offset, int whence, PatchedFile* file) {
  const int64_t base = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? file->position : file->size;
  if (base + offset < 0) return -1;
  return file->position = base + offset;
}

void DeletePatched(gpointer data, GClosure*) {
  delete static_cast<PatchedFile*>(data);
}

}  // namespace

// Not the library's own source of a descriptor: some formats' files it maps into memory, and reading those is
// a deadly signal once somebody has made the file shorter.
GPointer<VipsSource> PictureFile::MakeSource(int page) const {
  auto* file = new PatchedFile{descriptor_};
  file->size = file_.size();
  for (const Patch& patch : PatchesFor(page)) {
    auto offset = static_cast<int64_t>(patch.offset);
    for (uint8_t byte : patch.bytes) file->replaced.push_back({offset++, byte});
  }
  VipsSourceCustom* source = vips_source_custom_new();
  g_signal_connect_data(source, "read", G_CALLBACK(ReadPatched), file, DeletePatched, GConnectFlags(0));
  g_signal_connect(source, "seek", G_CALLBACK(SeekPatched), file);
  return GPointer<VipsSource>(VIPS_SOURCE(source));
}

GPointer<VipsImage> PictureFile::LoadPage(int page) const {
  const GPointer<VipsSource> source = MakeSource(page);
  VipsImage* image = nullptr;
  int result = -1;
  if (source) {
    // Unless told so, the library delivers what there is of a truncated file and reports success.
    const VipsFailOn failOn = VIPS_FAIL_ON_ERROR;
    if (page == 0 || tiff_) {
      result = vips_call(format_->loader, source.get(), &image, "access", VIPS_ACCESS_SEQUENTIAL, "fail_on",
                         failOn, nullptr);
    } else {
      result = vips_call(format_->loader, source.get(), &image, "access", VIPS_ACCESS_SEQUENTIAL, "fail_on",
                         failOn, "page", page, nullptr);
    }
  }
  if (result != 0) throw LoadingRefusal(path_);
  return GPointer<VipsImage>(image);
}

ColourModel PictureFile::ModelOf(VipsImage* image, int page) const {
  const std::string where = PageWords(page, pages_);
  const int bands = vips_image_get_bands(image);
  switch (vips_image_get_interpretation(image)) {
    case VIPS_INTERPRETATION_B_W:
    case VIPS_INTERPRETATION_GREY16:
      return ColourModel::kGrey;
    case VIPS_INTERPRETATION_sRGB:
    case VIPS_INTERPRETATION_RGB:
    case VIPS_INTERPRETATION_RGB16:
    case VIPS_INTERPRETATION_scRGB:
      if (bands < 3) break;
      return IsLabPage(page) ? ColourModel::kLab : ColourModel::kRgb;
    case VIPS_INTERPRETATION_CMYK:
      if (bands < kInks || HasOtherInks(page)) break;
      return ColourModel::kCmyk;
    default:
      break;
  }
  throw Unsupported(
      path_, "its colours are neither grey nor RGB nor Lab nor CMYK" + where + "; convert it to RGB first");
}

PageKind PictureFile::KindOf(VipsImage* image, int page) const {
  const std::string where = PageWords(page, pages_);
  PageKind kind;
  kind.width = vips_image_get_width(image);
  kind.height = vips_image_get_height(image);
  switch (vips_image_get_format(image)) {
    case VIPS_FORMAT_UCHAR:
      kind.bits = 8;
      break;
    case VIPS_FORMAT_USHORT:
      kind.bits = 16;
      break;
    case VIPS_FORMAT_UINT:
    case VIPS_FORMAT_FLOAT:
      kind.bits = 32;
      kind.isLong = vips_image_get_format(image) == VIPS_FORMAT_UINT;
      if (tiff_) break;
      [[fallthrough]];
    case VIPS_FORMAT_DOUBLE:
    case VIPS_FORMAT_COMPLEX:
    case VIPS_FORMAT_DPCOMPLEX:
      throw Unsupported(path_,
                        "holds floating-point samples" + where + "; convert it to 16 bits per sample first");
    default:
      throw Unsupported(path_, "its samples are neither 8 nor 16 bits nor floats" + where +
                                   "; convert it to 16 bits per sample first");
  }
  kind.model = ModelOf(image, page);
  kind.isSigned = IsSignedPage(page);
  kind.extras = vips_image_get_bands(image) - kind.colours();
  if (kind.model == ColourModel::kLab) {
    kind.hasSignedAb = tiff_->Value(static_cast<size_t>(page), kTiffPhotometric, 0) == kPhotometricCieLab;
  }
  return kind;
}

namespace {

template <typename Sample>
void Rescale(const void* row, uint32_t largest, std::vector<uint8_t>* scaled) {
  for (size_t at = 0; at < scaled->size(); at += sizeof(Sample)) {
    Sample sample;
    memcpy(&sample, static_cast<const uint8_t*>(row) + at, sizeof sample);
    sample = static_cast<Sample>(RescaledLevel(sample, largest, std::numeric_limits<Sample>::max()));
    memcpy(scaled->data() + at, &sample, sizeof sample);
  }
}

// The row with `largest` for white, brought to 255 or 65535.
const void* OnFullRange(const void* row, uint32_t largest, const PageKind& kind,
                        std::vector<uint8_t>* scaled) {
  if (largest == (kind.bits == 16 ? kFullRange : 255)) return row;
  scaled->resize(kind.RowBytes());
  kind.bits == 16 ? Rescale<uint16_t>(row, largest, scaled) : Rescale<uint8_t>(row, largest, scaled);
  return scaled->data();
}

}  // namespace

namespace {

const void* Inverted(const void* row, const PageKind& kind, std::vector<uint8_t>* inverted) {
  const auto* const inks = static_cast<const uint8_t*>(row);
  inverted->resize(kind.RowBytes());
  std::transform(inks, inks + inverted->size(), inverted->begin(), [](uint8_t ink) { return 255 - ink; });
  return inverted->data();
}

}  // namespace

void PageReader::Rewind() {
  next_ = 0;
  region_.reset();
  image_.reset();
}

void PageReader::Read(int count, const std::function<void(const void* row)>& take) {
  const PageKind& kind = file_.kind(page_);
  const StderrSilenced silenced;
  if (!region_) {
    TakeLibraryError();
    image_ = file_.LoadPage(page_);
    region_.reset(vips_region_new(image_.get()));
    if (!region_) throw LoadingRefusal(file_.path());
  }
  // The library takes the inks of every JPEG file for inverted; they are where the file says so.
  const bool isInverted = kind.model == ColourModel::kCmyk && file_.jpeg_ && !file_.jpeg_->hasMarkOfCoding;
  while (count > 0) {
    const int top = next_ / kStripRows * kStripRows;
    const VipsRect strip = {0, top, kind.width, std::min(kStripRows, kind.height - top)};
    const bool isHeld = next_ > top;
    if (!isHeld && vips_region_prepare(region_.get(), &strip) != 0) {
      file_.file().DemandUnchanged();
      throw LoadingRefusal(file_.path());
    }
    for (; count > 0 && next_ < top + strip.height; ++next_, --count) {
      const void* const row = VIPS_REGION_ADDR(region_.get(), 0, next_);
      if (kind.isFloat()) file_.DemandLevels(static_cast<const float*>(row), page_, next_);
      take(file_.pnmLargest_ ? OnFullRange(row, *file_.pnmLargest_, kind, &changed_)
           : isInverted      ? Inverted(row, kind, &changed_)
                             : row);
    }
  }
  if (file_.format().format == FileFormat::kJpeg && TellsOfJpegDamage(TakeLibraryError())) {
    throw Damaged(file_.path(), "");
  }
}

// The sums of the transform hold no others.
void PictureFile::DemandLevels(const float* row, int page, int y) const {
  const int32_t channels = kind(page).channels();
  constexpr float kLargest = 1e6f;
  for (int32_t i = 0; i < kind(page).width * channels; ++i) {
    if (std::fabs(row[i]) <= kLargest) continue;  // false for not-a-number
    throw Unsupported(path_, "its sample at x " + std::to_string(i / channels) + ", y " + std::to_string(y) +
                                 PageWords(page, pages_) +
                                 " is no number, infinite or beyond 1e6; replace it first");
  }
}

void PictureFile::ReadPage(int page, PageSamples* samples,
                           const std::function<void(int rows)>& rowsDone) const {
  if (!samples->Create(kind(page))) {
    throw Refusal(ExitStatus::kOutOfMemory, path_, "not enough memory for its samples; close other programs");
  }
  PageReader reader(*this, page);
  for (int y = 0; y < kind(page).height;) {
    const int count = std::min(kStripRows, kind(page).height - y);
    reader.Read(count, [&](const void* row) { samples->TakeRow(y++, row); });
    if (rowsDone) rowsDone(y);
  }
}

std::vector<uint8_t> PictureFile::exif() const {
  if (format_->format == FileFormat::kPng) return PngChunkData(descriptor_, "eXIf");
  const void* blob = nullptr;
  size_t size = 0;
  if (tiff_ || vips_image_get_typeof(metadata_.get(), VIPS_META_EXIF_NAME) == 0 ||
      vips_image_get_blob(metadata_.get(), VIPS_META_EXIF_NAME, &blob, &size) != 0) {
    return {};
  }
  constexpr std::string_view kMark{"Exif\0\0", 6};
  std::string_view bytes(static_cast<const char*>(blob), size);
  if (bytes.substr(0, kMark.size()) == kMark) bytes.remove_prefix(kMark.size());
  return {bytes.begin(), bytes.end()};
}

namespace {

std::optional<Resolution> InPixelsPerInch(uint32_t x, uint32_t y, double unitsPerInch) {
  if (x == 0 || y == 0) return std::nullopt;
  return Resolution{x / unitsPerInch, y / unitsPerInch};
}

uint32_t BigEndian(const std::vector<uint8_t>& bytes, size_t at, size_t count) {
  uint32_t value = 0;
  for (size_t i = 0; i < count; ++i) value = value << 8 | bytes[at + i];
  return value;
}

// Of a PNG file; without a unit of length it tells the shape of pixels only.
std::optional<Resolution> ResolutionOfPng(int descriptor) {
  const std::vector<uint8_t> data = PngChunkData(descriptor, "pHYs");
  if (data.size() != 9 || data[8] != 1) return std::nullopt;
  return InPixelsPerInch(BigEndian(data, 0, 4), BigEndian(data, 4, 4), 1000 / kMillimetresPerInch);
}

}  // namespace

std::optional<Resolution> PictureFile::resolution(int page) const {
  // The library has a value for every file, told or not.
  const auto ofDirectory = [](const std::optional<TiffStructure>& tags,
                              int index) -> std::optional<Resolution> {
    if (!tags) return std::nullopt;
    const auto told = tags->PixelsPerInch(static_cast<size_t>(index));
    return told ? std::optional(Resolution{told->first, told->second}) : std::nullopt;
  };
  if (tiff_) return ofDirectory(tiff_, page);
  std::optional<Resolution> told;
  if (format_->format == FileFormat::kPng) told = ResolutionOfPng(descriptor_);
  if (jpeg_) told = jpeg_->resolution;
  if (told) return told;
  const std::vector<uint8_t> block = exif();
  return ofDirectory(TiffStructure::Read(ByteSource(block.data(), block.size())), 0);
}

int PictureFile::orientation(int page) const {
  const auto of = [](const TiffStructure& tags, int index) {
    const uint64_t value = tags.Value(static_cast<size_t>(index), kTiffOrientation, 1);
    return value >= 1 && value <= 8 ? static_cast<int>(value) : 1;
  };
  if (tiff_) return of(*tiff_, page);
  // Of the others the decoder delivers the picture upright.
  constexpr FileFormat kTurnedByTheirExif[] = {FileFormat::kJpeg, FileFormat::kPng, FileFormat::kWebp};
  if (std::find(std::begin(kTurnedByTheirExif), std::end(kTurnedByTheirExif), format_->format) ==
      std::end(kTurnedByTheirExif)) {
    return 1;
  }
  const std::vector<uint8_t> block = exif();
  const auto tags = TiffStructure::Read(ByteSource(block.data(), block.size()));
  return tags ? of(*tags, 0) : 1;
}

uint64_t PictureFile::BytesHeldWhileReading() const {
  constexpr uint64_t kWebpBytes = 7, kJpegXlBytes = 12, kJpeg2000Bytes = 6;  // a sample
  uint64_t most = 0;
  for (int page = 0; page < pages_; ++page) {
    const uint64_t samples = PixelsOf(kind(page)) * static_cast<uint64_t>(kind(page).channels());
    uint64_t held = 0;
    switch (format_->format) {
      case FileFormat::kWebp:
      case FileFormat::kGif:
      case FileFormat::kHeif:
        held = kWebpBytes * samples + static_cast<uint64_t>(file_.size());
        break;
      case FileFormat::kJpegXl:
        held = kJpegXlBytes * samples;
        break;
      case FileFormat::kJpeg2000:
        held = kJpeg2000Bytes * samples;
        break;
      case FileFormat::kJpeg:  // coefficients
        held = jpeg_ && jpeg_->isProgressive ? 2 * samples : 0;
        break;
      case FileFormat::kPng:
        held = IsInterlacedPng(descriptor_) ? kind(page).RowBytes() * static_cast<uint64_t>(kind(page).height)
                                            : 0;
        break;
      case FileFormat::kTiff:
        held = BytesOfTiffPiece(*tiff_, page, kind(page));
        break;
      default:
        break;
    }
    most = std::max(most, held);
  }
  return most;
}

bool PictureFile::isLosslessWebp() const {
  if (format_->format != FileFormat::kWebp) return false;
  constexpr off_t kRiffHead = 12, kChunkHead = 8, kFrameHead = 16;
  off_t at = kRiffHead;
  uint8_t head[kChunkHead];
  while (pread(descriptor_, head, sizeof head, at) == static_cast<ssize_t>(sizeof head)) {
    if (memcmp(head, "VP8L", 4) == 0) return true;
    if (memcmp(head, "VP8 ", 4) == 0) return false;
    at += kChunkHead;
    if (memcmp(head, "ANMF", 4) == 0) {  // a frame of an animation: its chunks stand inside
      at += kFrameHead;
      continue;
    }
    const uint32_t length = head[4] | head[5] << 8 | head[6] << 16 | static_cast<uint32_t>(head[7]) << 24;
    at += static_cast<off_t>(length) + length % 2;
  }
  return false;
}

}  // namespace tessaline::cli
