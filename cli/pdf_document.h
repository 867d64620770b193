// A PDF document whose pictures are replaced, and nothing else.
#pragma once

#include <functional>
#include <qpdf/QPDF.hh>
#include <string>
#include <vector>

#include "cli/input_file.h"
#include "cli/output_file.h"
#include "cli/pdf_image.h"

namespace tessaline::cli {

bool IsPdf(const InputFile& file);

class PdfDocument {
 public:
  // Reads all objects; the file outlives the document. Refuses with kUnsupported what is encrypted or signed,
  // with kUnreadable what is damaged: nothing is mended.
  explicit PdfDocument(const InputFile& file);

  int pages() const { return pages_; }
  // Of the pages and the forms in them, each once, in the order of the pages.
  std::vector<PdfImage>& images() { return images_; }

  // The image's data become bytes of a file, from `begin` to `end`, which outlives the document.
  void Replace(const PdfImage& image, const PdfFilter& filter, int file, off_t begin, off_t end);

  // Everything else as it is: data of streams byte for byte, and whether the file is linearized and has
  // object streams. The same document gives the same bytes. Refuses with kCannotWrite.
  void Write(OutputFile* output);

 private:
  void Read();
  void FindImages();
  void RefuseWarnings();
  void RefuseSigned();
  template <typename Work>
  void Guarded(const Work& work);

  const InputFile& file_;
  QPDF pdf_;
  int pages_ = 0;
  std::vector<PdfImage> images_;
};

}  // namespace tessaline::cli
