#include "cli/picture_file.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <string_view>

#include "cli/carried_metadata.h"
#include "cli/pnm_extent.h"
#include "cli/refusal.h"
#include "removal/removal_run.h"

namespace tessaline::cli {
namespace {

constexpr uint16_t kPhotometricRgb = 2;
constexpr uint16_t kPhotometricCieLab = 8;  // a and b signed
constexpr uint16_t kPhotometricIccLab = 9;  // a and b with their zero in the middle
constexpr uint16_t kUnsignedSamples = 1;
constexpr uint16_t kSignedSamples = 2;
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
  return Damaged(path, error);
}

static_assert(kLargestSide == 7500, "TooLarge names the limit");

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
  uint8_t bytes[2];
};

PictureFile::PictureFile(const std::string& path) : path_(path) {
  StartPictureLibrary();
  const StderrSilenced silenced;
  TakeLibraryError();
  try {
    Open();
    CheckEnding();
    if (format_->format == FileFormat::kTiff) {
      tiff_ = TiffStructure::Read(ByteSource(descriptor_));
      if (!tiff_) throw Damaged(path_, "its directory cannot be read");
      if (!tiff_->FitsInto(static_cast<uint64_t>(size_)))
        throw Damaged(path_, "parts of it lie behind its end");
      PresentLabAsRgb();
    }
    metadata_ = LoadPage(0);
    if (format_->hasPages && vips_image_get_typeof(metadata_.get(), VIPS_META_N_PAGES) != 0) {
      vips_image_get_int(metadata_.get(), VIPS_META_N_PAGES, &pages_);
    }
    if (pages_ > 1 && format_->format == FileFormat::kHeif) {
      throw Unsupported(
          path_, "holds " + std::to_string(pages_) + " pictures; save the wanted one as PNG or TIFF first");
    }
    kind_ = KindOf(metadata_.get(), 0);
    // Frames of an animation are of one size and kind by their formats.
    for (int page = 1; page < pages_ && tiff_; ++page) {
      const GPointer<VipsImage> image = LoadPage(page);
      if (KindOf(image.get(), page) == kind_) continue;
      throw Unsupported(path_, "its pages differ in size or kind (page " + std::to_string(page + 1) + " is " +
                                   std::to_string(vips_image_get_width(image.get())) + "x" +
                                   std::to_string(vips_image_get_height(image.get())) +
                                   "); split it into single pages first");
    }
  } catch (...) {
    if (descriptor_ >= 0) close(descriptor_);
    throw;
  }
}

PictureFile::~PictureFile() {
  if (descriptor_ >= 0) close(descriptor_);
}

void PictureFile::Open() {
  // Not blocking, or a pipe without a writer would be waited for.
  descriptor_ = open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (descriptor_ < 0) {
    const std::string what = errno == ENOENT ? "does not exist; check the name"
                                             : std::string("cannot be read: ") + strerror(errno);
    throw Refusal(ExitStatus::kUnreadable, path_, what);
  }
  struct stat status = {};
  fstat(descriptor_, &status);
  if (S_ISDIR(status.st_mode)) {
    throw Refusal(ExitStatus::kUnreadable, path_, "is a folder; name the pictures in it");
  }
  if (!S_ISREG(status.st_mode)) {
    throw Refusal(ExitStatus::kUnreadable, path_,
                  "is not a file; pictures are read from files (frames: tessaline stream)");
  }
  size_ = status.st_size;
  changed_ = status.st_mtim;
  format_ = &FormatOfContents(descriptor_, path_);
}

void PictureFile::CheckEnding() const {
  const bool isWhole = format_->format == FileFormat::kPng   ? PngReachesItsEnd(descriptor_)
                       : format_->format == FileFormat::kGif ? GifReachesItsEnd(descriptor_, size_)
                                                             : true;
  if (!isWhole) throw Damaged(path_, "its end is missing");
  if (format_->format == FileFormat::kPnm) {
    const char* const missing = MissingFromPnm(descriptor_, size_);
    if (missing != nullptr) throw Damaged(path_, missing);
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

// The library unpacks Lab into its own forms, which drop alpha and the lowest bit of 16-bit lightness. To it,
// the three planes are shown as RGB: sample for sample what is in the file.
void PictureFile::PresentLabAsRgb() {
  for (size_t page = 0; page < tiff_->pages(); ++page) {
    if (!IsLabPage(static_cast<int>(page))) continue;
    const auto present = [&](uint16_t tag, uint16_t value) {
      Patch patch = {0, {static_cast<uint8_t>(value), 0}};
      if (tiff_->isBigEndian()) std::swap(patch.bytes[0], patch.bytes[1]);
      for (uint64_t offset : tiff_->OffsetsOfShorts(page, tag)) {
        patch.offset = offset;
        patches_.push_back(patch);
      }
    };
    present(kTiffPhotometric, kPhotometricRgb);
    // Some writers mark the samples as signed, for a and b are.
    if (tiff_->Value(page, kTiffSampleFormat, kUnsignedSamples) == kSignedSamples) {
      present(kTiffSampleFormat, kUnsignedSamples);
    }
  }
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

GPointer<VipsSource> PictureFile::MakeSource() const {
  if (patches_.empty()) {
    GPointer<VipsSource> source(vips_source_new_from_descriptor(descriptor_));
    // The descriptor's position is shared by everything that reads the file.
    if (source) lseek(descriptor_, 0, SEEK_SET);
    return source;
  }
  auto* file = new PatchedFile{descriptor_};
  file->size = size_;
  for (const Patch& patch : patches_) {
    for (int i = 0; i < 2; ++i)
      file->replaced.push_back({static_cast<int64_t>(patch.offset) + i, patch.bytes[i]});
  }
  VipsSourceCustom* source = vips_source_custom_new();
  g_signal_connect_data(source, "read", G_CALLBACK(ReadPatched), file, DeletePatched, GConnectFlags(0));
  g_signal_connect(source, "seek", G_CALLBACK(SeekPatched), file);
  return GPointer<VipsSource>(VIPS_SOURCE(source));
}

GPointer<VipsImage> PictureFile::LoadPage(int page) const {
  const GPointer<VipsSource> source = MakeSource();
  VipsImage* image = nullptr;
  int result = -1;
  if (source) {
    // Unless told so, the library delivers what there is of a truncated file and reports success.
    const VipsFailOn failOn = VIPS_FAIL_ON_ERROR;
    if (page == 0) {
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
      if (bands < 3) break;
      return IsLabPage(page) ? ColourModel::kLab : ColourModel::kRgb;
    case VIPS_INTERPRETATION_CMYK:
      throw Unsupported(path_, "is in CMYK" + where + "; convert it to RGB first");
    default:
      break;
  }
  throw Unsupported(path_,
                    "its colours are neither grey nor RGB nor Lab" + where + "; convert it to RGB first");
}

PageKind PictureFile::KindOf(VipsImage* image, int page) const {
  const std::string where = PageWords(page, pages_);
  PageKind kind;
  kind.width = vips_image_get_width(image);
  kind.height = vips_image_get_height(image);
  if (kind.width > kLargestSide || kind.height > kLargestSide) throw TooLarge(path_, kind.width, kind.height);
  switch (vips_image_get_format(image)) {
    case VIPS_FORMAT_UCHAR:
      kind.bits = 8;
      break;
    case VIPS_FORMAT_USHORT:
      kind.bits = 16;
      break;
    case VIPS_FORMAT_FLOAT:
    case VIPS_FORMAT_DOUBLE:
    case VIPS_FORMAT_COMPLEX:
    case VIPS_FORMAT_DPCOMPLEX:
      throw Unsupported(path_,
                        "holds floating-point samples" + where + "; convert it to 16 bits per sample first");
    default:
      throw Unsupported(path_, "its samples are neither 8 nor 16 bits, unsigned" + where +
                                   "; convert it to 16 bits per sample first");
  }
  kind.model = ModelOf(image, page);
  kind.extras = vips_image_get_bands(image) - kind.colours();
  if (kind.model == ColourModel::kLab) {
    kind.hasSignedAb = tiff_->Value(static_cast<size_t>(page), kTiffPhotometric, 0) == kPhotometricCieLab;
  }
  return kind;
}

void PictureFile::ReadPage(int page, PageSamples* samples) const {
  const Refusal noMemory(ExitStatus::kOutOfMemory, path_,
                         "not enough memory for its samples; close other programs");
  if (!samples->Create(kind_)) throw noMemory;
  TakeLibraryError();
  const StderrSilenced silenced;
  const GPointer<VipsImage> image = LoadPage(page);
  const GPointer<VipsRegion> region(vips_region_new(image.get()));
  if (!region) throw noMemory;
  for (int top = 0; top < kind_.height; top += kStripRows) {
    const VipsRect strip = {0, top, kind_.width, std::min(kStripRows, kind_.height - top)};
    if (vips_region_prepare(region.get(), &strip) != 0) throw LoadingRefusal(path_);
    for (int y = top; y < top + strip.height; ++y) samples->TakeRow(y, VIPS_REGION_ADDR(region.get(), 0, y));
  }
  if (format_->format == FileFormat::kJpeg) {
    const std::string warnings = TakeLibraryError();
    if (TellsOfJpegDamage(warnings)) throw Damaged(path_, warnings);
  }
}

std::optional<Resolution> PictureFile::resolution() const {
  // The library's value for files that tell none is 1 pixel per millimetre.
  const double perMillimetreX = vips_image_get_xres(metadata_.get());
  const double perMillimetreY = vips_image_get_yres(metadata_.get());
  const bool isTold =
      perMillimetreX > 0 && perMillimetreY > 0 && !(perMillimetreX == 1.0 && perMillimetreY == 1.0);
  if (!isTold) return std::nullopt;
  return Resolution{perMillimetreX * kMillimetresPerInch, perMillimetreY * kMillimetresPerInch};
}

std::optional<JpegCompression> PictureFile::jpegCompression() const {
  return ReadJpegCompression(descriptor_);
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

void PictureFile::CopyTo(OutputFile* output) const {
  struct stat status = {};
  fstat(descriptor_, &status);
  if (status.st_size != size_ || status.st_mtim.tv_sec != changed_.tv_sec ||
      status.st_mtim.tv_nsec != changed_.tv_nsec) {
    throw Refusal(ExitStatus::kUnreadable, path_, "was changed while it was being read; try again");
  }
  constexpr size_t kBlock = size_t{1} << 20;
  std::vector<char> block(kBlock);
  for (off_t at = 0;;) {
    const ssize_t count = pread(descriptor_, block.data(), block.size(), at);
    if (count < 0) {
      throw Refusal(ExitStatus::kUnreadable, path_, std::string("cannot be read: ") + strerror(errno));
    }
    if (count == 0) return;
    output->Write(block.data(), static_cast<size_t>(count));
    at += count;
  }
}

}  // namespace tessaline::cli
