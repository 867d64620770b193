// An input picture: opened, looked at, read page by page.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "cli/carried_metadata.h"
#include "cli/input_file.h"
#include "cli/jpeg_file.h"
#include "cli/output_file.h"
#include "cli/page_samples.h"
#include "cli/picture_format.h"
#include "cli/tiff_tags.h"
#include "cli/vips_library.h"

namespace tessaline::cli {

class PictureFile {
 public:
  // Looks at the file without decoding pixels. Refuses what cannot be read (kUnreadable), what the run cannot
  // take (kUnsupported: samples of odd widths) and what is too large (kTooLarge).
  explicit PictureFile(InputFile file);
  explicit PictureFile(const std::string& path) : PictureFile(InputFile(path)) {}
  PictureFile(const PictureFile&) = delete;
  PictureFile& operator=(const PictureFile&) = delete;

  const std::string& path() const { return path_; }
  const InputFile& file() const { return file_; }
  const FormatTraits& format() const { return *format_; }
  int descriptor() const { return descriptor_; }  // for positioned reads
  bool isStandardInput() const { return file_.isStandardInput(); }
  FileIdentity identity() const { return file_.identity(); }
  int pages() const { return pages_; }
  // Pages of a TIFF file may be of different kinds; of all others they are alike.
  const PageKind& kind(int page) const { return kinds_[static_cast<size_t>(page)]; }
  const std::vector<PageKind>& kinds() const { return kinds_; }
  // A TIFF page of black and white: there is nothing between them that a pattern could leave.
  bool IsOfSingleBits(int page) const;
  // As the file tells them; nothing where it does not.
  std::optional<Resolution> resolution(int page = 0) const;
  // 1..8 as EXIF counts them, 1: upright.
  int orientation(int page = 0) const;
  // The EXIF block as it stands in the file, in TIFF form; empty where there is none. TIFF files have its
  // tags in their directories.
  std::vector<uint8_t> exif() const;

  // Metadata (ICC, EXIF, XMP, IPTC, resolution, orientation) of the first page, no pixels.
  VipsImage* metadata() const { return metadata_.get(); }
  const std::optional<TiffStructure>& tiff() const { return tiff_; }
  const std::optional<JpegHeader>& jpeg() const { return jpeg_; }
  bool isLosslessWebp() const;
  // Of a PNM file: the level that is white in it. Its samples are on the full range here, as all others.
  std::optional<uint32_t> pnmLargest() const { return pnmLargest_; }

  // What the library that decodes the hungriest page holds of it at a time beside the rows that it gives:
  // measured over RGB.
  uint64_t BytesHeldWhileReading() const;

  // Decodes a page, counted from 0. Refuses as PageReader does, and want of memory with kOutOfMemory.
  // `rowsDone`, when not null, hears how far the decoding is.
  void ReadPage(int page, PageSamples* samples,
                const std::function<void(int rows)>& rowsDone = nullptr) const;

  // The file's bytes as they are. Refuses with kUnreadable when the file changed since it was opened.
  void CopyTo(OutputFile* output) const { file_.CopyTo(output); }

 private:
  friend class PageReader;
  struct Patch;  // bytes of the file that the decoder is to see differently

  void CheckEnding();
  GPointer<VipsImage> LoadPage(int page) const;
  GPointer<VipsSource> MakeSource(int page) const;
  std::vector<Patch> PatchesFor(int page) const;
  PageKind KindOf(VipsImage* image, int page) const;
  ColourModel ModelOf(VipsImage* image, int page) const;
  bool IsLabPage(int page) const;
  bool IsSignedPage(int page) const;
  bool HasOtherInks(int page) const;
  void RefuseTiffKinds() const;
  void DemandLevels(const float* row, int page, int y) const;

  const InputFile file_;
  const std::string path_;  // or what stands for it in messages
  const int descriptor_;
  const FormatTraits* format_ = nullptr;
  int pages_ = 1;
  std::vector<PageKind> kinds_;  // by page
  GPointer<VipsImage> metadata_;
  std::optional<TiffStructure> tiff_;
  std::optional<JpegHeader> jpeg_;
  std::optional<uint32_t> pnmLargest_;
};

// Decodes a page row by row. Only the rows in work are held, as far as the format allows that.
class PageReader {
 public:
  PageReader(const PictureFile& file, int page) : file_(file), page_(page) {}

  // The first row is the next again.
  void Rewind();
  // The next `count` rows, as they stand in the file but for PNM levels, which are on the full range, and
  // inks, of which 255 is all; `take` has one of them at a time. Refuses damage and truncation with
  // kUnreadable, the latest at the last row, and floats that are no levels with kUnsupported.
  void Read(int count, const std::function<void(const void* row)>& take);

 private:
  const PictureFile& file_;
  int page_;
  int next_ = 0;  // row
  GPointer<VipsImage> image_;
  GPointer<VipsRegion> region_;
  std::vector<uint8_t> changed_;  // row
};

}  // namespace tessaline::cli
