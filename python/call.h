// One call from Python at work: its threads, its memory, and Python's own lock, which it lets go meanwhile.
#pragma once

#include <pybind11/pybind11.h>

#include <chrono>
#include <exception>
#include <memory>
#include <optional>

#include "removal/steps.h"

namespace tessaline::python {

// Memory of steps that outlives a call, so that the next picture of the size need not take it anew. Threads
// do not: they would be missing in a forked process, which has the memory all the same.
class CallMemory final : public Parallel {
 public:
  Workspace workspace{*this};

  // `threads` stays valid until the next Borrow.
  void Borrow(Parallel* threads) {
    if (threads_ != nullptr && threads->threads() != workers_) workspace.Release();
    threads_ = threads;
    workers_ = threads->threads();
  }

  int32_t threads() const override { return workers_; }
  bool Run(int32_t count, Task task, Poll poll, void* user) override {
    return threads_->Run(count, task, poll, user);
  }

 private:
  Parallel* threads_ = nullptr;
  int32_t workers_ = 1;
};

class Call {
 public:
  // `threads`: 1 to 256, nullopt for all processors that the process may use. `progress`: called with the
  // part that is done, or None. Throws ValueError, RuntimeError when the threads cannot be had.
  Call(const std::optional<int>& threads, pybind11::object progress, CallMemory& memory);

  // step(workspace, progress) without Python's lock. Throws what the code that it returns stands for: for a
  // cancelled one what Python raised, in the callback or for a signal such as Ctrl-C. What Python raised too
  // late to stop the step waits for the next one, or for Finish.
  template <typename Step>
  void Run(double begin, double end, const Step& step) {
    int32_t result = 0;
    {
      const pybind11::gil_scoped_release letGo;
      result = step(memory_.workspace, Progress{Report, this, begin, end});
    }
    if (result != kSuccess) Fail(result);
  }

  // Tells the callback that all is done. Throws what Python has raised.
  void Finish();

 private:
  static bool Report(void* user, double part);
  bool Tell(double part);
  [[noreturn]] void Fail(int32_t result) const;

  std::unique_ptr<Parallel> threads_;
  CallMemory& memory_;
  pybind11::object progress_;
  std::chrono::steady_clock::time_point next_ = {};
  std::exception_ptr raised_;
};

}  // namespace tessaline::python
