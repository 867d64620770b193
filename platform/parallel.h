// Work that is split into tasks, on one thread or several.
//
// What a task computes must not depend on which thread runs it or on what ran before: results then have the
// same bits for every number of threads.
#pragma once

#include <cstdint>
#include <memory>

namespace tessaline {

class Parallel {
 public:
  virtual ~Parallel() = default;

  // Threads that work, the caller's among them; 1 or more.
  virtual int32_t threads() const = 0;

  // Runs tasks 0 .. count-1, each once; `worker`, 0 .. threads() - 1, is the thread's own number, for scratch
  // memory (the caller is 0). Between its own tasks the calling thread, and no other, calls `poll` (may be
  // null) with the number of finished tasks; true means that no further task is begun. Returns when all tasks
  // that were begun have ended: true when poll stopped it. Tasks must not throw; poll may, which stops too.
  using Task = void (*)(void* user, int32_t index, int32_t worker);
  using Poll = bool (*)(void* user, int32_t finished);
  virtual bool Run(int32_t count, Task task, Poll poll, void* user) = 0;
};

// Everything on the caller's thread, in order.
Parallel& SerialWork();

// A pool of threads that wait for work. `threads` counts the caller's; 1 is SerialWork without a pool. Only
// one Run at a time. Where fewer threads can be had it has those; null where none can.
std::unique_ptr<Parallel> MakeThreadPool(int32_t threads);

// The processors that this process may use: those of its affinity mask, no more than its processor-time quota
// pays for (rounded up). At least 1.
int32_t UsableProcessors();

// task(index, worker) for every index; poll(finished) as above.
template <typename Task, typename Poll>
bool ForEachTask(Parallel& parallel, int32_t count, const Task& task, const Poll& poll) {
  struct Calls {
    const Task& task;
    const Poll& poll;
  } calls{task, poll};
  return parallel.Run(
      count,
      [](void* user, int32_t index, int32_t worker) { static_cast<Calls*>(user)->task(index, worker); },
      [](void* user, int32_t finished) -> bool { return static_cast<Calls*>(user)->poll(finished); }, &calls);
}

// row(y) for y = 0 .. rows - 1, an even number of neighbouring rows a task.
template <typename Row>
void ForEachRow(Parallel& parallel, int32_t rows, const Row& row) {
  constexpr int32_t kRowsPerTask = 32;
  const auto task = [&](int32_t index, int32_t) {
    const int32_t first = index * kRowsPerTask;
    const int32_t last = first + kRowsPerTask < rows ? first + kRowsPerTask : rows;
    for (int32_t y = first; y < last; ++y) row(y);
  };
  ForEachTask(parallel, (rows + kRowsPerTask - 1) / kRowsPerTask, task, [](int32_t) { return false; });
}

}  // namespace tessaline
