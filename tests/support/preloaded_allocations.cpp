// To be preloaded into a program, together with failing_allocations.cpp and module_allocations.cpp. In its
// environment TESSALINE_FAIL_ALLOCATION=K makes the allocation after the first K of the program's own fail,
// K+ all later ones, too; the file TESSALINE_ALLOCATION_FAILED is made when one does. An interpreter calls
// the functions below instead.
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "platform/memory.h"
#include "tests/support/module_allocations.h"

namespace {

void LeaveMark() {
  const char* const path = std::getenv("TESSALINE_ALLOCATION_FAILED");
  if (path != nullptr) close(open(path, O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
}

[[gnu::constructor]] void TakeWish() {
  const char* const wish = std::getenv("TESSALINE_FAIL_ALLOCATION");
  if (wish == nullptr) return;
  tessaline::NoteFailedAllocations(LeaveMark);
  tessaline::FailAllocationsOfModule("");
  tessaline::FailAllocationAfter(std::atoi(wish), std::strchr(wish, '+') == nullptr);
}

}  // namespace

extern "C" [[gnu::visibility("default")]] int tessaline_fail_allocation(const char* file, int smallest,
                                                                        int after, int isOnlyOne) {
  if (!tessaline::FailAllocationsOfModule(file)) return 0;
  tessaline::FailAllocationsOnlyFrom(static_cast<size_t>(smallest));
  tessaline::FailAllocationAfter(after, isOnlyOne != 0);
  return 1;
}

extern "C" [[gnu::visibility("default")]] int tessaline_allocation_failed() {
  return tessaline::ClearAllocationFailure() ? 1 : 0;
}
