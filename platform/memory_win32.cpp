#include <windows.h>

#include "platform/memory.h"

namespace tessaline {

void* LockNewBlock(size_t bytes) {
  if (AllocationMustFail()) return nullptr;
  const HGLOBAL handle = GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, bytes > 0 ? bytes : 1);
  if (handle == nullptr) return nullptr;
  void* const block = GlobalLock(handle);
  if (block == nullptr) GlobalFree(handle);
  return block;
}

void FreeLockedBlock(void* block) {
  if (block == nullptr) return;
  const HGLOBAL handle = GlobalHandle(block);
  GlobalUnlock(handle);
  GlobalFree(handle);
}

}  // namespace tessaline
