// Files that appear under their final name whole or not at all.
#pragma once

#include <time.h>

#include <array>
#include <compare>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "cli/refusal.h"

namespace tessaline::cli {

// The two numbers that tell one file from another, whatever paths, links or mounts lead to it.
struct FileIdentity {
  unsigned long long device = 0;
  unsigned long long inode = 0;
  // NOLINTNEXTLINE(modernize-use-nullptr): for a null it takes what the compiler makes of this
  friend auto operator<=>(const FileIdentity&, const FileIdentity&) = default;
};
FileIdentity IdentityOf(int descriptor);

// A file being written. Bytes go to a temporary in the folder of the final name; Commit gives it that name.
// What is not committed is removed again: by the destructor, on a signal (interruption.h), and what a killed
// process leaves by RemoveStrays of a later one.
//
// A name that stands for something else than a file (a pipe, a device) is opened and written directly.
class OutputFile {
 public:
  // Refuses with kCannotWrite: the folder is missing or not writable; the file exists and `overwrite` is not
  // set; the file is one of `inputs`; the path names a folder.
  OutputFile(const std::string& path, bool overwrite, const std::vector<FileIdentity>& inputs);
  // Standard output, which gets all bytes in Commit: nothing half-written goes out. Refuses with kCannotWrite
  // where there is no place for them until then.
  struct ToStandardOutput {};
  explicit OutputFile(ToStandardOutput);
  // A file without a name in that folder, never committed; `path` is for messages. Refuses likewise.
  struct Nameless {};
  OutputFile(Nameless, const std::string& folder, const std::string& path);
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  const std::string& path() const { return path_; }  // as the user wrote it
  int descriptor() const { return descriptor_; }     // open for reading and writing where it is a file

  // The file gets permissions and times of the one behind `descriptor`; one that is replaced keeps its own
  // permissions. Nothing is done to what is no file.
  void TakeModeAndTimes(int descriptor);

  // Writes all bytes at the current position; refuses with kCannotWrite.
  void Write(const void* bytes, size_t count);

  // The final name, with everything on the disk. Refuses with kCannotWrite, also when a file of that name
  // appeared meanwhile and `overwrite` is not set. An existing file's permissions are kept.
  void Commit();

 private:
  void OpenTemporary();
  void CopyToStandardOutput() const;
  void Discard();

  std::string path_;
  std::string finalPath_;      // with a symbolic link at the end followed
  std::string temporaryPath_;  // empty when written directly
  int descriptor_ = -1;
  int temporaryHandle_ = -1;
  bool overwrite_;
  bool replacesFile_ = false;
  bool goesToStandardOutput_ = false;
  std::optional<std::array<timespec, 2>> times_;  // last read, last changed
};

// Removes temporary files of this user and machine from a folder whose processes are no more. Those of living
// processes stay, and those of other machines, of which nobody here can tell.
void RemoveStrays(const std::string& folder);

// True when `output` stands and is not older than `input`: it came from the input as it is now, for outputs
// take their input's time, and appear under their names when they are whole. Times of files are compared, as
// coarse as the output's file system keeps them, never the clock: it may be wrong or go back. What is empty
// or no file is not done.
bool IsDone(const std::string& input, const std::string& output);

// A file without a name in that folder, open for reading and writing, gone with its descriptor; -1 with errno
// set.
int OpenNameless(const std::string& folder);
// For such files that belong to no folder: TMPDIR, or /tmp.
std::string FolderOfTemporaries();

// Folder part of a path ("." when there is none) and the last part.
std::string FolderOf(const std::string& path);
std::string FileNameOf(const std::string& path);

// Writes everything, again after short writes and interruptions. False with errno set.
bool WriteFully(int descriptor, const void* bytes, size_t count);

}  // namespace tessaline::cli
