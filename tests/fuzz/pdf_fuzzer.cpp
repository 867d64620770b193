// Documents, damaged in any way: refused, or their pictures are taken out, put back and the document is
// written.
#include <unistd.h>

#include "cli/pdf_document.h"
#include "cli/png_writer.h"
#include "tests/fuzz/picture_reading.h"

int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count) {
  using namespace tessaline;
  try {
    const cli::InputFile file = fuzz::FileOf(fuzz::Bytes(bytes, count).Rest());
    if (!cli::IsPdf(file)) return 0;
    cli::PdfDocument document(file);
    cli::OutputFile store(cli::OutputFile::Nameless(), ".", "store");
    int taken = 0;
    for (const cli::PdfImage& image : document.images()) {
      if (!image.isLookedAt || cli::PixelsOf(image.kind) > 1 << 16 || ++taken > 4) continue;
      fuzz::ReadAndWrite(cli::TakeOutPdfImage(image, ".", "picture"), "png");
      const off_t begin = lseek(store.descriptor(), 0, SEEK_CUR);
      const auto fill = [&image](int32_t, void* row) { std::memset(row, 0, image.kind.RowBytes()); };
      cli::CompressRows(image.kind, cli::PngEffort::kStandard, 1, fill,
                        [&](const std::vector<uint8_t>& piece) { store.Write(piece.data(), piece.size()); });
      document.Replace(image, cli::FilterOfRows(image.kind), store.descriptor(), begin,
                       lseek(store.descriptor(), 0, SEEK_CUR));
    }
    cli::OutputFile output(cli::OutputFile::Nameless(), ".", "out");
    document.Write(&output);
  } catch (const cli::Refusal& refusal) {
    DEMAND(std::string(refusal.what()).find('\n') == std::string::npos);
    DEMAND(refusal.status() != cli::ExitStatus::kDone && refusal.status() != cli::ExitStatus::kCannotWrite);
  }
  return 0;
}
