#include "python/call.h"

#include <string>

namespace py = pybind11;

namespace tessaline::python {

namespace {

constexpr int kMostThreads = 256;

// Python is asked no oftener: its lock may have to be waited for.
constexpr auto kBetweenReports = std::chrono::milliseconds(20);

}  // namespace

Call::Call(const std::optional<int>& threads, py::object progress, CallMemory& memory)
    : memory_(memory), progress_(std::move(progress)) {
  if (threads && (*threads < 1 || *threads > kMostThreads)) {
    throw py::value_error("threads must be 1 to 256 or None, not " + std::to_string(*threads));
  }
  threads_ = MakeThreadPool(threads ? *threads : UsableProcessors());
  if (!threads_) throw std::runtime_error("the system has no more threads to give; ask for fewer");
  memory_.Borrow(threads_.get());
}

bool Call::Report(void* user, double part) {
  return static_cast<Call*>(user)->Tell(part);
}

bool Call::Tell(double part) {
  if (raised_) return true;
  const auto now = std::chrono::steady_clock::now();
  if (now < next_) return false;
  next_ = now + kBetweenReports;
  const py::gil_scoped_acquire hold;
  try {
    if (PyErr_CheckSignals() != 0) throw py::error_already_set();
    if (!progress_.is_none()) progress_(part);
  } catch (...) {
    raised_ = std::current_exception();
  }
  return raised_ != nullptr;
}

void Call::Finish() {
  if (raised_) std::rethrow_exception(raised_);
  if (!progress_.is_none()) progress_(1.0);
}

void Call::Fail(int32_t result) const {
  if (raised_) std::rethrow_exception(raised_);
  if (result != kOutOfMemory)
    throw py::value_error("the engine refused it (code " + std::to_string(result) + ")");
  PyErr_SetString(PyExc_MemoryError,
                  "not enough memory for the transform; give it a smaller picture or fewer threads");
  throw py::error_already_set();
}

}  // namespace tessaline::python
