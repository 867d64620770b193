// What several pictures in work share of the machine: memory, and threads.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "cli/page_samples.h"
#include "cli/picture_format.h"
#include "platform/parallel.h"

namespace tessaline::cli {

// Bytes that can be had now: what the system calls available, no more than what the control groups (of both
// kinds) that this process is in leave it. `root` stands before the names of the system's files.
uint64_t AvailableMemory(const std::string& root = "");

// Bytes that the limits of this process (ulimit -v and -d) leave it. They count address space, not what is in
// use: of a thread's stack the whole.
uint64_t LeftByLimits();

// Of which a run on so many threads takes so much for their stacks beside what it needs.
uint64_t BytesOfStacks(int threads);

// What a process holds now, in bytes; 0 when it is gone.
uint64_t MemoryHeldBy(int process);

struct MemoryUse {
  bool isAutomatic = false;
  int threads = 2;
  std::optional<FileFormat> written;  // nothing in a dry run
  bool isTiled = false;               // also where the page is not too large for the whole
  int32_t tileSide = 0;               // 0: what suits
  uint64_t reading = 0;               // what the library that decodes the file holds meanwhile, bytes
};

// What cleaning a page of that kind will hold at most, in bytes, fitted to measured runs of 0.4 to 55
// megapixels: up to a third too much, never too little.
uint64_t MemoryNeeded(const PageKind& kind, const MemoryUse& use);

// The machine's threads, in memory that processes forked later share. Each process in work has one of its own
// and borrows those that nobody uses, for as long as one parallel stretch lasts: many pictures use a thread
// each, and one that is left alone uses all.
class SharedThreads {
 public:
  static constexpr int kMostProcesses = 256;

  // Refuses with kOutOfMemory.
  explicit SharedThreads(int threads);
  ~SharedThreads();
  SharedThreads(const SharedThreads&) = delete;
  SharedThreads& operator=(const SharedThreads&) = delete;

  int threads() const { return threads_; }

  // Of the parent, for a process by its place, 0 .. kMostProcesses - 1: it begins and ends a picture. What it
  // still had borrowed, being killed, comes back.
  void Begin(int place);
  void End(int place);

  // Of a process: up to `most` further threads, 0 when all are in use; and back.
  int Borrow(int place, int most);
  void GiveBack(int place, int count);

 private:
  struct Counts {
    std::atomic<int> spare;  // negative while more processes than threads are at work
    std::atomic<int> borrowed[kMostProcesses];
  };
  int threads_;
  Counts* counts_;
};

// A process's part in them.
struct ThreadShare {
  SharedThreads* threads = nullptr;
  int place = 0;
};

// Further threads borrowed for as long as it lives; none where nothing is shared.
class BorrowedThreads {
 public:
  explicit BorrowedThreads(const ThreadShare& share);
  ~BorrowedThreads();
  BorrowedThreads(const BorrowedThreads&) = delete;
  BorrowedThreads& operator=(const BorrowedThreads&) = delete;
  int count() const { return count_; }

 private:
  ThreadShare share_;
  int count_ = 0;
};

// A pool for one picture of so many pixels: as many threads as it is worth, at most `most`, each stretch on
// those that can be borrowed. Null for one.
std::unique_ptr<Parallel> MakeSharedPool(const ThreadShare& share, uint64_t pixels, int most);

}  // namespace tessaline::cli
