#include "platform/memory.h"

namespace tessaline {

namespace {
int g_allocationsUntilFailure = -1;
}

void FailAllocationAfter(int n) {
  g_allocationsUntilFailure = n;
}

bool AllocationMustFail() {
  if (g_allocationsUntilFailure < 0) return false;
  if (g_allocationsUntilFailure == 0) return true;
  --g_allocationsUntilFailure;
  return false;
}

}  // namespace tessaline
