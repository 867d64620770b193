#include "cli/tiff_tags.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <set>

#include "cli/output_file.h"

namespace tessaline::cli {
namespace {

// Broken files must not make the reader collect without end.
constexpr uint64_t kMostEntries = 4096;
constexpr size_t kMostPages = 100000;
constexpr uint64_t kMostValueBytes = uint64_t{16} << 20;

struct TypeSize {
  uint16_t type;
  uint8_t bytes;  // of one value
  uint8_t unit;   // of what is stored in the file's byte order
};
constexpr TypeSize kTypeSizes[] = {
    {1, 1, 1},   // BYTE
    {2, 1, 1},   // ASCII
    {3, 2, 2},   // SHORT
    {4, 4, 4},   // LONG
    {5, 8, 4},   // RATIONAL
    {6, 1, 1},   // SBYTE
    {7, 1, 1},   // UNDEFINED
    {8, 2, 2},   // SSHORT
    {9, 4, 4},   // SLONG
    {10, 8, 4},  // SRATIONAL
    {11, 4, 4},  // FLOAT
    {12, 8, 8},  // DOUBLE
    {13, 4, 4},  // IFD
    {16, 8, 8},  // LONG8
    {17, 8, 8},  // SLONG8
    {18, 8, 8},  // IFD8
};
constexpr uint16_t kShort = 3;
constexpr uint16_t kLong = 4;
constexpr uint16_t kRational = 5;
constexpr uint16_t kLong8 = 16;

const TypeSize* SizeOfType(uint16_t type) {
  for (const TypeSize& size : kTypeSizes) {
    if (size.type == type) return &size;
  }
  return nullptr;
}

uint64_t LittleEndian(const uint8_t* bytes, size_t count) {
  uint64_t value = 0;
  for (size_t i = 0; i < count; ++i) value |= static_cast<uint64_t>(bytes[i]) << (8 * i);
  return value;
}

void PutLittleEndian(uint64_t value, size_t count, std::vector<uint8_t>& bytes) {
  for (size_t i = 0; i < count; ++i) bytes.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

}  // namespace

bool ByteSource::Read(uint64_t offset, void* bytes, size_t count) const {
  if (bytes_ != nullptr) {
    if (offset > size_ || count > size_ - offset) return false;
    memcpy(bytes, bytes_ + offset, count);
    return true;
  }
  char* at = static_cast<char*>(bytes);
  while (count > 0) {
    const ssize_t got = pread(descriptor_, at, count, static_cast<off_t>(offset));
    if (got <= 0) return false;
    at += got;
    offset += static_cast<uint64_t>(got);
    count -= static_cast<size_t>(got);
  }
  return true;
}

uint64_t TiffStructure::Number(uint64_t offset, size_t bytes, bool* ok) const {
  uint8_t raw[8];
  if (!source_.Read(offset, raw, bytes)) {
    *ok = false;
    return 0;
  }
  if (isBigEndian_) std::reverse(raw, raw + bytes);
  return LittleEndian(raw, bytes);
}

bool TiffStructure::ReadHeader() {
  uint8_t head[4];
  if (!source_.Read(0, head, 4)) return false;
  if (head[0] != head[1] || (head[0] != 'I' && head[0] != 'M')) return false;
  isBigEndian_ = head[0] == 'M';
  const int version = isBigEndian_ ? head[2] << 8 | head[3] : head[3] << 8 | head[2];
  isBig_ = version == 43;
  return version == 42 || version == 43;
}

std::optional<TiffStructure::Directory> TiffStructure::ReadDirectory(uint64_t offset) const {
  const size_t countBytes = isBig_ ? 8 : 2, entryBytes = isBig_ ? 20 : 12, fieldBytes = isBig_ ? 8 : 4;
  bool ok = true;
  const uint64_t count = Number(offset, countBytes, &ok);
  if (!ok || count > kMostEntries) return std::nullopt;
  Directory directory = {};
  uint64_t at = offset + countBytes;
  for (uint64_t i = 0; i < count; ++i, at += entryBytes) {
    Entry entry = {};
    entry.tag = static_cast<uint16_t>(Number(at, 2, &ok));
    entry.type = static_cast<uint16_t>(Number(at + 2, 2, &ok));
    entry.count = Number(at + 4, fieldBytes, &ok);
    entry.valueOffset = at + 4 + fieldBytes;
    const TypeSize* size = SizeOfType(entry.type);
    if (size != nullptr && entry.count > fieldBytes / size->bytes) {
      entry.valueOffset = Number(entry.valueOffset, fieldBytes, &ok);
    }
    directory.entries.push_back(entry);
  }
  directory.offset = offset;
  directory.nextPointerOffset = at;
  directory.nextOffset = Number(at, fieldBytes, &ok);
  if (!ok) return std::nullopt;
  return directory;
}

std::optional<TiffStructure> TiffStructure::Read(const ByteSource& source) {
  TiffStructure structure(source);
  if (!structure.ReadHeader()) return std::nullopt;
  uint64_t pointerOffset = structure.isBig_ ? 8 : 4;
  std::set<uint64_t> seen;
  bool ok = true;
  uint64_t offset = structure.Number(pointerOffset, structure.isBig_ ? 8 : 4, &ok);
  while (ok && offset != 0 && structure.pages_.size() < kMostPages && seen.insert(offset).second) {
    std::optional<Directory> directory = structure.ReadDirectory(offset);
    if (!directory) return std::nullopt;
    directory->pointerOffset = pointerOffset;
    pointerOffset = directory->nextPointerOffset;
    offset = directory->nextOffset;
    structure.pages_.push_back(std::move(*directory));
  }
  if (!ok || structure.pages_.empty()) return std::nullopt;
  return structure;
}

std::vector<uint8_t> TiffStructure::ValueBytes(const Entry& entry) const {
  const TypeSize* size = SizeOfType(entry.type);
  if (size == nullptr || entry.count > kMostValueBytes / size->bytes) return {};
  std::vector<uint8_t> bytes(static_cast<size_t>(entry.count) * size->bytes);
  if (!source_.Read(entry.valueOffset, bytes.data(), bytes.size())) return {};
  if (isBigEndian_ && size->unit > 1) {
    for (size_t at = 0; at < bytes.size(); at += size->unit) {
      std::reverse(bytes.begin() + static_cast<ptrdiff_t>(at),
                   bytes.begin() + static_cast<ptrdiff_t>(at + size->unit));
    }
  }
  return bytes;
}

bool TiffStructure::FitsInto(uint64_t fileBytes) const {
  const auto fits = [fileBytes](const Entry& entry) {
    const TypeSize* size = SizeOfType(entry.type);
    if (size == nullptr) return true;  // a type of later times
    return entry.valueOffset <= fileBytes && entry.count <= (fileBytes - entry.valueOffset) / size->bytes;
  };
  return std::all_of(pages_.begin(), pages_.end(), [&](const Directory& directory) {
    return std::all_of(directory.entries.begin(), directory.entries.end(), fits);
  });
}

uint64_t TiffStructure::Value(size_t page, uint16_t tag, uint64_t fallback) const {
  for (const Entry& entry : pages_[page].entries) {
    if (entry.tag != tag || entry.count < 1) continue;
    const std::vector<uint8_t> bytes = ValueBytes(entry);
    if (!bytes.empty()) return LittleEndian(bytes.data(), SizeOfType(entry.type)->unit);
  }
  return fallback;
}

std::vector<uint64_t> TiffStructure::Values(size_t page, uint16_t tag) const {
  std::vector<uint64_t> values;
  for (const Entry& entry : pages_[page].entries) {
    if (entry.tag != tag) continue;
    const std::vector<uint8_t> bytes = ValueBytes(entry);
    const size_t unit = bytes.empty() ? 1 : SizeOfType(entry.type)->unit;
    for (size_t at = 0; at < bytes.size(); at += unit) values.push_back(LittleEndian(&bytes[at], unit));
  }
  return values;
}

std::optional<double> TiffStructure::Rational(size_t page, uint16_t tag) const {
  for (const Entry& entry : pages_[page].entries) {
    if (entry.tag != tag || entry.type != kRational || entry.count != 1) continue;
    const std::vector<uint8_t> bytes = ValueBytes(entry);
    if (bytes.empty()) continue;
    const uint64_t under = LittleEndian(bytes.data() + 4, 4);
    if (under != 0) return static_cast<double>(LittleEndian(bytes.data(), 4)) / static_cast<double>(under);
  }
  return std::nullopt;
}

std::optional<std::pair<double, double>> TiffStructure::PixelsPerInch(size_t page) const {
  constexpr uint64_t kPerInch = 2, kPerCentimetre = 3;
  const std::optional<double> x = Rational(page, kTiffXResolution), y = Rational(page, kTiffYResolution);
  const uint64_t unit = Value(page, kTiffResolutionUnit, kPerInch);
  if (!x || !y || *x <= 0 || *y <= 0 || (unit != kPerInch && unit != kPerCentimetre)) return std::nullopt;
  const double scale = unit == kPerCentimetre ? 2.54 : 1;
  return std::pair(*x * scale, *y * scale);
}

std::vector<uint64_t> TiffStructure::OffsetsOfShorts(size_t page, uint16_t tag) const {
  std::vector<uint64_t> offsets;
  for (const Entry& entry : pages_[page].entries) {
    if (entry.tag != tag || entry.type != kShort || entry.count > kMostEntries) continue;
    for (uint64_t i = 0; i < entry.count; ++i) offsets.push_back(entry.valueOffset + 2 * i);
  }
  return offsets;
}

std::vector<TiffTag> TiffStructure::TagsOf(uint64_t directoryOffset) const {
  std::vector<TiffTag> tags;
  const std::optional<Directory> directory = ReadDirectory(directoryOffset);
  if (!directory) return tags;
  for (const Entry& entry : directory->entries) {
    if (entry.tag == kTiffInteroperabilityDirectory) continue;  // an offset, not a value to copy
    std::vector<uint8_t> bytes = ValueBytes(entry);
    if (!bytes.empty()) tags.push_back({entry.tag, entry.type, entry.count, std::move(bytes)});
  }
  return tags;
}

std::vector<TiffTag> TiffStructure::Tags(size_t page, std::span<const uint16_t> wanted) const {
  std::vector<TiffTag> tags;
  for (const Entry& entry : pages_[page].entries) {
    if (std::find(wanted.begin(), wanted.end(), entry.tag) == wanted.end()) continue;
    std::vector<uint8_t> bytes = ValueBytes(entry);
    if (!bytes.empty()) tags.push_back({entry.tag, entry.type, entry.count, std::move(bytes)});
  }
  return tags;
}

DescriptiveTags TiffStructure::Descriptive(size_t page) const {
  DescriptiveTags tags;
  tags.main = Tags(page, kTiffDescriptive);
  if (const uint64_t gps = Value(page, kTiffGpsDirectory, 0)) tags.gps = TagsOf(gps);
  const uint64_t exif = Value(page, kTiffExifDirectory, 0);
  if (exif == 0) return tags;
  tags.exif = TagsOf(exif);
  if (const std::optional<Directory> directory = ReadDirectory(exif)) {
    for (const Entry& entry : directory->entries) {
      if (entry.tag != kTiffInteroperabilityDirectory) continue;
      const std::vector<uint8_t> bytes = ValueBytes(entry);
      if (bytes.size() >= 4) tags.interoperability = TagsOf(LittleEndian(bytes.data(), 4));
    }
  }
  return tags;
}

namespace {

// Values and directories to be written behind the end of a file.
class Appendix {
 public:
  Appendix(uint64_t endOfFile, bool isBig) : base_(endOfFile), isBig_(isBig) {}

  struct Slot {  // of a directory, ready to be written
    uint16_t tag;
    uint16_t type;
    uint64_t count;
    uint64_t value;  // little-endian, or an offset
  };

  Slot SlotFor(const TiffTag& tag) {
    Slot slot = {tag.tag, tag.type, tag.count, 0};
    if (tag.bytes.size() <= FieldBytes()) {
      slot.value = LittleEndian(tag.bytes.data(), tag.bytes.size());
    } else {
      slot.value = NextOffset();
      bytes_.insert(bytes_.end(), tag.bytes.begin(), tag.bytes.end());
    }
    return slot;
  }

  // Returns the directory's offset in the file.
  uint64_t AddDirectory(std::vector<Slot> slots, uint64_t next) {
    std::stable_sort(slots.begin(), slots.end(), [](const Slot& a, const Slot& b) { return a.tag < b.tag; });
    const uint64_t offset = NextOffset();
    PutLittleEndian(slots.size(), isBig_ ? 8 : 2, bytes_);
    for (const Slot& slot : slots) {
      PutLittleEndian(slot.tag, 2, bytes_);
      PutLittleEndian(slot.type, 2, bytes_);
      PutLittleEndian(slot.count, FieldBytes(), bytes_);
      PutLittleEndian(slot.value, FieldBytes(), bytes_);
    }
    PutLittleEndian(next, FieldBytes(), bytes_);
    return offset;
  }

  uint64_t AddDirectoryOf(const std::vector<TiffTag>& tags) {
    std::vector<Slot> slots;
    slots.reserve(tags.size());
    for (const TiffTag& tag : tags) slots.push_back(SlotFor(tag));
    return AddDirectory(std::move(slots), 0);
  }

  size_t FieldBytes() const { return isBig_ ? 8 : 4; }
  const std::vector<uint8_t>& bytes() const { return bytes_; }
  bool FitsFormat() const { return isBig_ || base_ + bytes_.size() <= UINT32_MAX; }

 private:
  uint64_t NextOffset() {  // even, as the format asks for
    if ((base_ + bytes_.size()) % 2 != 0) bytes_.push_back(0);
    return base_ + bytes_.size();
  }

  uint64_t base_;
  bool isBig_;
  std::vector<uint8_t> bytes_;
};

bool PwriteFully(int descriptor, const std::vector<uint8_t>& bytes, uint64_t offset) {
  size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t written =
        pwrite(descriptor, bytes.data() + done, bytes.size() - done, static_cast<off_t>(offset + done));
    if (written <= 0) return false;
    done += static_cast<size_t>(written);
  }
  return true;
}

}  // namespace

namespace {

// A slot with an entry's value as it stands in the file.
Appendix::Slot SlotAsItIs(const TiffStructure& file, const TiffStructure::Entry& entry, size_t fieldBytes) {
  Appendix::Slot slot = {entry.tag, entry.type, entry.count, entry.valueOffset};
  if (entry.count * SizeOfType(entry.type)->bytes <= fieldBytes) {
    const std::vector<uint8_t> bytes = file.ValueBytes(entry);
    slot.value = LittleEndian(bytes.data(), bytes.size());
  }
  return slot;
}

// Slots for the added tags that are not `present`; directories of their own go into the appendix.
void AddSlots(const DescriptiveTags& added, bool isBig, std::set<uint16_t>& present, Appendix& appendix,
              std::vector<Appendix::Slot>& slots) {
  for (const TiffTag& tag : added.main) {
    if (present.insert(tag.tag).second) slots.push_back(appendix.SlotFor(tag));
  }
  const uint16_t pointerType = isBig ? kLong8 : kLong;
  if (!added.exif.empty() && present.insert(kTiffExifDirectory).second) {
    std::vector<Appendix::Slot> exif;
    for (const TiffTag& tag : added.exif) exif.push_back(appendix.SlotFor(tag));
    if (!added.interoperability.empty()) {
      exif.push_back(
          {kTiffInteroperabilityDirectory, pointerType, 1, appendix.AddDirectoryOf(added.interoperability)});
    }
    slots.push_back({kTiffExifDirectory, pointerType, 1, appendix.AddDirectory(std::move(exif), 0)});
  }
  if (!added.gps.empty() && present.insert(kTiffGpsDirectory).second) {
    slots.push_back({kTiffGpsDirectory, pointerType, 1, appendix.AddDirectoryOf(added.gps)});
  }
}

bool HasThisValue(const TiffStructure& file, const TiffStructure::Entry& entry, const TiffTag& tag) {
  return entry.tag == tag.tag && entry.type == tag.type && entry.count == tag.count &&
         file.ValueBytes(entry) == tag.bytes;
}

}  // namespace

bool EditTiffPages(int descriptor, const std::function<TiffPageEdit(size_t page)>& editOf) {
  const std::optional<TiffStructure> file = TiffStructure::Read(ByteSource(descriptor));
  struct stat status = {};
  if (!file || file->isBigEndian() || fstat(descriptor, &status) != 0) return false;
  const auto end = static_cast<uint64_t>(status.st_size);
  Appendix appendix(end, file->isBigTiff());
  // Directories are written from the last to the first, for each names the one behind it.
  uint64_t next = 0;
  for (size_t page = file->pages(); page-- > 0;) {
    const TiffStructure::Directory& directory = file->directory(page);
    TiffPageEdit edit = editOf(page);
    std::vector<Appendix::Slot> slots;
    std::set<uint16_t> present;
    for (const TiffStructure::Entry& entry : directory.entries) {
      if (SizeOfType(entry.type) == nullptr) return false;
      const bool stays =
          std::find(edit.removed.begin(), edit.removed.end(), entry.tag) == edit.removed.end() ||
          std::any_of(edit.added.main.begin(), edit.added.main.end(),
                      [&](const TiffTag& tag) { return HasThisValue(*file, entry, tag); });
      if (!stays) continue;
      slots.push_back(SlotAsItIs(*file, entry, appendix.FieldBytes()));
      present.insert(entry.tag);
    }
    AddSlots(edit.added, file->isBigTiff(), present, appendix, slots);
    next = appendix.AddDirectory(std::move(slots), next);
  }
  if (!appendix.FitsFormat()) return false;
  // The pointer last: until it is set the file is what it was.
  std::vector<uint8_t> pointer;
  PutLittleEndian(next, appendix.FieldBytes(), pointer);
  return PwriteFully(descriptor, appendix.bytes(), end) &&
         PwriteFully(descriptor, pointer, file->directory(0).pointerOffset);
}

std::vector<uint8_t> ExifBlockOf(const DescriptiveTags& tags) {
  constexpr uint64_t kHeader = 8;
  Appendix appendix(kHeader, false);
  std::set<uint16_t> present;
  std::vector<Appendix::Slot> slots;
  AddSlots(tags, false, present, appendix, slots);
  const uint64_t directory = appendix.AddDirectory(std::move(slots), 0);
  std::vector<uint8_t> block = {'I', 'I', 42, 0};
  PutLittleEndian(directory, 4, block);
  block.insert(block.end(), appendix.bytes().begin(), appendix.bytes().end());
  return block;
}

}  // namespace tessaline::cli
