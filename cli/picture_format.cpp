#include "cli/picture_format.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <iterator>
#include <string_view>

#include "cli/output_file.h"
#include "cli/refusal.h"

namespace tessaline::cli {
namespace {

// written, bits, alpha, Lab, CMYK, pages, orientation
constexpr FormatTraits kFormats[] = {
    {FileFormat::kPng, "PNG", "pngload_source", false, ".png", true, 16, true, false, false, false, false},
    {FileFormat::kTiff, "TIFF", "tiffload_source", true, ".tif .tiff", true, 32, true, true, true, true,
     true},
    {FileFormat::kJpeg, "JPEG", "jpegload_source", false, ".jpg .jpeg .jpe .jfif", true, 8, false, false,
     true, false, true, 65500},
    {FileFormat::kWebp, "WebP", "webpload_source", true, ".webp", true, 8, true, false, false, true, true,
     16383},
    {FileFormat::kGif, "GIF", "gifload_source", true, ".gif", false, 0, false, false, false, false, false},
    {FileFormat::kPnm, "PNM", "ppmload_source", false, ".ppm .pgm .pnm", true, 16, false, false, false, false,
     false},
    // The library calls the reduced sizes of a JPEG 2000 picture its pages.
    {FileFormat::kJpeg2000, "JPEG 2000", "jp2kload_source", false, ".jp2 .j2k .j2c .jpc", true, 16, true,
     false, false, false, false},
    {FileFormat::kJpegXl, "JPEG XL", "jxlload_source", false, ".jxl", true, 16, true, false, false, false,
     false},
    {FileFormat::kHeif, "HEIF", "heifload_source", true, ".heic .heif .avif", false, 0, false, false, false,
     false, false},
    // Its pictures are cleaned in their places, whatever it can hold.
    {FileFormat::kPdf, "PDF", nullptr, true, ".pdf", true, 16, true, true, true, true, true},
};

const FormatTraits& Traits(FileFormat format) {
  return *std::find_if(std::begin(kFormats), std::end(kFormats),
                       [format](const FormatTraits& traits) { return traits.format == format; });
}

using namespace std::string_view_literals;

// How files begin; the longer of two that both fit stands first.
struct Beginning {
  size_t offset;
  std::string_view bytes;
  FileFormat format;
};
constexpr Beginning kBeginnings[] = {
    {0, "\x89PNG\r\n\x1a\n"sv, FileFormat::kPng},
    {0, "\xFF\xD8\xFF"sv, FileFormat::kJpeg},
    {0, "II*\0"sv, FileFormat::kTiff},
    {0, "MM\0*"sv, FileFormat::kTiff},
    {0, "II+\0"sv, FileFormat::kTiff},
    {0, "MM\0+"sv, FileFormat::kTiff},
    {8, "WEBP"sv, FileFormat::kWebp},
    {0, "GIF8"sv, FileFormat::kGif},
    {0, "P1"sv, FileFormat::kPnm},
    {0, "P2"sv, FileFormat::kPnm},
    {0, "P3"sv, FileFormat::kPnm},
    {0, "P4"sv, FileFormat::kPnm},
    {0, "P5"sv, FileFormat::kPnm},
    {0, "P6"sv, FileFormat::kPnm},
    {0, "\0\0\0\x0CjP  "sv, FileFormat::kJpeg2000},
    {0, "\xFF\x4F\xFF\x51"sv, FileFormat::kJpeg2000},
    {0, "\xFF\x0A"sv, FileFormat::kJpegXl},
    {0, "\0\0\0\x0CJXL "sv, FileFormat::kJpegXl},
    {4, "ftypheic"sv, FileFormat::kHeif},
    {4, "ftypheix"sv, FileFormat::kHeif},
    {4, "ftypmif1"sv, FileFormat::kHeif},
    {4, "ftypavif"sv, FileFormat::kHeif},
    {0, "%PDF-"sv, FileFormat::kPdf},
};

// Pictures that this program knows enough about to say what to do with them.
struct RefusedBeginning {
  size_t offset;
  std::string_view bytes;
  const char* what;
};
constexpr RefusedBeginning kRefusedBeginnings[] = {
    {0, "%!PS"sv, "is a PostScript document; turn it into PNG or TIFF first"},
    {0, "8BPS"sv, "is a layered picture (PSD); save it as TIFF or PNG first"},
    {0, "BM"sv, "is a BMP picture; save it as PNG first"},
    {0, "<svg"sv, "is a drawing (SVG); turn it into PNG first"},
    {0, "\x76\x2F\x31\x01"sv, "holds floating-point samples (EXR); convert it to 16-bit TIFF first"},
    {0, "#?RADIANCE"sv, "holds floating-point samples (HDR); convert it to 16-bit TIFF first"},
    {0, "PF"sv, "holds 32-bit floating-point samples (PFM); convert it to 16-bit TIFF first"},
    {0, "Pf"sv, "holds 32-bit floating-point samples (PFM); convert it to 16-bit TIFF first"},
    {0, "SIMPLE  ="sv, "is a FITS picture; convert it to 16-bit TIFF first"},
};

bool Begins(std::string_view head, size_t offset, std::string_view bytes) {
  return head.size() >= offset + bytes.size() && head.substr(offset, bytes.size()) == bytes;
}

std::string LowerCaseExtension(const std::string& file) {
  const std::string name = FileNameOf(file);
  const size_t dot = name.find_last_of('.');
  if (dot == std::string::npos || dot == 0) return "";
  std::string extension = name.substr(dot);
  for (char& c : extension) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
  return extension;
}

bool Lists(std::string_view extensions, const std::string& extension) {
  while (!extensions.empty()) {
    const size_t blank = std::min(extensions.find(' '), extensions.size());
    if (extensions.substr(0, blank) == extension) return true;
    extensions.remove_prefix(std::min(blank + 1, extensions.size()));
  }
  return false;
}

std::string WrittenExtensions() {
  std::string all;
  for (const FormatTraits& traits : kFormats) {
    if (!traits.isWritten) continue;
    const std::string_view extensions = traits.extensions;
    all += (all.empty() ? "" : ", ") + std::string(extensions.substr(0, extensions.find(' ')));
  }
  return all;
}

}  // namespace

const FormatTraits& FormatOfContents(int descriptor, const std::string& file) {
  char bytes[64];
  const ssize_t count = pread(descriptor, bytes, sizeof bytes, 0);
  if (count == 0) throw Refusal(ExitStatus::kUnreadable, file, "is empty; get a whole copy of the file");
  const std::string_view head(bytes, static_cast<size_t>(std::max<ssize_t>(count, 0)));
  for (const Beginning& beginning : kBeginnings) {
    if (Begins(head, beginning.offset, beginning.bytes)) return Traits(beginning.format);
  }
  for (const RefusedBeginning& beginning : kRefusedBeginnings) {
    if (Begins(head, beginning.offset, beginning.bytes)) {
      throw Refusal(ExitStatus::kUnsupported, file, beginning.what);
    }
  }
  throw Refusal(
      ExitStatus::kUnreadable, file,
      "is not a picture that this program can read (whatever its name says); give it a PNG, TIFF, JPEG or "
      "WebP file");
}

const FormatTraits& FormatToWrite(const std::string& file) {
  const std::string extension = LowerCaseExtension(file);
  for (const FormatTraits& traits : kFormats) {
    if (!Lists(traits.extensions, extension)) continue;
    if (traits.isWritten) return traits;
    throw Refusal(ExitStatus::kWrongUsage, file,
                  std::string(traits.name) + " is read but not written; let OUTPUT end in one of " +
                      WrittenExtensions());
  }
  throw Refusal(ExitStatus::kWrongUsage, file,
                (extension.empty() ? std::string("has no extension")
                                   : "the extension " + extension + " stands for no format that is written") +
                    "; let OUTPUT end in one of " + WrittenExtensions());
}

const FormatTraits& FormatNamed(const std::string& name) {
  const std::string extension = LowerCaseExtension("picture." + name);
  for (const FormatTraits& traits : kFormats) {
    if (traits.isWritten && Lists(traits.extensions, extension)) return traits;
  }
  throw Refusal(ExitStatus::kWrongUsage, "--format '" + name +
                                             "' stands for no format that is written; give one of " +
                                             WrittenExtensions() + ", without the dot");
}

bool IsPictureName(const std::string& file) {
  const std::string extension = LowerCaseExtension(file);
  return !extension.empty() &&
         std::any_of(std::begin(kFormats), std::end(kFormats),
                     [&](const FormatTraits& traits) { return Lists(traits.extensions, extension); });
}

}  // namespace tessaline::cli
