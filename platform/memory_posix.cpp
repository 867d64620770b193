#include <sys/mman.h>

#include <cstdint>
#include <cstdlib>

#include "platform/memory.h"

namespace tessaline {

namespace {

constexpr size_t kLargePage = size_t{2} << 20;  // bytes
constexpr size_t kFewestLargePages = 4;

// Whole large pages inside a block are asked for as such: a transform's plane is then there after dozens of
// page faults instead of tens of thousands, which threads would stand in line for, and its columns need few
// entries of the page table. Only a wish: without them everything works.
void AskForLargePages(void* block, size_t bytes) {
#ifdef MADV_HUGEPAGE
  if (block == nullptr || bytes < kFewestLargePages * kLargePage) return;
  const auto address = reinterpret_cast<uintptr_t>(block);
  const size_t before = (kLargePage - address % kLargePage) % kLargePage;
  const size_t whole = (bytes - before) / kLargePage * kLargePage;
  madvise(static_cast<char*>(block) + before, whole, MADV_HUGEPAGE);
#endif
}

}  // namespace

void* LockNewBlock(size_t bytes) {
  if (AllocationMustFail()) return nullptr;
  // calloc takes large blocks straight from the kernel, which zeroes each page when it is first touched.
  void* const block = std::calloc(bytes > 0 ? bytes : 1, 1);
  AskForLargePages(block, bytes);
  return block;
}

void FreeLockedBlock(void* block) {
  std::free(block);
}

}  // namespace tessaline
