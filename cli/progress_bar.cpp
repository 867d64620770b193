#include "cli/progress_bar.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "cli/messages.h"

namespace tessaline::cli {

ProgressBar::ProgressBar(bool isShown) {
  if (isShown) descriptor_ = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
}

ProgressBar::~ProgressBar() {
  Clear();
  if (descriptor_ >= 0) close(descriptor_);
}

void ProgressBar::Show(double fraction, const std::string& text) {
  constexpr int kCells = 30, kMostPercent = 99;
  const std::lock_guard lock(mutex_);
  furthest_ = std::clamp(fraction, furthest_, 1.0);
  const auto full = static_cast<size_t>(furthest_ * kCells);
  std::string cells(kCells, '.');
  std::fill_n(cells.begin(), full, '#');
  char bar[64];
  snprintf(bar, sizeof bar, "[%s] %3d%% ", cells.c_str(),
           std::min(static_cast<int>(furthest_ * 100), kMostPercent));
  Draw(bar, text);
}

void ProgressBar::ShowWithoutEnd(const std::string& text) {
  const std::lock_guard lock(mutex_);
  Draw("", text);
}

void ProgressBar::Draw(const std::string& bar, const std::string& text) {
  if (descriptor_ < 0) return;
  constexpr auto kBetweenDrawings = std::chrono::milliseconds(80);
  const auto now = std::chrono::steady_clock::now();
  if (isOnScreen_ && text == text_ && now - drawn_ < kBetweenDrawings) return;
  dprintf(descriptor_, "\r%s%s\x1b[K", bar.c_str(), Printable(text).c_str());
  isOnScreen_ = true;
  text_ = text;
  drawn_ = now;
}

void ProgressBar::Clear() {
  const std::lock_guard lock(mutex_);
  if (!isOnScreen_) return;
  dprintf(descriptor_, "\r\x1b[K");
  isOnScreen_ = false;
}

}  // namespace tessaline::cli
