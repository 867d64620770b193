#include <cstdlib>

#include "platform/memory.h"

namespace tessaline {

void* LockNewBlock(size_t bytes) {
  if (AllocationMustFail()) return nullptr;
  // calloc takes large blocks straight from the kernel, which zeroes each page when it is first touched.
  return std::calloc(bytes > 0 ? bytes : 1, 1);
}

void FreeLockedBlock(void* block) {
  std::free(block);
}

}  // namespace tessaline
