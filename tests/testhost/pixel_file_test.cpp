#include "testhost/pixel_file.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "testhost/host_refusal.h"
#include "tests/glue/scratch_folder.h"

namespace tessaline::testhost {
namespace {

class PictureFile : public testing::Test {
 protected:
  std::string Path(const std::string& name) const { return folder_.path() + "/" + name; }
  void Store(const std::string& name, const std::string& bytes) const {
    std::ofstream(Path(name), std::ios::binary) << bytes;
  }
  std::string FaultOf(const std::string& name, const std::string& bytes) const {
    Store(name, bytes);
    try {
      ReadPictureFile(Path(name));
    } catch (const Refusal& refusal) {
      EXPECT_EQ(ExitStatus::kUnreadable, refusal.status());
      return std::string(refusal.what()).substr(Path(name).size());
    }
    return "";
  }

  ScratchFolder folder_;
};

// All levels that the white level allows, and no symmetry by which a swapped axis or plane could pass.
Picture MakePicture(ColourSpace space, int32_t extraPlanes, uint16_t white) {
  Picture picture = {61, 43, space, extraPlanes, white, {}};
  uint32_t state = 1;
  for (size_t i = 0; i < picture.RowSamples() * picture.height; ++i) {
    state = state * 1664525 + 1013904223;
    picture.samples.push_back(static_cast<uint16_t>((state >> 8) % (white + 1u)));
  }
  picture.samples[0] = white;
  return picture;
}

void ExpectSame(const Picture& a, const Picture& b, const std::string& what) {
  EXPECT_TRUE(a.width == b.width && a.height == b.height && a.space == b.space &&
              a.extraPlanes == b.extraPlanes && a.white == b.white)
      << what;
  EXPECT_TRUE(a.samples == b.samples) << what;
}

TEST_F(PictureFile, EveryFormatGivesBackWhatItWasGiven) {
  using enum ColourSpace;
  const struct {
    const char* extension;
    std::vector<ColourSpace> spaces;
    int32_t mostExtraPlanes;
    std::vector<uint16_t> whites;
  } formats[] = {
      {".png", {kGrey, kRgb}, 1, {kWhite8, kWhiteFile16}},
      {".pam", {kGrey, kRgb, kCmyk, kLab}, 2, {kWhite8, kWhiteHost16, kWhiteFile16}},
      {".PGM", {kGrey}, 0, {kWhite8, kWhiteHost16, kWhiteFile16}},
      {".ppm", {kRgb}, 0, {kWhite8, kWhiteHost16, kWhiteFile16}},
  };
  for (const auto& format : formats) {
    for (const ColourSpace space : format.spaces) {
      for (int32_t extraPlanes = 0; extraPlanes <= format.mostExtraPlanes; ++extraPlanes) {
        for (const uint16_t white : format.whites) {
          const Picture picture = MakePicture(space, extraPlanes, white);
          const std::string path = Path(std::string("picture") + format.extension);
          WritePictureFile(path, picture);
          ExpectSame(picture, ReadPictureFile(path),
                     format.extension + std::to_string(static_cast<int>(space)) +
                         std::to_string(extraPlanes) + " " + std::to_string(white));
        }
      }
    }
  }
}

TEST_F(PictureFile, RefusalsSayWhatIsWrong) {
  EXPECT_EQ(": is neither PNG nor PNM nor PAM", FaultOf("a", "GIF89a"));
  EXPECT_EQ(": ends before its last pixel", FaultOf("a", "P5\n3 2\n255\n12345"));
  EXPECT_EQ("", FaultOf("a", "P5\n# a comment\n3 2 255\n123456"));
  EXPECT_EQ(": has MAXVAL 100; 255, 32768 and 65535 are read", FaultOf("a", "P5 3 2 100\n123456"));
  EXPECT_EQ(": has a sample above its MAXVAL", FaultOf("a", "P5 1 1 32768\n\xFF\xFF"));
  EXPECT_EQ(": is a P4 file; of PNM, P5, P6 and P7 are read", FaultOf("a", "P4 8 1\n1"));
  EXPECT_EQ(": has no pixels", FaultOf("a", "P5 0 5 255\n"));
  EXPECT_EQ(": is too large: 300000 x 300000", FaultOf("a", "P5 300000 300000 255\n"));
  EXPECT_EQ(": has a PAM header without ENDHDR", FaultOf("a", "P7\nWIDTH 3\n"));
  EXPECT_EQ(": has TUPLTYPE XYZ; GRAYSCALE, RGB, CMYK and LAB are known",
            FaultOf("a", "P7\nWIDTH 1\nHEIGHT 1\nDEPTH 3\nMAXVAL 255\nTUPLTYPE XYZ\nENDHDR\nabc"));
  EXPECT_EQ(": says CMYK and has only 3 planes",
            FaultOf("a", "P7\nWIDTH 1\nHEIGHT 1\nDEPTH 3\nMAXVAL 255\nTUPLTYPE CMYK\nENDHDR\nabc"));
  EXPECT_TRUE(FaultOf("a", "\x89PNG\r\n\x1A\nnonsense").starts_with(": damaged PNG"));
}

}  // namespace
}  // namespace tessaline::testhost
