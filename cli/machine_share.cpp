#include "cli/machine_share.h"

#include <pthread.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <new>
#include <sstream>
#include <string>
#include <utility>

#include "cli/refusal.h"
#include "cli/tiled_page.h"
#include "removal/steps.h"

namespace tessaline::cli {
namespace {

constexpr uint64_t kMiB = uint64_t{1} << 20;
constexpr uint64_t kUnlimited = UINT64_MAX;

// A file that holds one number; "max" and a missing file are no limit.
uint64_t NumberIn(const std::string& path, uint64_t otherwise) {
  std::ifstream file(path);
  uint64_t number = 0;
  return file >> number ? number : otherwise;
}

// The number behind a word in a file of lines "word number ...".
uint64_t NumberBehind(const std::string& word, const std::string& path, uint64_t otherwise) {
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    std::istringstream fields(line);
    std::string first;
    uint64_t number = 0;
    if (fields >> first >> number && first == word) return number;
  }
  return otherwise;
}

// Of the two kinds of control groups, where they stand and what their files are called.
struct GroupKind {
  const char* controller;  // in /proc/self/cgroup
  const char* root;
  const char* limit;
  const char* used;
  const char* cached;  // in memory.stat: pages of files that go when memory is asked for
};
constexpr GroupKind kGroupKinds[] = {
    {"", "/sys/fs/cgroup", "memory.max", "memory.current", "inactive_file"},
    {"memory", "/sys/fs/cgroup/memory", "memory.limit_in_bytes", "memory.usage_in_bytes",
     "total_inactive_file"},
};

uint64_t LeftInGroup(const GroupKind& kind, const std::string& folder) {
  const uint64_t limit = NumberIn(folder + "/" + kind.limit, kUnlimited);
  if (limit == kUnlimited) return kUnlimited;
  const uint64_t used = NumberIn(folder + "/" + kind.used, 0);
  const uint64_t cached = NumberBehind(kind.cached, folder + "/memory.stat", 0);
  const uint64_t held = used - std::min(used, cached);
  return limit - std::min(limit, held);
}

// The least of the group and those it lies in. In a container its own group is the root.
uint64_t LeftInGroupsOf(const GroupKind& kind, const std::string& root, std::string group) {
  uint64_t left = LeftInGroup(kind, root);
  while (group.size() > 1) {
    left = std::min(left, LeftInGroup(kind, root + group));
    group.resize(group.find_last_of('/'));
  }
  return left;
}

// Runs tasks on as many threads of a pool as can be borrowed.
class SharedPool final : public Parallel {
 public:
  SharedPool(const ThreadShare& share, std::unique_ptr<Parallel> pool)
      : share_(share), pool_(std::move(pool)) {}

  int32_t threads() const override { return pool_->threads(); }

  bool Run(int32_t count, Task task, Poll poll, void* user) override {
    const int most = std::min(threads(), count) - 1;
    const int borrowed = most > 0 ? share_.threads->Borrow(share_.place, most) : 0;
    if (borrowed == 0) return SerialWork().Run(count, task, poll, user);
    // Each thread takes one hand's work: tasks, one after the other, until none is left.
    std::atomic<int32_t> next{0}, finished{0};
    std::atomic<bool> isStopped{false};
    const auto hand = [&](int32_t, int32_t worker) {
      for (int32_t index; !isStopped && (index = next.fetch_add(1)) < count;) {
        task(user, index, worker);
        const int32_t now = finished.fetch_add(1) + 1;
        if (worker == 0 && poll != nullptr && poll(user, now)) isStopped = true;
      }
    };
    ForEachTask(*pool_, borrowed + 1, hand, [](int32_t) { return false; });
    share_.threads->GiveBack(share_.place, borrowed);
    return isStopped || (poll != nullptr && count > 0 && poll(user, count));
  }

 private:
  ThreadShare share_;
  std::unique_ptr<Parallel> pool_;
};

}  // namespace

uint64_t AvailableMemory(const std::string& root) {
  uint64_t available = NumberBehind("MemAvailable:", root + "/proc/meminfo", kUnlimited / 1024) * 1024;
  std::ifstream groups(root + "/proc/self/cgroup");
  // "NUMBER:CONTROLLERS:PATH"
  for (std::string line; std::getline(groups, line);) {
    const size_t first = line.find(':'), second = line.find(':', first + 1);
    if (second == std::string::npos) continue;
    const std::string controllers = line.substr(first + 1, second - first - 1);
    for (const GroupKind& kind : kGroupKinds) {
      if (controllers == kind.controller)
        available = std::min(available, LeftInGroupsOf(kind, root + kind.root, line.substr(second + 1)));
    }
  }
  return available;
}

uint64_t LeftByLimits() {
  const struct {
    int resource;
    const char* used;
  } kLimits[] = {{RLIMIT_AS, "VmSize:"}, {RLIMIT_DATA, "VmData:"}};
  uint64_t left = kUnlimited;
  for (const auto& [resource, word] : kLimits) {
    rlimit limit = {};
    if (getrlimit(static_cast<__rlimit_resource>(resource), &limit) != 0 || limit.rlim_cur == RLIM_INFINITY)
      continue;
    const uint64_t used = NumberBehind(word, "/proc/self/status", 0) * 1024;
    left = std::min<uint64_t>(left, limit.rlim_cur - std::min<uint64_t>(limit.rlim_cur, used));
  }
  return left;
}

uint64_t BytesOfStacks(int threads) {
  pthread_attr_t attributes;
  size_t bytes = 0;
  if (pthread_getattr_default_np(&attributes) == 0) {
    pthread_attr_getstacksize(&attributes, &bytes);
    pthread_attr_destroy(&attributes);
  }
  // The engine's, those that compress, and a few of the picture library: where hers are too large for the
  // limit she says so.
  constexpr uint64_t kOfLibrary = 3, kMost = 8 * kMiB;
  const auto own = static_cast<uint64_t>(threads > 1 ? 2 * threads - 1 : 0);
  return own * bytes + kOfLibrary * std::min<uint64_t>(bytes, kMost);
}

uint64_t MemoryHeldBy(int process) {
  std::ifstream file("/proc/" + std::to_string(process) + "/statm");
  uint64_t whole = 0, resident = 0;
  file >> whole >> resident;
  return resident * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
}

namespace {

// What the libraries that write a format hold of a whole picture, bytes a sample: measured over RGB.
uint64_t BytesHeldWhileWriting(const PageKind& kind, FileFormat format) {
  const uint64_t samples = PixelsOf(kind) * static_cast<uint64_t>(kind.channels());
  switch (format) {
    case FileFormat::kJpeg:  // coefficients
      return samples <= kMostJpegSamplesHeld ? 2 * samples : 0;
    case FileFormat::kWebp:
      return 6 * samples;
    case FileFormat::kJpegXl:
      return 23 * samples;
    case FileFormat::kJpeg2000:
      return samples;
    default:
      return 0;  // piece by piece
  }
}

}  // namespace

uint64_t MemoryNeeded(const PageKind& kind, const MemoryUse& use) {
  constexpr uint64_t kProgram = 51 * kMiB, kThread = 6 * kMiB;
  const uint64_t fixed = kProgram + static_cast<uint64_t>(std::max(use.threads - 2, 0)) * kThread;
  const uint64_t writing = use.written ? BytesHeldWhileWriting(kind, *use.written) : 0;
  const int32_t largest = std::max(kind.width, kind.height);
  if (use.isTiled || largest > kLargestSide) {
    Settings settings;
    settings.isAutomatic = use.isAutomatic;
    const TileRule rule = TilesOfPage(kind, settings, use.tileSide);
    // Of a picture that is lower than a tile fewer rows are held.
    const auto side = static_cast<uint64_t>(rule.side);
    const uint64_t missing = side - std::min(side, static_cast<uint64_t>(kind.height));
    const uint64_t spared = missing * (2 * kind.RowBytes() + (use.isAutomatic ? 12 * side : 0));
    return fixed + BytesOfTiles(kind.RowBytes(), use.isAutomatic, rule) - spared + writing + use.reading;
  }
  const auto side = static_cast<uint64_t>(TransformSizeFor(largest));
  const uint64_t transform = side * side * sizeof(float) * 13 / 10;
  const uint64_t picture = kind.RowBytes() * static_cast<uint64_t>(kind.height);
  // What the automatic run takes for a part is free again when the picture is written.
  const uint64_t restoring =
      use.isAutomatic ? 14 * kMiB + picture / static_cast<uint64_t>(kind.parts()) * 31 / 20 : 0;
  return fixed + transform + picture * 23 / 20 + std::max({restoring, writing, use.reading});
}

SharedThreads::SharedThreads(int threads) : threads_(threads) {
  void* const shared =
      mmap(nullptr, sizeof(Counts), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (shared == MAP_FAILED) throw Refusal(ExitStatus::kOutOfMemory, "not enough memory to share");
  counts_ = new (shared) Counts{};
  counts_->spare = threads;
}

SharedThreads::~SharedThreads() {
  munmap(counts_, sizeof(Counts));
}

void SharedThreads::Begin(int) {
  counts_->spare.fetch_sub(1);
}

void SharedThreads::End(int place) {
  counts_->spare.fetch_add(1 + counts_->borrowed[place].exchange(0));
}

int SharedThreads::Borrow(int place, int most) {
  int spare = counts_->spare.load(), taken = 0;
  do {
    taken = std::clamp(spare, 0, most);
  } while (taken > 0 && !counts_->spare.compare_exchange_weak(spare, spare - taken));
  counts_->borrowed[place].fetch_add(taken);
  return taken;
}

void SharedThreads::GiveBack(int place, int count) {
  counts_->borrowed[place].fetch_sub(count);
  counts_->spare.fetch_add(count);
}

BorrowedThreads::BorrowedThreads(const ThreadShare& share) : share_(share) {
  if (share.threads != nullptr) count_ = share.threads->Borrow(share.place, share.threads->threads() - 1);
}

BorrowedThreads::~BorrowedThreads() {
  if (share_.threads != nullptr) share_.threads->GiveBack(share_.place, count_);
}

std::unique_ptr<Parallel> MakeSharedPool(const ThreadShare& share, uint64_t pixels, int most) {
  constexpr uint64_t kPixelsPerThread = uint64_t{1} << 20;
  const uint64_t worth = pixels / kPixelsPerThread + 1;
  const int threads = static_cast<int>(std::min<uint64_t>(worth, std::min(share.threads->threads(), most)));
  std::unique_ptr<Parallel> pool = threads > 1 ? MakeThreadPool(threads) : nullptr;
  if (!pool) return nullptr;
  return std::make_unique<SharedPool>(share, std::move(pool));
}

}  // namespace tessaline::cli
