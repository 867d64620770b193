#include "buffers/buffer_table.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "image/result_codes.h"
#include "platform/memory.h"

namespace tessaline {

ImageBuffer BufferTable[kBufferSlots];
int32_t liveBufferCount = 0;

namespace {

ImageBuffer g_pristineTable[kBufferSlots];
bool g_tableWasMade = false;

bool IsSlot(int32_t slot) {
  return slot >= 1 && slot < kBufferSlots;
}

bool HoldsBuffer(int32_t slot) {
  return IsSlot(slot) && BufferTable[slot].data != nullptr;
}

// Byte size of a buffer, or -1 when it is not a positive number below 2^31.
int64_t ByteSize(int32_t width, int32_t height, int32_t bytesPerPixel) {
  if (width < 1 || height < 1 || bytesPerPixel < 1) return -1;
  int64_t pixels = 0;
  int64_t bytes = 0;
  if (__builtin_mul_overflow(int64_t{width}, int64_t{height}, &pixels) ||
      __builtin_mul_overflow(pixels, int64_t{bytesPerPixel}, &bytes) || bytes > INT32_MAX) {
    return -1;
  }
  return bytes;
}

size_t StoredBytes(const ImageBuffer& buffer) {
  return size_t{buffer.width} * buffer.height * buffer.bytesPerPixel;
}

int32_t FindFreeSlot() {
  if (!g_tableWasMade) ResetBufferTable();
  for (int32_t slot = 1; slot < kBufferSlots; ++slot) {
    if (BufferTable[slot].free) return slot;
  }
  return 0;
}

void TakeSlot(int32_t slot, const char* name, uint8_t* data, int32_t width, int32_t height,
              int32_t bytesPerPixel, bool isBound) {
  ImageBuffer& buffer = BufferTable[slot];
  buffer.data = data;
  buffer.width = static_cast<uint32_t>(width);
  buffer.height = static_cast<uint32_t>(height);
  buffer.bytesPerPixel = static_cast<uint32_t>(bytesPerPixel);
  buffer.fileBacked = 0;
  std::snprintf(buffer.name, sizeof buffer.name, "%s", name != nullptr ? name : "");
  buffer.dirty = !isBound;
  buffer.free = 0;
  buffer.bound = isBound;
  ++liveBufferCount;
}

void EmptySlot(ImageBuffer& buffer) {
  --liveBufferCount;
  buffer.data = nullptr;
  buffer.free = 1;
  buffer.bound = 0;
}

void WriteBufferFile(const ImageBuffer& buffer) {
  std::FILE* const file = std::fopen(buffer.name, "wb");
  if (file == nullptr) return;
  const uint32_t header[3] = {buffer.width, buffer.height, buffer.bytesPerPixel};
  std::fwrite(header, sizeof header, 1, file);
  std::fwrite(buffer.data, 1, StoredBytes(buffer), file);
  std::fclose(file);
}

// The bytes of a row request that lie inside the row.
struct RowClip {
  bool isOutside;       // nothing of the request lies inside
  bool isClipped;       // some of it lies outside
  int64_t rowStart;     // first byte in the row
  int64_t callerStart;  // first byte in the caller's memory
  int64_t bytes;
};

RowClip ClipToRow(const ImageBuffer& buffer, int32_t offset, int32_t row, int32_t count) {
  const int64_t pixelBytes = buffer.bytesPerPixel;
  const int64_t rowBytes = buffer.width * pixelBytes;
  const int64_t start = offset / pixelBytes * pixelBytes;  // towards zero, also for negative offsets
  const int64_t wanted = count / pixelBytes * pixelBytes;
  if (row < 0 || row >= static_cast<int64_t>(buffer.height) || start >= rowBytes || start + wanted < 0) {
    return {true, true, 0, 0, 0};
  }
  RowClip clip{false, false, start, 0, wanted};
  if (start < 0) {
    clip = {false, true, 0, -start, wanted + start};
  }
  if (clip.rowStart + clip.bytes > rowBytes) {
    clip.isClipped = true;
    clip.bytes = rowBytes - clip.rowStart;
  }
  return clip;
}

}  // namespace

void ResetBufferTable() {
  if (!g_tableWasMade) {
    g_tableWasMade = true;
    for (int32_t slot = 0; slot < kBufferSlots; ++slot) {
      g_pristineTable[slot].free = 1;
    }
  }
  std::copy(std::begin(g_pristineTable), std::end(g_pristineTable), std::begin(BufferTable));
}

int32_t CreateBuffer(const char* name, int32_t width, int32_t height, int32_t bytesPerPixel, int32_t* slot) {
  *slot = 0;
  const int32_t found = FindFreeSlot();
  const int64_t bytes = ByteSize(width, height, bytesPerPixel);
  if (found == 0 || bytes < 0) return kOutOfMemory;
  void* const block = LockNewBlock(static_cast<size_t>(bytes));
  if (block == nullptr) return kOutOfMemory;
  TakeSlot(found, name, static_cast<uint8_t*>(block), width, height, bytesPerPixel, false);
  *slot = found;
  return kSuccess;
}

int32_t BindBuffer(void* memory, int32_t width, int32_t height, int32_t bytesPerPixel, int32_t* slot) {
  *slot = 0;
  const int32_t found = FindFreeSlot();
  if (found == 0 || memory == nullptr || ByteSize(width, height, bytesPerPixel) < 0) return kOutOfMemory;
  TakeSlot(found, "Bound Memory DLL", static_cast<uint8_t*>(memory), width, height, bytesPerPixel, true);
  *slot = found;
  return kSuccess;
}

bool UnbindBuffer(int32_t slot) {
  if (!IsSlot(slot)) return false;
  ImageBuffer& buffer = BufferTable[slot];
  if (!buffer.bound || buffer.free) return false;
  EmptySlot(buffer);
  return true;
}

void ReleaseBuffer(int32_t slot) {
  // An empty table (before the first reset) has data null everywhere and `free` not yet set.
  if (!HoldsBuffer(slot) || BufferTable[slot].free) return;
  ImageBuffer& buffer = BufferTable[slot];
  if (buffer.bound) {
    UnbindBuffer(slot);
    return;
  }
  if (buffer.fileBacked) std::remove(buffer.name);
  FreeBlock(buffer.data);
  EmptySlot(buffer);
}

int32_t ClearBuffer(int32_t slot) {
  if (slot < 1) return kInvalidSlotOrFile;
  if (!HoldsBuffer(slot)) return kSuccess;
  ImageBuffer& buffer = BufferTable[slot];
  std::memset(buffer.data, 0, StoredBytes(buffer));
  buffer.dirty = 1;
  return kSuccess;
}

void ReadBufferRow(int32_t slot, int32_t offset, int32_t row, int32_t count, void* destination) {
  if (destination == nullptr || count <= 0) return;
  auto* const bytes = static_cast<uint8_t*>(destination);
  if (!HoldsBuffer(slot)) {
    std::memset(bytes, 0, static_cast<size_t>(count));
    return;
  }
  const ImageBuffer& buffer = BufferTable[slot];
  const RowClip clip = ClipToRow(buffer, offset, row, count);
  if (clip.isClipped) std::memset(bytes, 0, static_cast<size_t>(count));
  if (clip.isOutside) return;
  const size_t rowBytes = size_t{buffer.width} * buffer.bytesPerPixel;
  std::memcpy(bytes + clip.callerStart, buffer.data + rowBytes * static_cast<size_t>(row) + clip.rowStart,
              static_cast<size_t>(clip.bytes));
}

void WriteBufferRow(int32_t slot, int32_t offset, int32_t row, int32_t count, const void* source) {
  if (source == nullptr || count <= 0 || !HoldsBuffer(slot)) return;
  ImageBuffer& buffer = BufferTable[slot];
  const RowClip clip = ClipToRow(buffer, offset, row, count);
  if (clip.isOutside) return;
  const size_t rowBytes = size_t{buffer.width} * buffer.bytesPerPixel;
  std::memcpy(buffer.data + rowBytes * static_cast<size_t>(row) + clip.rowStart,
              static_cast<const uint8_t*>(source) + clip.callerStart, static_cast<size_t>(clip.bytes));
  buffer.dirty = 1;
}

namespace {

// Rows as 8-byte elements: bytes to the next row, or 0 when the group of eight columns is not inside.
size_t ColumnGroupStride(int32_t slot, int32_t firstColumn) {
  if (!HoldsBuffer(slot) || firstColumn < 0) return 0;
  const ImageBuffer& buffer = BufferTable[slot];
  const size_t rowBytes = size_t{buffer.width} * buffer.bytesPerPixel;
  return (static_cast<size_t>(firstColumn) + 8) * sizeof(uint64_t) <= rowBytes ? rowBytes : 0;
}

}  // namespace

void ReadBufferColumns(int32_t slot, int32_t firstColumn, uint64_t* const columns[8]) {
  const size_t stride = ColumnGroupStride(slot, firstColumn);
  if (stride == 0) return;
  const ImageBuffer& buffer = BufferTable[slot];
  const uint8_t* group = buffer.data + static_cast<size_t>(firstColumn) * sizeof(uint64_t);
  for (uint32_t row = 0; row < buffer.height; ++row, group += stride) {
    uint64_t elements[8];
    std::memcpy(elements, group, sizeof elements);
    for (int i = 0; i < 8; ++i) columns[i][row] = elements[i];
  }
}

void WriteBufferColumns(int32_t slot, int32_t firstColumn, const uint64_t* const columns[8]) {
  const size_t stride = ColumnGroupStride(slot, firstColumn);
  if (stride == 0) return;
  ImageBuffer& buffer = BufferTable[slot];
  uint8_t* group = buffer.data + static_cast<size_t>(firstColumn) * sizeof(uint64_t);
  for (uint32_t row = 0; row < buffer.height; ++row, group += stride) {
    uint64_t elements[8];
    for (int i = 0; i < 8; ++i) elements[i] = columns[i][row];
    std::memcpy(group, elements, sizeof elements);
  }
  buffer.dirty = 1;
}

void FlushBufferTable() {
  // The bound is the live count, read afresh, which shrinks with every slot freed. A flush therefore visits
  // the lowest-numbered slots only and leaves the rest allocated, and one live buffer alone is never visited.
  // Deliberate: other doors rely on buffers that outlive a flush. Do not walk the whole table instead.
  if (liveBufferCount != 1) {
    for (int32_t slot = 1; slot < liveBufferCount && slot < kBufferSlots; ++slot) {
      ImageBuffer& buffer = BufferTable[slot];
      if (buffer.free) continue;
      if (buffer.bound) {
        UnbindBuffer(slot);
        continue;
      }
      if (buffer.fileBacked && buffer.dirty) WriteBufferFile(buffer);
      FreeBlock(buffer.data);
      EmptySlot(buffer);
    }
  }
  liveBufferCount = 0;
}

void FreeBlock(void* block) {
  FreeLockedBlock(block);
}

BufferShape ShapeOf(int32_t slot) {
  if (!HoldsBuffer(slot)) return {0, 0, 0};
  const ImageBuffer& buffer = BufferTable[slot];
  return {static_cast<int32_t>(buffer.width), static_cast<int32_t>(buffer.height),
          static_cast<int32_t>(buffer.bytesPerPixel)};
}

ImageView ViewOf(int32_t slot) {
  const BufferShape shape = ShapeOf(slot);
  if (shape.width == 0) return {};
  return PackedView(BufferTable[slot].data, shape.width, shape.height, shape.bytesPerPixel);
}

uint8_t* BufferRow(int32_t slot, int32_t row) {
  if (!HoldsBuffer(slot) || row < 0 || row >= static_cast<int64_t>(BufferTable[slot].height)) return nullptr;
  const ImageBuffer& buffer = BufferTable[slot];
  return buffer.data + size_t{buffer.width} * buffer.bytesPerPixel * static_cast<size_t>(row);
}

void MarkDirty(int32_t slot) {
  if (HoldsBuffer(slot)) BufferTable[slot].dirty = 1;
}

}  // namespace tessaline
