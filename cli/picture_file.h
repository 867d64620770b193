// An input picture: opened, looked at, read page by page.
#pragma once

#include <sys/types.h>
#include <time.h>

#include <optional>
#include <string>
#include <vector>

#include "cli/jpeg_tables.h"
#include "cli/output_file.h"
#include "cli/page_samples.h"
#include "cli/picture_format.h"
#include "cli/tiff_tags.h"
#include "cli/vips_library.h"

namespace tessaline::cli {

struct Resolution {  // pixels per inch
  double horizontal;
  double vertical;
};

class PictureFile {
 public:
  // Looks at the file without decoding pixels. Refuses what cannot be read (kUnreadable), what the run cannot
  // take (kUnsupported: float, CMYK, pages that differ) and what is too large (kTooLarge).
  explicit PictureFile(const std::string& path);
  ~PictureFile();
  PictureFile(const PictureFile&) = delete;
  PictureFile& operator=(const PictureFile&) = delete;

  const std::string& path() const { return path_; }
  const FormatTraits& format() const { return *format_; }
  int descriptor() const { return descriptor_; }  // for positioned reads
  FileIdentity identity() const { return IdentityOf(descriptor_); }
  int pages() const { return pages_; }
  const PageKind& kind() const { return kind_; }  // of every page
  std::optional<Resolution> resolution() const;

  // Metadata (ICC, EXIF, XMP, IPTC, resolution, orientation) of the first page, no pixels.
  VipsImage* metadata() const { return metadata_.get(); }
  const std::optional<TiffStructure>& tiff() const { return tiff_; }
  std::optional<JpegCompression> jpegCompression() const;
  bool isLosslessWebp() const;

  // Decodes a page, counted from 0. Damage and truncation are refused with kUnreadable, want of memory with
  // kOutOfMemory.
  void ReadPage(int page, PageSamples* samples) const;

  // The file's bytes as they are. Refuses with kUnreadable when the file changed since it was opened.
  void CopyTo(OutputFile* output) const;

 private:
  struct Patch;  // two bytes of the file that the decoder is to see differently

  void Open();
  void CheckEnding() const;
  GPointer<VipsImage> LoadPage(int page) const;
  GPointer<VipsSource> MakeSource() const;
  PageKind KindOf(VipsImage* image, int page) const;
  ColourModel ModelOf(VipsImage* image, int page) const;
  bool IsLabPage(int page) const;
  void PresentLabAsRgb();

  std::string path_;
  int descriptor_ = -1;
  off_t size_ = 0;
  timespec changed_ = {};
  const FormatTraits* format_ = nullptr;
  int pages_ = 1;
  PageKind kind_;
  GPointer<VipsImage> metadata_;
  std::optional<TiffStructure> tiff_;
  std::vector<Patch> patches_;
};

}  // namespace tessaline::cli
