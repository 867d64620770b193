// A finished picture into a file of any format that is written.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "cli/page_samples.h"
#include "cli/picture_file.h"
#include "cli/picture_format.h"
#include "cli/row_arrangement.h"

namespace tessaline::cli {

// Refuses (kUnsupported) what the format cannot hold: 16 bits, alpha, Lab, more pages than one.
void RefuseWhatDoesNotFit(const FormatTraits& format, const PictureFile& input,
                          const std::string& outputPath);

// What of the input WritePicture cannot keep in a file of that format, a sentence each: metadata, the chroma
// sampling of a JPEG file.
std::vector<std::string> WhatIsNotKept(const FormatTraits& format, const PictureFile& input);

struct WritingWishes {
  int threads = 1;  // that compress, where the format's pieces stand for themselves
  StorageWishes storage;
  std::vector<bool> isUntouched;  // by page: the run changed nothing in it
};

// Refuses (kWrongUsage) a compression or a quality that the format does not have.
void RefuseUnknownStorage(const FormatTraits& format, const StorageWishes& storage, const std::string& file);

// True where WritePicture takes the page's compressed data as they are from one TIFF file into another. It
// asks for no rows of such pages.
bool CopiesPage(FileFormat format, const PictureFile& input, int page, const WritingWishes& wishes);

// Writes the picture, upright where the format cannot tell its orientation, with the input's metadata,
// compressed as wished, else as the input is where both are of the same format. Refuses with kCannotWrite.
void WritePicture(const FormatTraits& format, const PictureFile& input, const RowFiller& fillRow,
                  OutputFile* output, const WritingWishes& wishes);

// A small picture of 8-bit samples (1 or 3 of them per pixel) as PNG.
void WritePlainPng(const uint8_t* pixels, int width, int height, int channels, OutputFile* output);

}  // namespace tessaline::cli
