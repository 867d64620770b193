// Leaving at once and cleanly when the user or the system asks for it.
#pragma once

#include <sys/types.h>

#include <string>

namespace tessaline::cli {

// From here on SIGINT, SIGTERM and SIGHUP (unless the caller ignored that one, as nohup does) remove the
// temporary files registered below, end the child processes and wait for them, and leave with status 130.
// SIGPIPE and SIGXFSZ are ignored, so that a closed pipe and a full disk come back as errors of write().
void InstallInterruptionHandlers();

// From here on those signals are only noted: what is returned, the reading end of a pipe, becomes readable.
// The caller then leaves in its own order. -1 without such a pipe: the signals act as before.
int NoteInterruptions();

// A temporary file to remove when interrupted; at most 64 at a time, paths shorter than 4096 bytes.
// Returns a handle for ForgetTemporary, or -1 when there is no room (the file is then not removed on a
// signal).
int RegisterTemporary(const std::string& path);
void ForgetTemporary(int handle);

// Holds the signals back while a file or a child comes into being and is registered, so that none is missed.
class InterruptionHeld {
 public:
  InterruptionHeld();
  ~InterruptionHeld();
  InterruptionHeld(const InterruptionHeld&) = delete;
  InterruptionHeld& operator=(const InterruptionHeld&) = delete;
};

void RegisterChild(pid_t child);  // at most 256 at a time
void ForgetChild(pid_t child);

// Leaves likewise, with status 6 and a line, where memory runs out in a place that no error comes back from;
// a child leaves the words to its parent, and is killed (see EndedSilently).
[[noreturn]] void LeaveOutOfMemory();

// In a child, right after fork: the parent's files and children are not this process's to clean up, of an
// interruption the parent tells, and it ends the child at once.
void BecomeChild();

}  // namespace tessaline::cli
