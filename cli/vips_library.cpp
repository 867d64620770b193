#include "cli/vips_library.h"

#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include "cli/interruption.h"
#include "cli/machine_share.h"
#include "cli/refusal.h"

namespace tessaline::cli {
namespace {

// What the library below calls fatal, and aborts after, is that a small block or a thread cannot be had.
void DropMessage(const gchar*, GLogLevelFlags level, const gchar*, gpointer) {
  if ((level & (G_LOG_FLAG_FATAL | G_LOG_LEVEL_ERROR)) != 0) LeaveOutOfMemory();
}
GLogWriterOutput DropStructuredMessage(GLogLevelFlags level, const GLogField*, gsize, gpointer) {
  DropMessage(nullptr, level, nullptr, nullptr);
  return G_LOG_WRITER_HANDLED;
}

// Address space that the library and its modules take to start, and what may be wanted before the demand of a
// picture is known. Where less is left it would abort.
constexpr uint64_t kRoomToStart = uint64_t{24} << 20;

}  // namespace

void StartPictureLibrary() {
  static bool isStarted = false;
  if (isStarted) return;
  if (LeftByLimits() < kRoomToStart) {
    throw Refusal(ExitStatus::kOutOfMemory,
                  "not enough memory to start; raise the limit of this shell (ulimit -v, ulimit -d)");
  }
  g_log_set_default_handler(DropMessage, nullptr);
  g_log_set_writer_func(DropStructuredMessage, nullptr, nullptr);
  if (VIPS_INIT("tessaline") != 0) {
    throw Refusal(ExitStatus::kOutOfMemory,
                  "the picture library cannot start; is it installed whole, is there memory?");
  }
  // Every picture is read once, from top to bottom: a cache of operations would only hold memory and files,
  // and more than one worker more buffers.
  vips_cache_set_max(0);
  vips_concurrency_set(1);
  isStarted = true;
}

StderrSilenced::StderrSilenced() : saved_(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3)) {
  if (saved_ < 0) return;
  fflush(stderr);
  const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (nowhere < 0) return;
  dup2(nowhere, STDERR_FILENO);
  close(nowhere);
}

StderrSilenced::~StderrSilenced() {
  if (saved_ < 0) return;
  fflush(stderr);
  dup2(saved_, STDERR_FILENO);
  close(saved_);
}

std::string TakeLibraryError() {
  std::string text = vips_error_buffer();
  vips_error_clear();
  while (!text.empty() && text.back() == '\n') text.pop_back();
  std::string line;
  for (char c : text) {
    if (c == '\n') {
      line += "; ";
    } else if (static_cast<unsigned char>(c) >= 0x20) {
      line += c;
    }
  }
  return line;
}

}  // namespace tessaline::cli
