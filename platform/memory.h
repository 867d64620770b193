// Blocks of memory: zero-filled, at a fixed address, and honest about failure.
#pragma once

#include <cstddef>
#include <memory>

namespace tessaline {

// A new block of `bytes` zero bytes, aligned to at least 16, or null when there is no memory (never an
// exception). Zero bytes give a valid block of no size. Large blocks take memory page by page as they are
// first touched.
void* LockNewBlock(size_t bytes);

// Gives a block of LockNewBlock back. Null is allowed.
void FreeLockedBlock(void* block);

// The same, from where a line of the processor's memory begins (64 bytes), for wide vectors that cross lines
// are slow to load; in builds that look for accesses beyond a block, only to 16, so that it ends where it
// should. Freed by FreeAlignedBlock, not by the above.
void* LockNewAlignedBlock(size_t bytes);
void FreeAlignedBlock(void* block);

struct BlockDeleter {
  void operator()(void* block) const { FreeAlignedBlock(block); }
};

// A block with an owner: freed on every path. Test it before use.
template <typename T>
using OwnedBlock = std::unique_ptr<T[], BlockDeleter>;

// `count` zeroed elements, aligned, or an empty owner when there is no memory (also when the size overflows).
template <typename T>
OwnedBlock<T> AllocateBlock(size_t count) {
  if (count > static_cast<size_t>(-1) / sizeof(T)) return nullptr;
  return OwnedBlock<T>(static_cast<T*>(LockNewAlignedBlock(count * sizeof(T))));
}

// Tests make allocations fail: those of this header, and operator new where a test program has put its own in
// its place (tests/support/failing_allocations.h). The n-th following one fails (0: the next), and so does
// every later one unless `isOnlyOne`. A negative n clears.
void FailAllocationAfter(int n, bool isOnlyOne = false);
// True when an allocation has failed since then.
bool ClearAllocationFailure();

// While one lives, allocations neither fail nor count: a host, or a judge, is at work in the middle of what
// is tested. `isPaused` false ends that for a while, where the program is called.
class AllocationFailurePause {
 public:
  explicit AllocationFailurePause(bool isPaused = true);
  AllocationFailurePause(const AllocationFailurePause&) = delete;
  AllocationFailurePause& operator=(const AllocationFailurePause&) = delete;
  ~AllocationFailurePause();

 private:
  bool wasPaused_;
};

// For those who allocate: true when this allocation is to fail.
bool AllocationMustFail();

}  // namespace tessaline
