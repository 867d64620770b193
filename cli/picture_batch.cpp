#include "cli/picture_batch.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "cli/interruption.h"
#include "cli/messages.h"
#include "cli/output_file.h"
#include "cli/picture_run.h"
#include "cli/progress_bar.h"
#include "cli/report.h"

namespace tessaline::cli {
namespace {

// One picture's process, as the parent sees it.
struct Job {
  pid_t process = 0;  // 0: not started, or ended
  int pipe = -1;      // what the child tells, until it closes its end
  std::string told;   // so far
  bool isFinished = false;
  Json result;  // {"status", "lines", "report"}
};

std::vector<FileIdentity> IdentitiesOfInputs(const PictureCommand& command) {
  std::vector<FileIdentity> inputs;
  for (const auto& picture : command.pictures) {
    struct stat status = {};
    if (stat(picture.input.c_str(), &status) == 0) inputs.push_back({status.st_dev, status.st_ino});
  }
  return inputs;
}

// Jobs share the processors.
int ThreadsFor(const PictureCommand& command) {
  if (command.threads > 0 || command.jobs == 1) return command.threads;
  return std::max(UsableProcessors() / command.jobs, 1);
}

PictureRequest RequestFor(const PictureCommand& command, size_t index) {
  PictureRequest request;
  request.input = command.pictures[index].input;
  request.output = command.pictures[index].output;
  request.settings = command.settings;
  request.threads = ThreadsFor(command);
  request.restoration = command.restoration;
  request.dryRun = command.dryRun;
  request.overwrite = command.overwrite;
  request.verbose = command.talk.verbose;
  request.otherInputs = IdentitiesOfInputs(command);
  return request;
}

Json ResultOfFailure(const std::string& input, const Refusal& refusal) {
  return {{"status", static_cast<int>(refusal.status())},
          {"lines", Json::array({Printable(refusal.what())})},
          {"report", DescribeFailure(input, refusal)}};
}

// The child's whole life.
[[noreturn]] void RunInChild(const PictureRequest& request, int pipe) {
  Json result;
  try {
    ProgressBar none(false);
    const PictureOutcome outcome = CleanPicture(request, &none);
    Json lines = Json::array();
    for (const std::string& note : outcome.notes) lines.push_back(Printable(note));
    result = {{"status", 0}, {"lines", lines}, {"report", outcome.report}};
  } catch (const Refusal& refusal) {
    result = ResultOfFailure(request.input, refusal);
  } catch (const std::exception& error) {
    result = ResultOfFailure(request.input, Refusal(ExitStatus::kUnreadable, request.input, error.what()));
  }
  const std::string text = result.dump(-1, ' ', false, Json::error_handler_t::replace);
  WriteFully(pipe, text.data(), text.size());
  _exit(0);
}

void Start(const PictureRequest& request, Job* job) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) {
    throw Refusal(ExitStatus::kOutOfMemory, std::string("no pipe for a further process: ") + strerror(errno));
  }
  const pid_t parent = getpid();
  const InterruptionHeld held;
  const pid_t child = fork();
  if (child < 0) {
    close(ends[0]);
    close(ends[1]);
    throw Refusal(ExitStatus::kOutOfMemory, std::string("no further process: ") + strerror(errno));
  }
  if (child == 0) {
    BecomeChild();
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent) _exit(static_cast<int>(ExitStatus::kInterrupted));
    close(ends[0]);
    const sigset_t none = [] {
      sigset_t set;
      sigemptyset(&set);
      return set;
    }();
    sigprocmask(SIG_SETMASK, &none, nullptr);
    RunInChild(request, ends[1]);
  }
  RegisterChild(child);
  close(ends[1]);
  job->process = child;
  job->pipe = ends[0];
}

// Why a child that told nothing ended.
Refusal EndedSilently(const std::string& input, int waitStatus) {
  if (WIFSIGNALED(waitStatus) && WTERMSIG(waitStatus) == SIGKILL) {
    return Refusal(ExitStatus::kOutOfMemory, input,
                   "its process was killed, as happens when memory runs out; try fewer --jobs");
  }
  if (WIFSIGNALED(waitStatus)) {
    return Refusal(ExitStatus::kUnreadable, input,
                   std::string("its process ended with signal ") + strsignal(WTERMSIG(waitStatus)));
  }
  return Refusal(static_cast<ExitStatus>(WEXITSTATUS(waitStatus)), input, "its process was interrupted");
}

void Finish(const std::string& input, Job* job) {
  close(job->pipe);
  job->pipe = -1;
  int waitStatus = 0;
  while (waitpid(job->process, &waitStatus, 0) < 0 && errno == EINTR) {
  }
  ForgetChild(job->process);
  job->process = 0;
  job->result = Json::parse(job->told, nullptr, false);
  if (job->result.is_discarded()) job->result = ResultOfFailure(input, EndedSilently(input, waitStatus));
  job->isFinished = true;
}

// Reads what running children tell; returns when at least one has ended.
void WaitForOne(const PictureCommand& command, std::vector<Job>& jobs) {
  for (bool hasEnded = false; !hasEnded;) {
    std::vector<pollfd> polled;
    std::vector<size_t> indices;
    for (size_t i = 0; i < jobs.size(); ++i) {
      if (jobs[i].pipe < 0) continue;
      polled.push_back({jobs[i].pipe, POLLIN, 0});
      indices.push_back(i);
    }
    if (polled.empty()) return;
    if (poll(polled.data(), polled.size(), -1) < 0) continue;
    for (size_t i = 0; i < polled.size(); ++i) {
      if (polled[i].revents == 0) continue;
      Job& job = jobs[indices[i]];
      char block[65536];
      const ssize_t count = read(job.pipe, block, sizeof block);
      if (count > 0) {
        job.told.append(block, static_cast<size_t>(count));
      } else if (count == 0 || errno != EINTR) {
        Finish(command.pictures[indices[i]].input, &job);
        hasEnded = true;
      }
    }
  }
}

void TellResult(const Json& result, const Talk& talk) {
  const bool hasFailed = result["status"] != 0;
  if (talk.quiet && !hasFailed) return;
  for (const auto& line : result["lines"]) Tell(line.get<std::string>());
}

std::unique_ptr<OutputFile> OpenReport(const PictureCommand& command) {
  if (command.reportFile.empty() || command.reportFile == "-") return nullptr;
  return std::make_unique<OutputFile>(command.reportFile, command.overwrite, IdentitiesOfInputs(command));
}

}  // namespace

ExitStatus CleanPictures(const PictureCommand& command) {
  const std::unique_ptr<OutputFile> report = OpenReport(command);
  std::vector<Job> jobs(command.pictures.size());
  ProgressBar progress(command.talk.showProgress);
  size_t started = 0, told = 0, finished = 0;
  bool someFailed = false;
  Json reports = Json::array();
  while (told < jobs.size()) {
    while (started < jobs.size() && started - finished < static_cast<size_t>(command.jobs)) {
      Start(RequestFor(command, started), &jobs[started]);
      ++started;
    }
    progress.Show(static_cast<double>(finished) / static_cast<double>(jobs.size()),
                  std::to_string(finished) + " of " + std::to_string(jobs.size()) + " pictures");
    WaitForOne(command, jobs);
    finished = 0;
    for (const Job& job : jobs) finished += job.isFinished;
    // In the order of the arguments, as soon as all before are told.
    for (; told < jobs.size() && jobs[told].isFinished; ++told) {
      progress.Clear();
      TellResult(jobs[told].result, command.talk);
      someFailed = someFailed || jobs[told].result["status"] != 0;
      reports.push_back(std::move(jobs[told].result["report"]));
    }
  }
  progress.Clear();
  if (!command.reportFile.empty()) {
    const std::string text = ReportText("pictures", reports);
    if (report) {
      report->Write(text.data(), text.size());
      report->Commit();
    } else if (!WriteFully(STDOUT_FILENO, text.data(), text.size())) {
      throw Refusal(ExitStatus::kCannotWrite, "standard output",
                    std::string("cannot be written: ") + strerror(errno));
    }
  }
  return someFailed ? ExitStatus::kSomeFailed : ExitStatus::kDone;
}

}  // namespace tessaline::cli
