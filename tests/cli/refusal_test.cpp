// Everything that is refused: the status, one line that names the file and the reason, and nothing written.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "cli/pnm_extent.h"
#include "cli/tiff_tags.h"
#include "tests/cli/pictures.h"
#include "tests/cli/program.h"

namespace tessaline::cli {
namespace {

class Refusals : public testing::Test {
 protected:
  // `arguments` in place of INPUT; OUTPUT follows.
  void ExpectRefusal(int status, const std::string& input, const std::string& words) {
    const Ended ended = RunProgram({"-a", "97", folder / input, folder / "out.png"});
    EXPECT_EQ(status, ended.status) << input << ": " << ended.err;
    EXPECT_EQ(1, ended.ErrorLines()) << ended.err;
    EXPECT_NE(std::string::npos, ended.err.find(input)) << ended.err;
    EXPECT_NE(std::string::npos, ended.err.find(words)) << ended.err;
    EXPECT_EQ("", ended.out);
    EXPECT_FALSE(std::filesystem::exists(folder / "out.png")) << input;
    for (const std::string& name : folder.Names())
      EXPECT_EQ(std::string::npos, name.find(".tessaline-")) << name;
  }
  TemporaryFolder folder;
};

TEST_F(Refusals, FilesThatAreNoPicture) {
  WriteWholeFile(folder / "text.png", "hello, this is a letter\n");
  WriteWholeFile(folder / "empty.png", "");
  WriteWholeFile(folder / "nothing.png", "P5\n0 120\n255\n");
  std::filesystem::create_directory(folder / "folder.png");
  ASSERT_EQ(0, mkfifo((folder / "pipe.png").c_str(), 0600));
  ExpectRefusal(3, "missing.png", "does not exist");
  ExpectRefusal(3, "text.png", "not a picture");
  ExpectRefusal(3, "empty.png", "empty");
  ExpectRefusal(3, "nothing.png", "no pixels");
  ExpectRefusal(3, "folder.png", "folder");
  ExpectRefusal(3, "pipe.png", "not a file");
}

TEST_F(Refusals, KindsThatTheRunDoesNotTake) {
  const ImagePointer image = ImageOf(DrawScreen(3, 1, 8, 64, 48));
  const auto saveAs = [&](VipsBandFormat format, const char* name) {
    VipsImage* cast = nullptr;
    ASSERT_EQ(0, vips_cast(image.get(), &cast, format, nullptr));
    Save(ImagePointer(cast), folder / name);
  };
  saveAs(VIPS_FORMAT_DOUBLE, "double.tif");
  saveAs(VIPS_FORMAT_INT, "int.tif");
  saveAs(VIPS_FORMAT_USHORT,
         "half.tif");  // floating-point samples of 16 bits, which the decoder does not know
  const int half = open((folder / "half.tif").c_str(), O_RDWR);
  const TiffTag floats = {kTiffSampleFormat, 3, 4, {3, 0, 3, 0, 3, 0, 3, 0}};
  EXPECT_TRUE(EditTiffPages(half, [&](size_t) {
    return TiffPageEdit{{kTiffSampleFormat}, {{floats}, {}, {}, {}}};
  }));
  close(half);
  ExpectRefusal(4, "half.tif", "floating-point");
  VipsImage* bright = nullptr;
  ASSERT_EQ(0, vips_linear1(image.get(), &bright, 1e5, 0, nullptr));
  Save(ImagePointer(bright), folder / "bright.tif");
  const Ended refused = RunProgram({folder / "bright.tif", folder / "out.tif"});
  EXPECT_EQ(4, refused.status);
  EXPECT_NE(std::string::npos, refused.err.find("its sample at x 0, y 0")) << refused.err;
  ExpectRefusal(4, "double.tif", "16 bits");
  ExpectRefusal(4, "int.tif", "16 bits");
}

TEST_F(Refusals, MoreThanAFormatHolds) {
  WriteWholeFile(folder / "wide.pgm", "P5\n65501 1\n255\n" + std::string(65501, 'x'));
  for (const char* output : {"wide.jpg", "wide.webp"}) {
    const Ended ended = RunProgram({folder / "wide.pgm", folder / output});
    EXPECT_EQ(5, ended.status) << ended.err;
    EXPECT_NE(std::string::npos, ended.err.find("write PNG or TIFF")) << ended.err;
  }
  EXPECT_EQ(0, RunProgram({folder / "wide.pgm", folder / "wide.png"}).status);
}

TEST_F(Refusals, EveryWayToCutAFileShort) {
  struct Written {
    const char* name;
    const char* options;
  };
  const Written files[] = {{"a.png", ""},  {"b.png", "[interlace]"},
                           {"a.jpg", ""},  {"b.jpg", "[interlace]"},
                           {"a.tif", ""},  {"b.tif", "[compression=deflate,tile]"},
                           {"a.webp", ""}, {"a.ppm", ""},
                           {"a.jxl", ""},  {"g.jpg", ""}};
  for (const Written& written : files) {
    Save(DrawScreen(written.name[0] == 'g' ? 1 : 3, 0, 8, 100, 80), folder / written.name, written.options);
    ASSERT_EQ(0, RunProgram({"--dry-run", folder / written.name}).status) << written.name;
    const std::string whole = ReadWholeFile(folder / written.name);
    const std::string cut = "cut" + std::string(written.name).substr(1);
    for (const size_t kept :
         {whole.size() - 1, whole.size() - 12, whole.size() * 3 / 4, whole.size() / 8, size_t{20}}) {
      SCOPED_TRACE(testing::Message() << written.name << " cut to " << kept << " of " << whole.size());
      WriteWholeFile(folder / cut, whole.substr(0, kept));
      ExpectRefusal(3, cut, "");
    }
  }
}

// Of the six kinds of PNM, each with a comment in its header. The picture library takes some cuts for whole
// pictures.
TEST_F(Refusals, PnmFilesCutAnywhere) {
  const std::pair<std::string, std::string> wholes[] = {
      {"P1\n# c\n9 1\n", "0 1 0 1 0 1 0 1 0"},       {"P2\n# c\n2 2\n255\n", "7 7 7 7"},
      {"P3\n# c\n1 2\n999\n", "7 7 7 7 7 7"},        {"P4\n# c\n9 4\n", std::string(8, 'x')},
      {"P5\n# c\n9 4\n255\n", std::string(36, 'x')}, {"P6\n# c\n9 4\n999\n", std::string(216, 'x')}};
  for (const auto& [header, samples] : wholes) {
    const std::string whole = header + samples;
    for (size_t kept = 2; kept <= whole.size(); ++kept) {
      WriteWholeFile(folder / "cut.pnm", whole.substr(0, kept));
      const int descriptor = open((folder / "cut.pnm").c_str(), O_RDONLY | O_CLOEXEC);
      const char* const missing = MissingFromPnm(descriptor, static_cast<off_t>(kept));
      close(descriptor);
      EXPECT_STREQ(kept < header.size()   ? "its header is incomplete"
                   : kept == whole.size() ? nullptr
                                          : "its end is missing",
                   missing)
          << whole << kept;
    }
    WriteWholeFile(folder / "cut.pnm", whole.substr(0, whole.size() - 1));
    ExpectRefusal(3, "cut.pnm", "its end is missing");
  }
}

struct Usage {
  std::vector<std::string> arguments;
  const char* words;
};

TEST(Usage, RangesAndNumbers) {
  const Usage usages[] = {
      {{"-a", "101", "in.png", "out.png"}, "0..100 percent"},
      {{"--acceptance=-1", "in.png", "out.png"}, "0..100 percent"},
      {{"-a", "nan", "in.png", "out.png"}, "not 'nan'"},
      {{"-a", "", "in.png", "out.png"}, "--acceptance needs a value"},
      {{"-n", "0.5", "in.png", "out.png"}, "1..16 spectrum cells"},
      {{"-p", "inf", "in.png", "out.png"}, "1..128 pixels"},
      {{"-j", "0", "in.png", "out.png"}, "1..256"},
      {{"-j", "2.5", "in.png", "out.png"}, "whole number"},
      {{"--sharpen", "in.png", "out.png"}, "--sharpen"},
      {{}, "INPUT is missing"},
      {{"in.png"}, "OUTPUT is missing"},
      {{"a.png", "b.png", "c.png"}, "--output-dir"},
      {{"in.png", "out"}, "no extension"},
      {{"in.png", "out.gif"}, "GIF is read but not written"},
      {{"in.png", "out.png", "--mask", "out.png"}, "same file"},
      {{"in.png", "out.png", "--mask", "./sub/../out.png"}, "same file"},
      {{"in.png", "out.png", "--spectrum", "s.jpg"}, "writes PNG"},
      {{"a/x.png", "b/x.png", "--output-dir", "d"}, "both become d/x.png"},
      {{"-a", "auto", "--sensitivity", "2", "in.png", "out.png"}, "--sensitivity"},
      {{"-a", "90", "--sensitivity", "1", "in.png", "out.png"}, "--sensitivity"},
      {{"stream", "--height", "4", "--pix-fmt", "gray", "-", "-"}, "--width is missing"},
      {{"stream", "--width", "4", "--height", "4", "--pix-fmt", "yuv420p", "-", "-"},
       "gray, rgb24, gray16le, rgb48le"},
      {{"stream", "--width", "4", "--height", "4", "--pix-fmt", "gray", "--first", "3", "--last", "2", "-",
        "-"},
       "--last 2 lies before --first 3"},
  };
  for (const Usage& usage : usages) {
    const Ended ended = RunProgram(usage.arguments);
    EXPECT_EQ(2, ended.status) << usage.words;
    EXPECT_EQ(1, ended.ErrorLines()) << ended.err;
    EXPECT_NE(std::string::npos, ended.err.find(usage.words)) << ended.err;
    EXPECT_EQ("", ended.out);
  }
}

}  // namespace
}  // namespace tessaline::cli
