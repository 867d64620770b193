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
  kTooLarge = 5,     // more than 7500 pixels on a side
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

// More than kLargestSide on a side. The other doors' words for it offer a selection, which a shell has not.
inline Refusal TooLarge(const std::string& file, int width, int height) {
  return Refusal(ExitStatus::kTooLarge, file,
                 "is " + std::to_string(width) + "x" + std::to_string(height) +
                     ", and Tessaline is limited to 7500x7500 pixels; make it smaller or cut it into parts");
}

}  // namespace tessaline::cli
