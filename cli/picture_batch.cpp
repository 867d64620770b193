#include "cli/picture_batch.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "cli/batch_job.h"
#include "cli/batch_log.h"
#include "cli/interruption.h"
#include "cli/machine_share.h"
#include "cli/messages.h"
#include "cli/output_file.h"
#include "cli/own_process.h"
#include "cli/picture_list.h"
#include "cli/picture_worker.h"
#include "cli/progress_bar.h"
#include "cli/report.h"

namespace tessaline::cli {
namespace {

std::vector<FileIdentity> IdentitiesOfInputs(const PictureList& list) {
  std::vector<FileIdentity> inputs;
  for (size_t i = 0; i < list.size(); ++i) {
    struct stat status = {};
    if (stat(list.Input(i).c_str(), &status) == 0) inputs.push_back({status.st_dev, status.st_ino});
  }
  std::sort(inputs.begin(), inputs.end());
  return inputs;
}

// The report of all, written as its entries come; those that come before their turn wait in a file without a
// name, for one may be hundreds of kilobytes.
class BatchReport {
 public:
  BatchReport(const PictureCommand& command, const std::vector<FileIdentity>& inputs) {
    if (command.reportFile.empty()) return;
    isWanted_ = true;
    if (command.reportFile != "-")
      file_ = std::make_unique<OutputFile>(command.reportFile, command.overwrite, inputs);
    const std::string frame = ReportText("pictures", Json::array());
    const size_t middle = frame.rfind("[]") + 1;
    head_ = frame.substr(0, middle);
    tail_ = frame.substr(middle);
    Write(head_);
  }
  ~BatchReport() {
    if (waitingFile_ >= 0) close(waitingFile_);
  }
  BatchReport(const BatchReport&) = delete;
  BatchReport& operator=(const BatchReport&) = delete;

  void Add(size_t index, const std::string& entry) {
    if (!isWanted_) return;
    if (index != next_) return Keep(index, entry);
    WriteEntry(entry);
    for (auto at = waiting_.find(next_); at != waiting_.end(); at = waiting_.find(next_)) {
      std::string kept(at->second.length, '\0');
      if (pread(waitingFile_, kept.data(), kept.size(), at->second.offset) !=
          static_cast<ssize_t>(kept.size()))
        throw CannotWrite();
      waiting_.erase(at);
      WriteEntry(kept);
    }
  }

  void Commit() {
    if (!isWanted_) return;
    Write((next_ > 0 ? "\n  " : "") + tail_);
    if (file_) file_->Commit();
  }

 private:
  struct Kept {
    off_t offset;
    size_t length;
  };

  Refusal CannotWrite() const {
    return Refusal(ExitStatus::kCannotWrite, file_ ? file_->path() : "standard output",
                   std::string("cannot be written: ") + strerror(errno));
  }
  void Write(const std::string& text) {
    if (!WriteFully(file_ ? file_->descriptor() : STDOUT_FILENO, text.data(), text.size()))
      throw CannotWrite();
  }
  void WriteEntry(const std::string& entry) { Write((next_++ > 0 ? ",\n    " : "\n    ") + entry); }
  void Keep(size_t index, const std::string& entry) {
    if (waitingFile_ < 0) OpenWaitingFile();
    const off_t offset = lseek(waitingFile_, 0, SEEK_END);
    if (!WriteFully(waitingFile_, entry.data(), entry.size())) throw CannotWrite();
    waiting_[index] = {offset, entry.size()};
  }
  void OpenWaitingFile() {
    waitingFile_ = OpenNameless(FolderOfTemporaries());
    if (waitingFile_ < 0) throw CannotWrite();
  }

  bool isWanted_ = false;
  std::unique_ptr<OutputFile> file_;  // null: stdout
  std::string head_, tail_;
  size_t next_ = 0;
  std::map<size_t, Kept> waiting_;
  int waitingFile_ = -1;
};

// A place for a process, and what its process does.
struct Desk {
  std::unique_ptr<PictureWorker> worker;
  bool hasTask = false;
  PictureTask task = {};
  bool isAsking = false;  // for memory
  bool isAtWork = false;  // has it
  uint64_t needed = 0;    // bytes of memory
  int pictures = 0;       // that its process had
  std::string report;     // of the picture in work, until its turn
};

class Batch {
 public:
  explicit Batch(const PictureCommand& command)
      : command_(command),
        list_(command),
        inputs_(IdentitiesOfInputs(list_)),
        log_(command.logFile, inputs_),
        report_(command, inputs_),
        threads_(UsableProcessors()),
        desks_(static_cast<size_t>(command.jobs > 0 ? command.jobs : threads_.threads())),
        progress_(command.talk.showProgress),
        tally_(list_.size()),
        notice_(NoteInterruptions()) {}

  ExitStatus Run() {
    if (!command_.talk.quiet) {
      for (const std::string& note : list_.notes()) Tell(note);
    }
    while (!IsInterrupted() && !stop_) {
      HandOut();
      if (!HasWork()) break;
      ShareMemory();
      ShowProgress();
      Listen();
    }
    const bool isInterrupted = IsInterrupted();
    if (isInterrupted) StopWorkers();
    while (HasWork()) {
      ShareMemory();
      Listen();
    }
    desks_.clear();
    progress_.Clear();
    return Close(isInterrupted);
  }

 private:
  double Seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begun_).count();
  }

  bool IsInterrupted() const {
    pollfd polled = {notice_, POLLIN, 0};
    return poll(&polled, 1, 0) > 0;
  }

  bool HasWork() const {
    return std::any_of(desks_.begin(), desks_.end(), [](const Desk& desk) { return desk.hasTask; });
  }

  // The next picture that is not done; those that another run has in work come last.
  std::optional<PictureTask> NextTask() {
    while (next_ < list_.size() && !IsInterrupted()) {
      const size_t index = next_++;
      if (!command_.skipsDone || !IsDone(list_.Input(index), list_.Output(index))) {
        CleanFolderOf(list_.Output(index));
        return PictureTask{index, 0};
      }
      Finish(index, EndOfSkipped(facts_, index, "done before"), "");
      if (stop_) return std::nullopt;
    }
    if (inWorkElsewhere_.empty() || IsInterrupted()) return std::nullopt;
    const PictureTask task = {inWorkElsewhere_.front(), 1};
    inWorkElsewhere_.pop_front();
    return task;
  }

  // Before the first picture of every folder that is written to, and at the end: who starts a run at once
  // after killing one may find its processes still dying.
  void CleanFolderOf(const std::string& output) {
    if (!output.empty() && !command_.dryRun && cleanedFolders_.insert(FolderOf(output)).second)
      RemoveStrays(FolderOf(output));
  }

  void HandOut() {
    for (Desk& desk : desks_) {
      if (desk.hasTask) continue;
      const std::optional<PictureTask> task = returned_ ? std::exchange(returned_, std::nullopt) : NextTask();
      if (!task) return;
      if (!CanSeat(desk)) {
        returned_ = task;
        return;
      }
      desk.hasTask = true;
      desk.task = *task;
      ++desk.pictures;
      desk.worker->Give(*task);
    }
  }

  // A further process cannot be had: those at work go on, and come back for the picture.
  bool CanSeat(Desk& desk) {
    try {
      Seat(desk);
      return true;
    } catch (const Refusal&) {
      if (!HasWork()) throw;
      return false;
    }
  }

  // What a damaged file may have done to a process, or many have left in it, is not handed on.
  void Seat(Desk& desk) {
    constexpr int kMostPictures = 200;
    if (desk.pictures >= kMostPictures) desk.worker.reset();
    if (desk.worker) return;
    desk.pictures = 0;
    const ThreadShare share = {&threads_, static_cast<int>(&desk - desks_.data())};
    desk.worker = std::make_unique<PictureWorker>(
        [this, share](const ParentLine& line) { ServeTasks(facts_, share, line); });
  }

  // What the pictures at work will still take of what is free now.
  uint64_t Unclaimed() const {
    uint64_t bytes = 0;
    for (const Desk& desk : desks_) {
      if (!desk.isAtWork) continue;
      const uint64_t held = MemoryHeldBy(desk.worker->process());
      bytes += desk.needed - std::min(desk.needed, held);
    }
    return bytes;
  }

  uint64_t Promised() const {
    uint64_t bytes = 0;
    for (const Desk& desk : desks_) bytes += desk.isAtWork ? desk.needed : 0;
    return bytes;
  }

  bool HasMemoryFor(uint64_t needed) const {
    if (command_.memory > 0 && Promised() + needed > command_.memory) return false;
    return Unclaimed() + needed <= AvailableMemory();
  }

  // In the order of the list, so that a large picture gets its turn; one alone is never kept waiting.
  void ShareMemory() {
    if (isStopping_) return;
    std::vector<Desk*> asking;
    bool isAnyAtWork = false;
    for (Desk& desk : desks_) {
      if (desk.isAsking) asking.push_back(&desk);
      isAnyAtWork = isAnyAtWork || desk.isAtWork;
    }
    std::sort(asking.begin(), asking.end(),
              [](const Desk* a, const Desk* b) { return a->task.index < b->task.index; });
    for (Desk* desk : asking) {
      if (isAnyAtWork && !HasMemoryFor(desk->needed)) return;
      desk->isAsking = false;
      desk->isAtWork = isAnyAtWork = true;
      threads_.Begin(PlaceOf(*desk));
      desk->worker->GiveMemory();
    }
  }

  int PlaceOf(const Desk& desk) const { return static_cast<int>(&desk - desks_.data()); }

  void Listen() {
    constexpr int kLookForMemory = 1000;  // milliseconds: another program may let go of some
    std::vector<pollfd> polled = {{notice_, POLLIN, 0}};
    std::vector<Desk*> heard = {nullptr};
    bool isAnyAsking = false;
    for (Desk& desk : desks_) {
      if (!desk.hasTask) continue;
      polled.push_back({desk.worker->descriptor(), POLLIN, 0});
      heard.push_back(&desk);
      isAnyAsking = isAnyAsking || desk.isAsking;
    }
    if (isStopping_) polled[0].fd = -1;
    if (poll(polled.data(), polled.size(), isAnyAsking ? kLookForMemory : -1) < 0) return;
    for (size_t i = 1; i < polled.size(); ++i) {
      if (polled[i].revents != 0) Hear(*heard[i]);
    }
  }

  void Hear(Desk& desk) {
    const bool goesOn = desk.worker->Read();
    while (desk.hasTask) {
      const std::optional<Answer> answer = desk.worker->TakeAnswer();
      if (!answer) break;
      Take(desk, *answer);
    }
    if (!goesOn) Bury(desk);
  }

  void Take(Desk& desk, const Answer& answer) {
    switch (answer.kind) {
      case AnswerKind::kNeedsMemory:
        desk.needed = strtoull(answer.content.c_str(), nullptr, 10);
        desk.isAsking = true;
        return;
      case AnswerKind::kReport:
        desk.report = answer.content;
        return;
      case AnswerKind::kInWorkElsewhere:
        inWorkElsewhere_.push_back(desk.task.index);
        Leave(desk);
        return;
      case AnswerKind::kDone: {
        const std::optional<PictureEnd> end = Decode(answer.content);
        const bool hasFailed = !end || end->entry["status"] != 0;
        if (end) Finish(desk.task.index, *end, desk.report);
        Leave(desk);
        if (hasFailed) desk.worker.reset();
        return;
      }
    }
  }

  // The desk is free again.
  void Leave(Desk& desk) {
    if (desk.isAtWork) threads_.End(PlaceOf(desk));
    desk.hasTask = desk.isAsking = desk.isAtWork = false;
    desk.report.clear();
  }

  // Of a process that has ended by itself. When it was interrupted, so is the run, or soon will be: the
  // terminal and the schedulers tell all of its processes.
  void Bury(Desk& desk) {
    if (!desk.worker) return;
    const int status = desk.worker->Wait();
    desk.worker.reset();
    if (!desk.hasTask) return;
    const size_t index = desk.task.index;
    if (!isStopping_ && !IsInterrupted())
      Finish(index, EndOfFailed(facts_, index, EndedSilently(list_.Input(index), status)), "");
    Leave(desk);
  }

  void StopWorkers() {
    isStopping_ = true;
    for (const Desk& desk : desks_) {
      if (desk.worker) kill(desk.worker->process(), SIGTERM);
    }
  }

  void Finish(size_t index, const PictureEnd& end, const std::string& report) {
    tally_.Count(end.entry);
    Log(end.entry);
    StopWithoutOutputFolder(end.entry);
    report_.Add(index, report.empty() ? ReportEntryText(ReportOf(end)) : report);
    ended_[index] = WordsOf(end);
    // In the order of the list, as soon as all before are told.
    for (auto at = ended_.find(told_); at != ended_.end(); at = ended_.find(++told_)) {
      for (const std::string& line : at->second) {
        progress_.Clear();
        Tell(line);
      }
      ended_.erase(at);
    }
  }

  void Log(const Json& entry) {
    try {
      if (!logFails_) log_.Append(entry);
    } catch (const Refusal& refusal) {
      logFails_ = true;
      stop_ = std::make_unique<Refusal>(refusal);
    }
  }

  // Every picture that is left would fail alike.
  void StopWithoutOutputFolder(const Json& entry) {
    const std::string& folder = command_.outputFolder;
    if (stop_ || entry["status"] != static_cast<int>(ExitStatus::kCannotWrite) || folder.empty()) return;
    if (access(folder.c_str(), F_OK) == 0) return;
    stop_ = std::make_unique<Refusal>(ExitStatus::kCannotWrite, folder,
                                      "is gone, and the run ends; with the folder back, --skip-done goes on");
  }

  static Json ReportOf(const PictureEnd& end) {
    Json entry = {{"input", end.entry["input"]}};
    if (end.entry.contains("nameBytes")) entry["nameBytes"] = end.entry["nameBytes"];
    entry["status"] = end.entry["status"];
    entry[entry["status"] == 0 ? "skipped" : "error"] = end.entry["message"];
    return entry;
  }

  std::vector<std::string> WordsOf(const PictureEnd& end) const {
    return command_.talk.quiet && end.entry["status"] == 0 ? std::vector<std::string>() : end.lines;
  }

  void ShowProgress() {
    const size_t done = tally_.finished();
    std::string text = std::to_string(done) + " of " + std::to_string(list_.size()) + " pictures";
    const double seconds = Seconds(), cleaned = static_cast<double>(done - tally_.skipped());
    if (cleaned > 0 && seconds > 1) {
      const double perSecond = cleaned / seconds;
      text += ", " + std::to_string(static_cast<int64_t>(perSecond * 60 + 0.5)) + " a minute, " +
              Duration(static_cast<double>(list_.size() - done) / perSecond) + " left";
    }
    progress_.Show(static_cast<double>(done) / static_cast<double>(std::max<size_t>(list_.size(), 1)), text);
  }

  ExitStatus Close(bool isInterrupted) {
    const double seconds = Seconds();
    for (const std::string& folder : cleanedFolders_) RemoveStrays(folder);
    Log(tally_.Description(seconds, isInterrupted));
    if (!isInterrupted && !stop_) report_.Commit();
    if (isInterrupted || !command_.talk.quiet) Tell(tally_.Words(seconds, isInterrupted));
    if (isInterrupted) return ExitStatus::kInterrupted;
    if (stop_) throw Refusal(*stop_);
    return tally_.HasFailed() ? ExitStatus::kSomeFailed : ExitStatus::kDone;
  }

  const PictureCommand& command_;
  const PictureList list_;
  const std::vector<FileIdentity> inputs_;
  const BatchFacts facts_{command_, list_, inputs_};
  const BatchLog log_;
  BatchReport report_;
  SharedThreads threads_;
  std::vector<Desk> desks_;
  ProgressBar progress_;
  Tally tally_;
  const int notice_;
  const std::chrono::steady_clock::time_point begun_ = std::chrono::steady_clock::now();
  size_t next_ = 0, told_ = 0;
  std::deque<size_t> inWorkElsewhere_;
  std::optional<PictureTask> returned_;               // for which there was no process
  std::map<size_t, std::vector<std::string>> ended_;  // and not told
  std::set<std::string> cleanedFolders_;
  std::unique_ptr<Refusal> stop_;  // no further picture is begun
  bool logFails_ = false;
  bool isStopping_ = false;
};

}  // namespace

ExitStatus CleanPictures(const PictureCommand& command) {
  return Batch(command).Run();
}

}  // namespace tessaline::cli
