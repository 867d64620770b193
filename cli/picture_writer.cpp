#include "cli/picture_writer.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <exception>
#include <memory>
#include <numeric>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "cli/carried_metadata.h"
#include "cli/full_range.h"
#include "cli/iptc.h"
#include "cli/picture_target.h"
#include "cli/png_writer.h"
#include "cli/refusal.h"
#include "cli/tiff_writer.h"

namespace tessaline::cli {
namespace {

// What the user can ask for by name.
struct NamedCompression {
  FileFormat format;
  const char* name;
  int code;  // of a PngEffort, of the TIFF tag, 1 for lossless
};
constexpr uint16_t kNoCompression = 1, kLzw = 5, kDeflate = 8, kOldDeflate = 32946, kPackBits = 32773,
                   kZstandard = 50000;
constexpr NamedCompression kNamedCompressions[] = {
    {FileFormat::kPng, "none", static_cast<int>(PngEffort::kNone)},
    {FileFormat::kPng, "fast", static_cast<int>(PngEffort::kFast)},
    {FileFormat::kPng, "standard", static_cast<int>(PngEffort::kStandard)},
    {FileFormat::kPng, "small", static_cast<int>(PngEffort::kSmall)},
    {FileFormat::kTiff, "none", kNoCompression},
    {FileFormat::kTiff, "lzw", kLzw},
    {FileFormat::kTiff, "deflate", kDeflate},
    {FileFormat::kTiff, "zstd", kZstandard},
    {FileFormat::kTiff, "packbits", kPackBits},
    {FileFormat::kWebp, "lossless", 1},
    {FileFormat::kWebp, "lossy", 0},
};

std::optional<int> CodeOf(FileFormat format, const std::string& name) {
  for (const NamedCompression& row : kNamedCompressions) {
    if (row.format == format && row.name == name) return row.code;
  }
  return std::nullopt;
}

struct SavingWishes {
  const PictureFile& input;
  bool isSameFormat;
  const StorageWishes& storage;
};

using Saver = int (*)(VipsImage* image, VipsTarget* target, const SavingWishes& wishes);

constexpr uint16_t kTiffCompressions[] = {kNoCompression, kLzw, kDeflate, kPackBits, kZstandard};

// Measured on halftones before and after the run: higher levels take two to six times the time and save less
// than a twentieth, deflate of level 1 is smaller than LZW on what is noisy.
int LevelOf(uint16_t compression) {
  return compression == kZstandard ? 3 : 1;
}

// The input's own compression where it is one that loses nothing and serves 8 and 16 bits; deflate otherwise.
TiffForm TiffFormFor(const PictureFile& input, int page, const StorageWishes& storage) {
  const auto index = static_cast<size_t>(page);
  TiffForm form;
  form.compression = kDeflate;
  form.predicts = true;
  if (const auto& tiff = input.tiff()) {
    auto code = static_cast<uint16_t>(tiff->Value(index, kTiffCompression, kNoCompression));
    if (code == kOldDeflate) code = kDeflate;
    if (std::find(std::begin(kTiffCompressions), std::end(kTiffCompressions), code) !=
        std::end(kTiffCompressions)) {
      constexpr uint64_t kNoPredictor = 1;
      form.compression = code;
      form.predicts = tiff->Value(index, kTiffPredictor, kNoPredictor) != kNoPredictor;
    }
    constexpr uint16_t kTiffTileHeight = 323;
    const uint64_t width = tiff->Value(index, kTiffTileWidth, 0),
                   height = tiff->Value(index, kTiffTileHeight, 0);
    constexpr uint64_t kLargestTile = 4096;
    if (width > 0 && height > 0 && width <= kLargestTile && height <= kLargestTile) {
      form.tileWidth = static_cast<int32_t>(width);
      form.tileHeight = static_cast<int32_t>(height);
    }
  }
  if (const auto named = CodeOf(FileFormat::kTiff, storage.compression)) {
    form.compression = static_cast<uint16_t>(*named);
    form.predicts = true;
  }
  form.level = LevelOf(form.compression);
  return form;
}

// The classic form ends at 4 GiB, and LZW makes up to half as much again of what would not shrink.
bool NeedsBigTiff(const PictureFile& input) {
  constexpr uint64_t kClassicLimit = uint64_t{2700} << 20;
  uint64_t bytes = 0;
  for (const PageKind& kind : input.kinds())
    bytes += uint64_t{kind.RowBytes()} * static_cast<uint64_t>(kind.height);
  return bytes > kClassicLimit || (input.tiff() && input.tiff()->isBigTiff());
}

int SaveWebp(VipsImage* image, VipsTarget* target, const SavingWishes& wishes) {
  // A lossy file does not tell its quality; this one adds little to what it lost already.
  constexpr int kLossyQuality = 90;
  const bool asInput = !wishes.isSameFormat || wishes.input.isLosslessWebp();
  const bool isLossless = wishes.storage.quality
                              ? false
                              : CodeOf(FileFormat::kWebp, wishes.storage.compression).value_or(asInput) != 0;
  // Measured on a halftone that was cleaned: the library's own choice, of 4 and 75, takes 14 times the time
  // for a seventh of the size; without loss the quality, too, is time spent. Lossy, 4 takes twice the time
  // for nothing.
  constexpr int kLosslessWebpEffort = 0, kLosslessWebpQuality = 0, kLossyWebpEffort = 2;
  return vips_webpsave_target(
      image, target, "lossless", isLossless, "Q",
      isLossless ? kLosslessWebpQuality : wishes.storage.quality.value_or(kLossyQuality), "effort",
      isLossless ? kLosslessWebpEffort : kLossyWebpEffort, nullptr);
}

int SaveJpeg2000(VipsImage* image, VipsTarget* target, const SavingWishes&) {
  return vips_jp2ksave_target(image, target, "lossless", TRUE, nullptr);
}

int SaveJpegXl(VipsImage* image, VipsTarget* target, const SavingWishes&) {
  return vips_jxlsave_target(image, target, "lossless", TRUE, "effort", 3, nullptr);
}

struct SaverOfFormat {
  FileFormat format;
  Saver save;
};
constexpr SaverOfFormat kSavers[] = {
    {FileFormat::kWebp, SaveWebp},
    {FileFormat::kJpeg2000, SaveJpeg2000},
    {FileFormat::kJpegXl, SaveJpegXl},
};

// Fields that say how the input was stored; the output is stored anew.
constexpr std::string_view kNotCarried[] = {
    // the library's own header, set from the samples
    "width", "height", "bands", "format", "coding", "interpretation", "xoffset", "yoffset", "xres", "yres",
    "filename",
    // of the input's storage
    "vips-loader", "vips-sequential", "bits-per-sample", "palette", "palette-bit-depth", "gif-palette",
    "interlaced", "jpeg-chroma-subsample", "jpeg-multiscan", VIPS_META_N_PAGES, VIPS_META_PAGE_HEIGHT,
    "heif-bitdepth", "heif-compression"};

void* CarryField(VipsImage*, const char* name, GValue* value, void* target) {
  if (std::find(std::begin(kNotCarried), std::end(kNotCarried), std::string_view(name)) ==
      std::end(kNotCarried)) {
    vips_image_set(static_cast<VipsImage*>(target), name, value);
  }
  return nullptr;
}

VipsInterpretation InterpretationOf(const PageKind& kind) {
  if (kind.model == ColourModel::kCmyk) return VIPS_INTERPRETATION_CMYK;
  // Lab travels as RGB through the library and gets its name back in the file (see PictureFile).
  if (kind.colours() == 1) return kind.bits == 16 ? VIPS_INTERPRETATION_GREY16 : VIPS_INTERPRETATION_B_W;
  return kind.bits == 16 ? VIPS_INTERPRETATION_RGB16 : VIPS_INTERPRETATION_sRGB;
}

// The library asks for rows while it compresses; they are made one by one.
struct RowSource {
  const RowFiller& fillRow;
  size_t rowBytes;
  size_t pixelBytes;
  std::exception_ptr failure;  // of a row that could not be made
};

int GenerateRows(VipsRegion* out, void*, void* a, void*, gboolean*) {
  auto* source = static_cast<RowSource*>(a);
  const VipsRect& valid = out->valid;
  try {
    const bool isWholeRow = static_cast<size_t>(valid.width) * source->pixelBytes == source->rowBytes;
    std::vector<uint8_t> row(isWholeRow ? 0 : source->rowBytes);
    for (int y = valid.top; y < valid.top + valid.height; ++y) {
      uint8_t* const target = VIPS_REGION_ADDR(out, valid.left, y);
      source->fillRow(y, isWholeRow ? target : row.data());
      if (isWholeRow) continue;
      const uint8_t* first = row.data() + static_cast<size_t>(valid.left) * source->pixelBytes;
      std::copy_n(first, static_cast<size_t>(valid.width) * source->pixelBytes, target);
    }
  } catch (...) {  // must not pass through the library's C code
    source->failure = std::current_exception();
    return -1;
  }
  return 0;
}

// True where the output's format cannot tell how the picture is to be turned.
bool IsTurnedUpright(const FormatTraits& format, const PictureFile& input) {
  return input.orientation() != 1 && !format.keepsOrientation && format.format != input.format().format;
}

// Colours in the input that are multiplied by their alpha, for a format that takes none such.
bool HasToLoseAssociation(const FormatTraits& format, const PictureFile& input) {
  constexpr uint64_t kAssociated = 1;
  return input.tiff() && format.format != FileFormat::kTiff && input.kind(0).extras == 1 &&
         input.tiff()->Value(0, kTiffExtraSamples, 0) == kAssociated;
}

// The picture as it goes into the file.
struct Arranged {
  PageKind kind;
  RowFiller fillRow;
  std::optional<Resolution> resolution;
  int orientation;
};

Arranged Arrange(const FormatTraits& format, const PictureFile& input, const RowFiller& fillRow) {
  Arranged arranged = {input.kind(0), fillRow, input.resolution(), input.orientation()};
  if (HasToLoseAssociation(format, input)) arranged.fillRow = RowsOfStraightAlpha(arranged.kind, fillRow);
  if (!IsTurnedUpright(format, input)) return arranged;
  arranged.fillRow = UprightRows(arranged.kind, arranged.orientation, arranged.fillRow);
  arranged.kind = UprightKind(arranged.kind, arranged.orientation);
  if (arranged.resolution && arranged.orientation > 4) {  // the axes have changed places
    std::swap(arranged.resolution->horizontal, arranged.resolution->vertical);
  }
  arranged.orientation = 1;
  return arranged;
}

GPointer<VipsImage> MakeImage(const PictureFile& input, const Arranged& arranged, RowSource* source) {
  const PageKind& kind = arranged.kind;
  const Resolution resolution = arranged.resolution.value_or(Resolution{25.4, 25.4});  // never written
  GPointer<VipsImage> image(vips_image_new());
  vips_image_init_fields(image.get(), kind.width, kind.height * input.pages(), kind.channels(),
                         kind.bits == 16 ? VIPS_FORMAT_USHORT : VIPS_FORMAT_UCHAR, VIPS_CODING_NONE,
                         InterpretationOf(kind), resolution.horizontal / 25.4, resolution.vertical / 25.4);
  vips_image_map(input.metadata(), CarryField, image.get());
  if (arranged.orientation == 1 && input.orientation() != 1) {
    vips_image_remove(image.get(), VIPS_META_ORIENTATION);
  }
  if (input.pages() > 1) {
    vips_image_set_int(image.get(), VIPS_META_PAGE_HEIGHT, kind.height);
    vips_image_set_int(image.get(), VIPS_META_N_PAGES, input.pages());
  }
  if (vips_image_pipelinev(image.get(), VIPS_DEMAND_STYLE_THINSTRIP, nullptr) != 0 ||
      vips_image_generate(image.get(), nullptr, GenerateRows, nullptr, source, nullptr) != 0) {
    return nullptr;
  }
  return image;
}

Refusal CannotWrite(const OutputFile& output) {
  return Refusal(ExitStatus::kCannotWrite, output.path(), "cannot be written; is there room on the disk?");
}

// PNM is written here: the library knows no largest level but 255 and 65535, and puts the time into the file.
void WritePnm(const PageKind& kind, std::optional<uint32_t> inputsLargest, const RowFiller& fillRow,
              OutputFile* output) {
  const uint32_t fullRange = kind.bits == 16 ? 65535 : 255;
  const uint32_t largest = inputsLargest.value_or(fullRange);
  const std::string header = (kind.colours() == 1 ? "P5\n" : "P6\n") + std::to_string(kind.width) + " " +
                             std::to_string(kind.height) + "\n" + std::to_string(largest) + "\n";
  output->Write(header.data(), header.size());
  const size_t samples = kind.RowBytes() / static_cast<size_t>(kind.bits / 8);
  std::vector<uint8_t> row(kind.RowBytes());
  for (int32_t y = 0; y < kind.height; ++y) {
    fillRow(y, row.data());
    for (size_t i = 0; i < samples; ++i) {
      if (kind.bits == 8) {
        row[i] = static_cast<uint8_t>(RescaledLevel(row[i], fullRange, largest));
        continue;
      }
      uint16_t sample;
      memcpy(&sample, &row[2 * i], sizeof sample);
      sample = RescaledLevel(sample, fullRange, largest);
      row[2 * i] = static_cast<uint8_t>(sample >> 8);
      row[2 * i + 1] = static_cast<uint8_t>(sample);
    }
    output->Write(row.data(), row.size());
  }
}

std::vector<uint8_t> BlobOf(VipsImage* image, const char* name) {
  const void* blob = nullptr;
  size_t size = 0;
  if (vips_image_get_typeof(image, name) == 0 || vips_image_get_blob(image, name, &blob, &size) != 0)
    return {};
  const auto* bytes = static_cast<const uint8_t*>(blob);
  return {bytes, bytes + size};
}

// The profile, where it is one for colours of the picture's kind: PNG decoders refuse others.
std::vector<uint8_t> ProfileFor(const PictureFile& input) {
  constexpr size_t kColoursAt = 16, kHeader = 128;
  std::vector<uint8_t> profile = BlobOf(input.metadata(), VIPS_META_ICC_NAME);
  const char* const colours = input.kind(0).colours() == 1 ? "GRAY" : "RGB ";
  if (profile.size() < kHeader || memcmp(&profile[kColoursAt], colours, 4) != 0) return {};
  return profile;
}

// The two resolutions of an EXIF block change places.
void SwapResolutions(const TiffStructure& structure, std::vector<uint8_t>& block) {
  constexpr size_t kRationalBytes = 8;
  std::vector<size_t> places;
  for (const TiffStructure::Entry& entry : structure.directory(0).entries) {
    const bool isOne = entry.tag == kTiffXResolution || entry.tag == kTiffYResolution;
    if (isOne && entry.valueOffset <= block.size() - kRationalBytes) places.push_back(entry.valueOffset);
  }
  if (places.size() != 2) return;
  const auto first = block.begin() + static_cast<ptrdiff_t>(places[0]);
  std::swap_ranges(first, first + kRationalBytes, block.begin() + static_cast<ptrdiff_t>(places[1]));
}

// The EXIF block for a file of a format that holds one, in TIFF form; empty when the input has nothing for
// it.
std::vector<uint8_t> ExifFor(const PictureFile& input, int orientation) {
  std::vector<uint8_t> block = input.exif();
  if (input.tiff()) {
    DescriptiveTags tags = input.tiff()->Descriptive(0);
    std::erase_if(tags.main, [](const TiffTag& tag) { return tag.tag == kTiffIptc; });
    constexpr uint16_t kToo[] = {kTiffOrientation, kTiffXResolution, kTiffYResolution, kTiffResolutionUnit};
    const std::vector<TiffTag> more = input.tiff()->Tags(0, kToo);
    tags.main.insert(tags.main.end(), more.begin(), more.end());
    if (!tags.IsEmpty()) block = ExifBlockOf(tags);
  }
  const auto structure = TiffStructure::Read(ByteSource(block.data(), block.size()));
  if (!structure) return {};  // otherwise a header of 8 bytes at the least
  if (orientation == 1 && input.orientation() > 4) SwapResolutions(*structure, block);  // was turned
  for (const uint64_t at : structure->OffsetsOfShorts(0, kTiffOrientation)) {
    if (at > block.size() - 2) continue;
    block[at + (structure->isBigEndian() ? 1 : 0)] = static_cast<uint8_t>(orientation);
    block[at + (structure->isBigEndian() ? 0 : 1)] = 0;
  }
  return block;
}

// A PNG or JPEG file gets the metadata of an input of its own format as it stands there. From another format
// a PNG file gets profile, EXIF, XMP and resolution, a JPEG file IPTC as well.
std::vector<uint8_t> PngChunksFor(const PictureFile& input, const Arranged& arranged) {
  if (input.format().format == FileFormat::kPng) return PngChunksToCarry(input.descriptor());
  return PngChunksOf(arranged.resolution, ExifFor(input, arranged.orientation), ProfileFor(input),
                     BlobOf(input.metadata(), VIPS_META_XMP_NAME));
}

// The bare records.
std::vector<uint8_t> IptcOf(const PictureFile& input) {
  if (input.tiff()) {
    const std::vector<TiffTag> tags = input.tiff()->Tags(0, std::array<uint16_t, 1>{kTiffIptc});
    return tags.empty() ? std::vector<uint8_t>() : tags[0].bytes;
  }
  const std::vector<uint8_t> iptc = BlobOf(input.metadata(), VIPS_META_IPTC_NAME);
  return BareIptcRecords(iptc.data(), iptc.size());
}

void WriteAsJpeg(const PictureFile& input, const Arranged& arranged, const WritingWishes& wishes,
                 OutputFile* output) {
  JpegForm form = {nullptr, wishes.storage.quality};
  if (input.jpeg()) {
    form.like = &*input.jpeg();
    return WriteJpeg(arranged.kind, form, input.jpeg()->segments, {}, arranged.fillRow, output);
  }
  const std::vector<JpegSegment> segments =
      JpegSegmentsOf(arranged.resolution, ExifFor(input, arranged.orientation),
                     BlobOf(input.metadata(), VIPS_META_XMP_NAME), IptcOf(input));
  WriteJpeg(arranged.kind, form, segments, BlobOf(input.metadata(), VIPS_META_ICC_NAME), arranged.fillRow,
            output);
}

// What a page of a TIFF file says of itself beside its samples.
constexpr uint16_t kOfThePage[] = {kTiffOrientation, kTiffXResolution, kTiffYResolution, kTiffResolutionUnit,
                                   kTiffXmp,         kTiffPhotoshop,   kTiffIccProfile};

// What the inks are called, how many there are, the levels of none and all of one.
constexpr uint16_t kOfTheInks[] = {333, 334, 336};

// From one TIFF file into another each page's own; the library gives all pages the first one's.
TiffPageEdit EditOfTiffPage(const PictureFile& input, size_t page) {
  const TiffStructure& tiff = *input.tiff();
  const PageKind& kind = input.kind(static_cast<int>(page));
  TiffPageEdit edit;
  edit.removed.assign(std::begin(kOfThePage), std::end(kOfThePage));
  edit.added = tiff.Descriptive(page);
  // Lab went through the library as unsigned RGB (see PictureFile); its own names go back into the tags. So
  // does what the extra channels are: the library knows no associated alpha.
  if (kind.model == ColourModel::kLab) {
    edit.removed.insert(edit.removed.end(), {kTiffPhotometric, kTiffSampleFormat});
  }
  if (kind.model == ColourModel::kCmyk) {
    edit.removed.insert(edit.removed.end(), std::begin(kOfTheInks), std::end(kOfTheInks));
  }
  const std::vector<TiffTag> extras = tiff.Tags(page, std::array<uint16_t, 1>{kTiffExtraSamples});
  if (!extras.empty() && extras[0].count == static_cast<uint64_t>(kind.extras)) {
    edit.removed.push_back(kTiffExtraSamples);
  }
  const std::vector<TiffTag> own = tiff.Tags(page, edit.removed);
  edit.added.main.insert(edit.added.main.end(), own.begin(), own.end());
  edit.removed.insert(edit.removed.end(), std::begin(kTiffDescriptive), std::end(kTiffDescriptive));
  return edit;
}

TiffTag RationalTag(uint16_t number, double value) {
  constexpr uint16_t kRational = 5;
  constexpr uint32_t kUnder = 10000;
  const auto over = static_cast<uint32_t>(std::min(std::round(value * kUnder), double{UINT32_MAX}));
  const uint32_t common = std::gcd(over, kUnder);
  TiffTag tag = {number, kRational, 1, {}};
  for (const uint32_t part : {over / common, kUnder / common})
    for (int shift = 0; shift < 32; shift += 8) tag.bytes.push_back(static_cast<uint8_t>(part >> shift));
  return tag;
}

// What describes a picture of another format in the tags of a TIFF file.
TiffPageEdit EditForTiff(const PictureFile& input) {
  TiffPageEdit edit;
  const std::vector<uint8_t> exif = input.exif();
  if (const auto structure = TiffStructure::Read(ByteSource(exif.data(), exif.size()))) {
    edit.added = structure->Descriptive(0);
  }
  const std::vector<uint8_t> records = IptcOf(input);
  constexpr uint16_t kUndefined = 7;
  std::vector<TiffTag>& tags = edit.added.main;
  if (!records.empty()) tags.push_back({kTiffIptc, kUndefined, records.size(), records});
  const std::vector<uint8_t> profile = BlobOf(input.metadata(), VIPS_META_ICC_NAME);
  if (!profile.empty()) tags.push_back({kTiffIccProfile, kUndefined, profile.size(), profile});
  constexpr uint16_t kByte = 1, kShort = 3;
  const std::vector<uint8_t> xmp = BlobOf(input.metadata(), VIPS_META_XMP_NAME);
  if (!xmp.empty()) tags.push_back({kTiffXmp, kByte, xmp.size(), xmp});
  tags.push_back({kTiffOrientation, kShort, 1, {static_cast<uint8_t>(input.orientation()), 0}});
  if (const auto resolution = input.resolution()) {
    tags.push_back(RationalTag(kTiffXResolution, resolution->horizontal));
    tags.push_back(RationalTag(kTiffYResolution, resolution->vertical));
    constexpr uint8_t kPerInch = 2;
    tags.push_back({kTiffResolutionUnit, kShort, 1, {kPerInch, 0}});
  }
  return edit;
}

void WriteAsTiff(const PictureFile& input, const RowFiller& fillRow, OutputFile* output,
                 const WritingWishes& wishes) {
  const auto isCopied = [&](int page) { return CopiesPage(FileFormat::kTiff, input, page, wishes); };
  std::vector<TiffPage> pages;
  pages.reserve(static_cast<size_t>(input.pages()));
  for (int page = 0; page < input.pages(); ++page)
    pages.push_back({input.kind(page), TiffFormFor(input, page, wishes.storage), isCopied(page)});
  WriteTiff(pages, NeedsBigTiff(input), input.tiff() ? &*input.tiff() : nullptr, wishes.threads, fillRow,
            output);
  const auto editOf = [&](size_t page) {
    if (!input.tiff()) return EditForTiff(input);
    return isCopied(static_cast<int>(page)) ? EditOfCopiedPage(*input.tiff(), page)
                                            : EditOfTiffPage(input, page);
  };
  if (!EditTiffPages(output->descriptor(), editOf)) throw CannotWrite(*output);
}

}  // namespace

bool CopiesPage(FileFormat format, const PictureFile& input, int page, const WritingWishes& wishes) {
  const auto index = static_cast<size_t>(page);
  return format == FileFormat::kTiff && wishes.storage.IsLeftOpen() && input.tiff() && input.pages() > 1 &&
         index < wishes.isUntouched.size() && wishes.isUntouched[index] &&
         CanCopyTiffPage(*input.tiff(), index);
}

void RefuseUnknownStorage(const FormatTraits& format, const StorageWishes& storage, const std::string& file) {
  const auto refuse = [&](const std::string& what) { throw Refusal(ExitStatus::kWrongUsage, file, what); };
  std::string names;
  for (const NamedCompression& row : kNamedCompressions) {
    if (row.format == format.format) names += (names.empty() ? "" : ", ") + std::string(row.name);
  }
  if (!storage.compression.empty() && !CodeOf(format.format, storage.compression)) {
    refuse(std::string(format.name) + " has no compression '" + storage.compression + "'; " +
           (names.empty() ? "leave --compression out" : "it has " + names));
  }
  if (!storage.quality) return;
  constexpr FileFormat kWithQuality[] = {FileFormat::kJpeg, FileFormat::kWebp, FileFormat::kPdf};
  const bool hasQuality =
      std::find(std::begin(kWithQuality), std::end(kWithQuality), format.format) != std::end(kWithQuality);
  if (!hasQuality) {
    refuse(std::string(format.name) + " is written without loss and has no quality; leave --quality out");
  }
  if (storage.compression == "lossless") refuse("--compression lossless and --quality exclude each other");
}

namespace {

void RefuseKind(const FormatTraits& format, const PictureFile& input, const PageKind& kind,
                const std::string& outputPath) {
  const auto refuse = [&](const std::string& what, const std::string& instead) {
    throw Refusal(ExitStatus::kUnsupported, outputPath,
                  std::string(format.name) + " cannot hold " + what + " of " + input.path() + "; " + instead);
  };
  if (std::max(kind.width, kind.height) > format.mostSide) {
    throw Refusal(ExitStatus::kTooLarge, outputPath,
                  std::string(format.name) + " holds " + std::to_string(format.mostSide) +
                      " pixels on a side, and " + input.path() + " is " + std::to_string(kind.width) + "x" +
                      std::to_string(kind.height) + "; write PNG or TIFF");
  }
  const bool isCmyk = kind.model == ColourModel::kCmyk;
  if (isCmyk && !format.keepsCmyk) refuse("the CMYK inks", "write TIFF or JPEG");
  if (kind.isSigned && format.format != FileFormat::kTiff) refuse("the signed samples", "write TIFF");
  if (kind.bits > format.mostBits) {
    refuse("the " + std::to_string(kind.bits) + " bits per sample",
           isCmyk || kind.bits == 32 ? "write TIFF" : "write PNG or TIFF");
  }
  if (kind.extras > 0 && !format.keepsAlpha)
    refuse("the alpha channel", isCmyk ? "write TIFF" : "write PNG or TIFF");
  // Beside TIFF the formats know at most one extra channel, and take it for alpha.
  if (kind.extras > 1 && format.format != FileFormat::kTiff) refuse("the extra channels", "write TIFF");
  if (kind.model == ColourModel::kLab && !format.keepsLab) refuse("the Lab colours", "write TIFF");
}

}  // namespace

void RefuseWhatDoesNotFit(const FormatTraits& format, const PictureFile& input,
                          const std::string& outputPath) {
  const auto refuse = [&](const std::string& what) {
    throw Refusal(
        ExitStatus::kUnsupported, outputPath,
        std::string(format.name) + " cannot hold the " + what + " of " + input.path() + "; write TIFF");
  };
  for (const PageKind& kind : input.kinds()) RefuseKind(format, input, kind, outputPath);
  if (input.pages() > 1 && !format.keepsPages) refuse(std::to_string(input.pages()) + " pages");
  const bool differ = std::any_of(input.kinds().begin(), input.kinds().end(),
                                  [&](const PageKind& kind) { return kind != input.kind(0); });
  if (differ && format.format != FileFormat::kTiff) refuse("different pages");
}

void WritePicture(const FormatTraits& format, const PictureFile& input, const RowFiller& fillRow,
                  OutputFile* output, const WritingWishes& wishes) {
  if (format.format == FileFormat::kTiff) return WriteAsTiff(input, fillRow, output, wishes);
  const Arranged arranged = Arrange(format, input, fillRow);
  const PageKind& kind = arranged.kind;
  if (format.format == FileFormat::kPnm) return WritePnm(kind, input.pnmLargest(), arranged.fillRow, output);
  if (format.format == FileFormat::kPng) {
    const int effort =
        CodeOf(FileFormat::kPng, wishes.storage.compression).value_or(static_cast<int>(PngEffort::kStandard));
    return WritePng(kind, PngChunksFor(input, arranged), static_cast<PngEffort>(effort), wishes.threads,
                    arranged.fillRow, output);
  }
  if (format.format == FileFormat::kJpeg) return WriteAsJpeg(input, arranged, wishes, output);
  TakeLibraryError();
  const StderrSilenced silenced;
  LoadModuleFor(format.loader);
  RowSource source = {arranged.fillRow, kind.RowBytes(), kind.RowBytes() / static_cast<size_t>(kind.width),
                      nullptr};
  const GPointer<VipsImage> image = MakeImage(input, arranged, &source);
  // Told of a failed write, the JPEG 2000 library tries again without end.
  PictureTarget target(output, format.format == FileFormat::kJpeg2000);
  // The length of a WebP file stands at its beginning, and the library has it in memory anyway.
  const bool isWebp = format.format == FileFormat::kWebp;
  if (isWebp) target.Gather();
  const auto saver = std::find_if(std::begin(kSavers), std::end(kSavers),
                                  [&](const SaverOfFormat& row) { return row.format == format.format; });
  const SavingWishes saving = {input, format.format == input.format().format, wishes.storage};
  const bool isSaved = image && target.target() != nullptr && saver != std::end(kSavers) &&
                       saver->save(image.get(), target.target(), saving) == 0;
  if (source.failure) std::rethrow_exception(source.failure);
  if (isSaved && isWebp) {
    std::vector<uint8_t> file = target.TakeGathered();
    ReplaceWebpExif(ExifFor(input, arranged.orientation), file);
    target.Write(file.data(), file.size());
  }
  target.Check(!isSaved);
}

namespace {

struct Keeps {
  FileFormat format;
  bool profile, exif, xmp, iptc, resolution;
};
constexpr Keeps kKeeps[] = {{FileFormat::kPng, true, true, true, false, true},
                            {FileFormat::kTiff, true, true, true, true, true},
                            {FileFormat::kJpeg, true, true, true, true, true},
                            {FileFormat::kWebp, true, true, true, false, true},  // the resolution by its EXIF
                            {FileFormat::kPnm, false, false, false, false, false},
                            {FileFormat::kJpeg2000, false, false, false, false, false},
                            {FileFormat::kJpegXl, true, false, false, false, false}};

std::string Listed(const std::vector<std::string>& names) {
  std::string text;
  for (size_t i = 0; i < names.size(); ++i)
    text += (i == 0 ? "" : i + 1 == names.size() ? " and " : ", ") + names[i];
  return text;
}

}  // namespace

std::vector<std::string> WhatIsNotKept(const FormatTraits& format, const PictureFile& input) {
  std::vector<std::string> sentences;
  const Keeps& keeps = *std::find_if(std::begin(kKeeps), std::end(kKeeps),
                                     [&](const Keeps& row) { return row.format == format.format; });
  const auto has = [&](const char* name) { return vips_image_get_typeof(input.metadata(), name) != 0; };
  std::vector<std::string> lost;
  if (!keeps.profile && has(VIPS_META_ICC_NAME)) lost.push_back("ICC profile");
  if (!keeps.exif && (!input.exif().empty() || (input.tiff() && !input.tiff()->Descriptive(0).IsEmpty()))) {
    lost.push_back("EXIF");
  }
  if (!keeps.xmp && has(VIPS_META_XMP_NAME)) lost.push_back("XMP");
  if (!keeps.iptc && has(VIPS_META_IPTC_NAME)) lost.push_back("IPTC");
  const bool comesByExif = format.format != FileFormat::kWebp || !ExifFor(input, 1).empty();
  if (input.resolution() && (!keeps.resolution || !comesByExif)) lost.push_back("resolution");
  if (!lost.empty()) {
    sentences.push_back("lost in " + std::string(format.name) + ": " + Listed(lost) +
                        "; a TIFF file keeps all");
  }
  const auto hasReduced = [](const TiffStructure& tiff, size_t page) {
    const auto& entries = tiff.directory(page).entries;
    return std::any_of(entries.begin(), entries.end(),
                       [](const auto& entry) { return entry.tag == kTiffSubDirectories; });
  };
  for (int page = 0; page < input.pages() && input.tiff(); ++page) {
    if (!hasReduced(*input.tiff(), static_cast<size_t>(page))) continue;
    sentences.push_back(
        "the smaller pictures inside its pages (SubIFDs) are left out: they would show the pattern");
    break;
  }
  return sentences;
}

void WritePlainPng(const uint8_t* pixels, int width, int height, int channels, OutputFile* output) {
  PageKind kind;
  kind.width = width;
  kind.height = height;
  kind.model = channels == 1 ? ColourModel::kGrey : ColourModel::kRgb;
  const auto fillRow = [&](int32_t y, void* row) {
    memcpy(row, pixels + static_cast<size_t>(y) * kind.RowBytes(), kind.RowBytes());
  };
  WritePng(kind, {}, PngEffort::kSmall, 1, fillRow, output);
}

}  // namespace tessaline::cli
