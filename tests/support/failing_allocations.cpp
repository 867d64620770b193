// operator new of a whole test program, which fails when platform/memory.h is told to.
#include "tests/support/module_allocations.h"

#include <cstdlib>
#include <memory>
#include <new>

#include "platform/memory.h"

namespace {

bool (*isCallerThatFails)(const void* address) = nullptr;
void (*noteFailure)() = nullptr;
std::size_t smallestThatFails = 0;

void* Allocate(std::size_t bytes, const void* caller) noexcept {
  return tessaline::AllocationFailsFor(caller, bytes) ? nullptr : std::malloc(bytes > 0 ? bytes : 1);
}

void* AllocateOrThrow(std::size_t bytes, const void* caller) {
  void* const block = Allocate(bytes, caller);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

// What was allocated stands before the aligned block.
void** OriginOf(void* aligned) {
  return static_cast<void**>(aligned) - 1;
}

void FreeAligned(void* block) {
  if (block != nullptr) std::free(*OriginOf(block));
}

}  // namespace

namespace tessaline {

bool AllocationFailsFor(const void* caller, std::size_t bytes) {
  if (bytes < smallestThatFails) return false;
  if (isCallerThatFails != nullptr && !isCallerThatFails(caller)) return false;
  const bool fails = AllocationMustFail();
  if (fails && noteFailure != nullptr) noteFailure();
  return fails;
}

void FailAllocationsOnlyOf(bool (*isCaller)(const void* address)) {
  isCallerThatFails = isCaller;
}

void FailAllocationsOnlyFrom(std::size_t bytes) {
  smallestThatFails = bytes;
}

void NoteFailedAllocations(void (*note)()) {
  noteFailure = note;
}

}  // namespace tessaline

// The forms that are not here end in these, or in their counterparts for deletion.
void* operator new(std::size_t bytes) {
  return AllocateOrThrow(bytes, __builtin_return_address(0));
}
void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept {
  return Allocate(bytes, __builtin_return_address(0));
}
void* operator new(std::size_t bytes, std::align_val_t alignment) {
  const auto step = static_cast<std::size_t>(alignment);
  void* const origin = AllocateOrThrow(bytes + step + sizeof origin, __builtin_return_address(0));
  void* aligned = static_cast<char*>(origin) + sizeof origin;
  std::size_t room = bytes + step;
  aligned = std::align(step, bytes, aligned, room);
  *OriginOf(aligned) = origin;
  return aligned;
}
void operator delete(void* block) noexcept {
  std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
  std::free(block);
}
void operator delete(void* block, std::align_val_t) noexcept {
  FreeAligned(block);
}
void operator delete(void* block, std::size_t, std::align_val_t) noexcept {
  FreeAligned(block);
}
