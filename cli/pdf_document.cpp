#include "cli/pdf_document.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <new>
#include <qpdf/Pipeline.hh>
#include <qpdf/QPDFExc.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>
#include <qpdf/QPDFWriter.hh>
#include <set>
#include <string_view>

#include "cli/pdf_placement.h"
#include "cli/refusal.h"

namespace tessaline::cli {
namespace {

Refusal DamagedDocument(const std::string& name, const std::string& detail) {
  return Refusal(ExitStatus::kUnreadable, name,
                 "is damaged or cut short" + (detail.empty() ? "" : " (" + detail + ")") +
                     "; get a whole copy of the document");
}

Refusal Encrypted(const std::string& name) {
  return Refusal(ExitStatus::kUnsupported, name,
                 "is an encrypted PDF document; save it without password and encryption first");
}

// The mark at the end; behind it a few bytes may follow.
bool ReachesItsEnd(const InputFile& file) {
  constexpr off_t kTail = 1024;
  std::string tail(static_cast<size_t>(std::min(kTail, file.size())), '\0');
  const off_t at = file.size() - static_cast<off_t>(tail.size());
  return pread(file.descriptor(), tail.data(), tail.size(), at) == static_cast<ssize_t>(tail.size()) &&
         tail.rfind("%%EOF") != std::string::npos;
}

// A field or one of those below it that holds a signature.
bool IsSignedField(QPDFObjectHandle field, bool isSignature, std::set<QPDFObjGen>* seen) {
  if (!field.isDictionary() || (field.isIndirect() && !seen->insert(field.getObjGen()).second)) return false;
  if (field.hasKey("/FT")) isSignature = field.getKey("/FT").isNameAndEquals("/Sig");
  if (isSignature && field.hasKey("/V")) return true;
  QPDFObjectHandle below = field.getKey("/Kids");
  for (int i = 0; below.isArray() && i < below.getArrayNItems(); ++i)
    if (IsSignedField(below.getArrayItem(i), isSignature, seen)) return true;
  return false;
}

// Into the file. The library must not be left by an exception half-way, so a failure is kept until it is
// done.
class OutputSink final : public Pipeline {
 public:
  explicit OutputSink(int descriptor) : Pipeline("output", nullptr), descriptor_(descriptor) {}
  void write(const unsigned char* data, size_t count) override {
    constexpr size_t kBlock = size_t{1} << 16;
    block_.append(reinterpret_cast<const char*>(data), count);
    if (block_.size() >= kBlock) Flush();
  }
  void finish() override { Flush(); }
  int error() const { return error_; }

 private:
  void Flush() {
    if (error_ == 0 && !WriteFully(descriptor_, block_.data(), block_.size())) error_ = errno;
    block_.clear();
  }

  int descriptor_;
  std::string block_;
  int error_ = 0;
};

void CopyPart(int file, off_t begin, off_t end, Pipeline* target) {
  std::vector<unsigned char> block(size_t{1} << 16);
  while (begin < end) {
    const auto wanted = static_cast<size_t>(std::min<off_t>(end - begin, static_cast<off_t>(block.size())));
    const ssize_t count = pread(file, block.data(), wanted, begin);
    if (count <= 0) throw std::runtime_error("a cleaned picture cannot be read back");
    target->write(block.data(), static_cast<size_t>(count));
    begin += count;
  }
  target->finish();
}

}  // namespace

bool IsPdf(const InputFile& file) {
  constexpr std::string_view kMark = "%PDF-";
  char head[kMark.size()];
  return pread(file.descriptor(), head, sizeof head, 0) == static_cast<ssize_t>(sizeof head) &&
         std::string_view(head, sizeof head) == kMark;
}

// What the library says in its own way, in this program's.
template <typename Work>
void PdfDocument::Guarded(const Work& work) {
  try {
    work();
  } catch (const Refusal&) {
    throw;
  } catch (const std::bad_alloc&) {
    throw Refusal(ExitStatus::kOutOfMemory, file_.name(), "not enough memory for the document");
  } catch (const QPDFExc& error) {
    if (error.getErrorCode() == qpdf_e_password || pdf_.isEncrypted()) throw Encrypted(file_.name());
    throw DamagedDocument(file_.name(), error.getMessageDetail());
  } catch (const std::exception& error) {
    throw DamagedDocument(file_.name(), error.what());
  }
}

PdfDocument::PdfDocument(const InputFile& file) : file_(file) {
  LeavePictureCodingsAlone();
  pdf_.setSuppressWarnings(true);
  pdf_.setAttemptRecovery(false);
  Guarded([this] {
    Read();
    FindImages();
  });
}

void PdfDocument::Read() {
  if (!ReachesItsEnd(file_)) throw DamagedDocument(file_.name(), "its end is missing");
  FILE* const stream = fdopen(dup(file_.descriptor()), "rb");
  if (stream == nullptr) throw std::bad_alloc();
  pdf_.processFile(file_.name().c_str(), stream, true);
  if (pdf_.isEncrypted()) throw Encrypted(file_.name());
  pdf_.getAllObjects();  // so that damage anywhere is known now
  RefuseWarnings();
  RefuseSigned();
}

void PdfDocument::RefuseWarnings() {
  const std::vector<QPDFExc> warnings = pdf_.getWarnings();
  if (!warnings.empty()) throw DamagedDocument(file_.name(), warnings[0].getMessageDetail());
}

void PdfDocument::RefuseSigned() {
  QPDFObjectHandle root = pdf_.getRoot();
  bool isSigned = root.hasKey("/Perms");  // rights that are granted under a signature
  QPDFObjectHandle form = root.getKey("/AcroForm");
  QPDFObjectHandle fields = form.isDictionary() ? form.getKey("/Fields") : form;
  std::set<QPDFObjGen> seen;
  for (int i = 0; fields.isArray() && i < fields.getArrayNItems(); ++i)
    isSigned = isSigned || IsSignedField(fields.getArrayItem(i), false, &seen);
  if (!isSigned) return;
  throw Refusal(ExitStatus::kUnsupported, file_.name(),
                "is a signed PDF document, and its signature would not hold for cleaned pictures; print it "
                "into a new PDF document first, or take the pictures out");
}

void PdfDocument::FindImages() {
  std::vector<QPDFPageObjectHelper> pages = QPDFPageDocumentHelper(pdf_).getAllPages();
  pages_ = static_cast<int>(pages.size());
  std::set<QPDFObjGen> seen;
  for (int page = 0; page < pages_; ++page) {
    pages[static_cast<size_t>(page)].forEachXObject(
        true, [&](QPDFObjectHandle& object, QPDFObjectHandle&, const std::string&) {
          if (!object.isImage(false) || !seen.insert(object.getObjGen()).second) return;
          images_.push_back(DescribePdfImage(object));
          images_.back().page = page;
        });
  }
  RefuseWarnings();
  Placements placements;
  for (const QPDFPageObjectHelper& page : pages) AddPlacements(page, &placements);
  pdf_.getWarnings();  // of content that could not be followed; it stays as it is
  for (PdfImage& image : images_) {
    const auto placed = placements.find(image.stream.getObjGen());
    if (placed == placements.end() || placed->second.width <= 0 || placed->second.height <= 0) continue;
    image.resolution =
        Resolution{image.kind.width / placed->second.width, image.kind.height / placed->second.height};
  }
}

void PdfDocument::Replace(const PdfImage& image, const PdfFilter& filter, int file, off_t begin, off_t end) {
  QPDFObjectHandle stream = image.stream;
  stream.getDict().removeKey("/DL");  // how long the data were decoded
  stream.getDict().replaceKey("/BitsPerComponent", QPDFObjectHandle::newInteger(image.kind.bits));
  stream.replaceStreamData([=](Pipeline* target) { CopyPart(file, begin, end, target); }, filter.name,
                           filter.parameters);
}

void PdfDocument::Write(OutputFile* output) {
  file_.DemandUnchanged();
  Guarded([&] {
    OutputSink sink(output->descriptor());
    QPDFWriter writer(pdf_);
    writer.setOutputPipeline(&sink);
    writer.setStreamDataMode(qpdf_s_preserve);
    writer.setObjectStreamMode(qpdf_o_preserve);
    writer.setLinearization(pdf_.isLinearized());
    writer.setNewlineBeforeEndstream(true);  // which PDF/A asks for
    writer.setDeterministicID(true);         // the first half of the ID stays, the second tells the contents
    writer.write();
    if (sink.error() != 0) {
      throw Refusal(ExitStatus::kCannotWrite, output->path(),
                    std::string("cannot be written: ") + strerror(sink.error()));
    }
    RefuseWarnings();
  });
}

}  // namespace tessaline::cli
