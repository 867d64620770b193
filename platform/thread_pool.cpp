// A file of its own, so that a program which never asks for threads links none.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

#include "platform/parallel.h"

namespace tessaline {

namespace {

// One piece of work follows the other within microseconds, and a thread that sleeps takes dozens of them to
// wake up: so those who wait look on for a while before they sleep.
template <typename Condition>
void LookOutFor(const Condition& condition) {
  constexpr std::chrono::microseconds kPatience{100};
  const auto begun = std::chrono::steady_clock::now();
  while (!condition() && std::chrono::steady_clock::now() - begun < kPatience) {
  }
}

class ThreadPool final : public Parallel {
 public:
  // Of the threads asked for those that can be had.
  explicit ThreadPool(int32_t threads) {
    try {
      for (int32_t worker = 1; worker < threads; ++worker) {
        helpers_.emplace_back([this, worker] { WaitForWork(worker); });
      }
    } catch (const std::system_error&) {  // no further thread
    } catch (const std::bad_alloc&) {
    }
  }
  ~ThreadPool() override { End(); }

  int32_t threads() const override { return static_cast<int32_t>(helpers_.size()) + 1; }

  bool Run(int32_t count, Task task, Poll poll, void* user) override {
    {
      const std::lock_guard lock(mutex_);
      task_ = task;
      user_ = user;
      count_ = count;
      next_ = 0;
      finished_ = 0;
      working_ = static_cast<int32_t>(helpers_.size());
      ++round_;
    }
    begin_.notify_all();
    bool isStopped = false;
    {
      const RoundEnd end{this, count};
      for (int32_t index; !isStopped && (index = next_.fetch_add(1)) < count;) {
        task(user, index, 0);
        const int32_t finished = finished_.fetch_add(1) + 1;
        isStopped = poll != nullptr && poll(user, finished);
      }
    }
    if (!isStopped && poll != nullptr && count > 0) isStopped = poll(user, count);
    return isStopped;
  }

 private:
  // No further task is begun, and those that were are waited for: what poll throws may not pass before.
  struct RoundEnd {
    ThreadPool* pool;
    int32_t count;
    ~RoundEnd() {
      pool->next_ = count;
      const auto isDone = [this] { return pool->working_ == 0; };
      LookOutFor(isDone);
      std::unique_lock lock(pool->mutex_);
      pool->done_.wait(lock, isDone);
    }
  };

  void WaitForWork(int32_t worker) {
    uint64_t seen = 0;
    const auto isWanted = [&] { return isEnding_ || round_ != seen; };
    for (;;) {
      LookOutFor(isWanted);
      std::unique_lock lock(mutex_);
      begin_.wait(lock, isWanted);
      if (isEnding_) return;
      seen = round_;
      const Task task = task_;
      void* const user = user_;
      const int32_t count = count_;
      lock.unlock();
      for (int32_t index; (index = next_.fetch_add(1)) < count;) {
        task(user, index, worker);
        finished_.fetch_add(1);
      }
      lock.lock();
      if (--working_ == 0) done_.notify_one();
    }
  }

  void End() {
    {
      const std::lock_guard lock(mutex_);
      isEnding_ = true;
    }
    begin_.notify_all();
    for (std::thread& helper : helpers_) helper.join();
  }

  std::vector<std::thread> helpers_;
  std::mutex mutex_;
  std::condition_variable begin_, done_;
  std::atomic<bool> isEnding_{false};  // these three change under the mutex
  std::atomic<uint64_t> round_{0};
  std::atomic<int32_t> working_{0};  // helpers that have not finished this round
  Task task_ = nullptr;
  void* user_ = nullptr;
  int32_t count_ = 0;
  std::atomic<int32_t> next_{0}, finished_{0};
};

}  // namespace

std::unique_ptr<Parallel> MakeThreadPool(int32_t threads) {
  try {
    auto pool = std::make_unique<ThreadPool>(std::max(threads, 1));
    if (threads > 1 && pool->threads() == 1) return nullptr;
    return pool;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

}  // namespace tessaline
