// How filterhost says no: an exit status and one line that names the file, what is wrong and what to do.
#pragma once

#include <stdexcept>
#include <string>

namespace tessaline::testhost {

// A stable interface: scripts depend on these numbers.
enum class ExitStatus : int {
  kDone = 0,
  kFilterFailed = 1,  // the filter answered with a code other than 0
  kWrongUsage = 2,    // options and arguments
  kBadModule = 3,     // it cannot be loaded, or its resources or exports are not those of a filter
  kUnreadable = 4,    // a picture or a file of parameters
  kCannotWrite = 5,   // an output file
  kRuleBroken = 6,    // the filter did what no filter may do to a host
  kOutOfMemory = 7,
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

}  // namespace tessaline::testhost
