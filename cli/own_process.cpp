#include "cli/own_process.h"

#include <errno.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "cli/interruption.h"

namespace tessaline::cli {
namespace {

// What is thrown ends here, and never goes back through what the parent owns, its unfinished files above all.
[[noreturn]] void Live(const std::function<ExitStatus()>& work) noexcept {
  exit(static_cast<int>(work()));
}

}  // namespace

void BecomeWorker(int parent) {
  BecomeChild();
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  if (getppid() != parent) _exit(static_cast<int>(ExitStatus::kInterrupted));
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
}

Refusal EndedSilently(const std::string& input, int waitStatus) {
  if (WIFSIGNALED(waitStatus) && WTERMSIG(waitStatus) == SIGKILL) {
    return Refusal(ExitStatus::kOutOfMemory, input,
                   "its process was killed, as happens when memory runs out; close other programs, try fewer "
                   "--jobs or --tile 774");
  }
  if (WIFSIGNALED(waitStatus)) {
    return Refusal(ExitStatus::kUnreadable, input,
                   std::string("its process ended with signal ") + strsignal(WTERMSIG(waitStatus)));
  }
  return Refusal(static_cast<ExitStatus>(WEXITSTATUS(waitStatus)), input, "its process was interrupted");
}

ExitStatus RunApart(const std::string& input, const std::function<ExitStatus()>& work) {
  const pid_t parent = getpid();
  pid_t process = -1;
  {
    const InterruptionHeld held;
    process = fork();
    if (process > 0) RegisterChild(process);
    if (process == 0) BecomeWorker(parent);
  }
  if (process < 0) return work();
  if (process == 0) Live(work);
  int status = 0;
  while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
  }
  const InterruptionHeld held;
  ForgetChild(process);
  if (WIFSIGNALED(status)) throw EndedSilently(input, status);
  return static_cast<ExitStatus>(WEXITSTATUS(status));
}

}  // namespace tessaline::cli
