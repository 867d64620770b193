// A picture as the program reads it and writes it again, without the run between: small ones whole, of large
// ones only what their files say.
#pragma once

#include <sys/mman.h>

#include <vector>

#include "cli/light_curve.h"
#include "cli/picture_file.h"
#include "cli/picture_writer.h"
#include "cli/refusal.h"
#include "tests/fuzz/bytes.h"

namespace tessaline::fuzz {

// A file without a name that holds the bytes.
inline cli::InputFile FileOf(const std::string& bytes) {
  const int descriptor = memfd_create("fuzz", MFD_CLOEXEC);
  DEMAND(descriptor >= 0 && cli::WriteFully(descriptor, bytes.data(), bytes.size()));
  return cli::InputFile(descriptor, "fuzz");
}

// Everything that a file says of itself, its pages, and the picture written anew in the format of that
// extension.
inline void ReadAndWrite(cli::InputFile file, const char* extension) {
  constexpr uint64_t kMostPixels = 1 << 16;
  constexpr int kMostPages = 4;
  const cli::PictureFile picture(std::move(file));
  DEMAND(picture.pages() >= 1 && picture.kinds().size() == static_cast<size_t>(picture.pages()));
  picture.exif();
  picture.isLosslessWebp();
  uint64_t pixels = 0;
  for (const cli::PageKind& kind : picture.kinds()) {
    DEMAND(kind.width >= 1 && kind.height >= 1 && kind.channels() >= 1);
    pixels += cli::PixelsOf(kind);
  }
  if (pixels > kMostPixels || picture.pages() > kMostPages) return;
  std::vector<std::vector<uint8_t>> rows;  // of all pages
  for (int page = 0; page < picture.pages(); ++page) {
    const int orientation = picture.orientation(page);
    DEMAND(orientation >= 1 && orientation <= 8);
    picture.resolution(page);
    picture.IsOfSingleBits(page);
    cli::LightCurveOf(picture, page);
    const cli::PageKind& kind = picture.kind(page);
    cli::PageSamples samples;
    DEMAND(samples.Create(kind));
    cli::PageReader reader(picture, page);
    reader.Read(kind.height, [&, y = 0](const void* row) mutable {
      samples.TakeRow(y, row);
      // What is not changed comes back bit for bit.
      std::vector<uint8_t> back(kind.RowBytes());
      samples.FillRow(y++, back.data());
      DEMAND(std::memcmp(back.data(), row, back.size()) == 0);
      rows.push_back(std::move(back));
    });
  }
  const cli::FormatTraits& format = cli::FormatToWrite(std::string("x.") + extension);
  cli::RefuseWhatDoesNotFit(format, picture, "x");
  cli::WhatIsNotKept(format, picture);
  cli::OutputFile output(cli::OutputFile::Nameless(), ".", "x");
  cli::WritingWishes wishes;
  cli::WritePicture(
      format, picture,
      [&](int32_t y, void* row) {
        const std::vector<uint8_t>& from = rows[static_cast<size_t>(y)];
        std::memcpy(row, from.data(), from.size());
      },
      &output, wishes);
}

}  // namespace tessaline::fuzz
