// A picture inside a PDF document: what its dictionary says of it, and its data as a file of their own.
#pragma once

#include <cstdint>
#include <optional>
#include <qpdf/QPDFObjectHandle.hh>
#include <string>
#include <vector>

#include "cli/carried_metadata.h"
#include "cli/input_file.h"
#include "cli/page_samples.h"

namespace tessaline::cli {

enum class PdfCoding { kSamples, kJpeg, kJpeg2000 };

struct PdfImage {
  QPDFObjectHandle stream;
  PageKind kind;  // as the document has it
  PdfCoding coding = PdfCoding::kSamples;
  std::vector<uint8_t> profile;  // of its colours
  std::optional<double> gamma;   // of its levels, where there is no profile: light is level to this power
  bool areColours = true;        // false: the levels become colours by a rule (Decode) of the document's own
  bool isLookedAt = false;
  std::string whyNot;  // where it is not: "of single bits"; empty for what nobody would miss: masks, and what
                       // is too small for a pattern
  int page = 0;        // the first on which it may stand, counted from 0
  std::optional<Resolution> resolution;  // where it is drawn for the first time
};

// What the dictionary of an image says. Its data are not touched.
PdfImage DescribePdfImage(const QPDFObjectHandle& stream);

// Tells the document library that JPEG and JPEG 2000 data are what it is to decode to.
void LeavePictureCodingsAlone();

// The image as a picture file without a name in `folder`, called `name` in messages: JPEG and JPEG 2000 data
// as they are, samples as TIFF. Refuses damaged data with kUnreadable, want of room with kCannotWrite.
InputFile TakeOutPdfImage(const PdfImage& image, const std::string& folder, const std::string& name);

// Of each sample of JPEG 2000 data, which the picture library does not tell; 0 where they differ or are
// damaged.
int BitsOfJpeg2000(const InputFile& file);

// What the cleaned image's data are called in its dictionary: the filter, and its parameters.
struct PdfFilter {
  QPDFObjectHandle name, parameters;
};
PdfFilter FilterOfJpeg();
// Of rows as CompressRows makes them.
PdfFilter FilterOfRows(const PageKind& kind);

}  // namespace tessaline::cli
