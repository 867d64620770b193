// How far the work is, on stderr.
#pragma once

#include <chrono>
#include <mutex>
#include <string>

namespace tessaline::cli {

// Never goes back, and says 99 % at most: it stands there until the work is done and the line is taken away.
// May be shown from any thread.
class ProgressBar {
 public:
  explicit ProgressBar(bool isShown);
  ~ProgressBar();
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  // Redraws the line, at most some ten times a second unless the text changed. `fraction` is 0..1 of all
  // work.
  void Show(double fraction, const std::string& text);
  // The same for work whose end nobody knows: text without a bar.
  void ShowWithoutEnd(const std::string& text);
  // Takes the line away, before something else is written.
  void Clear();

 private:
  void Draw(const std::string& bar, const std::string& text);

  std::mutex mutex_;
  int descriptor_ =
      -1;  // its own, for stderr is silenced while the picture library works; negative: not shown
  bool isOnScreen_ = false;
  double furthest_ = 0;
  std::string text_;
  std::chrono::steady_clock::time_point drawn_;
};

}  // namespace tessaline::cli
