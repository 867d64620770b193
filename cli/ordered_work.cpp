#include "cli/ordered_work.h"

#include <new>
#include <system_error>
#include <utility>

namespace tessaline::cli {

OrderedWork::OrderedWork(int threads) {
  try {
    for (int i = 0; threads > 1 && i < threads; ++i) threads_.emplace_back([this] { Work(); });
  } catch (const std::system_error&) {  // those that there are do the work
  } catch (const std::bad_alloc&) {
  }
}

OrderedWork::~OrderedWork() {
  {
    const std::lock_guard lock(mutex_);
    isEnding_ = true;
    toCompute_.clear();
  }
  wanted_.notify_all();
  for (std::thread& thread : threads_) thread.join();
}

void OrderedWork::Work() {
  std::unique_lock lock(mutex_);
  for (;;) {
    wanted_.wait(lock, [this] { return isEnding_ || !toCompute_.empty(); });
    if (isEnding_) return;
    const std::shared_ptr<Piece> piece = std::move(toCompute_.front());
    toCompute_.pop_front();
    lock.unlock();
    try {
      piece->compute();
    } catch (...) {
      piece->failure = std::current_exception();
    }
    lock.lock();
    piece->isDone = true;
    done_.notify_one();
  }
}

void OrderedWork::Add(std::function<void()> compute, std::function<void()> take) {
  if (threads_.empty()) {
    compute();
    take();
    return;
  }
  constexpr size_t kPiecesPerThread = 4;
  while (toTake_.size() >= kPiecesPerThread * threads_.size()) TakeFirst();
  toTake_.push_back(std::make_shared<Piece>(Piece{std::move(compute), std::move(take), false, nullptr}));
  {
    const std::lock_guard lock(mutex_);
    toCompute_.push_back(toTake_.back());
  }
  wanted_.notify_one();
}

void OrderedWork::Finish() {
  while (!toTake_.empty()) TakeFirst();
}

void OrderedWork::TakeFirst() {
  const std::shared_ptr<Piece> piece = std::move(toTake_.front());
  toTake_.pop_front();
  {
    std::unique_lock lock(mutex_);
    done_.wait(lock, [&] { return piece->isDone; });
  }
  if (piece->failure) std::rethrow_exception(piece->failure);
  piece->take();
}

}  // namespace tessaline::cli
