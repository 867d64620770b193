#include "cli/pdf_image.h"

#include <errno.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <qpdf/Buffer.hh>
#include <qpdf/Pipeline.hh>
#include <qpdf/QPDF.hh>
#include <qpdf/QPDFStreamFilter.hh>
#include <string_view>

#include "cli/output_file.h"
#include "cli/refusal.h"

namespace tessaline::cli {
namespace {

constexpr int kLeastSide = 64;  // pixels: what is smaller shows too few repeats

constexpr char kSingleBits[] = "of single bits", kFewBits[] = "of 2 or 4 bits", kPalette[] = "with a palette",
               kSpotColours[] = "in spot colours",
               kOtherColours[] = "in colours other than grey, RGB, Lab and CMYK",
               kTransparentColour[] = "with a transparent colour",
               kOtherCoding[] = "coded in a way that is not read",
               kTooMany[] = "of more than 10,000,000 pixels on a side";

// Data of images, by the filter that stands last.
struct CodingOfFilter {
  std::string_view filter;
  PdfCoding coding;
  const char* whyNot;  // null: it is read
};
constexpr CodingOfFilter kCodings[] = {
    {"/DCTDecode", PdfCoding::kJpeg, nullptr},          {"/JPXDecode", PdfCoding::kJpeg2000, nullptr},
    {"/FlateDecode", PdfCoding::kSamples, nullptr},     {"/LZWDecode", PdfCoding::kSamples, nullptr},
    {"/RunLengthDecode", PdfCoding::kSamples, nullptr}, {"/ASCII85Decode", PdfCoding::kSamples, nullptr},
    {"/ASCIIHexDecode", PdfCoding::kSamples, nullptr},  {"/CCITTFaxDecode", PdfCoding::kSamples, kSingleBits},
    {"/JBIG2Decode", PdfCoding::kSamples, kSingleBits}};

struct ModelOfSpace {
  std::string_view space;
  ColourModel model;
};
constexpr ModelOfSpace kSpaces[] = {{"/DeviceGray", ColourModel::kGrey}, {"/CalGray", ColourModel::kGrey},
                                    {"/DeviceRGB", ColourModel::kRgb},   {"/CalRGB", ColourModel::kRgb},
                                    {"/DeviceCMYK", ColourModel::kCmyk}, {"/Lab", ColourModel::kLab}};

struct ReasonOfSpace {
  std::string_view space;
  const char* whyNot;
};
constexpr ReasonOfSpace kOtherSpaces[] = {
    {"/Indexed", kPalette}, {"/Separation", kSpotColours}, {"/DeviceN", kSpotColours}};

// What the profile calls its colours.
struct ModelOfProfile {
  std::string_view colours;
  ColourModel model;
};
constexpr ModelOfProfile kProfiles[] = {
    {"GRAY", ColourModel::kGrey}, {"RGB ", ColourModel::kRgb}, {"CMYK", ColourModel::kCmyk}};

int IntegerOf(QPDFObjectHandle dictionary, const std::string& key, int otherwise) {
  QPDFObjectHandle value = dictionary.getKey(key);
  return value.isInteger() ? value.getIntValueAsInt() : otherwise;
}

std::string NameOf(QPDFObjectHandle object) {
  return object.isName() ? object.getName() : "";
}

std::vector<double> NumbersOf(QPDFObjectHandle array) {
  std::vector<double> numbers;
  for (int i = 0; array.isArray() && i < array.getArrayNItems(); ++i) {
    QPDFObjectHandle item = array.getArrayItem(i);
    numbers.push_back(item.isNumber() ? item.getNumericValue() : 0);
  }
  return numbers;
}

std::vector<uint8_t> DataOf(QPDFObjectHandle stream) {
  const std::shared_ptr<Buffer> data = stream.getStreamData(qpdf_dl_specialized);
  return {data->getBuffer(), data->getBuffer() + data->getSize()};
}

// The filters in the order in which they decode, and the parameters of the last.
struct Filters {
  std::vector<std::string> names;
  QPDFObjectHandle lastParameters = QPDFObjectHandle::newNull();
};
Filters FiltersOf(QPDFObjectHandle dictionary) {
  Filters filters;
  QPDFObjectHandle filter = dictionary.getKey("/Filter"), parameters = dictionary.getKey("/DecodeParms");
  if (filter.isName()) filters.names = {filter.getName()};
  for (int i = 0; filter.isArray() && i < filter.getArrayNItems(); ++i)
    filters.names.push_back(NameOf(filter.getArrayItem(i)));
  if (parameters.isDictionary()) filters.lastParameters = parameters;
  const auto last = static_cast<int>(filters.names.size()) - 1;
  if (parameters.isArray() && last >= 0 && last < parameters.getArrayNItems())
    filters.lastParameters = parameters.getArrayItem(last);
  return filters;
}

const CodingOfFilter* CodingOf(const std::string& filter) {
  const auto* const row = std::find_if(std::begin(kCodings), std::end(kCodings),
                                       [&](const CodingOfFilter& coding) { return coding.filter == filter; });
  return row == std::end(kCodings) ? nullptr : row;
}

// Why the data cannot be read; null when they can.
const char* ReadCoding(const Filters& filters, PdfImage* image) {
  for (const std::string& name : filters.names) {
    const CodingOfFilter* const row = CodingOf(name);
    const bool isLast = &name == &filters.names.back();
    if (row == nullptr || (!isLast && (row->coding != PdfCoding::kSamples || row->whyNot != nullptr)))
      return kOtherCoding;
    if (row->whyNot != nullptr) return row->whyNot;
    image->coding = row->coding;
  }
  return nullptr;
}

// A grey or RGB space of one gamma for all colours; by the format 1 where none is given.
std::optional<double> GammaOf(QPDFObjectHandle calibration, const std::string& family) {
  if (family != "/CalGray" && family != "/CalRGB") return std::nullopt;
  if (!calibration.isDictionary()) return std::nullopt;
  QPDFObjectHandle told = calibration.getKey("/Gamma");
  if (told.isNumber()) return told.getNumericValue();
  const std::vector<double> gammas = NumbersOf(told);
  if (gammas.empty()) return 1.0;
  const bool areEqual = std::all_of(gammas.begin(), gammas.end(), [&](double g) { return g == gammas[0]; });
  return areEqual ? std::optional(gammas[0]) : std::nullopt;
}

const char* ReadProfile(QPDFObjectHandle stream, PdfImage* image) {
  constexpr size_t kColoursAt = 16, kHeader = 128;
  if (!stream.isStream()) return kOtherColours;
  image->profile = DataOf(stream);
  if (image->profile.size() < kHeader) return kOtherColours;
  const std::string_view colours(reinterpret_cast<const char*>(&image->profile[kColoursAt]), 4);
  for (const ModelOfProfile& row : kProfiles) {
    if (row.colours != colours) continue;
    image->kind.model = row.model;
    return IntegerOf(stream.getDict(), "/N", 0) == image->kind.colours() ? nullptr : kOtherColours;
  }
  return kOtherColours;
}

// Why the colours cannot be taken; null when they can.
const char* ReadColours(QPDFObjectHandle space, PdfImage* image) {
  const bool isArray = space.isArray() && space.getArrayNItems() > 0;
  const std::string family = NameOf(isArray ? space.getArrayItem(0) : space);
  QPDFObjectHandle details =
      isArray && space.getArrayNItems() > 1 ? space.getArrayItem(1) : QPDFObjectHandle::newNull();
  if (family == "/ICCBased") return ReadProfile(details, image);
  for (const ReasonOfSpace& row : kOtherSpaces)
    if (row.space == family) return row.whyNot;
  for (const ModelOfSpace& row : kSpaces) {
    if (row.space != family) continue;
    image->kind.model = row.model;
    image->gamma = GammaOf(details, family);
    return nullptr;
  }
  return kOtherColours;
}

const char* ReadBits(const QPDFObjectHandle& dictionary, PdfImage* image) {
  image->kind.bits = IntegerOf(dictionary, "/BitsPerComponent", image->coding == PdfCoding::kSamples ? 0 : 8);
  if (image->kind.bits == 1) return kSingleBits;
  if (image->kind.bits == 2 || image->kind.bits == 4) return kFewBits;
  const bool isTaken = image->kind.bits == 8 || (image->kind.bits == 16 && image->coding != PdfCoding::kJpeg);
  return isTaken ? nullptr : kOtherCoding;
}

// The document may say of JPEG data that their colours are coded otherwise than is usual.
bool IsUsualJpeg(const Filters& filters, const PdfImage& image) {
  if (image.kind.model == ColourModel::kLab) return false;
  QPDFObjectHandle parameters = filters.lastParameters;
  const int usual = image.kind.model == ColourModel::kCmyk ? 0 : 1;
  return image.kind.model == ColourModel::kGrey || !parameters.isDictionary() ||
         IntegerOf(parameters, "/ColorTransform", usual) == usual;
}

// The levels are colours as they are, 0 the least of each and the largest the most.
bool HasUsualDecode(QPDFObjectHandle dictionary, const PdfImage& image) {
  if (image.kind.model == ColourModel::kLab) return true;  // its ranges are the space's own
  const std::vector<double> decode = NumbersOf(dictionary.getKey("/Decode"));
  for (size_t i = 0; i < decode.size(); ++i)
    if (decode[i] != static_cast<double>(i % 2)) return false;
  return true;
}

const char* WhyNotLookedAt(QPDFObjectHandle dictionary, PdfImage* image) {
  const Filters filters = FiltersOf(dictionary);
  if (IntegerOf(dictionary, "/BitsPerComponent", 8) == 1) return kSingleBits;
  if (dictionary.hasKey("/F")) return kOtherCoding;  // in another file
  if (const char* const why = ReadCoding(filters, image)) return why;
  if (const char* const why = ReadColours(dictionary.getKey("/ColorSpace"), image)) return why;
  if (const char* const why = ReadBits(dictionary, image)) return why;
  if (dictionary.getKey("/Mask").isArray()) return kTransparentColour;
  if (image->coding == PdfCoding::kJpeg && !IsUsualJpeg(filters, *image)) return kOtherCoding;
  if (image->coding == PdfCoding::kJpeg2000 && IntegerOf(dictionary, "/SMaskInData", 0) != 0)
    return kOtherCoding;
  image->areColours = HasUsualDecode(dictionary, *image);
  return nullptr;
}

// Data that are decoded no further.
class LeftAlone final : public QPDFStreamFilter {
 public:
  bool setDecodeParms(QPDFObjectHandle) override { return true; }
  Pipeline* getDecodePipeline(Pipeline*) override { return nullptr; }
};

// Data on their way into a file: no more of them than are wanted.
class FileSink final : public Pipeline {
 public:
  FileSink(int descriptor, uint64_t most) : Pipeline("file", nullptr), descriptor_(descriptor), left_(most) {}
  void write(const unsigned char* data, size_t count) override {
    count = static_cast<size_t>(std::min<uint64_t>(count, left_));
    left_ -= count;
    if (error_ == 0 && !WriteFully(descriptor_, data, count)) error_ = errno;
  }
  void finish() override {}
  uint64_t left() const { return left_; }
  int error() const { return error_; }

 private:
  int descriptor_;
  uint64_t left_;
  int error_ = 0;
};

// The front of a TIFF file whose strips are the rows that follow it, in the byte order that PDF has.
class TiffFront {
 public:
  TiffFront(const PageKind& kind, const std::vector<uint8_t>& profile) : kind_(kind), profile_(profile) {}

  std::vector<uint8_t> Bytes() {
    constexpr uint64_t kRowsPerStrip = 64;
    const auto height = static_cast<uint64_t>(kind_.height);
    std::vector<uint64_t> offsets, counts;
    for (uint64_t row = 0; row < height; row += kRowsPerStrip) {
      offsets.push_back(row * kind_.RowBytes());
      counts.push_back(std::min(kRowsPerStrip, height - row) * kind_.RowBytes());
    }
    // A value of 8 bytes at most stands in its entry.
    const auto behind = [](size_t bytes) { return bytes > 8 ? bytes : 0; };
    const uint64_t front =
        kDirectory + 8 + kEntries * 20 + 8 + 2 * behind(8 * offsets.size()) + behind(profile_.size());
    for (uint64_t& offset : offsets) offset += front;
    for (const uint8_t byte : {'M', 'M', '\0', '\x2B', '\0', '\x08', '\0', '\0'}) bytes_.push_back(byte);
    Put(kDirectory, 8);
    Put(kEntries, 8);
    constexpr uint16_t kShort = 3, kLong = 4, kUndefined = 7, kLong8 = 16;
    const auto channels = static_cast<size_t>(kind_.channels());
    Entry(256, kLong, {static_cast<uint64_t>(kind_.width)});
    Entry(257, kLong, {height});
    Entry(258, kShort, std::vector<uint64_t>(channels, static_cast<uint64_t>(kind_.bits)));
    Entry(259, kShort, {1});
    Entry(262, kShort, {Photometric()});
    Entry(273, kLong8, offsets);
    Entry(277, kShort, {channels});
    Entry(278, kLong, {kRowsPerStrip});
    Entry(279, kLong8, counts);
    Entry(34675, kUndefined, {profile_.begin(), profile_.end()});
    Put(0, 8);
    bytes_.insert(bytes_.end(), behind_.begin(), behind_.end());
    return std::move(bytes_);
  }

 private:
  static constexpr uint64_t kDirectory = 16, kEntries = 10;

  uint64_t Photometric() const {
    constexpr uint64_t kPhotometrics[] = {1, 2, 9, 5};  // of grey, RGB, Lab round the middle, CMYK
    return kPhotometrics[static_cast<size_t>(kind_.model)];
  }

  static void Put(uint64_t value, size_t count, std::vector<uint8_t>* target) {
    for (size_t shift = 8 * count; shift > 0; shift -= 8)
      target->push_back(static_cast<uint8_t>(value >> (shift - 8)));
  }
  void Put(uint64_t value, size_t count) { Put(value, count, &bytes_); }

  void Entry(uint64_t tag, uint16_t type, const std::vector<uint64_t>& values) {
    const size_t bytes = type == 3 ? 2 : type == 4 ? 4 : type == 16 ? 8 : 1;
    std::vector<uint8_t> value;
    for (const uint64_t one : values) Put(one, bytes, &value);
    Put(tag, 2);
    Put(type, 2);
    Put(values.size(), 8);
    if (value.size() <= 8) {
      value.resize(8);
      bytes_.insert(bytes_.end(), value.begin(), value.end());
      return;
    }
    Put(kDirectory + 8 + kEntries * 20 + 8 + behind_.size(), 8);
    behind_.insert(behind_.end(), value.begin(), value.end());
  }

  const PageKind& kind_;
  const std::vector<uint8_t>& profile_;
  std::vector<uint8_t> bytes_, behind_;
};

// Big-endian; 0 behind the file's end.
template <size_t kBytes>
uint64_t NumberAt(const InputFile& file, off_t at) {
  std::array<uint8_t, kBytes> bytes = {};
  if (pread(file.descriptor(), bytes.data(), kBytes, at) != static_cast<ssize_t>(kBytes)) return 0;
  uint64_t number = 0;
  for (const uint8_t byte : bytes) number = number << 8 | byte;
  return number;
}

// Where JPEG 2000 data proper begin, behind the boxes that a file has; -1: nowhere.
off_t CodestreamOf(const InputFile& file) {
  constexpr uint64_t kStart = 0xFF4FFF51, kCodestream = 0x6A703263;  // "jp2c"
  off_t at = 0;
  while (NumberAt<4>(file, at) != kStart) {
    uint64_t length = NumberAt<4>(file, at), head = 8;
    if (length == 1) {
      length = NumberAt<8>(file, at + 8);
      head = 16;
    }
    const bool isCodestream = NumberAt<4>(file, at + 4) == kCodestream;
    if (!isCodestream && (length < head || length > static_cast<uint64_t>(file.size() - at))) return -1;
    at += static_cast<off_t>(isCodestream ? head : length);
    if (isCodestream) return NumberAt<4>(file, at) == kStart ? at : -1;
  }
  return at;
}

}  // namespace

PdfImage DescribePdfImage(const QPDFObjectHandle& stream) {
  PdfImage image;
  image.stream = stream;
  QPDFObjectHandle dictionary = image.stream.getDict();
  image.kind.width = IntegerOf(dictionary, "/Width", 0);
  image.kind.height = IntegerOf(dictionary, "/Height", 0);
  QPDFObjectHandle mask = dictionary.getKey("/ImageMask");
  if (mask.isBool() && mask.getBoolValue()) return image;
  if (std::min(image.kind.width, image.kind.height) < kLeastSide) return image;
  constexpr int32_t kMostSide = 10'000'000;  // as of files
  if (std::max(image.kind.width, image.kind.height) > kMostSide)
    image.whyNot = kTooMany;
  else if (const char* const why = WhyNotLookedAt(dictionary, &image))
    image.whyNot = why;
  else
    image.isLookedAt = true;
  return image;
}

void LeavePictureCodingsAlone() {
  for (const CodingOfFilter& row : kCodings) {
    if (row.coding != PdfCoding::kSamples)
      QPDF::registerStreamFilter(std::string(row.filter), [] { return std::make_shared<LeftAlone>(); });
  }
}

InputFile TakeOutPdfImage(const PdfImage& image, const std::string& folder, const std::string& name) {
  OutputFile taken(OutputFile::Nameless(), folder, name);
  const bool isBare = image.coding == PdfCoding::kSamples;
  uint64_t bytes = UINT64_MAX;
  if (isBare) {
    bytes = image.kind.RowBytes() * static_cast<uint64_t>(image.kind.height);
    const std::vector<uint8_t> front = TiffFront(image.kind, image.profile).Bytes();
    taken.Write(front.data(), front.size());
  }
  FileSink sink(taken.descriptor(), bytes);
  QPDFObjectHandle stream = image.stream;
  bool isDecoded = false;
  const bool isRead = stream.pipeStreamData(&sink, &isDecoded, 0, qpdf_dl_specialized);
  if (sink.error() != 0) {
    throw Refusal(ExitStatus::kCannotWrite, name,
                  "cannot be taken out into " + folder + ": " + strerror(sink.error()));
  }
  if (!isRead || !isDecoded || stream.getOwningQPDF()->anyWarnings() || (isBare && sink.left() > 0)) {
    throw Refusal(ExitStatus::kUnreadable, name, "is damaged or cut short; get a whole copy of the document");
  }
  return {dup(taken.descriptor()), name};
}

int BitsOfJpeg2000(const InputFile& file) {
  const off_t begin = CodestreamOf(file);
  constexpr off_t kCountAt = 40, kDepthsAt = 42, kEach = 3;
  const auto channels = begin < 0 ? 0 : static_cast<off_t>(NumberAt<2>(file, begin + kCountAt));
  const auto depthOf = [&](off_t channel) { return NumberAt<1>(file, begin + kDepthsAt + kEach * channel); };
  for (off_t channel = 1; channel < channels; ++channel)
    if (depthOf(channel) != depthOf(0)) return 0;
  return channels > 0 ? static_cast<int>(depthOf(0)) + 1 : 0;  // signed samples come out beyond any depth
}

PdfFilter FilterOfJpeg() {
  return {QPDFObjectHandle::newName("/DCTDecode"), QPDFObjectHandle::newNull()};
}

PdfFilter FilterOfRows(const PageKind& kind) {
  constexpr int kRowByRow = 15;  // the predictor that every row names for itself
  QPDFObjectHandle parameters = QPDFObjectHandle::newDictionary();
  const std::pair<const char*, int> told[] = {{"/Predictor", kRowByRow},
                                              {"/Colors", kind.channels()},
                                              {"/BitsPerComponent", kind.bits},
                                              {"/Columns", kind.width}};
  for (const auto& [key, value] : told) parameters.replaceKey(key, QPDFObjectHandle::newInteger(value));
  return {QPDFObjectHandle::newName("/FlateDecode"), parameters};
}

}  // namespace tessaline::cli
