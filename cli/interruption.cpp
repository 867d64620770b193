#include "cli/interruption.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstring>

#include "cli/refusal.h"

namespace tessaline::cli {
namespace {

constexpr int kMostTemporaries = 64;
constexpr size_t kPathBytes = 4096;
constexpr int kMostChildren = 256;
constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};

// Read by the handler, which may interrupt any thread at any instruction: fixed storage, and a slot counts
// only once its flag is set.
struct Temporary {
  std::atomic<bool> used{false};
  char path[kPathBytes];
};
Temporary temporaries[kMostTemporaries];
std::atomic<pid_t> children[kMostChildren];
std::atomic<bool> isChild{false};
std::atomic<int> noticeEnd{-1};         // where a signal is noted instead of acted on
int messageDescriptor = STDERR_FILENO;  // stderr itself may be silenced at the moment
static_assert(std::atomic<bool>::is_always_lock_free && std::atomic<pid_t>::is_always_lock_free);

void RemoveTemporaries() {
  for (Temporary& temporary : temporaries) {
    if (temporary.used.load()) unlink(temporary.path);
  }
}

void EndChildren() {
  for (auto& child : children) {
    const pid_t pid = child.load();
    if (pid > 0) kill(pid, SIGTERM);
  }
  for (auto& child : children) {
    const pid_t pid = child.load();
    if (pid > 0) waitpid(pid, nullptr, 0);
  }
}

// On a terminal the first byte leaves the progress line.
void WriteLine(const char* line, size_t count) {
  const size_t skipped = isatty(messageDescriptor) != 0 ? 0 : 1;
  if (write(messageDescriptor, line + skipped, count - skipped) < 0) {
    // Nobody to tell.
  }
}

// Async-signal-safe calls only. Leaving from here rather than setting a flag: a transform of 8192 x 8192 or a
// blocked read would let the user wait. AddressSanitizer looks at the stack before a call that does not
// return, and complains where the signal came before a thread's was known to it.
[[gnu::no_sanitize_address]] void LeaveInterrupted(int) {
  const int notice = noticeEnd.load();
  if (notice >= 0) {
    const int before = errno;
    if (write(notice, "!", 1) < 0) {
      // It is full of notices.
    }
    errno = before;
    return;
  }
  RemoveTemporaries();
  EndChildren();
  const char line[] = "\ntessaline: interrupted\n";
  if (!isChild.load()) WriteLine(line, sizeof line - 1);
  _exit(static_cast<int>(ExitStatus::kInterrupted));
}

sigset_t HandledSignals() {
  sigset_t set;
  sigemptyset(&set);
  for (int signal : kSignals) sigaddset(&set, signal);
  return set;
}

}  // namespace

void InstallInterruptionHandlers() {
  constexpr int kAboveStandardStreams = 3;
  const int copy = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, kAboveStandardStreams);
  if (copy >= 0) messageDescriptor = copy;
  struct sigaction action = {};
  action.sa_handler = LeaveInterrupted;
  action.sa_mask = HandledSignals();
  for (int signal : kSignals) {
    struct sigaction before = {};
    sigaction(signal, nullptr, &before);
    if (signal == SIGHUP && before.sa_handler == SIG_IGN) continue;
    sigaction(signal, &action, nullptr);
  }
  struct sigaction ignore = {};
  ignore.sa_handler = SIG_IGN;
  sigaction(SIGPIPE, &ignore, nullptr);
  sigaction(SIGXFSZ, &ignore, nullptr);
}

int NoteInterruptions() {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) return -1;
  noticeEnd.store(ends[1]);
  return ends[0];
}

int RegisterTemporary(const std::string& path) {
  if (path.size() >= kPathBytes) return -1;
  for (int i = 0; i < kMostTemporaries; ++i) {
    if (temporaries[i].used.load()) continue;
    memcpy(temporaries[i].path, path.c_str(), path.size() + 1);
    temporaries[i].used.store(true);
    return i;
  }
  return -1;
}

void ForgetTemporary(int handle) {
  if (handle >= 0) temporaries[handle].used.store(false);
}

InterruptionHeld::InterruptionHeld() {
  const sigset_t set = HandledSignals();
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

InterruptionHeld::~InterruptionHeld() {
  const sigset_t set = HandledSignals();
  pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

void LeaveOutOfMemory() {
  const sigset_t set = HandledSignals();
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  RemoveTemporaries();
  EndChildren();
  if (isChild.load()) raise(SIGKILL);
  const char line[] =
      "\ntessaline: not enough memory, or no further thread to be had; close other programs\n";
  WriteLine(line, sizeof line - 1);
  _exit(static_cast<int>(ExitStatus::kOutOfMemory));
}

void RegisterChild(pid_t child) {
  for (auto& slot : children) {
    pid_t empty = 0;
    if (slot.compare_exchange_strong(empty, child)) return;
  }
}

void ForgetChild(pid_t child) {
  for (auto& slot : children) {
    pid_t expected = child;
    if (slot.compare_exchange_strong(expected, 0)) return;
  }
}

void BecomeChild() {
  isChild.store(true);
  noticeEnd.store(-1);
  for (Temporary& temporary : temporaries) temporary.used.store(false);
  for (auto& slot : children) slot.store(0);
}

}  // namespace tessaline::cli
