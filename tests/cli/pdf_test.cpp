// PDF documents: their pictures are cleaned as pictures of their own are, and nothing else changes.
#include <gtest/gtest.h>

#include <cstring>
#include <qpdf/Buffer.hh>
#include <qpdf/Pl_DCT.hh>
#include <qpdf/Pl_String.hh>
#include <qpdf/QPDF.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>
#include <qpdf/QPDFWriter.hh>

#include "tests/cli/pictures.h"
#include "tests/cli/program.h"

namespace tessaline::cli {
namespace {

std::string BytesOf(const Picture& picture) {
  std::string bytes;
  for (const uint16_t sample : picture.samples) {
    if (picture.bits == 16) bytes += static_cast<char>(sample >> 8);
    bytes += static_cast<char>(sample);
  }
  return bytes;
}

std::string JpegOf(const Picture& picture) {
  std::string jpeg;
  Pl_String bytes("", nullptr, jpeg);
  Pl_DCT coder("", &bytes, static_cast<unsigned>(picture.width), static_cast<unsigned>(picture.height), 4,
               JCS_CMYK);
  coder.writeString(BytesOf(picture));
  coder.finish();
  return jpeg;
}

using Object = QPDFObjectHandle;

class Documents : public testing::Test {
 protected:
  // An image XObject; `more` are further entries of its dictionary.
  Object Image(const Picture& picture, const std::string& data, const std::string& more) {
    Object image = pdf.newStream(data);
    image.replaceDict(Object::parse("<< /Type /XObject /Subtype /Image /Width " +
                                    std::to_string(picture.width) + " /Height " +
                                    std::to_string(picture.height) + " /BitsPerComponent " +
                                    std::to_string(picture.bits) + " " + more + " >>"));
    return image;
  }

  // Two pages with everything that scans come with, in a form of the library's own.
  void Build(const std::string& path, const std::function<void(QPDFWriter&)>& form = nullptr) {
    pdf.emptyPDF();
    grey = Image(screen, BytesOf(screen), "/ColorSpace /DeviceGray");
    inks = Image(ink, JpegOf(ink), "/ColorSpace /DeviceCMYK /Filter /DCTDecode /Decode [1 0 1 0 1 0 1 0]");
    tessaline::cli::Save(colours, folder / "deep.jp2", "[lossless]");
    deep = Image(colours, ReadWholeFile(folder / "deep.jp2"),
                 "/ColorSpace [/CalRGB << /WhitePoint [1 1 1] >>] /Filter /JPXDecode /Intent /Perceptual");
    deep.getDict().replaceKey("/SMask", Image(screen, BytesOf(screen), "/ColorSpace /DeviceGray"));
    const Object bits = Image({400, 300, 1, 1, {}}, std::string(50 * 300, '\x55'), "/ImageMask true");
    const Object plain = Image(unscreened, BytesOf(unscreened), "/ColorSpace /DeviceGray");
    Object nested = pdf.newStream("q 2 0 0 2 0 0 cm /Deep Do Q");
    nested.replaceDict(Object::parse("<< /Type /XObject /Subtype /Form /BBox [0 0 9 9] >>"));
    nested.getDict().replaceKey("/Resources", Object::parse("<< /XObject << >> >>"));
    nested.getDict().getKey("/Resources").getKey("/XObject").replaceKey("/Deep", deep);
    for (const char* content :
         {"q 288 0 0 216 0 0 cm /Grey Do Q BT 3 Tr (text layer) Tj ET /Inks Do /Form Do",
          "/Bits Do /Plain Do /Inks Do"}) {
      Object page =
          Object::parse("<< /Type /Page /MediaBox [0 0 612 792] /Resources << /XObject << >> >> >>");
      Object drawn = page.getKey("/Resources").getKey("/XObject");
      const std::pair<const char*, Object> all[] = {
          {"/Grey", grey}, {"/Inks", inks}, {"/Form", nested}, {"/Bits", bits}, {"/Plain", plain}};
      for (const auto& [name, object] : all) drawn.replaceKey(name, object);
      page.replaceKey("/Contents", pdf.newStream(content));
      QPDFPageDocumentHelper(pdf).addPage(pdf.makeIndirectObject(page), false);
    }
    pdf.getRoot().replaceKey("/Outlines", Object::parse("<< /Count 0 /Title (kept) >>"));
    pdf.getTrailer().replaceKey("/Info", pdf.makeIndirectObject(Object::parse("<< /ModDate (D:2001) >>")));
    pdf.getTrailer().replaceKey("/ID", Object::parse("[<6162> <6364>]"));
    Save(path, form);
  }
  void Save(const std::string& path, const std::function<void(QPDFWriter&)>& form) {
    QPDFWriter writer(pdf, path.c_str());
    writer.setStreamDataMode(qpdf_s_preserve);
    writer.setDeterministicID(true);
    if (form) form(writer);
    writer.write();
  }

  TemporaryFolder folder;
  QPDF pdf;
  const Picture screen = DrawScreen(1, 0, 8), ink = DrawScreen(3, 1, 8), colours = DrawScreen(3, 0, 16),
                unscreened = DrawUnscreened();
  Object grey, inks, deep;
};

// As they stand, or decoded.
std::string DataOf(Object stream, bool isDecoded) {
  const auto data = isDecoded ? stream.getStreamData(qpdf_dl_specialized) : stream.getRawStreamData();
  return {reinterpret_cast<const char*>(data->getBuffer()), data->getSize()};
}

TEST_F(Documents, PicturesAreCleanedAsFilesAreAndEverythingElseStays) {
  Build(folder / "in.pdf");
  const Ended ended = RunProgram({"-v", "-a", kFindingAcceptance, folder / "in.pdf", folder / "out.pdf"});
  ASSERT_EQ(0, ended.status) << ended.err;
  EXPECT_NE(std::string::npos, ended.err.find("patterns in 3 of 4 pictures")) << ended.err;
  EXPECT_NE(std::string::npos, ended.err.find("26.7 lpi at 100 dpi")) << ended.err;
  tessaline::cli::Save(screen, folder / "grey.png");
  tessaline::cli::Save(colours, folder / "deep.png");
  WriteWholeFile(folder / "inks.jpg", JpegOf(ink));
  std::filesystem::create_directory(folder / "alone");
  ASSERT_EQ(0, RunProgram({"-a", kFindingAcceptance, "--output-dir", folder / "alone", folder / "grey.png",
                           folder / "deep.png", folder / "inks.jpg"})
                   .status);
  std::vector<std::string> expected = {BytesOf(Load(folder / "alone/grey.png")),
                                       ReadWholeFile(folder / "alone/inks.jpg"),
                                       BytesOf(Load(folder / "alone/deep.png"))};
  QPDF before, after;
  before.processFile((folder / "in.pdf").c_str());
  after.processFile((folder / "out.pdf").c_str());
  EXPECT_EQ(before.getTrailer().getKey("/ID").getArrayItem(0).unparse(),
            after.getTrailer().getKey("/ID").getArrayItem(0).unparse());
  // Written by one library in one order: the same objects have the same numbers.
  const std::vector<Object> olds = before.getAllObjects(), news = after.getAllObjects();
  ASSERT_EQ(olds.size(), news.size());
  for (size_t i = 0; i < olds.size(); ++i) {
    Object was = olds[i], is = news[i];
    if (!was.isStream()) {
      EXPECT_EQ(was.unparseResolved(), is.unparseResolved());
      continue;
    }
    Object oldEntries = was.getDict().shallowCopy(), newEntries = is.getDict().shallowCopy();
    if (DataOf(was, false) != DataOf(is, false)) {
      const bool isFlate = newEntries.getKey("/Filter").isNameAndEquals("/FlateDecode");
      EXPECT_EQ(1, std::erase(expected, DataOf(is, isFlate)));
      for (const char* key : {"/Filter", "/DecodeParms", "/Length"}) {
        oldEntries.removeKey(key);
        newEntries.removeKey(key);
      }
    }
    EXPECT_EQ(oldEntries.unparse(), newEntries.unparse());
  }
  EXPECT_TRUE(expected.empty());
}

TEST_F(Documents, FormAndBytesAreTheSameInEveryRunAndWhereNothingIsFound) {
  Build(folder / "in.pdf", [](QPDFWriter& writer) {
    writer.setLinearization(true);
    writer.setObjectStreamMode(qpdf_o_generate);
  });
  const std::string in = ReadWholeFile(folder / "in.pdf");
  const Ended piped =
      RunProgram({"-a", kFindingAcceptance, "--threads", "1", "--format", "pdf", "-", "-"}, in);
  ASSERT_EQ(0, RunProgram({"-a", kFindingAcceptance, folder / "in.pdf", folder / "out.pdf"}).status);
  EXPECT_EQ(ReadWholeFile(folder / "out.pdf"), piped.out);
  EXPECT_NE(std::string::npos, piped.out.find("/ObjStm"));
  QPDF after;
  after.processFile((folder / "out.pdf").c_str());
  EXPECT_TRUE(after.isLinearized());
  ASSERT_EQ(0, RunProgram({"-a", "0", folder / "in.pdf", folder / "same.pdf"}).status);
  EXPECT_EQ(in, ReadWholeFile(folder / "same.pdf"));
  // Drawings and report of each picture that is looked at.
  ASSERT_EQ(0, RunProgram({"--dry-run", "-a", "0", "--mask", folder / "m.png", folder / "in.pdf"}).status);
  EXPECT_TRUE(std::filesystem::exists(folder / "m-2-black.png"));
  EXPECT_TRUE(std::filesystem::exists(folder / "m-4.png"));
}

// Whose rows are one strip of the file that the picture is taken out into.
TEST_F(Documents, PicturesOfFewRowsAreLookedAt) {
  const Picture flat = DrawScreen(1, 0, 8, 400, 64);
  pdf.emptyPDF();
  Object page = Object::parse("<< /Type /Page /MediaBox [0 0 99 99] /Resources << /XObject << >> >> >>");
  page.getKey("/Resources")
      .getKey("/XObject")
      .replaceKey("/Flat", Image(flat, BytesOf(flat), "/ColorSpace /DeviceGray"));
  page.replaceKey("/Contents", pdf.newStream("/Flat Do"));
  QPDFPageDocumentHelper(pdf).addPage(pdf.makeIndirectObject(page), false);
  Save(folder / "in.pdf", nullptr);
  const Ended ended = RunProgram({"-a", kFindingAcceptance, folder / "in.pdf", folder / "out.pdf"});
  EXPECT_EQ(0, ended.status) << ended.err;
}

TEST_F(Documents, WhatCannotBeKeptIsRefusedUntouched) {
  const auto expectRefusal = [&](const std::string& name, int status, const std::string& words,
                                 const std::string& output = "out.pdf") {
    const Ended ended = RunProgram({"-a", kFindingAcceptance, folder / name, folder / output});
    EXPECT_EQ(status, ended.status) << name << ": " << ended.err;
    EXPECT_EQ(1, ended.ErrorLines()) << ended.err;
    EXPECT_NE(std::string::npos, ended.err.find(words)) << ended.err;
    EXPECT_FALSE(std::filesystem::exists(folder / output)) << name;
  };
  const auto encrypt = [](const char* password) {
    return [password](QPDFWriter& writer) {
      writer.setDeterministicID(false);
      writer.setR6EncryptionParameters(password, "owner", true, true, true, true, true, true, qpdf_r3p_full,
                                       true);
    };
  };
  Build(folder / "open.pdf", encrypt(""));
  Save(folder / "closed.pdf", encrypt("user"));
  Save(folder / "whole.pdf", nullptr);
  tessaline::cli::Save(screen, folder / "grey.png");
  for (const char* name : {"open.pdf", "closed.pdf"}) expectRefusal(name, 4, "encrypted");
  expectRefusal("whole.pdf", 4, "stays one", "out.png");
  expectRefusal("grey.png", 4, "is no PDF document");
  const std::string whole = ReadWholeFile(folder / "whole.pdf");
  for (const size_t kept : {whole.size() - 4, whole.size() / 2, size_t{20}}) {
    WriteWholeFile(folder / "cut.pdf", whole.substr(0, kept));
    expectRefusal("cut.pdf", 3, "damaged or cut short");
  }
  for (const auto& [was, is] : {std::pair("endobj", "endoby"), std::pair("/Kids [ 4 0 R", "/Kids [ 9 0 R")}) {
    std::string broken = whole;
    broken.replace(broken.find(was), strlen(was), is);
    WriteWholeFile(folder / "broken.pdf", broken);
    expectRefusal("broken.pdf", 3, "damaged or cut short");
  }
  const std::string jpeg = JpegOf(ink);
  inks.replaceStreamData(jpeg.substr(0, jpeg.size() / 2), Object::newName("/DCTDecode"), Object::newNull());
  Save(folder / "jpeg.pdf", nullptr);
  expectRefusal("jpeg.pdf", 3, "picture 3 (page 1): is damaged");
  pdf.getRoot().replaceKey("/AcroForm",
                           Object::parse("<< /Fields [ << /FT /Sig /V << /Type /Sig >> >> ] >>"));
  Save(folder / "signed.pdf", nullptr);
  expectRefusal("signed.pdf", 4, "signed");
}

}  // namespace
}  // namespace tessaline::cli
