#include "cli/picture_worker.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include "cli/interruption.h"
#include "cli/output_file.h"
#include "cli/own_process.h"
#include "cli/refusal.h"

namespace tessaline::cli {
namespace {

constexpr char kLeave = '+';

struct AnswerHead {
  uint64_t length;
  AnswerKind kind;
};

bool ReadFully(int descriptor, void* bytes, size_t count) {
  char* at = static_cast<char*>(bytes);
  while (count > 0) {
    const ssize_t taken = read(descriptor, at, count);
    if (taken < 0 && errno == EINTR) continue;
    if (taken <= 0) return false;
    at += taken;
    count -= static_cast<size_t>(taken);
  }
  return true;
}

// Two pipes: 0 and 1 to the process, 2 and 3 from it. False with errno set.
bool OpenPipes(int (&ends)[4]) {
  if (pipe2(ends, O_CLOEXEC) != 0) return false;
  if (pipe2(ends + 2, O_CLOEXEC) == 0) return true;
  close(ends[0]);
  close(ends[1]);
  return false;
}

// What is thrown ends here, and never goes back through what the parent owns, its unfinished files above all.
[[noreturn]] void Live(pid_t parent, const ParentLine& line,
                       const std::function<void(const ParentLine&)>& serve) noexcept {
  BecomeWorker(parent);
  serve(line);
  _exit(0);
}

}  // namespace

bool ParentLine::NextTask(PictureTask* task) const {
  return ReadFully(in_, task, sizeof *task);
}

void ParentLine::Tell(AnswerKind kind, const std::string& content) const {
  AnswerHead head = {};
  head.length = content.size();
  head.kind = kind;
  if (WriteFully(out_, &head, sizeof head) && WriteFully(out_, content.data(), content.size())) return;
  raise(SIGTERM);
}

void ParentLine::AskForMemory(uint64_t bytes) const {
  Tell(AnswerKind::kNeedsMemory, std::to_string(bytes));
  char leave = 0;
  if (!ReadFully(in_, &leave, 1)) raise(SIGTERM);
}

PictureWorker::PictureWorker(const std::function<void(const ParentLine&)>& serve) {
  int ends[4];
  if (!OpenPipes(ends)) {
    throw Refusal(ExitStatus::kOutOfMemory, std::string("no pipe for a further process: ") + strerror(errno));
  }
  const pid_t parent = getpid();
  const InterruptionHeld held;
  process_ = fork();
  if (process_ < 0) {
    const int error = errno;
    for (const int end : ends) close(end);
    throw Refusal(ExitStatus::kOutOfMemory, std::string("no further process: ") + strerror(error));
  }
  if (process_ == 0) {
    close(ends[1]);
    close(ends[2]);
    Live(parent, ParentLine(ends[0], ends[3]), serve);
  }
  RegisterChild(process_);
  close(ends[0]);
  close(ends[3]);
  out_ = ends[1];
  in_ = ends[2];
}

PictureWorker::~PictureWorker() {
  if (process_ < 0) return;
  // Closing the line would not do: processes forked later hold copies of it.
  kill(process_, SIGTERM);
  Wait();
}

void PictureWorker::Give(const PictureTask& task) const {
  WriteFully(out_, &task, sizeof task);
}

void PictureWorker::GiveMemory() const {
  WriteFully(out_, &kLeave, 1);
}

bool PictureWorker::Read() {
  char block[65536];
  const ssize_t count = read(in_, block, sizeof block);
  if (count > 0) told_.append(block, static_cast<size_t>(count));
  return count > 0 || (count < 0 && errno == EINTR);
}

std::optional<Answer> PictureWorker::TakeAnswer() {
  AnswerHead head;
  if (told_.size() < sizeof head) return std::nullopt;
  memcpy(&head, told_.data(), sizeof head);
  if (told_.size() < sizeof head + head.length) return std::nullopt;
  Answer answer = {head.kind, told_.substr(sizeof head, head.length)};
  told_.erase(0, sizeof head + head.length);
  return answer;
}

int PictureWorker::Wait() {
  close(in_);
  close(out_);
  int status = 0;
  while (waitpid(process_, &status, 0) < 0 && errno == EINTR) {
  }
  ForgetChild(process_);
  process_ = -1;
  return status;
}

}  // namespace tessaline::cli
