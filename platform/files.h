// Files: the one place on disk where the program keeps a user's files between runs, and what the C library
// does not tell about other files.
//
// That place:
// Windows: the user's temporary folder (GetTempPathA). POSIX, the first that is usable of
//   $XDG_STATE_HOME/tessaline, $HOME/.local/state/tessaline, the same in the home folder of the user
//   database, and /tmp/tessaline-UID;
// the two variables only tell where the user's home is, are ignored in a program that runs with more rights
// than its caller, and count only when the folder they name belongs to the user. Missing folders are made for
// the user alone (mode 0700). A folder that is a symbolic link, belongs to somebody else or can be written by
// others is not used.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tessaline {

// Uses the folder `path` instead (made when missing, its parent must exist; on POSIX it must be the user's
// own and not writable by others). Null restores the user's place. For tests, and for programs that keep
// their files together.
void SetPrivateFolder(const char* path);

// What ReadPrivateFile returns without a file.
constexpr int64_t kFileIsMissing = -1;     // there is none of that name
constexpr int64_t kFileIsUnreadable = -2;  // there may be one, with things in it that somebody wants to keep

// Reads the first bytes of the file `name`, at most `bytes`, and returns how many there were, or one of the
// two above: unreadable is what cannot be opened for another reason than being absent, fails while it is
// read, or is no ordinary file. On POSIX neither follows a symbolic link nor waits for a pipe.
int64_t ReadPrivateFile(const char* name, void* destination, size_t bytes);

// Makes `source` the whole content of the file `name`: written under another name beside it, then renamed, so
// that every reader, in this process or another, sees the old content or the new, and of two writers one wins
// whole. A symbolic link of that name is replaced, not followed. On POSIX the file is the user's alone (mode
// 0600). False, with the old file untouched and nothing left beside it, when that fails.
//
// The content is not forced out to the disk: it outlives the process, not a power failure.
bool ReplacePrivateFile(const char* name, const void* source, size_t bytes);

// True when both paths (as fopen takes them) lead to one ordinary file, by whatever links. False when either
// does not exist.
bool IsSameFile(const char* path, const char* otherPath);

}  // namespace tessaline
