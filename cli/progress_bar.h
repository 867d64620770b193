// How far the work is, on stderr.
#pragma once

#include <chrono>
#include <string>

namespace tessaline::cli {

class ProgressBar {
 public:
  explicit ProgressBar(bool isShown) : isShown_(isShown) {}
  ~ProgressBar() { Clear(); }
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  // Redraws the line, at most some ten times a second unless the text changed. `fraction` is 0..1.
  void Show(double fraction, const std::string& text);
  // Takes the line away, before something else is written.
  void Clear();

 private:
  bool isShown_;
  bool isOnScreen_ = false;
  std::string text_;
  std::chrono::steady_clock::time_point drawn_;
};

}  // namespace tessaline::cli
