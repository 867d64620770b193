// What describes a picture goes along with it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "cli/jpeg_tables.h"
#include "cli/tiff_tags.h"
#include "tests/cli/pictures.h"
#include "tests/cli/program.h"

namespace tessaline::cli {
namespace {

std::string Blob(const ImagePointer& image, const char* name) {
  const void* bytes = nullptr;
  size_t size = 0;
  if (vips_image_get_typeof(image.get(), name) == 0) return "";
  vips_image_get_blob(image.get(), name, &bytes, &size);
  return {static_cast<const char*>(bytes), size};
}

std::string Text(const ImagePointer& image, const char* name) {
  const char* text = nullptr;
  if (vips_image_get_typeof(image.get(), name) == 0) return "";
  return vips_image_get_string(image.get(), name, &text) == 0 ? text : "";
}

void SetBlob(const ImagePointer& image, const char* name, const std::string& bytes) {
  vips_image_set_blob_copy(image.get(), name, bytes.data(), bytes.size());
}

// A screened picture with everything that a scanner or camera writes beside it.
ImagePointer DescribedScreen() {
  ImagePointer image = ImageOf(DrawScreen(3, 0, 8));
  image->Xres = 600 / 25.4;
  image->Yres = 300 / 25.4;
  VipsBlob* profile = nullptr;
  EXPECT_EQ(0, vips_profile_load("srgb", &profile, nullptr));
  size_t size = 0;
  const void* bytes = vips_blob_get(profile, &size);
  SetBlob(image, VIPS_META_ICC_NAME, {static_cast<const char*>(bytes), size});
  vips_area_unref(VIPS_AREA(profile));
  SetBlob(image, VIPS_META_XMP_NAME, "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\"/>");
  vips_image_set_int(image.get(), VIPS_META_ORIENTATION, 6);
  vips_image_set_string(image.get(), "exif-ifd0-Make", "ScanCo (ScanCo, ASCII, 7 components, 7 bytes)");
  vips_image_set_string(image.get(), "exif-ifd2-UserComment", "kept (kept, ASCII, 4 components, 4 bytes)");
  return image;
}

class Metadata : public testing::Test {
 protected:
  void Clean(const std::string& input, const std::string& output) {
    const Ended ended = RunProgram({"-a", "99", folder / input, folder / output});
    ASSERT_EQ(0, ended.status) << ended.err;
    ASSERT_NE(std::string::npos, ended.err.find("took out")) << ended.err;
  }
  TemporaryFolder folder;
};

TEST_F(Metadata, ProfileExifXmpResolutionAndOrientationGoAlong) {
  using std::operator""s;
  const std::string chunk =
      "\0\0\0\x0A"
      "tEXtTitle\0kept\x50\x30\xE9\x67"s;  // that the library would write in its own way
  for (const std::string extension : {"png", "tif", "jpg", "webp"}) {
    SCOPED_TRACE(extension);
    Save(DescribedScreen(), folder / ("in." + extension), extension == "webp" ? "[lossless]" : "");
    if (extension == "png") {
      WriteWholeFile(folder / "in.png",
                     ReadWholeFile(folder / "in.png").insert(33, chunk));  // behind the header
    }
    Clean("in." + extension, "out." + extension);
    const ImagePointer before = Open(folder / ("in." + extension)),
                       after = Open(folder / ("out." + extension));
    EXPECT_NE("", Blob(after, VIPS_META_ICC_NAME));
    for (const char* name : {VIPS_META_ICC_NAME, VIPS_META_XMP_NAME})
      EXPECT_EQ(Blob(before, name), Blob(after, name));
    for (const char* name : {"exif-ifd0-Make", "exif-ifd2-UserComment"})
      EXPECT_EQ(Text(before, name), Text(after, name));
    EXPECT_DOUBLE_EQ(before->Xres, after->Xres);
    EXPECT_DOUBLE_EQ(before->Yres, after->Yres);
    EXPECT_EQ(vips_image_get_orientation(before.get()), vips_image_get_orientation(after.get()));
    // The library itself writes no orientation into a PNG.
    if (extension != "png") {
      EXPECT_EQ(6, vips_image_get_orientation(after.get()));
    } else {
      EXPECT_NE(std::string::npos, ReadWholeFile(folder / "out.png").find(chunk));
    }
    EXPECT_EQ(400, vips_image_get_width(after.get())) << "turned, though the tag still says so";
  }
}

TEST_F(Metadata, OrientationIsTakenUprightWhereTheFormatHasNoTagForIt) {
  for (int orientation = 1; orientation <= 8; ++orientation) {
    const ImagePointer image = ImageOf(DrawScreen(3, 0, 8));
    vips_image_set_int(image.get(), VIPS_META_ORIENTATION, orientation);
    Save(image, folder / "in.tif");
    VipsImage* upright = nullptr;
    ASSERT_EQ(0, vips_autorot(image.get(), &upright, nullptr));
    Save(ImagePointer(upright), folder / "upright.png");
    for (const char* output : {"out.png", "out.ppm", "out.jxl"}) {
      ASSERT_EQ(0, RunProgram({"-f", "-a", "0", folder / "in.tif", folder / output}).status);
      EXPECT_EQ(Load(folder / "upright.png"), Load(folder / output)) << orientation << " " << output;
    }
  }
}

TEST_F(Metadata, NothingIsInventedAndWhatIsLostIsSaid) {
  Save(DrawScreen(3, 0, 8), folder / "bare.ppm");
  Save(DescribedScreen(), folder / "full.jpg", "[Q=95]");
  for (const std::string extension : {"png", "jpg", "webp", "tif", "jp2", "jxl"}) {
    Clean("bare.ppm", "bare." + extension);
    const Ended bare = RunProgram({"--dry-run", "--report", "-", folder / ("bare." + extension)});
    EXPECT_NE(std::string::npos, bare.out.find("\"pixelsPerInch\": null")) << extension << bare.out;
    EXPECT_EQ("", Blob(Open(folder / ("bare." + extension)), VIPS_META_EXIF_NAME)) << extension;
    const Ended full = RunProgram({"-f", "-a", "99", folder / "full.jpg", folder / ("full2." + extension)});
    const bool loses = extension == "jp2" || extension == "jxl";
    EXPECT_EQ(loses, full.err.find("EXIF, XMP and resolution; a TIFF file keeps all") != std::string::npos)
        << full.err;
    EXPECT_EQ(loses ? 2 : 1, full.ErrorLines()) << full.err;
    const ImagePointer before = Open(folder / "full.jpg"), after = Open(folder / ("full2." + extension));
    for (const char* name : {VIPS_META_ICC_NAME, VIPS_META_XMP_NAME}) {
      EXPECT_EQ(loses ? Blob(after, name) : Blob(before, name), Blob(after, name)) << extension;
    }
  }
}

TEST_F(Metadata, AssociatedAlphaStaysWhatItIsSampleForSample) {
  Save(DrawScreen(1, 1, 8), folder / "plain.tif");
  std::filesystem::copy_file(folder / "plain.tif", folder / "in.tif");
  const auto setAlpha = [&](const char* name, uint8_t kind) {
    const int file = open((folder / name).c_str(), O_RDWR);
    const TiffTag tag = {kTiffExtraSamples, 3, 1, {kind, 0}};
    const uint64_t before = TiffStructure::Read(ByteSource(file))->Value(0, kTiffExtraSamples, 0);
    EXPECT_TRUE(EditTiffPages(file, [&](size_t) {
      return TiffPageEdit{{kTiffExtraSamples}, {{tag}, {}, {}, {}}};
    }));
    close(file);
    return before;
  };
  setAlpha("in.tif", 1);
  Clean("plain.tif", "plain-out.tif");
  Clean("in.tif", "out.tif");
  EXPECT_EQ(1u, setAlpha("out.tif", 2));
  EXPECT_EQ(Load(folder / "plain-out.tif"), Load(folder / "out.tif"));
}

TEST_F(Metadata, JpegSegmentsGoAlongByteForByte) {
  Save(DescribedScreen(), folder / "in.jpg", "[Q=97]");
  std::string file = ReadWholeFile(folder / "in.jpg");
  using std::operator""s;
  const std::string segments =
      "\xFF\xFE\x00\x09"
      "comment"s +
      "\xFF\xE9\x00\x08"
      "private"s.substr(0, 10);
  WriteWholeFile(folder / "in.jpg", file.insert(2, segments + "\xFF\xE0\x00\x10JFIF\0\1\1\0\0\1\0\1\0\0"s));
  Clean("in.jpg", "out.jpg");
  EXPECT_NE(std::string::npos, ReadWholeFile(folder / "out.jpg").find(segments));
  EXPECT_EQ(6u, ReadWholeFile(folder / "out.jpg").find("JFIF"));  // the format wants its own segment in front
  const ImagePointer before = Open(folder / "in.jpg"), after = Open(folder / "out.jpg");
  EXPECT_EQ(Blob(before, VIPS_META_EXIF_NAME), Blob(after, VIPS_META_EXIF_NAME));
}

TEST_F(Metadata, JpegKeepsItsQualityAndChroma) {
  for (const char* options : {"[Q=96,subsample-mode=off]", "[Q=98,subsample-mode=on,interlace]"}) {
    Save(DrawScreen(3, 0, 8), folder / "in.jpg", options);
    Clean("in.jpg", "out.jpg");
    const auto facts = [&](const char* name) {
      const int file = open((folder / name).c_str(), O_RDONLY);
      const auto compression = ReadJpegCompression(file).value();
      close(file);
      return std::tuple(compression.quality, compression.chromaAcross, compression.chromaDown,
                        compression.isProgressive);
    };
    EXPECT_EQ(facts("in.jpg"), facts("out.jpg")) << options;
    std::filesystem::remove(folder / "out.jpg");
  }
}

TEST_F(Metadata, TiffTagsThatTheLibraryDropsGoAlong) {
  constexpr uint16_t kAscii = 2, kUndefined = 7, kRational = 5;
  const auto ascii = [](uint16_t tag, const std::string& text) {
    return TiffTag{tag, kAscii, text.size() + 1,
                   std::vector<uint8_t>(text.c_str(), text.c_str() + text.size() + 1)};
  };
  DescriptiveTags tags;
  tags.main = {ascii(271, "ScanCo"),
               ascii(306, "2020:01:02 03:04:05"),
               {kTiffIptc, kUndefined, 7, {0x1C, 2, 105, 0, 2, 'h', 'h'}}};
  tags.exif = {{33434, kRational, 1, {1, 0, 0, 0, 100, 0, 0, 0}}, ascii(36867, "2019:01:02 03:04:05")};
  tags.gps = {ascii(1, "N")};
  Save(DrawScreen(3, 0, 8), folder / "in.tif",
       "[compression=lzw,predictor=horizontal,tile,tile-width=128,tile-height=64]");
  int file = open((folder / "in.tif").c_str(), O_RDWR);
  ASSERT_TRUE(EditTiffPages(file, [&](size_t) { return TiffPageEdit{{}, tags}; }));
  close(file);
  Clean("in.tif", "out.tif");

  file = open((folder / "out.tif").c_str(), O_RDONLY);
  const auto structure = TiffStructure::Read(ByteSource(file));
  ASSERT_TRUE(structure);
  const DescriptiveTags kept = structure->Descriptive(0);
  const auto bytesOf = [](const std::vector<TiffTag>& list) {
    std::vector<std::pair<int, std::vector<uint8_t>>> all;
    for (const TiffTag& tag : list) all.emplace_back(tag.tag, tag.bytes);
    std::sort(all.begin(), all.end());
    return all;
  };
  EXPECT_EQ(bytesOf(tags.main), bytesOf(kept.main));
  EXPECT_EQ(bytesOf(tags.exif), bytesOf(kept.exif));
  EXPECT_EQ(bytesOf(tags.gps), bytesOf(kept.gps));
  constexpr uint64_t kLzw = 5;
  EXPECT_EQ(kLzw, structure->Value(0, kTiffCompression, 0));
  EXPECT_EQ(128u, structure->Value(0, kTiffTileWidth, 0));
  EXPECT_EQ(2u, structure->Value(0, kTiffPredictor, 1));
  close(file);
  EXPECT_LT(ScreenAmplitude(Load(folder / "out.tif"), 0), kGone);
}

}  // namespace
}  // namespace tessaline::cli
