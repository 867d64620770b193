// tessaline: takes repeating patterns out of pictures and frames. See docs/command-line.md.

#include <errno.h>
#include <fcntl.h>
#include <malloc.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <exception>
#include <functional>
#include <new>
#include <system_error>

#include "cli/interruption.h"
#include "cli/machine_share.h"
#include "cli/messages.h"
#include "cli/options.h"
#include "cli/output_file.h"
#include "cli/own_process.h"
#include "cli/picture_batch.h"
#include "cli/picture_run.h"
#include "cli/progress_bar.h"
#include "cli/refusal.h"
#include "cli/stream_run.h"
#include "platform/message.h"

namespace tessaline::cli {
namespace {

// A shell can start a program without its standard streams (<&- >&- 2>&-). The first file opened would take
// their place, and messages end in the picture. What is opened here instead works the wrong way round, so
// that a report or frames asked for on a closed stream are refused and not lost.
void OpenClosedStandardStreams() {
  constexpr int kModes[] = {O_WRONLY, O_RDONLY, O_WRONLY};  // messages may go nowhere
  for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
    if (fcntl(stream, F_GETFD) < 0)
      open("/dev/null", kModes[stream]);  // the lowest free number: this stream's
  }
}

// What passes code that may not let it pass, a library's or before main. Compilers end some of that code with
// the exception still on its way and not to be looked at: it is one of memory, which no such code reckons
// with.
[[noreturn]] void EndUncaught() {
  try {
    if (std::current_exception()) throw;
    if (std::uncaught_exceptions() > 0) LeaveOutOfMemory();
  } catch (const std::bad_alloc&) {
    LeaveOutOfMemory();
  } catch (const std::system_error&) {  // a thread cannot be had
    LeaveOutOfMemory();
  } catch (...) {
  }
  abort();
}

// Before what is made before main, which allocates too: 101 is the first turn that a program may ask for.
[[gnu::constructor(101)]] void TakeOverTheEnd() {
  std::set_terminate(EndUncaught);
}

// Of the memory that threads allocate each would have 64 MiB of address space set aside, and as much for a
// stack as the shell gives the first of them (ulimit -s), which none here needs.
void SpareAddressSpace() {
  if (LeftByLimits() == UINT64_MAX) return;
  mallopt(M_ARENA_MAX, 1);
  constexpr size_t kStack = size_t{8} << 20;
  pthread_attr_t attributes;
  if (pthread_getattr_default_np(&attributes) != 0) return;
  size_t bytes = 0;
  if (pthread_attr_getstacksize(&attributes, &bytes) == 0 && bytes > kStack) {
    pthread_attr_setstacksize(&attributes, kStack);
    pthread_setattr_default_np(&attributes);
  }
  pthread_attr_destroy(&attributes);
}

void TellAll(const std::vector<std::string>& lines, const Talk& talk) {
  if (talk.quiet) return;
  for (const std::string& line : lines) Tell(line);
}

// With what goes wrong told.
ExitStatus Telling(const std::function<ExitStatus()>& work) {
  try {
    return work();
  } catch (const Refusal& refusal) {
    Tell(refusal.what());
    return refusal.status();
  } catch (const std::bad_alloc&) {
    fputs("tessaline: not enough memory\n", stderr);  // and none for a longer sentence
    return ExitStatus::kOutOfMemory;
  }
}

ExitStatus CleanOne(const PictureCommand& command) {
  PictureRequest request = RequestOf(command, command.pictures[0].input, command.pictures[0].output);
  request.format = command.format;
  request.spectrumFile = command.spectrumFile;
  request.maskFile = command.maskFile;
  request.gateFile = command.gateFile;
  request.reportFile = command.reportFile;
  if (!request.dryRun && request.output != "-") RemoveStrays(FolderOf(request.output));
  ProgressBar progress(command.talk.showProgress);
  const PictureOutcome outcome = CleanPicture(request, &progress);
  progress.Clear();
  TellAll(outcome.notes, command.talk);
  return ExitStatus::kDone;
}

ExitStatus Run(const PictureCommand& command) {
  if (command.isBatch) return CleanPictures(command);
  const std::string& input = command.pictures[0].input;
  const auto work = [&] { return Telling([&] { return CleanOne(command); }); };
  try {
    const ExitStatus status = RunApart(input == "-" ? "standard input" : input, work);
    if (status == ExitStatus::kInterrupted) Tell("interrupted");
    return status;
  } catch (const Refusal&) {
    for (const std::string& output : {command.pictures[0].output, command.spectrumFile, command.maskFile,
                                      command.gateFile, command.reportFile})
      if (!output.empty()) RemoveStrays(FolderOf(output));
    throw;
  }
}

ExitStatus Run(const StreamCommand& command) {
  ProgressBar progress(command.talk.showProgress);
  const std::vector<std::string> notes = CleanStream(command, &progress);
  progress.Clear();
  TellAll(notes, command.talk);
  return ExitStatus::kDone;
}

ExitStatus Run(const PrintAndLeave& print) {
  if (WriteFully(STDOUT_FILENO, print.text.data(), print.text.size())) return ExitStatus::kDone;
  throw Refusal(ExitStatus::kCannotWrite, "standard output",
                std::string("cannot be written: ") + strerror(errno));
}

ExitStatus Main(int argc, const char* const* argv) {
  return Telling([=] {
    OpenClosedStandardStreams();
    InstallInterruptionHandlers();
    SpareAddressSpace();
    // The engine's message boxes say what this program says in its own words.
    SetMessageHandler([](const char*, const char*) {});
    const Command command = ReadCommandLine(argc, argv);
    return std::visit([](const auto& wanted) { return Run(wanted); }, command);
  });
}

}  // namespace
}  // namespace tessaline::cli

int main(int argc, char** argv) {
  try {
    return static_cast<int>(tessaline::cli::Main(argc, argv));
  } catch (const std::bad_alloc&) {  // there was none to say what was wrong
    tessaline::cli::LeaveOutOfMemory();
  }
}
