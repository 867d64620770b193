#include "cli/progress_bar.h"

#include <algorithm>
#include <cstdio>

namespace tessaline::cli {

void ProgressBar::Show(double fraction, const std::string& text) {
  if (!isShown_) return;
  constexpr auto kBetweenDrawings = std::chrono::milliseconds(80);
  const auto now = std::chrono::steady_clock::now();
  if (isOnScreen_ && text == text_ && now - drawn_ < kBetweenDrawings) return;
  constexpr int kCells = 30;
  const double part = std::clamp(fraction, 0.0, 1.0);
  const int full = static_cast<int>(part * kCells);
  const std::string bar =
      std::string(static_cast<size_t>(full), '#') + std::string(static_cast<size_t>(kCells - full), '.');
  fprintf(stderr, "\r[%s] %3d%% %s\x1b[K", bar.c_str(), static_cast<int>(part * 100), text.c_str());
  fflush(stderr);
  isOnScreen_ = true;
  text_ = text;
  drawn_ = now;
}

void ProgressBar::Clear() {
  if (!isOnScreen_) return;
  fputs("\r\x1b[K", stderr);
  fflush(stderr);
  isOnScreen_ = false;
}

}  // namespace tessaline::cli
