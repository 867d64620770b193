// The three user parameters of one run, and the handle that carries them.
#pragma once

#include <cstdint>

#include "removal/settings.h"

namespace tessaline {

struct ParameterList;

// 21 32-bit words, zero when made.
struct FilterParameters {
  float acceptance;        // percent; whole when it came from scripting or the settings
  float notchRadius;       // spectrum cells
  float protectionRadius;  // image pixels
  int32_t gray16Slot;      // the run's enhanced spectrum "PSPECgray16", for the dialog
  int32_t gray8Slot;       // the run's display spectrum "PSPECgray8", for the dialog
  // The dialog's highlight colour: 0 red, 1 cyan, 2 other, and its components 0..255.
  float highlightMode;
  float highlightRed;
  float highlightGreen;
  float highlightBlue;
  uint32_t spare[12];  // free for the dialog and the run
};
static_assert(sizeof(FilterParameters) == 84);

// A handle made by this program rather than by the host: told apart by its signature.
#pragma pack(push, 4)
struct ProgramHandle {
  void* block;
  uint32_t signature;  // bytes "OTOF" in memory
};
#pragma pack(pop)
static_assert(sizeof(ProgramHandle) == 12);
constexpr uint32_t kHandleSignature = 0x464F544F;  // 'O' is the lowest byte

// Program-wide: 0 or kOutOfMemory from MakeHandle, kNullHandle from an operation on a null handle. Operations
// that succeed on an existing handle leave it alone, so that a failed allocation is not forgotten.
extern int32_t lastMemoryError;

// A handle with a zeroed block of `bytes` bytes; null, with lastMemoryError kOutOfMemory, when there is no
// memory or the size is negative.
ProgramHandle* MakeHandle(int32_t bytes);
// Frees the block and the record. A null handle sets lastMemoryError to kNullHandle; a handle without the
// signature is somebody else's and stays.
void DisposeHandle(ProgramHandle* handle);
// Bytes of the handle's block; 0, with lastMemoryError kNullHandle, for a null handle.
int32_t HandleSize(const ProgramHandle* handle);

// A new handle whose block is a FilterParameters with the list's values. When the protection radius in the
// list is zero or not a number, all three values take their defaults; no other value is tested for that (an
// acceptance of 0 beside a set protection radius is a wish, not an absence). A notch radius that is zero or
// not a number takes its own default: no mask can be made with it. Null without memory.
ProgramHandle* MakeParameters(const ParameterList& list);

// The record in a handle of MakeParameters; null for a null handle.
FilterParameters* ParametersOf(ProgramHandle* handle);

// The three values into the list, acceptance truncated to a whole number.
void StoreInList(const FilterParameters& parameters, ParameterList* list);

// After the dialog ended with OK: the three values into the list (acceptance truncated to a whole number)
// and, unchanged, into the settings record.
void StoreParameters(const FilterParameters& parameters, ParameterList* list);

}  // namespace tessaline
