// A process that cleans pictures one after the other, and the line between it and the parent.
//
// The parent gives a task; the process answers that it needs so much memory and waits for leave, that another
// run has the picture, or what became of it. A process that has ended tells so by the end of its line.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace tessaline::cli {

struct PictureTask {
  uint64_t index;       // in the list
  uint64_t waitsForIt;  // 1: where another run has it in work, until that has ended
};

enum class AnswerKind : char { kNeedsMemory = 'm', kInWorkElsewhere = 'b', kReport = 'r', kDone = 'd' };
struct Answer {
  AnswerKind kind;
  std::string content;
};

// The process's end of the line. When the parent is gone, so is the process.
class ParentLine {
 public:
  ParentLine(int in, int out) : in_(in), out_(out) {}
  bool NextTask(PictureTask* task) const;  // false: the line is broken
  void Tell(AnswerKind kind, const std::string& content) const;
  void AskForMemory(uint64_t bytes) const;  // returns when it is given

 private:
  int in_, out_;
};

// The parent's end. Not to be moved while the process lives.
class PictureWorker {
 public:
  // Forks; the process serves and ends. Refuses with kOutOfMemory.
  explicit PictureWorker(const std::function<void(const ParentLine&)>& serve);
  // The process is ended, and what it had in work left undone.
  ~PictureWorker();
  PictureWorker(const PictureWorker&) = delete;
  PictureWorker& operator=(const PictureWorker&) = delete;

  pid_t process() const { return process_; }
  int descriptor() const { return in_; }  // readable when there is something to Read

  // Writing to a process that has just ended does no harm: its end is read next.
  void Give(const PictureTask& task) const;
  void GiveMemory() const;

  // Reads once what the process told. False at the end of the line.
  bool Read();
  // The next whole answer of what was read.
  std::optional<Answer> TakeAnswer();

  // After the end of the line: how the process ended, as waitpid tells it.
  int Wait();

 private:
  pid_t process_ = -1;
  int in_ = -1, out_ = -1;
  std::string told_;
};

}  // namespace tessaline::cli
