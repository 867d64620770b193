// The program-wide table of image buffers.
//
// Every picture, spectrum and mask of a run is a row-major block of pixels in one of the slots 1..2047 of
// BufferTable. Other rooms hold slot numbers, not pointers, and move pixels with the row and column
// operations below. Slot 0 means "no buffer": reads from it deliver zeros, writes to it do nothing.
//
// Order of calls: ResetBufferTable at the start of a run, then any number of operations, then
// FlushBufferTable, also on the error exits. One thread at a time; the table is not locked.
#pragma once

#include <cstddef>
#include <cstdint>

#include "image/image_view.h"

namespace tessaline {

constexpr int32_t kBufferSlots = 2048;  // slot 0 is never handed out
constexpr int32_t kBufferNameBytes = 1024;

struct ImageBuffer {
  uint8_t* data;  // pixels, rows packed; null when the slot is empty
  uint32_t width;
  uint32_t height;
  uint32_t bytesPerPixel;
  uint8_t fileBacked;           // name is a path: written there at flush, the file deleted at release
  char name[kBufferNameBytes];  // NUL-terminated label or path
  uint8_t dirty;                // contents may have changed since creation or binding
  uint8_t free;                 // the slot may be taken
  uint8_t bound;                // data belongs to the caller and is never freed here
};

extern ImageBuffer BufferTable[kBufferSlots];

// Occupied slots. FlushBufferTable sets it to 0 even where buffers stay behind (see there).
extern int32_t liveBufferCount;

// Makes every slot empty. Frees nothing: memory that a slot still holds is lost, so flush first.
void ResetBufferTable();

// A zero-filled buffer in the lowest free slot. Returns 0; or kOutOfMemory, with *slot 0 and the table as it
// was, when no slot is free, there is no memory, a size is not positive, or the byte size does not stay below
// 2^31 (sizes and offsets are 32-bit signed throughout).
int32_t CreateBuffer(const char* name, int32_t width, int32_t height, int32_t bytesPerPixel, int32_t* slot);

// The caller's pixels as a buffer named "Bound Memory DLL". The memory must hold width x height x
// bytesPerPixel bytes until the slot is unbound. Returns as CreateBuffer; null memory is kOutOfMemory too.
int32_t BindBuffer(void* memory, int32_t width, int32_t height, int32_t bytesPerPixel, int32_t* slot);

// Empties a bound slot; the caller's memory is not touched. False, and nothing done, for any other slot.
bool UnbindBuffer(int32_t slot);

// Frees an owned buffer (and deletes its file when it is file-backed), unbinds a bound one.
void ReleaseBuffer(int32_t slot);

// Zeroes the pixels. Returns 0, or kInvalidSlotOrFile for a slot below 1.
int32_t ClearBuffer(int32_t slot);

// Copies `count` bytes of row `row`, from byte `offset` on, to `destination`. Offset and count are first cut
// to whole pixels (towards zero). Parts outside the buffer read as zero, so where anything is clipped all
// `count` bytes are defined; where nothing is, the bytes past the last whole pixel are left alone.
void ReadBufferRow(int32_t slot, int32_t offset, int32_t row, int32_t count, void* destination);

// The mirror of ReadBufferRow: parts outside the buffer are skipped. Sets dirty unless the whole request
// lies outside.
void WriteBufferRow(int32_t slot, int32_t offset, int32_t row, int32_t count, const void* source);

// Eight neighbouring columns of 8-byte elements, top to bottom, into or out of eight arrays of `height`
// elements each. `firstColumn` counts 8-byte elements; a group that does not lie inside the row is refused
// (nothing read or written), as is a slot without a buffer.
void ReadBufferColumns(int32_t slot, int32_t firstColumn, uint64_t* const columns[8]);
void WriteBufferColumns(int32_t slot, int32_t firstColumn, const uint64_t* const columns[8]);

// Ends a run: writes dirty file-backed buffers to their files, frees owned and empties bound slots, as far as
// the loop's bound reaches (see the implementation: the bound shrinks with every slot freed, and a table with
// one live buffer is not visited at all). Buffers beyond it stay allocated and out of reach.
void FlushBufferTable();

// Frees a block from the pointer that the table (or LockNewBlock) holds. Null is allowed.
void FreeBlock(void* block);

// Width, height and bytes per pixel of a slot; zeros for a slot outside 1..2047 or an empty one.
struct BufferShape {
  int32_t width;
  int32_t height;
  int32_t bytesPerPixel;
};
BufferShape ShapeOf(int32_t slot);

// The buffer's pixels in place: an empty view for a slot without a buffer. Valid until the slot is released.
// Writers call MarkDirty.
ImageView ViewOf(int32_t slot);

// The row's bytes in place, for loops that would otherwise copy every row in and out: null unless the slot
// holds a buffer and the row lies inside it. Valid until the slot is released. Writers call MarkDirty.
uint8_t* BufferRow(int32_t slot, int32_t row);
void MarkDirty(int32_t slot);

// Releases a slot when it goes out of scope.
class OwnedBuffer {
 public:
  OwnedBuffer() = default;
  OwnedBuffer(const OwnedBuffer&) = delete;
  OwnedBuffer& operator=(const OwnedBuffer&) = delete;
  ~OwnedBuffer() { Release(); }
  // As CreateBuffer; a buffer held before is released first.
  int32_t Create(const char* name, int32_t width, int32_t height, int32_t bytesPerPixel) {
    Release();
    return CreateBuffer(name, width, height, bytesPerPixel, &slot_);
  }
  void Release() {
    ReleaseBuffer(slot_);
    slot_ = 0;
  }
  int32_t slot() const { return slot_; }

 private:
  int32_t slot_ = 0;
};

}  // namespace tessaline
