// The file formats that pictures come in and go out in.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace tessaline::cli {

enum class FileFormat { kPng, kTiff, kJpeg, kWebp, kGif, kPnm, kJpeg2000, kJpegXl, kHeif, kPdf };

// Of larger pictures JPEG files are written without a look at the whole, a little larger: it would be held.
constexpr uint64_t kMostJpegSamplesHeld = uint64_t{7500} * 7500 * 3;

struct FormatTraits {
  FileFormat format;
  const char* name;
  const char* loader;      // operation of the picture library that reads it from a source; null: a document
  bool hasPages;           // files of it may hold several pictures, or frames, of equal standing
  const char* extensions;  // each with its dot, lower case, blanks between
  bool isWritten;          // by this program
  int mostBits;            // per sample, when written
  bool keepsAlpha;
  bool keepsLab;
  bool keepsCmyk;
  bool keepsPages;         // several pictures in one file
  bool keepsOrientation;   // of a picture that came in another format
  int mostSide = 1000000;  // pixels, when written; what no picture reaches where the format has no limit
};

// What the user wants of the file beyond its format.
struct StorageWishes {
  std::string compression;     // by name; empty: as the input, or the format's usual one
  std::optional<int> quality;  // 1..100
  bool IsLeftOpen() const { return compression.empty() && !quality; }
};

// By the first bytes, whatever the file is called. Refuses: kUnreadable when it is no picture, kUnsupported
// when it is one of a kind that this program does not take. `file` is for the message.
const FormatTraits& FormatOfContents(int descriptor, const std::string& file);

// By the extension. Refuses with kWrongUsage when there is none or it is none that this program writes.
const FormatTraits& FormatToWrite(const std::string& file);

// By its name, which is an extension without the dot. Refuses with kWrongUsage.
const FormatTraits& FormatNamed(const std::string& name);

// True when the name has an extension of a format that is read.
bool IsPictureName(const std::string& file);

}  // namespace tessaline::cli
