#include "cli/output_file.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "cli/interruption.h"

namespace tessaline::cli {
namespace {

Refusal CannotWrite(const std::string& path, const std::string& why) {
  return Refusal(ExitStatus::kCannotWrite, path, why);
}

Refusal CannotWriteErrno(const std::string& path, int error) {
  return CannotWrite(path, std::string("cannot be written: ") + strerror(error));
}

mode_t ModeOfNewFiles() {
  const mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
}

// Leaves room in the name for the marks of a temporary file, whole bytes of it being enough: the name is
// never shown.
std::string TemporaryTemplate(const std::string& finalPath) {
  constexpr size_t kMarks = 24;  // ".", ".tessaline-", "XXXXXX" and some air
  std::string name = FileNameOf(finalPath);
  if (name.size() > NAME_MAX - kMarks) name.resize(NAME_MAX - kMarks);
  return FolderOf(finalPath) + "/." + name + ".tessaline-XXXXXX";
}

// As rename(), but an existing file stays and gives EEXIST.
int RenameToNew(const char* from, const char* to) {
  if (renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0) return 0;
  if (errno != EINVAL && errno != ENOSYS) return -1;
  if (link(from, to) == 0) return unlink(from);  // a file system without that flag
  if (errno == EEXIST) return -1;
  return rename(from, to);  // and without links: the check before the run has to do
}

}  // namespace

FileIdentity IdentityOf(int descriptor) {
  struct stat status = {};
  if (fstat(descriptor, &status) != 0) return {};
  return {status.st_dev, status.st_ino};
}

std::string FolderOf(const std::string& path) {
  const size_t slash = path.find_last_of('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

std::string FileNameOf(const std::string& path) {
  const size_t slash = path.find_last_of('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

bool WriteFully(int descriptor, const void* bytes, size_t count) {
  const char* at = static_cast<const char*>(bytes);
  while (count > 0) {
    const ssize_t written = write(descriptor, at, count);
    if (written < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    at += written;
    count -= static_cast<size_t>(written);
  }
  return true;
}

OutputFile::OutputFile(const std::string& path, bool overwrite, const std::vector<FileIdentity>& inputs)
    : path_(path), finalPath_(path), overwrite_(overwrite) {
  if (path.empty() || FileNameOf(path).empty()) throw CannotWrite(path, "is not the name of a file");
  struct stat existing = {};
  const bool exists = stat(path.c_str(), &existing) == 0;
  mode_t mode = ModeOfNewFiles();
  if (exists) {
    const FileIdentity identity = {existing.st_dev, existing.st_ino};
    if (std::find(inputs.begin(), inputs.end(), identity) != inputs.end()) {
      throw CannotWrite(path, "is the input itself, which is never changed; give another name");
    }
    if (S_ISDIR(existing.st_mode)) throw CannotWrite(path, "is a folder; give the name of a file");
    if (!S_ISREG(existing.st_mode)) {
      descriptor_ = open(path.c_str(), O_RDWR | O_CLOEXEC);
      if (descriptor_ < 0) descriptor_ = open(path.c_str(), O_WRONLY | O_CLOEXEC);
      if (descriptor_ < 0) throw CannotWriteErrno(path, errno);
      return;
    }
    if (!overwrite) throw CannotWrite(path, "exists already; give another name, or -f to overwrite it");
    mode = existing.st_mode & 07777;
    replacesFile_ = true;
    // Where the name is a link, the file behind it is replaced, not the link.
    char* resolved = realpath(path.c_str(), nullptr);
    if (resolved != nullptr) {
      finalPath_ = resolved;
      free(resolved);
    }
  } else if (errno != ENOENT && errno != ENOTDIR) {
    throw CannotWriteErrno(path, errno);
  }

  struct stat folder = {};
  if (stat(FolderOf(finalPath_).c_str(), &folder) != 0 || !S_ISDIR(folder.st_mode)) {
    throw CannotWrite(path, "the folder " + FolderOf(finalPath_) + " does not exist; make it first");
  }
  std::string name = TemporaryTemplate(finalPath_);
  {
    const InterruptionHeld held;
    descriptor_ = mkostemp(name.data(), O_CLOEXEC);
    if (descriptor_ >= 0) temporaryHandle_ = RegisterTemporary(name);
  }
  if (descriptor_ < 0) throw CannotWriteErrno(path, errno);
  temporaryPath_ = name;
  fchmod(descriptor_, mode);
}

OutputFile::~OutputFile() {
  Discard();
}

void OutputFile::Discard() {
  if (descriptor_ >= 0) close(descriptor_);
  descriptor_ = -1;
  if (!temporaryPath_.empty()) unlink(temporaryPath_.c_str());
  temporaryPath_.clear();
  ForgetTemporary(temporaryHandle_);
  temporaryHandle_ = -1;
}

void OutputFile::TakeModeAndTimes(int descriptor) {
  struct stat status = {};
  if (temporaryPath_.empty() || fstat(descriptor, &status) != 0) return;
  if (!replacesFile_) fchmod(descriptor_, status.st_mode & 0777);
  times_ = {status.st_atim, status.st_mtim};
}

void OutputFile::Write(const void* bytes, size_t count) {
  if (!WriteFully(descriptor_, bytes, count)) throw CannotWriteErrno(path_, errno);
}

void OutputFile::Commit() {
  if (temporaryPath_.empty()) {
    const int descriptor = descriptor_;
    descriptor_ = -1;
    if (descriptor >= 0 && close(descriptor) != 0) throw CannotWriteErrno(path_, errno);
    return;
  }
  if (times_) futimens(descriptor_, times_->data());
  // Some file systems tell of a full disk only now.
  if (fsync(descriptor_) != 0 && errno != EINVAL) throw CannotWriteErrno(path_, errno);
  const int descriptor = descriptor_;
  descriptor_ = -1;
  if (close(descriptor) != 0) throw CannotWriteErrno(path_, errno);
  const int result = overwrite_ ? rename(temporaryPath_.c_str(), finalPath_.c_str())
                                : RenameToNew(temporaryPath_.c_str(), finalPath_.c_str());
  if (result != 0) throw CannotWriteErrno(path_, errno);
  temporaryPath_.clear();
  ForgetTemporary(temporaryHandle_);
  temporaryHandle_ = -1;
}

}  // namespace tessaline::cli
