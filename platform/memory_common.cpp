#include <atomic>

#include "platform/memory.h"

namespace tessaline {

namespace {
constexpr int kNever = -1;
constinit std::atomic<int> g_allocationsUntilFailure{kNever};
constinit std::atomic<bool> g_isOnlyOne{false}, g_hasFailed{false}, g_isPaused{false};
}  // namespace

void FailAllocationAfter(int n, bool isOnlyOne) {
  g_isOnlyOne = isOnlyOne;
  g_hasFailed = false;
  g_allocationsUntilFailure = n;
}

bool ClearAllocationFailure() {
  g_allocationsUntilFailure = kNever;
  return g_hasFailed;
}

AllocationFailurePause::AllocationFailurePause(bool isPaused) : wasPaused_(g_isPaused.exchange(isPaused)) {}

AllocationFailurePause::~AllocationFailurePause() {
  g_isPaused = wasPaused_;
}

bool AllocationMustFail() {
  int left = g_allocationsUntilFailure;
  if (left < 0 || g_isPaused) return false;
  const auto next = [](int count) { return count > 0 ? count - 1 : g_isOnlyOne ? kNever : 0; };
  while (left >= 0 && !g_allocationsUntilFailure.compare_exchange_weak(left, next(left))) {
  }
  if (left != 0) return false;
  g_hasFailed = true;
  return true;
}

}  // namespace tessaline
