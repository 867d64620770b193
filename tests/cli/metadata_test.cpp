// What describes a picture goes along with it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <unistd.h>
// needs what stands above
#include <jpeglib.h>

#include "cli/jpeg_file.h"
#include "cli/tiff_tags.h"
#include "tests/cli/pictures.h"
#include "tests/cli/program.h"
#include "tests/support/sanitizers.h"

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
    const ImagePointer image = ImageOf(DrawScreen(3, 0, 8, 100, 80));
    vips_image_set_int(image.get(), VIPS_META_ORIENTATION, orientation);
    Save(image, folder / "in.tif");
    VipsImage* upright = nullptr;
    ASSERT_EQ(0, vips_autorot(image.get(), &upright, nullptr));
    Save(ImagePointer(upright), folder / "upright.png");
    const char* const outputs[] = {"out.png", "out.ppm", "out.jxl"};
    for (const char* output : outputs) {
      if (kIsWatched && output != outputs[orientation % 3]) continue;
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

JpegHeader HeaderOf(const std::string& path) {
  const int file = open(path.c_str(), O_RDONLY);
  const auto header = ReadJpegHeader(file);
  close(file);
  return header.value();
}

// Inks also from files of the other forms that there are: YCCK, and inks that no marker calls inverted.
TEST_F(Metadata, JpegKeepsTablesSamplingAndColoursAndInksTheirValues) {
  using std::operator""s;
  VipsBlob* blob = nullptr;
  ASSERT_EQ(0, vips_profile_load("cmyk", &blob, nullptr));
  size_t size = 0;
  const auto* const bytes = static_cast<const uint8_t*>(vips_blob_get(blob, &size));
  const std::vector<uint8_t> profile(bytes, bytes + size);
  vips_area_unref(VIPS_AREA(blob));
  struct Form {
    int colourSpace, across, down;
    bool isProgressive, isMarked;
  };
  for (const Form& form : {Form{JCS_YCbCr, 2, 1, true, true}, Form{JCS_RGB, 1, 1, false, true},
                           Form{JCS_YCCK, 2, 2, false, true}, Form{JCS_CMYK, 1, 2, false, true},
                           Form{JCS_CMYK, 1, 1, true, false}}) {
    SCOPED_TRACE(testing::Message() << form.colourSpace << form.isMarked);
    const bool hasInks = form.colourSpace == JCS_CMYK || form.colourSpace == JCS_YCCK;
    Picture drawn = DrawScreen(3, hasInks, 8);
    PageKind kind = {drawn.width, drawn.height, hasInks ? ColourModel::kCmyk : ColourModel::kRgb};
    JpegHeader like;
    like.colourSpace = form.colourSpace;
    like.isProgressive = form.isProgressive;
    like.components = {{form.across, form.down, 0}, {1, 1, 1}, {1, 1, 1}};
    if (hasInks) like.components.push_back({form.across, form.down, 0});
    like.tables[0].assign(64, 2);
    like.tables[1].assign(64, 3);  // those of no quality
    OutputFile file(folder / "in.jpg", true, {});
    WriteJpeg(
        kind, {&like, {}}, {}, profile,
        [&](int32_t y, void* row) {
          std::copy_n(drawn.samples.begin() + y * drawn.width * drawn.channels, drawn.width * drawn.channels,
                      static_cast<uint8_t*>(row));
        },
        &file);
    file.Commit();
    if (!form.isMarked) {
      std::string whole = ReadWholeFile(folder / "in.jpg");
      WriteWholeFile(folder / "in.jpg", whole.erase(whole.find("\xFF\xEE\0\x0E"s), 16));
      for (uint16_t& ink : drawn.samples) ink = 255 - ink;
    }
    ASSERT_EQ(0, RunProgram({"-f", "-a", "99", folder / "in.jpg", folder / "out.jpg"}).status);
    const JpegHeader before = HeaderOf(folder / "in.jpg"), after = HeaderOf(folder / "out.jpg");
    EXPECT_EQ(std::tuple(form.colourSpace, form.isProgressive),
              std::tuple(after.colourSpace, after.isProgressive));
    EXPECT_EQ(like.components, after.components);
    EXPECT_EQ(before.tables, after.tables);
    if (!hasInks) continue;
    for (const auto& [from, to] : {std::pair("in.jpg", "of.tif"), std::pair("of.tif", "back.jpg")}) {
      ASSERT_EQ(0, RunProgram({"-f", "-a", "0", folder / from, folder / to}).status);
      EXPECT_EQ(std::string(profile.begin(), profile.end()), Blob(Open(folder / to), VIPS_META_ICC_NAME))
          << to;
      const Picture read = Load(folder / to);
      for (int ink = 0; ink < 4; ++ink) {
        double sum = 0;
        for (size_t i = static_cast<size_t>(ink); i < drawn.samples.size(); i += 4)
          sum += std::abs(read.samples[i] - drawn.samples[i]);
        EXPECT_LT(4 * sum / static_cast<double>(drawn.samples.size()), form.across * form.down > 1 ? 14 : 2)
            << to << ink;
      }
    }
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
