#include "cli/batch_job.h"

#include <errno.h>
#include <fcntl.h>
#include <malloc.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <new>

#include "cli/batch_log.h"
#include "cli/messages.h"
#include "cli/picture_run.h"

namespace tessaline::cli {
namespace {

// Marks the input as being in work while it lives: of two runs that go on where they were, one has it. The
// system lets go of the mark when the process ends, however it does. Where files cannot be locked there is no
// mark, and the slower of two runs finds its picture done.
class InputMark {
 public:
  explicit InputMark(const std::string& input)
      : descriptor_(open(input.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)) {}
  ~InputMark() {
    if (descriptor_ >= 0) close(descriptor_);
  }
  InputMark(const InputMark&) = delete;
  InputMark& operator=(const InputMark&) = delete;

  // False when another run has it, which with `waits` is waited for.
  bool Take(bool waits) const {
    int result = 0;
    do {
      result = flock(descriptor_, waits ? LOCK_EX : LOCK_EX | LOCK_NB);
    } while (result != 0 && errno == EINTR);
    return result == 0 || errno != EWOULDBLOCK;
  }

 private:
  int descriptor_;
};

// So that the peak told for a picture is its own, not that of a larger one before it.
void ForgetPeakMemory() {
  malloc_trim(0);
  const int file = open("/proc/self/clear_refs", O_WRONLY | O_CLOEXEC);
  if (file < 0) return;
  WriteFully(file, "5", 1);
  close(file);
}

// Of all inputs the output can be only the one that stands under its name.
std::vector<FileIdentity> InputsAt(const std::string& output, const std::vector<FileIdentity>& inputs) {
  struct stat status = {};
  if (stat(output.c_str(), &status) != 0) return {};
  const FileIdentity identity = {status.st_dev, status.st_ino};
  if (!std::binary_search(inputs.begin(), inputs.end(), identity)) return {};
  return {identity};
}

PictureRequest RequestFor(const BatchFacts& facts, size_t index, const ThreadShare& threads,
                          const ParentLine& line) {
  const PictureCommand& command = facts.command;
  PictureRequest request = RequestOf(command, facts.list.Input(index), facts.list.Output(index));
  if (request.input == "-") request.input = "./-";  // in a list a name as any other
  request.sharedThreads = threads;
  request.otherInputs = InputsAt(request.output, facts.inputs);
  if (command.writesReports) request.reportFile = request.output + ".json";
  request.overwritesReport = command.overwrite || command.skipsDone;
  request.beforeReading = [&line](uint64_t bytes) { line.AskForMemory(bytes); };
  return request;
}

PictureEnd EndOf(const PictureRequest& request, const PictureOutcome& outcome) {
  return {LogEntryOfDone(request.input, request.output, request.dryRun, outcome.found, outcome.notes[0],
                         outcome.report),
          outcome.notes};
}

PictureEnd CleanOne(const BatchFacts& facts, size_t index, const ThreadShare& threads,
                    const ParentLine& line) {
  try {
    ForgetPeakMemory();
    if (!facts.command.outputFolder.empty() && !facts.command.dryRun)
      MakeFoldersBelow(facts.command.outputFolder, facts.list.Output(index));
    const PictureRequest request = RequestFor(facts, index, threads, line);
    ProgressBar none(false);
    const PictureOutcome outcome = CleanPicture(request, &none);
    if (!facts.command.reportFile.empty()) line.Tell(AnswerKind::kReport, ReportEntryText(outcome.report));
    return EndOf(request, outcome);
  } catch (const Refusal& refusal) {
    return EndOfFailed(facts, index, refusal);
  } catch (const std::bad_alloc&) {
    return EndOfFailed(facts, index,
                       Refusal(ExitStatus::kOutOfMemory, facts.list.Input(index),
                               "not enough memory; close other programs"));
  } catch (const std::exception& error) {
    return EndOfFailed(facts, index, Refusal(ExitStatus::kUnreadable, facts.list.Input(index), error.what()));
  }
}

}  // namespace

PictureEnd EndOfFailed(const BatchFacts& facts, size_t index, const Refusal& refusal) {
  return {LogEntryOfFailed(facts.list.Input(index), facts.list.Output(index), refusal), {refusal.what()}};
}

PictureEnd EndOfSkipped(const BatchFacts& facts, size_t index, const std::string& why) {
  return {LogEntryOfSkipped(facts.list.Input(index), facts.list.Output(index), why), {}};
}

std::string Encode(const PictureEnd& end) {
  Json lines = Json::array();
  for (const std::string& line : end.lines) lines.push_back(Printable(line));
  return Json{{"entry", end.entry}, {"lines", lines}}.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::optional<PictureEnd> Decode(const std::string& text) {
  const Json told = Json::parse(text, nullptr, false);
  if (told.is_discarded()) return std::nullopt;
  return PictureEnd{told["entry"], told["lines"].get<std::vector<std::string>>()};
}

void ServeTasks(const BatchFacts& facts, const ThreadShare& threads, const ParentLine& line) {
  for (PictureTask task = {}; line.NextTask(&task);) {
    const bool skipsDone = facts.command.skipsDone;
    const InputMark mark(skipsDone ? facts.list.Input(task.index) : "");
    if (skipsDone && !mark.Take(task.waitsForIt != 0)) {
      line.Tell(AnswerKind::kInWorkElsewhere, "");
      continue;
    }
    const bool isDone = skipsDone && IsDone(facts.list.Input(task.index), facts.list.Output(task.index));
    const PictureEnd end = isDone ? EndOfSkipped(facts, task.index, "done meanwhile by another run")
                                  : CleanOne(facts, task.index, threads, line);
    line.Tell(AnswerKind::kDone, Encode(end));
  }
}

std::string ReportEntryText(const Json& report) {
  std::string indented;
  for (const char c : report.dump(2, ' ', false, Json::error_handler_t::replace)) {
    indented += c;
    if (c == '\n') indented += "    ";
  }
  return indented;
}

}  // namespace tessaline::cli
