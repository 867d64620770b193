// Whose allocations fail: code that is tested as it is installed has the engine's switch hidden in it, so
// they are told by the address that asks for them.
#pragma once

#include <cstddef>

namespace tessaline {

// --- failing_allocations.cpp, for operator new ---

// Only where it is called from an address that `isCaller` knows; null: everywhere, as at first.
void FailAllocationsOnlyOf(bool (*isCaller)(const void* address));
// Only those of so many bytes or more.
void FailAllocationsOnlyFrom(std::size_t bytes);
// `note` is called whenever one fails.
void NoteFailedAllocations(void (*note)());
// For those who allocate: true when what is called from there is to fail.
bool AllocationFailsFor(const void* caller, std::size_t bytes);

// --- module_allocations.cpp, which has calloc beside it ---

// Only those of the loaded file whose path ends in `file` ("": the program itself), and of the C++ library,
// which allocates for it. False, with no change, where no such file is loaded.
bool FailAllocationsOfModule(const char* file);

}  // namespace tessaline
