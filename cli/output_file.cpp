#include "cli/output_file.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <sstream>

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

constexpr char kPartMark[] = ".tessaline-";
constexpr size_t kRandom = 6;  // letters that mkostemp() puts in

std::string HostName() {
  char name[HOST_NAME_MAX + 1] = {};
  gethostname(name, sizeof name - 1);
  return name;
}

// When a process began, in the system's ticks: with its number it is told from every later one of the same
// number. 0: there is no such process, or it has ended and only its number is still to be called for.
unsigned long long BeginningOf(const std::string& process) {
  std::ifstream file("/proc/" + process + "/stat");
  std::string text;
  std::getline(file, text);
  const size_t nameEnd = text.rfind(')');  // the name in front may hold blanks
  if (nameEnd == std::string::npos) return 0;
  std::istringstream fields(text.substr(nameEnd + 1));
  constexpr int kFieldsBefore = 19;  // behind the name: state, parent ...
  std::string state, skipped;
  fields >> state;
  if (state == "Z" || state == "X") return 0;
  for (int i = 1; i < kFieldsBefore; ++i) fields >> skipped;
  unsigned long long ticks = 0;
  fields >> ticks;
  return ticks;
}

// The process whose file it is stands in the name: ".page.tif.tessaline-HOST.PROCESS.BEGINNING-XXXXXX".
std::string OwnerMark() {
  const std::string process = std::to_string(getpid());
  return kPartMark + HostName() + "." + process + "." + std::to_string(BeginningOf(process)) + "-";
}

// Whole bytes of a long name make room for the marks: the name is never shown.
std::string TemporaryTemplate(const std::string& finalPath) {
  const std::string mark = OwnerMark() + std::string(kRandom, 'X');
  std::string name = FileNameOf(finalPath);
  name.resize(std::min(name.size(), NAME_MAX - 1 - mark.size()));
  return FolderOf(finalPath) + "/." + name + mark;
}

bool IsNumber(const std::string& text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

// A temporary file of a process of this machine that is no more. Whether one of another machine lives cannot
// be told from here.
bool IsNameOfStray(const std::string& name, const std::string& host) {
  const size_t mark = name.rfind(kPartMark + host + ".");
  if (name[0] != '.' || mark == std::string::npos || name.size() < kRandom + 1) return false;
  const size_t owner = mark + sizeof kPartMark - 1 + host.size() + 1;
  const size_t dot = name.find('.', owner), dash = name.size() - kRandom - 1;
  if (dot == std::string::npos || dot > dash || name[dash] != '-') return false;
  const std::string process = name.substr(owner, dot - owner), begun = name.substr(dot + 1, dash - dot - 1);
  return IsNumber(process) && IsNumber(begun) && std::to_string(BeginningOf(process)) != begun;
}

// The lock is the second witness: a process behind another wall (a container) of this machine holds it,
// though its number means nothing here.
void RemoveUnlessLocked(const std::string& path) {
  const int descriptor = open(path.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  if (descriptor < 0) return;
  struct stat status = {};
  if (fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) && status.st_uid == geteuid() &&
      flock(descriptor, LOCK_EX | LOCK_NB) == 0) {
    unlink(path.c_str());
  }
  close(descriptor);
}

int64_t Nanoseconds(const timespec& time) {
  return int64_t{time.tv_sec} * 1000000000 + time.tv_nsec;
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

int OpenNameless(const std::string& folder) {
  const int descriptor = open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
  if (descriptor >= 0) return descriptor;
  std::string name = folder + "/.tessaline-pages-XXXXXX";  // a file system without nameless files
  const int named = mkostemp(name.data(), O_CLOEXEC);
  if (named >= 0) unlink(name.c_str());
  return named;
}

std::string FolderOfTemporaries() {
  const char* const wanted = getenv("TMPDIR");
  return wanted != nullptr && *wanted != 0 ? wanted : "/tmp";
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

void RemoveStrays(const std::string& folder) {
  const std::string host = HostName();
  DIR* const entries = opendir(folder.c_str());
  if (entries == nullptr) return;
  while (const dirent* entry = readdir(entries)) {
    if (IsNameOfStray(entry->d_name, host)) RemoveUnlessLocked(folder + "/" + entry->d_name);
  }
  closedir(entries);
}

bool IsDone(const std::string& input, const std::string& output) {
  struct stat in = {}, out = {};
  if (stat(input.c_str(), &in) != 0 || stat(output.c_str(), &out) != 0) return false;
  if (!S_ISREG(out.st_mode) || out.st_size == 0) return false;
  // What file systems keep of a time: FAT, most of old, exFAT, databases, SMB, this one.
  constexpr int64_t kSteps[] = {2000000000, 1000000000, 10000000, 1000, 100, 1};
  const int64_t written = Nanoseconds(out.st_mtim);
  const int64_t step =
      *std::find_if(std::begin(kSteps), std::end(kSteps), [&](int64_t kept) { return written % kept == 0; });
  return Nanoseconds(in.st_mtim) - written < step;
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
  } else if (lstat(path.c_str(), &existing) == 0) {
    throw CannotWrite(path, "is a link that leads nowhere; remove it, or give another name");
  }

  struct stat folder = {};
  if (stat(FolderOf(finalPath_).c_str(), &folder) != 0 || !S_ISDIR(folder.st_mode)) {
    throw CannotWrite(path, "the folder " + FolderOf(finalPath_) + " does not exist; make it first");
  }
  OpenTemporary();
  fchmod(descriptor_, mode);
}

OutputFile::OutputFile(ToStandardOutput)
    : path_("standard output"), overwrite_(false), goesToStandardOutput_(true) {
  if (isatty(STDOUT_FILENO) != 0) {
    throw CannotWrite(path_, "is a terminal, which shows no picture; send it to a file or another program");
  }
  descriptor_ = OpenNameless(FolderOfTemporaries());
  if (descriptor_ < 0) {
    throw CannotWrite(path_, "cannot be prepared in " + FolderOfTemporaries() + ": " + strerror(errno) +
                                 "; TMPDIR names another folder");
  }
}

OutputFile::OutputFile(Nameless, const std::string& folder, const std::string& path)
    : path_(path), descriptor_(OpenNameless(folder)), overwrite_(false) {
  if (descriptor_ < 0) throw CannotWrite(path_, "cannot be prepared in " + folder + ": " + strerror(errno));
}

// The lock tells other processes that this one lives; who took the file for a stray between its making and
// the lock has removed it, and another is made.
void OutputFile::OpenTemporary() {
  for (bool isThere = false; !isThere;) {
    temporaryPath_ = TemporaryTemplate(finalPath_);
    {
      const InterruptionHeld held;
      descriptor_ = mkostemp(temporaryPath_.data(), O_CLOEXEC);
      if (descriptor_ >= 0) temporaryHandle_ = RegisterTemporary(temporaryPath_);
    }
    if (descriptor_ < 0) {
      temporaryPath_.clear();
      throw CannotWriteErrno(path_, errno);
    }
    struct stat status = {};
    flock(descriptor_, LOCK_EX);  // a file system without locks: the process's number has to do
    isThere = fstat(descriptor_, &status) != 0 || status.st_nlink > 0;
    if (!isThere) Discard();
  }
}

OutputFile::~OutputFile() {
  Discard();
}

void OutputFile::CopyToStandardOutput() const {
  constexpr size_t kBlock = size_t{1} << 20;
  std::vector<char> block(kBlock);
  for (off_t at = 0;;) {
    const ssize_t count = pread(descriptor_, block.data(), block.size(), at);
    if (count == 0) return;
    if (count < 0 || !WriteFully(STDOUT_FILENO, block.data(), static_cast<size_t>(count)))
      throw CannotWriteErrno(path_, errno);
    at += count;
  }
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
  if (goesToStandardOutput_) return CopyToStandardOutput();
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
