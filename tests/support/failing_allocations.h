// Every allocation of an operation fails once: the k-th alone, then the k-th and all that follow, for k = 1,
// 2, ... until the operation meets no failure.
//
// With failing_allocations.cpp among a test program's sources operator new asks the same switch as the blocks
// of platform/memory.h, so that the standard containers fail, too.
//
//   for (FailingAllocations failing; failing.Next();) {
//     const auto result = failing.During([&] { return Operation(); });
//     ... what must hold, whatever failed; failing.hasFailed() tells whether something did
//   }
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>

#include "platform/memory.h"
#include "tests/support/sanitizers.h"

namespace tessaline {

class FailingAllocations {
 public:
  // After the first ones a dozen or two of the others are taken, further and further apart; with
  // TESSALINE_EVERY_ALLOCATION in the environment each of them is. The first ones may be those after `from`.
  explicit FailingAllocations(int from = 0)
      : from_(from),
        each_(std::getenv("TESSALINE_EVERY_ALLOCATION") != nullptr ? 1000000 : from + kFirstOnes) {}
  ~FailingAllocations() { EXPECT_GT(failures_, 0) << "nothing was allocated, so nothing was shown"; }

  bool Next() {
    trace_.reset();
    if (wasCalled_ && !hasFailed_) {
      if (!isOnlyOne_) return false;
      isOnlyOne_ = false;
      at_ = from_ - 1;
    }
    at_ += wasCalled_ && at_ >= each_ ? 1 + at_ / kSteps : 1;
    wasCalled_ = hasFailed_ = false;
    trace_.emplace(__FILE__, __LINE__,
                   testing::Message()
                       << "failing: allocation " << at_ + 1 << (isOnlyOne_ ? "" : " and all later"));
    return at_ < 100000;
  }

  template <typename Operation>
  auto During(const Operation& operation) {
    struct Disarm {
      FailingAllocations* self;
      ~Disarm() {
        self->hasFailed_ = ClearAllocationFailure();
        self->failures_ += self->hasFailed_;
      }
    } disarm{this};
    wasCalled_ = true;
    FailAllocationAfter(at_, isOnlyOne_);
    return operation();
  }

  bool hasFailed() const { return hasFailed_; }

 private:
#ifdef TESSALINE_UNDER_WINE  // where a window takes its time
  static constexpr bool kTakesLong = true;
#else
  static constexpr bool kTakesLong = kIsWatched;
#endif
  static constexpr int kFirstOnes = kTakesLong ? 4 : 8, kSteps = kTakesLong ? 1 : 2;
  int from_, each_, at_ = from_ - 1, failures_ = 0;
  bool isOnlyOne_ = true, wasCalled_ = false, hasFailed_ = false;
  std::optional<testing::ScopedTrace> trace_;
};

}  // namespace tessaline
