// A finished picture into a file of any format that is written.
#pragma once

#include <cstdint>
#include <functional>

#include "cli/page_samples.h"
#include "cli/picture_file.h"
#include "cli/picture_format.h"

namespace tessaline::cli {

// Fills one row as it is to stand in the file; y counts on through all pages. Called from another thread.
using RowFiller = std::function<void(int32_t y, void* row)>;

// Refuses (kUnsupported) what the format cannot hold: 16 bits, alpha, Lab, more pages than one.
void RefuseWhatDoesNotFit(const FormatTraits& format, const PictureFile& input,
                          const std::string& outputPath);

// Writes the picture with the input's metadata, compressed as the input is where both are of the same format.
// Refuses with kCannotWrite.
void WritePicture(const FormatTraits& format, const PictureFile& input, const RowFiller& fillRow,
                  OutputFile* output);

// A small picture of 8-bit samples (1 or 3 of them per pixel) as PNG.
void WritePlainPng(const uint8_t* pixels, int width, int height, int channels, OutputFile* output);

}  // namespace tessaline::cli
