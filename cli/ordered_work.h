// Pieces of work on several threads whose results are taken in the order in which the pieces came: strips of
// a picture are compressed while later rows are still being made, and written one behind the other.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace tessaline::cli {

class OrderedWork {
 public:
  // So many threads work beside the caller's; with 1, or where no thread can be had, the caller's alone.
  explicit OrderedWork(int threads);
  // Ends what is at work; pieces not taken yet are dropped.
  ~OrderedWork();
  OrderedWork(const OrderedWork&) = delete;
  OrderedWork& operator=(const OrderedWork&) = delete;

  // `compute` runs on any thread, `take` on the caller's when all earlier pieces have been taken, in this or
  // a later call. Waits while several pieces per thread are under way. Throws what a piece threw.
  void Add(std::function<void()> compute, std::function<void()> take);
  // Takes all pieces that are left.
  void Finish();

 private:
  struct Piece {
    std::function<void()> compute, take;
    bool isDone = false;
    std::exception_ptr failure;
  };
  void Work();
  void TakeFirst();

  std::vector<std::thread> threads_;
  std::mutex mutex_;
  std::condition_variable wanted_;  // a piece to compute, or the end
  std::condition_variable done_;
  std::deque<std::shared_ptr<Piece>> toCompute_;
  std::deque<std::shared_ptr<Piece>> toTake_;  // of the caller alone
  bool isEnding_ = false;
};

}  // namespace tessaline::cli
