// How the program says no: an exit status and one line that names the file, what is wrong and what to do.
#pragma once

#include <stdexcept>
#include <string>

namespace tessaline::cli {

// A stable interface: scripts depend on these numbers.
enum class ExitStatus : int {
  kDone = 0,
  kSomeFailed = 1,   // of several pictures
  kWrongUsage = 2,   // options and arguments
  kUnreadable = 3,   // input missing, unreadable, damaged or cut short
  kUnsupported = 4,  // a kind of picture that the run or the output format cannot take
  kTooLarge = 5,     // for the output format, or for what is asked
  kOutOfMemory = 6,
  kCannotWrite = 7,  // output, its folder, or the disk
  kInterrupted = 130,
};

class Refusal : public std::runtime_error {
 public:
  // `message` has no line break: it becomes one line on stderr.
  Refusal(ExitStatus status, const std::string& message) : std::runtime_error(message), status_(status) {}
  Refusal(ExitStatus status, const std::string& file, const std::string& message)
      : Refusal(status, file + ": " + message) {}

  ExitStatus status() const { return status_; }

 private:
  ExitStatus status_;
};

// Frames are done as a whole.
inline Refusal FrameTooLarge(const std::string& file, int width, int height) {
  return Refusal(ExitStatus::kTooLarge, file,
                 "is " + std::to_string(width) + "x" + std::to_string(height) +
                     ", and frames are limited to 7500x7500 pixels; make them smaller");
}

}  // namespace tessaline::cli
