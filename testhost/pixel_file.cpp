#include "testhost/pixel_file.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string_view>

#include "testhost/host_refusal.h"

#define STB_IMAGE_STATIC
#define STB_IMAGE_IMPLEMENTATION
#define STBI_ONLY_PNG
#define STBI_NO_STDIO
#define STB_IMAGE_WRITE_STATIC
#define STB_IMAGE_WRITE_IMPLEMENTATION
#define STBI_WRITE_NO_STDIO
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wshadow"
#pragma GCC diagnostic ignored "-Wunused-function"
#pragma GCC diagnostic ignored "-Wunused-but-set-variable"
#include <stb/stb_image.h>
#include <stb/stb_image_write.h>
#pragma GCC diagnostic pop

namespace tessaline::testhost {

namespace {

using FileBytes = std::vector<uint8_t>;

// As the host protocol has it; also keeps every size below in 32 bits.
constexpr int64_t kLargestSide = 300000;
constexpr int64_t kMostSamples = int64_t{1} << 30;

[[noreturn]] void RefuseInput(const std::string& path, const std::string& why) {
  throw Refusal(ExitStatus::kUnreadable, path, why);
}
[[noreturn]] void RefuseOutput(const std::string& path, const std::string& why) {
  throw Refusal(ExitStatus::kCannotWrite, path, why);
}

FileBytes ReadWholeFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) RefuseInput(path, "cannot be opened");
  FileBytes bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  if (file.bad()) RefuseInput(path, "cannot be read to its end");
  return bytes;
}

void CheckSize(const std::string& path, int64_t width, int64_t height, int64_t planes) {
  if (width < 1 || height < 1 || planes < 1) RefuseInput(path, "has no pixels");
  if (width > kLargestSide || height > kLargestSide || planes > 24 ||
      width * height > kMostSamples / planes) {
    RefuseInput(path, "is too large: " + std::to_string(width) + " x " + std::to_string(height));
  }
}

// --- PNG, reading ---

constexpr std::array<uint8_t, 8> kPngSignature = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};

struct FreeByStb {
  void operator()(void* block) const { stbi_image_free(block); }
};

Picture ReadPng(const std::string& path, const FileBytes& bytes) {
  Picture picture;
  const auto length = static_cast<int>(bytes.size());
  int planes = 0;
  const auto refuse = [&path] { RefuseInput(path, std::string("damaged PNG: ") + stbi_failure_reason()); };
  if (!stbi_info_from_memory(bytes.data(), length, &picture.width, &picture.height, &planes)) refuse();
  CheckSize(path, picture.width, picture.height, planes);
  const size_t count = static_cast<size_t>(picture.width) * picture.height * planes;
  const auto read = [&](auto load, uint16_t white) {
    int width, height, inFile;
    const std::unique_ptr samples = load(&width, &height, &inFile);
    if (!samples) refuse();
    picture.white = white;
    picture.samples.assign(samples.get(), samples.get() + count);
  };
  if (stbi_is_16_bit_from_memory(bytes.data(), length)) {
    read(
        [&](int* width, int* height, int* inFile) {
          return std::unique_ptr<uint16_t, FreeByStb>(
              stbi_load_16_from_memory(bytes.data(), length, width, height, inFile, planes));
        },
        kWhiteFile16);
  } else {
    read(
        [&](int* width, int* height, int* inFile) {
          return std::unique_ptr<uint8_t, FreeByStb>(
              stbi_load_from_memory(bytes.data(), length, width, height, inFile, planes));
        },
        kWhite8);
  }
  picture.space = planes >= 3 ? ColourSpace::kRgb : ColourSpace::kGrey;
  picture.extraPlanes = planes - ColourPlanesOf(picture.space);
  return picture;
}

// --- PNM and PAM, reading ---

class NetpbmReader {
 public:
  NetpbmReader(const std::string& path, const FileBytes& bytes) : path_(path), bytes_(bytes) {}

  Picture Read() {
    const char kind = static_cast<char>(bytes_[1]);
    at_ = 2;
    if (kind == '7') {
      ReadPamHeader();
    } else if (kind == '5' || kind == '6') {
      picture_.space = kind == '5' ? ColourSpace::kGrey : ColourSpace::kRgb;
      width_ = Number(Word());
      height_ = Number(Word());
      maximum_ = Number(Word());
      planes_ = picture_.Planes();
      // A single blank ends the header; Word() has left it.
      ++at_;
    } else {
      RefuseInput(path_, std::string("is a P") + kind + " file; of PNM, P5, P6 and P7 are read");
    }
    ReadSamples();
    return std::move(picture_);
  }

 private:
  // The next word of the header, comments left out; empty at the end of the file.
  std::string Word() {
    while (at_ < bytes_.size() && (std::isspace(bytes_[at_]) || bytes_[at_] == '#')) {
      if (bytes_[at_] == '#') {
        Line();
      } else {
        ++at_;
      }
    }
    std::string word;
    while (at_ < bytes_.size() && !std::isspace(bytes_[at_])) word += static_cast<char>(bytes_[at_++]);
    return word;
  }

  std::string Line() {
    std::string line;
    while (at_ < bytes_.size() && bytes_[at_] != '\n') line += static_cast<char>(bytes_[at_++]);
    ++at_;
    return line;
  }

  int64_t Number(const std::string& word) {
    if (word.empty() || word.size() > 9 || word.find_first_not_of("0123456789") != std::string::npos) {
      RefuseInput(path_, "has '" + word + "' in its header where a number belongs");
    }
    return std::stoll(word);
  }

  void ReadPamHeader() {
    std::string tupleType;
    Line();
    for (;;) {
      if (at_ >= bytes_.size()) RefuseInput(path_, "has a PAM header without ENDHDR");
      std::istringstream line(Line());
      std::string key, value;
      line >> key >> value;
      if (key == "ENDHDR") break;
      if (key == "WIDTH") width_ = Number(value);
      if (key == "HEIGHT") height_ = Number(value);
      if (key == "DEPTH") planes_ = Number(value);
      if (key == "MAXVAL") maximum_ = Number(value);
      if (key == "TUPLTYPE") tupleType = value;
    }
    picture_.space = SpaceOf(tupleType);
    if (planes_ < ColourPlanesOf(picture_.space)) {
      RefuseInput(path_, "says " + tupleType + " and has only " + std::to_string(planes_) + " planes");
    }
  }

  ColourSpace SpaceOf(std::string tupleType) {
    constexpr std::string_view kAlpha = "_ALPHA";
    if (tupleType.ends_with(kAlpha)) tupleType.resize(tupleType.size() - kAlpha.size());
    if (tupleType == "GRAYSCALE") return ColourSpace::kGrey;
    if (tupleType == "RGB") return ColourSpace::kRgb;
    if (tupleType == "CMYK") return ColourSpace::kCmyk;
    if (tupleType == "LAB") return ColourSpace::kLab;
    if (tupleType.empty()) return planes_ >= 3 ? ColourSpace::kRgb : ColourSpace::kGrey;
    RefuseInput(path_, "has TUPLTYPE " + tupleType + "; GRAYSCALE, RGB, CMYK and LAB are known");
  }

  void ReadSamples() {
    CheckSize(path_, width_, height_, planes_);
    if (maximum_ != kWhite8 && maximum_ != kWhiteHost16 && maximum_ != kWhiteFile16) {
      RefuseInput(path_, "has MAXVAL " + std::to_string(maximum_) + "; 255, 32768 and 65535 are read");
    }
    picture_.width = static_cast<int32_t>(width_);
    picture_.height = static_cast<int32_t>(height_);
    picture_.extraPlanes = static_cast<int32_t>(planes_) - ColourPlanesOf(picture_.space);
    picture_.white = static_cast<uint16_t>(maximum_);
    const size_t count = picture_.RowSamples() * picture_.height;
    const size_t sampleBytes = maximum_ == kWhite8 ? 1 : 2;
    if (at_ > bytes_.size() || bytes_.size() - at_ < count * sampleBytes) {
      RefuseInput(path_, "ends before its last pixel");
    }
    picture_.samples.resize(count);
    for (size_t i = 0; i < count; ++i) {
      const uint8_t* const sample = bytes_.data() + at_ + i * sampleBytes;
      picture_.samples[i] = sampleBytes == 1 ? sample[0] : static_cast<uint16_t>(sample[0] << 8 | sample[1]);
      if (picture_.samples[i] > maximum_) RefuseInput(path_, "has a sample above its MAXVAL");
    }
  }

  const std::string& path_;
  const FileBytes& bytes_;
  size_t at_ = 0;
  int64_t width_ = 0, height_ = 0, planes_ = 0, maximum_ = 0;
  Picture picture_;
};

// --- writing ---

void AppendBigEndian(FileBytes& bytes, uint32_t value, int count) {
  while (count-- > 0) bytes.push_back(static_cast<uint8_t>(value >> 8 * count));
}

// Two bytes a sample above 255, high byte first, as both formats have it.
void AppendSamples(FileBytes& bytes, const uint16_t* samples, size_t count, uint16_t white) {
  for (size_t i = 0; i < count; ++i) AppendBigEndian(bytes, samples[i], white == kWhite8 ? 1 : 2);
}

FileBytes NetpbmBytes(const Picture& picture, const std::string& extension) {
  std::ostringstream header;
  if (extension == ".pam") {
    constexpr const char* kTupleTypes[] = {"GRAYSCALE", "RGB", "CMYK", "LAB"};
    header << "P7\nWIDTH " << picture.width << "\nHEIGHT " << picture.height << "\nDEPTH " << picture.Planes()
           << "\nMAXVAL " << picture.white << "\nTUPLTYPE " << kTupleTypes[static_cast<int>(picture.space)]
           << (picture.extraPlanes > 0 ? "_ALPHA" : "") << "\nENDHDR\n";
  } else {
    header << (extension == ".pgm" ? "P5\n" : "P6\n") << picture.width << " " << picture.height << "\n"
           << picture.white << "\n";
  }
  const std::string text = header.str();
  FileBytes bytes(text.begin(), text.end());
  AppendSamples(bytes, picture.samples.data(), picture.samples.size(), picture.white);
  return bytes;
}

constexpr std::array<uint32_t, 256> MakeCrcTable() {
  constexpr uint32_t kPolynomial = 0xEDB88320;  // of PNG, lowest bit first
  std::array<uint32_t, 256> table{};
  for (uint32_t byte = 0; byte < 256; ++byte) {
    uint32_t crc = byte;
    for (int bit = 0; bit < 8; ++bit) crc = crc & 1 ? kPolynomial ^ crc >> 1 : crc >> 1;
    table[byte] = crc;
  }
  return table;
}

void AppendPngChunk(FileBytes& png, std::string_view type, const uint8_t* data, size_t size) {
  static constexpr auto kCrcTable = MakeCrcTable();
  AppendBigEndian(png, static_cast<uint32_t>(size), 4);
  const size_t begin = png.size();
  png.insert(png.end(), type.begin(), type.end());
  png.insert(png.end(), data, data + size);
  uint32_t crc = ~0u;
  for (size_t i = begin; i < png.size(); ++i) crc = kCrcTable[(crc ^ png[i]) & 255] ^ crc >> 8;
  AppendBigEndian(png, ~crc, 4);
}

FileBytes PngBytes(const std::string& path, const Picture& picture) {
  const uint16_t white = picture.white == kWhite8 ? kWhite8 : kWhiteFile16;
  const std::vector<uint16_t> samples = Rescaled(picture.samples, picture.white, white);

  // Each row is stored as differences to the row above, which deflates well and needs no choosing.
  constexpr uint8_t kDifferenceToRowAbove = 2;
  FileBytes above(picture.RowSamples() * (white == kWhite8 ? 1 : 2));
  FileBytes filtered;
  for (int32_t y = 0; y < picture.height; ++y) {
    FileBytes row;
    AppendSamples(row, samples.data() + y * picture.RowSamples(), picture.RowSamples(), white);
    filtered.push_back(kDifferenceToRowAbove);
    for (size_t i = 0; i < row.size(); ++i) filtered.push_back(static_cast<uint8_t>(row[i] - above[i]));
    above = std::move(row);
  }
  if (filtered.size() > INT32_MAX / 2) RefuseOutput(path, "is too large for this program's PNG; use .pam");
  int deflatedBytes = 0;
  constexpr int kQuality = 8;
  const std::unique_ptr<uint8_t, FreeByStb> deflated(
      stbi_zlib_compress(filtered.data(), static_cast<int>(filtered.size()), &deflatedBytes, kQuality));
  if (!deflated) throw std::bad_alloc();

  FileBytes header;
  AppendBigEndian(header, picture.width, 4);
  AppendBigEndian(header, picture.height, 4);
  header.push_back(white == kWhite8 ? 8 : 16);
  const int colour = picture.space == ColourSpace::kRgb ? 2 : 0;
  header.push_back(static_cast<uint8_t>(colour + (picture.extraPlanes > 0 ? 4 : 0)));
  header.insert(header.end(), {0, 0, 0});  // deflate, the five row filters, not interlaced

  FileBytes png(kPngSignature.begin(), kPngSignature.end());
  AppendPngChunk(png, "IHDR", header.data(), header.size());
  AppendPngChunk(png, "IDAT", deflated.get(), deflatedBytes);
  AppendPngChunk(png, "IEND", nullptr, 0);
  return png;
}

std::string ExtensionOf(const std::string& path) {
  std::string extension = std::filesystem::path(path).extension().string();
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return extension;
}

// What the formats can hold, checked before a byte is written.
void CheckFits(const std::string& path, const std::string& extension, const Picture& picture) {
  const bool isGrey = picture.space == ColourSpace::kGrey;
  const bool isGreyOrRgb = isGrey || picture.space == ColourSpace::kRgb;
  if (extension == ".pam") return;
  if (extension == ".png") {
    if (isGreyOrRgb && picture.extraPlanes <= 1) return;
    RefuseOutput(path, "PNG takes grey or RGB and one alpha plane at most; .pam takes this picture");
  }
  if (extension == ".pgm" || extension == ".ppm") {
    if (picture.extraPlanes == 0 && (extension == ".pgm" ? isGrey : picture.space == ColourSpace::kRgb))
      return;
    RefuseOutput(path, "has no room for these planes; .pam takes this picture");
  }
  RefuseOutput(path, "has none of the extensions .png, .pam, .pgm and .ppm");
}

}  // namespace

Picture ReadPictureFile(const std::string& path) {
  const FileBytes bytes = ReadWholeFile(path);
  if (bytes.size() > INT32_MAX) RefuseInput(path, "is larger than 2 GiB");
  if (bytes.size() >= kPngSignature.size() &&
      std::equal(kPngSignature.begin(), kPngSignature.end(), bytes.begin())) {
    return ReadPng(path, bytes);
  }
  if (bytes.size() > 3 && bytes[0] == 'P') return NetpbmReader(path, bytes).Read();
  RefuseInput(path, "is neither PNG nor PNM nor PAM");
}

void WritePictureFile(const std::string& path, const Picture& picture) {
  const std::string extension = ExtensionOf(path);
  CheckFits(path, extension, picture);
  const FileBytes bytes = extension == ".png" ? PngBytes(path, picture) : NetpbmBytes(picture, extension);
  const std::string partial = path + ".part";
  {
    std::ofstream file(partial, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    file.close();
    if (!file) {
      std::error_code ignored;
      std::filesystem::remove(partial, ignored);
      RefuseOutput(path, "cannot be written");
    }
  }
  std::error_code error;
  std::filesystem::rename(partial, path, error);
  if (error) {
    std::error_code ignored;
    std::filesystem::remove(partial, ignored);
    RefuseOutput(path, "cannot be written: " + error.message());
  }
}

std::vector<uint16_t> Rescaled(const std::vector<uint16_t>& samples, uint16_t white, uint16_t newWhite) {
  if (white == newWhite) return samples;
  std::vector<uint16_t> rescaled(samples.size());
  std::transform(samples.begin(), samples.end(), rescaled.begin(), [=](uint16_t sample) {
    return static_cast<uint16_t>((uint32_t{sample} * newWhite + white / 2) / white);
  });
  return rescaled;
}

}  // namespace tessaline::testhost
