#include "cli/stream_run.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <new>
#include <optional>
#include <sstream>
#include <utility>

#include "cli/engine_run.h"
#include "cli/machine_share.h"
#include "cli/output_file.h"
#include "cli/page_samples.h"
#include "cli/report.h"
#include "restoration/film_decision.h"

namespace tessaline::cli {
namespace {

class FrameInput {
 public:
  explicit FrameInput(const std::string& path) : name_(path == "-" ? "standard input" : path) {
    descriptor_ = path == "-" ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat status = {};
    if (descriptor_ < 0 || fstat(descriptor_, &status) != 0) throw CannotRead();
    if (S_ISDIR(status.st_mode)) throw Refusal(ExitStatus::kUnreadable, name_, "is a folder");
    if (S_ISREG(status.st_mode)) size_ = status.st_size;
  }
  ~FrameInput() {
    if (descriptor_ > STDIN_FILENO) close(descriptor_);
  }
  FrameInput(const FrameInput&) = delete;
  FrameInput& operator=(const FrameInput&) = delete;

  const std::string& name() const { return name_; }
  FileIdentity identity() const { return IdentityOf(descriptor_); }
  std::optional<off_t> size() const { return size_; }  // nothing for a pipe

  // False where the input cannot be read out of order.
  bool Seek(int64_t position) { return size_ && lseek(descriptor_, position, SEEK_SET) == position; }

  // As many bytes as there are, at most `count`.
  size_t Read(void* bytes, size_t count) {
    size_t got = 0;
    while (got < count) {
      const ssize_t part = read(descriptor_, static_cast<char*>(bytes) + got, count - got);
      if (part == 0) break;
      if (part > 0) got += static_cast<size_t>(part);
      if (part < 0 && errno != EINTR) throw CannotRead();
    }
    return got;
  }

 private:
  Refusal CannotRead() const {
    return Refusal(ExitStatus::kUnreadable, name_, std::string("cannot be read: ") + strerror(errno));
  }

  std::string name_;
  int descriptor_ = -1;
  std::optional<off_t> size_;
};

class FrameOutput {
 public:
  FrameOutput(const std::string& path, bool overwrite, const FileIdentity& input) {
    if (path != "-") {
      file_ = std::make_unique<OutputFile>(path, overwrite, std::vector<FileIdentity>{input});
    } else if (IdentityOf(STDOUT_FILENO) == input && IsRegular(STDOUT_FILENO)) {
      throw Refusal(ExitStatus::kCannotWrite, "standard output",
                    "is the input itself, which is never changed");
    }
  }

  void Write(const std::vector<uint8_t>& frame) {
    if (file_) {
      file_->Write(frame.data(), frame.size());
    } else if (!WriteFully(STDOUT_FILENO, frame.data(), frame.size())) {
      const char* why = errno == EPIPE ? "whoever read the frames has gone" : strerror(errno);
      throw Refusal(ExitStatus::kCannotWrite, "standard output", std::string("cannot be written: ") + why);
    }
    ++frames_;
  }

  // A file with at least one frame gets its name.
  void Finish() {
    if (file_ && frames_ > 0) file_->Commit();
  }

  int64_t frames() const { return frames_; }

 private:
  static bool IsRegular(int descriptor) {
    struct stat status = {};
    return fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
  }

  std::unique_ptr<OutputFile> file_;  // null: stdout
  int64_t frames_ = 0;
};

std::string SizeText(const StreamCommand& command) {
  return std::to_string(command.width) + "x" + std::to_string(command.height) + " " + command.pixels.name;
}

PageKind KindOf(const StreamCommand& command) {
  PageKind kind;
  kind.width = command.width;
  kind.height = command.height;
  kind.bits = command.pixels.bits;
  kind.model =
      command.pixels.bytesPerPixel == command.pixels.bits / 8 ? ColourModel::kGrey : ColourModel::kRgb;
  return kind;
}

// A frame that has been looked at and waits for the decision of several.
struct WaitingFrame {
  int64_t number;
  std::vector<uint8_t> bytes;
  EngineOutcome outcome;  // of the look: nothing found, for nothing was decided
};

class StreamRun {
 public:
  StreamRun(const StreamCommand& command, ProgressBar* progress)
      : command_(command), progress_(progress), kind_(KindOf(command)), decision_(command.settings) {
    if (command.width > kLargestSide || command.height > kLargestSide) {
      throw FrameTooLarge(command.input == "-" ? "standard input" : command.input, command.width,
                          command.height);
    }
    input_ = std::make_unique<FrameInput>(command.input);
    output_ = std::make_unique<FrameOutput>(command.output, command.overwrite, input_->identity());
    if (!command.reportFile.empty() && command.reportFile != "-") {
      report_ = std::make_unique<OutputFile>(command.reportFile, command.overwrite,
                                             std::vector<FileIdentity>{input_->identity()});
    }
  }

  // How many frames of so many bytes decide together: as many as even out grain and scenery, but no more than
  // a pipe's may wait in memory.
  static size_t FramesToGather(size_t bytes) {
    constexpr size_t kMostBytes = size_t{256} << 20;
    return std::clamp(kMostBytes / bytes, size_t{1}, kDecidingFrames);
  }

  std::vector<std::string> Run() {
    frame_.resize(kind_.RowBytes() * static_cast<size_t>(kind_.height));
    if (command_.frozenFrame && *command_.frozenFrame > command_.firstFrame) DecideAhead();
    try {
      while (TakeFrame()) {
      }
    } catch (const Refusal& refusal) {
      // What cannot be written is not worth keeping; whole frames before a fault of the input are.
      if (refusal.status() == ExitStatus::kUnreadable) DecideTogether();
      if (refusal.status() != ExitStatus::kCannotWrite) output_->Finish();
      throw;
    }
    DecideTogether();
    if (output_->frames() == 0) throw NothingToWrite();
    if (!command_.reportFile.empty()) WriteReport();
    output_->Finish();
    if (report_) report_->Commit();
    return Notes();
  }

 private:
  // False at the end of the input or of the wanted range.
  bool TakeFrame() {
    if (command_.lastFrame && frameNumber_ > *command_.lastFrame) return false;
    const size_t got = input_->Read(frame_.data(), frame_.size());
    if (got == 0) return false;
    if (got < frame_.size()) {
      DecideTogether();
      throw ShortFrame(got);
    }
    if (command_.frozenFrame == frameNumber_ && !isDecided_) Decide();
    if (frameNumber_ >= command_.firstFrame) {
      if (command_.isFrozen && !isDecided_) {
        Gather();
      } else {
        FinishFrame(CleanFrame());
      }
    }
    ++frameNumber_;
    return true;
  }

  // Looks at the frame at hand and lets it wait for the decision.
  void Gather() {
    if (waiting_.empty() && decision_.Begin() != kSuccess) throw NoMemoryToDecide();
    EngineWishes wishes;
    wishes.gathersInto = &decision_;
    waiting_.push_back({frameNumber_, {}, RunOnFrame(wishes)});
    waiting_.back().bytes.swap(frame_);
    frame_.resize(waiting_.back().bytes.size());
    if (waiting_.size() == FramesToGather(frame_.size())) DecideTogether();
  }

  // Decides for the frames that wait, and lets them go. Where nothing is found they are as they came, and the
  // next ones gather anew.
  void DecideTogether() {
    if (waiting_.empty()) return;
    KeptDecision made;
    if (decision_.Make(engine_.workspace(), &made) != kSuccess) throw NoMemoryToDecide();
    const bool isFound =
        std::any_of(made.seeds.begin(), made.seeds.end(), [](uint8_t seed) { return seed != 0; });
    if (isFound) Keep(std::move(made), waiting_.front().number, waiting_.size());
    const int64_t next = frameNumber_;
    std::vector<WaitingFrame> frames = std::exchange(waiting_, {});
    for (WaitingFrame& waiting : frames) {
      frameNumber_ = waiting.number;
      frame_ = waiting.bytes;
      FinishFrame(isFound ? CleanFrame() : std::move(waiting.outcome));
    }
    frameNumber_ = next;
  }

  // One run over the frame at hand.
  EngineOutcome RunOnFrame(EngineWishes wishes) {
    const std::string name = "frame " + std::to_string(frameNumber_) + " of " + input_->name();
    if (samples_.picture().channels == 0 && !samples_.Create(kind_)) {
      throw Refusal(ExitStatus::kOutOfMemory, name,
                    "not enough memory for its samples; close other programs");
    }
    const size_t rowBytes = kind_.RowBytes();
    for (int32_t y = 0; y < kind_.height; ++y) {
      samples_.TakeRow(y, frame_.data() + static_cast<size_t>(y) * rowBytes);
    }
    wishes.settings = command_.settings;
    wishes.restoration = command_.restoration;
    const auto show = [&](double fraction, const char* doing) { Show(fraction, doing); };
    return RunEngine(samples_.picture(), engine_.workspace(), wishes, show, name);
  }

  // Keeps the decision of the frame at hand for all.
  void Decide() {
    EngineWishes wishes;
    wishes.onlyLook = true;
    wishes.collectsNotches = false;
    wishes.collectsSeeds = true;
    EngineOutcome outcome = RunOnFrame(wishes);
    Keep({std::move(outcome.seeds), std::move(outcome.peaks)}, frameNumber_, 1);
  }

  void Keep(KeptDecision decision, int64_t firstFrame, size_t frames) {
    kept_ = std::move(decision);
    decidingFrame_ = firstFrame;
    decidingFrames_ = static_cast<int64_t>(frames);
    isDecided_ = true;
  }

  // The deciding frame lies behind the first that is taken: look at it first, then begin again.
  void DecideAhead() {
    frameNumber_ = *command_.frozenFrame;
    if (!input_->Seek(frameNumber_ * static_cast<int64_t>(frame_.size()))) {
      throw Refusal(ExitStatus::kUnreadable, input_->name(),
                    "is a pipe and cannot be read twice: --freeze takes a file, or a frame up to --first");
    }
    if (input_->Read(frame_.data(), frame_.size()) < frame_.size()) {
      throw Refusal(
          ExitStatus::kUnreadable, input_->name(),
          "ends before frame " + std::to_string(frameNumber_) + " of --freeze; nothing was written");
    }
    Decide();
    input_->Seek(0);
    frameNumber_ = 0;
  }

  // Cleans the frame at hand: by the decision kept, or by its own.
  EngineOutcome CleanFrame() {
    const size_t rowBytes = kind_.RowBytes();
    EngineWishes wishes;
    wishes.collectsNotches = !command_.reportFile.empty();
    if (isDecided_) wishes.frozen = &kept_;
    EngineOutcome outcome = RunOnFrame(wishes);
    if (outcome.samplesChanged) {  // otherwise the frame goes out as it came in
      samples_.SetChanged(0);
      for (int32_t y = 0; y < kind_.height; ++y) {
        samples_.FillRow(y, frame_.data() + static_cast<size_t>(y) * rowBytes);
      }
    }
    return outcome;
  }

  // Writes the frame at hand, after the run over it.
  void FinishFrame(const EngineOutcome& outcome) {
    output_->Write(frame_);
    framesWithPattern_ += outcome.patternFound;
    if (!command_.reportFile.empty()) {
      Json description = {{"frame", frameNumber_}};
      description.update(DescribeRun(outcome, std::nullopt));
      frameReports_.push_back(description);
    }
  }

  void Show(double fraction, const char* doing) {
    const auto total = input_->size();
    const std::string text = "frame " + std::to_string(frameNumber_);
    if (!total || *total == 0) return progress_->ShowWithoutEnd(text + ": " + doing);
    const double frames = static_cast<double>(*total) / static_cast<double>(frame_.size());
    // The look ahead at the frame that decides for all is the first of the work, whatever that frame's
    // number.
    const int64_t done = output_->frames() == 0 ? 0 : frameNumber_;
    progress_->Show((static_cast<double>(done) + fraction) / frames,
                    text + " of " + std::to_string(static_cast<int64_t>(frames)) + ": " + doing);
  }

  Refusal ShortFrame(size_t got) const {
    return Refusal(ExitStatus::kUnreadable, input_->name(),
                   "frame " + std::to_string(frameNumber_) + " is cut short (" + std::to_string(got) +
                       " of " + std::to_string(frame_.size()) + " bytes) and was left out; " +
                       std::to_string(output_->frames()) +
                       " whole frames were written. Are the frames really " + SizeText(command_) + "?");
  }

  Refusal NoMemoryToDecide() const {
    return Refusal(ExitStatus::kOutOfMemory, input_->name(),
                   "not enough memory to decide over several frames; close other programs");
  }

  Refusal NothingToWrite() const {
    const std::string what = frameNumber_ == 0
                                 ? "holds no frame"
                                 : "ends after " + std::to_string(frameNumber_) + " frames, before --first " +
                                       std::to_string(command_.firstFrame);
    return Refusal(ExitStatus::kUnreadable, input_->name(), what + "; nothing was written");
  }

  std::vector<std::string> Notes() const {
    std::ostringstream text;
    text << input_->name() << ": " << output_->frames()
         << (output_->frames() == 1 ? " frame, " : " frames, ");
    if (framesWithPattern_ == 0 && command_.settings.isAutomatic) {
      text << "auto: no regular pattern found; they are unchanged";
    } else if (framesWithPattern_ == 0) {
      text << "no pattern found at acceptance " << command_.settings.acceptance
           << "; they are unchanged. To find more, try a higher acceptance (on small frames 80 to 95 is "
              "usual) or "
              "-a auto.";
    } else {
      text << "pattern taken out of " << framesWithPattern_;
    }
    if (isDecided_ && decidingFrames_ == 1) text << ", decided by frame " << decidingFrame_;
    if (isDecided_ && decidingFrames_ > 1) {
      text << ", decided by frames " << decidingFrame_ << " to " << decidingFrame_ + decidingFrames_ - 1;
    }
    std::vector<std::string> notes = {text.str()};
    if (command_.lastFrame && frameNumber_ <= *command_.lastFrame) {
      notes.push_back(input_->name() + ": ended after frame " + std::to_string(frameNumber_ - 1) +
                      ", before --last " + std::to_string(*command_.lastFrame));
    }
    return notes;
  }

  void WriteReport() {
    Json description = DescribeNames(command_.input, command_.output);
    description.update(Json{
        {"status", static_cast<int>(ExitStatus::kDone)},
        {"width", command_.width},
        {"height", command_.height},
        {"pixelFormat", command_.pixels.name},
        {"parameters", DescribeSettings(command_.settings, command_.restoration)},
        {"frozenFrame", isDecided_ ? Json(decidingFrame_) : Json(nullptr)},
        {"frozenFrames", decidingFrames_},
        {"frames", frameReports_},
        {"peakMemoryBytes", PeakMemoryBytes()},
    });
    const std::string text = ReportText("stream", description);
    if (report_) {
      report_->Write(text.data(), text.size());
    } else if (!WriteFully(STDOUT_FILENO, text.data(), text.size())) {
      throw Refusal(ExitStatus::kCannotWrite, "standard output",
                    std::string("cannot be written: ") + strerror(errno));
    }
  }

  const StreamCommand& command_;
  ProgressBar* progress_;
  PageKind kind_;
  std::unique_ptr<FrameInput> input_;
  std::unique_ptr<FrameOutput> output_;
  std::unique_ptr<OutputFile> report_;
  std::vector<uint8_t> frame_;
  PageSamples samples_;
  Engine engine_{command_.threads};
  int64_t frameNumber_ = 0;
  int64_t framesWithPattern_ = 0;
  bool isDecided_ = false;  // frozen: the decision below serves every frame from now on
  int64_t decidingFrame_ = 0;
  int64_t decidingFrames_ = 0;  // that many from there on decided together; 0: none has
  KeptDecision kept_;
  FilmDecision decision_;  // being gathered
  std::vector<WaitingFrame> waiting_;
  Json frameReports_ = Json::array();
};

}  // namespace

namespace {

// Before anything is begun, as for pictures.
void DemandMemoryForFrames(const StreamCommand& command) {
  const PageKind kind = KindOf(command);
  MemoryUse use = {
      command.settings.isAutomatic, command.threads > 0 ? command.threads : UsableProcessors(), {}};
  const uint64_t frame = kind.RowBytes() * static_cast<uint64_t>(kind.height);
  const uint64_t waiting = command.isFrozen ? frame * StreamRun::FramesToGather(frame) : 0;
  const uint64_t needed = MemoryNeeded(kind, use) + waiting;
  const uint64_t can = std::min(AvailableMemory(), LeftByLimits());
  if (needed <= can) return;
  throw Refusal(ExitStatus::kOutOfMemory, "frames of " + SizeText(command) + " need about " +
                                              std::to_string(needed >> 20) + " MiB of memory, and " +
                                              std::to_string(can >> 20) +
                                              " MiB can be had; close other programs");
}

}  // namespace

std::vector<std::string> CleanStream(const StreamCommand& command, ProgressBar* progress) {
  try {
    if (std::max(command.width, command.height) <= kLargestSide) DemandMemoryForFrames(command);
    return StreamRun(command, progress).Run();
  } catch (const std::bad_alloc&) {
    throw Refusal(ExitStatus::kOutOfMemory, "not enough memory for frames of " + SizeText(command));
  }
}

}  // namespace tessaline::cli
