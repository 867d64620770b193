// Pictures through the program: kinds, formats, pages, and what happens where there is nothing to find.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <tiffio.h>
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <span>

#include "cli/tiff_tags.h"
#include "tests/cli/pictures.h"
#include "tests/cli/program.h"
#include "tests/support/sanitizers.h"

namespace tessaline::cli {
namespace {

std::vector<std::string> Finding(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), {"-a", kFindingAcceptance});
  return arguments;
}

struct Kind {
  int colours, extras, bits;
  size_t formats;  // so many of the table below
};
constexpr Kind kKinds[] = {{1, 0, 8, 6},  {1, 1, 8, 2},  {3, 0, 8, 6}, {3, 1, 8, 3},
                           {1, 0, 16, 2}, {3, 0, 16, 6}, {3, 1, 16, 2}};

struct Format {
  const char* extension;
  bool keepsAlpha, keeps16Bits, keepsGrey;
};
constexpr Format kFormats[] = {{".png", true, true, true},    {".tif", true, true, true},
                               {".webp", true, false, false}, {".ppm", false, true, true},
                               {".jxl", true, true, true},    {".jp2", true, true, true}};

std::span<const Format> FormatsFor(const Kind& kind) {
  return std::span(kFormats).first(kind.formats);
}

bool Holds(const Format& format, const Kind& kind) {
  return (kind.extras == 0 || format.keepsAlpha) && (kind.bits == 8 || format.keeps16Bits) &&
         (kind.colours == 3 || format.keepsGrey);
}

TEST(Pictures, ScreenGoesAndEverythingElseStaysInEveryKindAndFormat) {
  for (const Kind& kind : kKinds) {
    const TemporaryFolder folder;
    const Picture picture = DrawScreen(kind.colours, kind.extras, kind.bits);
    Save(picture, folder / "in.png");
    Picture first;  // what the first format holds, every other must too
    for (const Format& format : FormatsFor(kind)) {
      SCOPED_TRACE(testing::Message() << kind.colours << "+" << kind.extras << " channels, " << kind.bits
                                      << " bits, " << format.extension);
      const std::string output = folder / ("out" + std::string(format.extension));
      const Ended ended = RunProgram(Finding({folder / "in.png", output}));
      if (kind.colours == 1 && !format.keepsGrey && kind.bits == 8) continue;  // becomes RGB there, and may
      if (!Holds(format, kind)) {
        EXPECT_EQ(4, ended.status) << ended.err;
        continue;
      }
      ASSERT_EQ(0, ended.status) << ended.err;
      const Picture clean = Load(output);
      ASSERT_EQ(picture.channels, clean.channels);
      ASSERT_EQ(kind.bits, clean.bits);
      for (int colour = 0; colour < kind.colours; ++colour) {
        EXPECT_NEAR(kDrawn, ScreenAmplitude(picture, colour), 1);
        EXPECT_LT(ScreenAmplitude(clean, colour), kGone);
      }
      for (int extra = kind.colours; extra < picture.channels; ++extra) {
        EXPECT_EQ(picture.Channel(extra), clean.Channel(extra));
      }
      if (first.samples.empty()) first = clean;
      EXPECT_EQ(first, clean);
    }
  }
}

TEST(Pictures, NothingFoundGivesTheSameSamplesInEveryFormat) {
  for (const Kind& kind : kKinds) {
    const TemporaryFolder folder;
    const Picture picture = DrawScreen(kind.colours, kind.extras, kind.bits, 100, 80);
    Save(picture, folder / "in.png");
    for (const Format& format : FormatsFor(kind)) {
      if (!Holds(format, kind)) continue;
      const std::string output = folder / ("out" + std::string(format.extension));
      const Ended ended = RunProgram({"-a", "0", folder / "in.png", output});
      ASSERT_EQ(0, ended.status) << ended.err;
      EXPECT_EQ(picture, Load(output)) << format.extension;
      EXPECT_NE(std::string::npos, ended.err.find("80 to 95")) << ended.err;
    }
  }
}

// The fourth ink has no screen.
TEST(Pictures, EveryInkIsAPictureOfItsOwn) {
  for (const int bits : {8, 16}) {
    const TemporaryFolder folder;
    const Picture picture = DrawScreen(3, 1, bits, 600, 320);
    const ImagePointer inks = ImageOf(picture);
    inks->Type = VIPS_INTERPRETATION_CMYK;
    Save(inks, folder / "in.tif", "[compression=lzw]");
    const bool isDeep = bits == 16;
    if (!isDeep) Save(inks, folder / "in.jpg", "[Q=95,profile=cmyk]");
    EXPECT_EQ(4, RunProgram({folder / "in.tif", folder / "out.png"}).status);
    EXPECT_EQ(isDeep ? 4 : 0, RunProgram(Finding({folder / "in.tif", folder / "of-tiff.jpg"})).status);
    const std::vector<std::vector<std::string>> runs = {{"in.tif", "out.tif"},
                                                        {"--tile", "512", "in.tif", "tiled.tif"},
                                                        {"in.jpg", "out.jpg"},
                                                        {"in.jpg", "of-jpeg.tif"}};
    for (std::vector<std::string> run : std::span(runs).first(isDeep ? (kIsWatched ? 1 : 2) : 4)) {
      SCOPED_TRACE(run.back());
      const std::string output = folder / run.back(), report = output + ".json";
      for (size_t i = run.size() - 2; i < run.size(); ++i) run[i] = folder / run[i];
      run.insert(run.begin(), {"-a", "auto", "--report", report});
      const Ended ended = RunProgram(run);
      ASSERT_EQ(0, ended.status) << ended.err;
      EXPECT_NE(std::string::npos, ended.err.find("in 3 of 4 inks were taken out, in cyan ")) << ended.err;
      const auto told = nlohmann::json::parse(ReadWholeFile(report))["pictures"][0];
      EXPECT_EQ("cmyk", told["colours"]);
      EXPECT_EQ("black", told["pages"][3]["ink"]);
      EXPECT_EQ(false, told["pages"][3]["patternFound"]);
      const ImagePointer after = Open(output);
      EXPECT_EQ(VIPS_INTERPRETATION_CMYK, after->Type);
      const Picture clean = Load(output);
      for (int ink = 0; ink < 3; ++ink) EXPECT_LT(ScreenAmplitude(clean, ink), kGone);
      const bool isOfJpeg = run[run.size() - 2].ends_with(".jpg");
      EXPECT_EQ(isOfJpeg, vips_image_get_typeof(after.get(), VIPS_META_ICC_NAME) != 0);
      EXPECT_NEAR(picture.At(300, 160, 3), clean.At(300, 160, 3), isOfJpeg ? 5 : 0);
      EXPECT_TRUE(isOfJpeg || picture.Channel(3) == clean.Channel(3));
    }
  }
}

// Beyond 0..1 as well, on both sides of 0, and with more bits than a float has.
TEST(Pictures, FloatsAndSignedAndLongSamplesAreCleanedAsTheyAre) {
  const std::tuple<VipsBandFormat, double, double> kSamples[] = {{VIPS_FORMAT_FLOAT, 1.0 / 140, -0.5},
                                                                 {VIPS_FORMAT_SHORT, 200, -25600},
                                                                 {VIPS_FORMAT_UINT, 16000003, 77}};
  for (const auto& [format, scale, zero] : kSamples) {
    for (const int colours : {1, 3}) {
      if (kIsWatched && colours == 1) continue;
      const TemporaryFolder folder;
      const Picture drawn = DrawScreen(colours, 1, 8, 600, 320);
      const ImagePointer bytes = ImageOf(drawn);
      VipsImage *exact = nullptr, *scaled = nullptr, *cast = nullptr;
      ASSERT_EQ(0, vips_cast(bytes.get(), &exact, VIPS_FORMAT_DOUBLE, nullptr));
      ASSERT_EQ(0, vips_linear1(exact, &scaled, scale, zero, nullptr));
      ASSERT_EQ(0, vips_cast(scaled, &cast, format, nullptr));
      g_object_unref(exact);
      g_object_unref(scaled);
      const ImagePointer made(cast);
      Save(made, folder / "in.tif", "[compression=lzw]");
      EXPECT_EQ(4, RunProgram({folder / "in.tif", folder / "out.png"}).status);
      const std::vector<std::string> runs[] = {{},
                                               {"--tile", "512"},
                                               {"-a", "0", "--compression", "deflate"},
                                               {"--tile", "512", "-a", "0", "--compression", "deflate"}};
      for (std::vector<std::string> run : runs) {
        SCOPED_TRACE(testing::Message() << format << " " << colours << " " << run.size());
        const bool isUntouched = run.size() > 2;
        if (kIsWatched && run.size() % 6 != 0) continue;  // the first and the last go every way
        if (!isUntouched) run.insert(run.begin(), {"-a", "auto"});
        run.insert(run.end(), {"-f", folder / "in.tif", folder / "out.tif"});
        const Ended ended = RunProgram(run);
        ASSERT_EQ(0, ended.status) << ended.err;
        const ImagePointer after = Open(folder / "out.tif");
        ASSERT_EQ(format, after->BandFmt);
        VipsImage *back = nullptr, *levels = nullptr;
        ASSERT_EQ(0, vips_linear1(after.get(), &back, 1 / scale, -zero / scale + 0.25, nullptr));
        ASSERT_EQ(0, vips_cast(back, &levels, VIPS_FORMAT_UCHAR, nullptr));
        g_object_unref(back);
        const ImagePointer held(levels);
        held->Type = bytes->Type;
        Save(held, folder / "levels.png");
        const Picture clean = Load(folder / "levels.png");
        EXPECT_EQ(drawn.Channel(colours), clean.Channel(colours));
        for (int c = 0; c < colours && !isUntouched; ++c) EXPECT_LT(ScreenAmplitude(clean, c), kGone);
        if (isUntouched) {
          EXPECT_EQ(Load(folder / "in.tif"), Load(folder / "out.tif"));
        }
        std::filesystem::remove(folder / "levels.png");
      }
    }
  }
}

TEST(Pictures, LabKeepsItsTagsAndLosesTheScreen) {
  for (const char* form : {"labq", "labs"}) {
    const TemporaryFolder folder;
    const ImagePointer rgb = ImageOf(DrawScreen(3, 0, 8));
    VipsImage *lab = nullptr, *packed = nullptr;
    ASSERT_EQ(0, vips_colourspace(rgb.get(), &lab, VIPS_INTERPRETATION_LAB, nullptr));
    const bool isDeep = std::string(form) == "labs";
    ASSERT_EQ(0, isDeep ? vips_Lab2LabS(lab, &packed, nullptr) : vips_Lab2LabQ(lab, &packed, nullptr));
    Save(ImagePointer(packed), folder / "in.tif", "[compression=lzw,predictor=horizontal]");
    g_object_unref(lab);

    ASSERT_EQ(0, RunProgram(Finding({folder / "in.tif", folder / "out.tif"})).status);
    const ImagePointer before = Open(folder / "in.tif"), after = Open(folder / "out.tif");
    EXPECT_EQ(before->Type, after->Type);
    EXPECT_EQ(before->BandFmt, after->BandFmt);
    EXPECT_EQ(before->Coding, after->Coding);
    VipsImage* back = nullptr;
    ASSERT_EQ(0, vips_colourspace(after.get(), &back, VIPS_INTERPRETATION_sRGB, nullptr));
    Save(ImagePointer(back), folder / "back.png");
    const Picture picture = DrawScreen(3, 0, 8), clean = Load(folder / "back.png");
    for (int colour = 0; colour < 3; ++colour) {
      EXPECT_LT(ScreenAmplitude(clean, colour), kGone) << form;
      // A wrong sign of a or b would turn the colours.
      EXPECT_NEAR(picture.At(160, 120, colour), clean.At(160, 120, colour), 60) << form;
    }
    EXPECT_EQ(4, RunProgram({folder / "in.tif", folder / "out.png"}).status);
  }
}

struct TiffPageDrawn {
  Picture picture;  // of 1 bit: a byte holds eight pixels
  uint16_t compression;
};

void SavePages(const std::vector<TiffPageDrawn>& pages, const std::string& path) {
  TIFF* const tiff = TIFFOpen(path.c_str(), "w");
  for (const auto& [picture, compression] : pages) {
    for (const auto& [tag, value] : std::initializer_list<std::pair<uint32_t, int>>{
             {TIFFTAG_IMAGEWIDTH, picture.width},
             {TIFFTAG_IMAGELENGTH, picture.height},
             {TIFFTAG_SAMPLESPERPIXEL, picture.channels},
             {TIFFTAG_BITSPERSAMPLE, picture.bits},
             {TIFFTAG_ROWSPERSTRIP, picture.height},
             {TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG},
             {TIFFTAG_PHOTOMETRIC, picture.channels == 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK},
             {TIFFTAG_COMPRESSION, compression}})
      TIFFSetField(tiff, tag, value);
    std::vector<uint8_t> bytes;
    for (const uint32_t sample : picture.samples) {
      const uint32_t value = picture.bits == 32 ? sample * 65537 : sample;
      for (int bit = 0; bit < picture.bits; bit += 8) bytes.push_back(static_cast<uint8_t>(value >> bit));
    }
    TIFFWriteEncodedStrip(tiff, 0, bytes.data(), static_cast<tmsize_t>(bytes.size()));
    TIFFWriteDirectory(tiff);
  }
  TIFFClose(tiff);
}

// Each of its own size, depth, kind and compression.
TEST(Pictures, TiffPagesAreCleanedOneByOne) {
  const TemporaryFolder folder;
  Picture bits = {320, 64, 1, 1, std::vector<uint16_t>(40 * 64, 0xC7)},
          longs = DrawScreen(1, 0, 16, 500, 260);
  longs.bits = 32;
  SavePages({{DrawScreen(1, 0, 8), COMPRESSION_JPEG},
             {DrawUnscreened(), COMPRESSION_JPEG},
             {DrawScreen(3, 0, 16, 640, 300), COMPRESSION_LZW},
             {bits, COMPRESSION_CCITTFAX4},
             {longs, COMPRESSION_PACKBITS}},
            folder / "in.tif");
  // Orientation, resolution and description, of the second page only.
  constexpr uint16_t kOwn[] = {270, kTiffOrientation, kTiffXResolution, kTiffYResolution};
  const auto edit = [&](size_t page) {
    if (page != 1) return TiffPageEdit{{std::begin(kOwn), std::end(kOwn)}, {}};
    return TiffPageEdit{{std::begin(kOwn), std::end(kOwn)},
                        {{{270, 2, 4, {'o', 'n', 'e', 0}}, {kTiffOrientation, 3, 1, {6, 0}}}, {}, {}, {}}};
  };
  const auto ownTags = [&](const char* name, size_t page) {
    const int file = open((folder / name).c_str(), O_RDONLY);
    std::vector<std::vector<uint8_t>> values;
    for (const TiffTag& tag : TiffStructure::Read(ByteSource(file))->Tags(page, kOwn))
      values.push_back(tag.bytes);
    close(file);
    return values;
  };
  const int in = open((folder / "in.tif").c_str(), O_RDWR);
  EXPECT_TRUE(EditTiffPages(in, edit));
  close(in);
  const auto first = ownTags("in.tif", 0), second = ownTags("in.tif", 1);
  ASSERT_EQ(0u, first.size());
  ASSERT_EQ(2u, second.size());

  const Ended ended = RunProgram(
      Finding({folder / "in.tif", folder / "out.tif", "--spectrum", folder / "s.png", "--report", "-"}));
  ASSERT_EQ(0, ended.status) << ended.err;
  for (int page = 0; page < 5; ++page) {
    const std::string options = "[page=" + std::to_string(page) + "]";
    const Picture before = Load(folder / "in.tif", options);
    Picture after = Load(folder / "out.tif", options);
    EXPECT_EQ(std::tuple(before.width, before.height, before.channels, before.bits),
              std::tuple(after.width, after.height, after.channels, after.bits));
    for (size_t i = 0; i < 500 * 260 && page == 4; ++i)
      after.samples[i] = after.samples[4 * i + 3];  // upper bytes
    EXPECT_EQ(page == 1 || page == 3, before == after);
    EXPECT_LT(ScreenAmplitude(after, 0), kGone) << page;
  }
  // Pages without a pattern keep their compressed bytes.
  const auto packed = [&](const char* name, size_t page) {
    const int file = open((folder / name).c_str(), O_RDONLY);
    const auto tiff = TiffStructure::Read(ByteSource(file));
    std::vector<uint8_t> bytes(tiff->Values(page, 279).at(0));
    EXPECT_TRUE(tiff->ReadBytes(tiff->Values(page, 273).at(0), bytes));
    const uint64_t compression = tiff->Value(page, kTiffCompression, 0);
    close(file);
    return std::pair(compression, bytes);
  };
  EXPECT_EQ(packed("in.tif", 1), packed("out.tif", 1));
  EXPECT_EQ(packed("in.tif", 3), packed("out.tif", 3));
  EXPECT_EQ(8u, packed("out.tif", 0).first);
  EXPECT_EQ(5u, packed("out.tif", 2).first);
  EXPECT_EQ(32773u, packed("out.tif", 4).first);
  EXPECT_EQ(first, ownTags("out.tif", 0));
  EXPECT_EQ(second, ownTags("out.tif", 1));
  EXPECT_EQ(
      (std::vector<std::string>{"in.tif", "out.tif", "s-2.png", "s-3.png", "s-4.png", "s-5.png", "s.png"}),
      folder.Names());
  const auto report = nlohmann::json::parse(ended.out);
  EXPECT_TRUE(report["pictures"][0]["pages"][0]["patternFound"]);
  EXPECT_FALSE(report["pictures"][0]["pages"][1]["patternFound"]);
  EXPECT_EQ(16, report["pictures"][0]["pages"][2]["bitsPerSample"]);
  EXPECT_EQ(4, RunProgram({folder / "in.tif", folder / "out.png"}).status) << "PNG has no pages";
}

TEST(Pictures, SingleBitsPassAndReducedPicturesGo) {
  const TemporaryFolder folder;
  Save(DrawScreen(1, 0, 8), folder / "bits.tif", "[bitdepth=1,compression=ccittfax4]");
  for (const char* output : {"out.tif", "out.png"}) {
    const Ended ended = RunProgram({"-a", "auto", "--report", "-", folder / "bits.tif", folder / output});
    EXPECT_EQ(0, ended.status);
    EXPECT_NE(std::string::npos, ended.err.find("left as it is")) << ended.err;
    EXPECT_EQ(Load(folder / "bits.tif"), Load(folder / output));
  }
  EXPECT_EQ(ReadWholeFile(folder / "bits.tif"), ReadWholeFile(folder / "out.tif"));
  Save(DrawScreen(1, 0, 8), folder / "small.tif");
  const int file = open((folder / "small.tif").c_str(), O_RDWR);
  EXPECT_TRUE(EditTiffPages(file, [](size_t) {
    return TiffPageEdit{{}, {{{330, 4, 1, {8, 0, 0, 0}}}, {}, {}, {}}};
  }));
  close(file);
  const Ended ended = RunProgram(Finding({folder / "small.tif", folder / "small-out.tif"}));
  EXPECT_EQ(0, ended.status);
  EXPECT_NE(std::string::npos, ended.err.find("SubIFDs")) << ended.err;
}

TEST(Pictures, CompressionAndQualityAreTheUsersAndOfTheFormat) {
  const TemporaryFolder folder;
  const Picture picture = DrawScreen(3, 0, 16);
  Save(picture, folder / "in.png");
  Save(DrawScreen(3, 0, 8), folder / "in.jpg", "[Q=90]");
  const auto bytesOf = [&](const char* input, const std::string& output, std::vector<std::string> options) {
    options.insert(options.end(), {"-f", "-a", "0", folder / input, folder / output});
    const Ended ended = RunProgram(options);
    EXPECT_EQ(0, ended.status) << ended.err;
    if (input == std::string("in.png")) {
      EXPECT_EQ(picture, Load(folder / output)) << options[1];
    }
    return std::filesystem::file_size(folder / output);
  };
  const auto png = [&](const char* name) { return bytesOf("in.png", "out.png", {"--compression", name}); };
  EXPECT_GT(png("none"), png("fast"));
  EXPECT_GE(png("fast"), png("standard"));
  EXPECT_GE(png("standard"), png("small"));
  for (const char* name : {"none", "packbits", "lzw", "deflate", "zstd"})
    bytesOf("in.png", "out.tif", {"--compression", name});
  EXPECT_LT(bytesOf("in.jpg", "out.jpg", {"--quality", "40"}),
            bytesOf("in.jpg", "out.jpg", {"--quality", "80"}));
  for (const std::vector<std::string>& wrong :
       std::vector<std::vector<std::string>>{{"--compression", "lzw", "out.png"},
                                             {"--quality", "80", "out.tif"},
                                             {"--quality", "0", "out.jpg"}}) {
    const Ended ended = RunProgram({wrong[0], wrong[1], folder / "in.png", folder / wrong[2]});
    EXPECT_EQ(2, ended.status) << ended.err;
    EXPECT_NE(std::string::npos, ended.err.find(wrong[0] == "--quality" ? "quality" : "it has none, fast, "));
  }
}

TEST(Pictures, PnmKeepsItsLargestLevelAndTheSamplesTheirBrightness) {
  const TemporaryFolder folder;
  const Picture picture = DrawScreen(1, 0, 8);
  std::string file = "P5\n400 300\n4095\n";
  const size_t header = file.size();
  for (uint16_t sample : picture.samples) {
    file += {static_cast<char>(sample * 16 >> 8), static_cast<char>(sample * 16)};
  }
  WriteWholeFile(folder / "in.pgm", file);
  for (const char* output : {"out.pgm", "out.png"}) {
    ASSERT_EQ(0, RunProgram(Finding({folder / "in.pgm", folder / output})).status);
    Picture clean = Load(folder / output);
    const double scale = output == std::string("out.pgm") ? 65535 / 4095.0 : 1;
    for (uint16_t& sample : clean.samples) sample = static_cast<uint16_t>(sample * scale);
    EXPECT_LT(ScreenAmplitude(clean, 0), kGone) << output;
    EXPECT_NEAR(picture.At(160, 120, 0), clean.At(160, 120, 0) / 257.0, 60) << output;
  }
  EXPECT_EQ(file.substr(0, header), ReadWholeFile(folder / "out.pgm").substr(0, header));
  ASSERT_EQ(0, RunProgram({"-a", "0", folder / "in.pgm", folder / "same.ppm"}).status);
  EXPECT_EQ(file, ReadWholeFile(folder / "same.ppm"));
}

}  // namespace
}  // namespace tessaline::cli
