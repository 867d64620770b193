#include <atomic>

#include "platform/memory.h"

namespace tessaline {

namespace {
constinit std::atomic<int> g_allocationsUntilFailure{-1};
}

void FailAllocationAfter(int n) {
  g_allocationsUntilFailure = n;
}

bool AllocationMustFail() {
  int left = g_allocationsUntilFailure;
  while (left > 0 && !g_allocationsUntilFailure.compare_exchange_weak(left, left - 1)) {
  }
  return left == 0;
}

}  // namespace tessaline
