#include "cli/input_file.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>

#include <utility>
#include <vector>

#include "cli/refusal.h"

namespace tessaline::cli {
namespace {

constexpr size_t kReadBlock = size_t{1} << 20;

Refusal CannotRead(const std::string& name, const std::string& what) {
  return Refusal(ExitStatus::kUnreadable, name, what);
}

}  // namespace

InputFile::InputFile(const std::string& path)
    : name_(path == "-" ? "standard input" : path), isStandardInput_(path == "-") {
  // Not blocking, or a pipe without a writer would be waited for.
  if (isStandardInput_)
    KeepStandardInput();
  else
    descriptor_ = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (descriptor_ < 0) {
    throw CannotRead(name_, errno == ENOENT ? "does not exist; check the name"
                                            : std::string("cannot be read: ") + strerror(errno));
  }
  try {
    TakeStatus();
  } catch (...) {
    close(descriptor_);
    throw;
  }
}

InputFile::InputFile(int descriptor, const std::string& name) : name_(name), descriptor_(descriptor) {
  TakeStatus();
}

InputFile::InputFile(InputFile&& other) noexcept
    : name_(std::move(other.name_)),
      isStandardInput_(other.isStandardInput_),
      descriptor_(std::exchange(other.descriptor_, -1)),
      size_(other.size_),
      changed_(other.changed_) {}

InputFile::~InputFile() {
  if (descriptor_ >= 0) close(descriptor_);
}

void InputFile::TakeStatus() {
  struct stat status = {};
  fstat(descriptor_, &status);
  if (S_ISDIR(status.st_mode)) throw CannotRead(name_, "is a folder; name the pictures in it");
  if (!S_ISREG(status.st_mode)) {
    throw CannotRead(name_, "is not a file; pictures are read from files (frames: tessaline stream)");
  }
  size_ = status.st_size;
  changed_ = status.st_mtim;
}

// Pictures are read here and there and more than once.
void InputFile::KeepStandardInput() {
  if (isatty(STDIN_FILENO) != 0)
    throw CannotRead(name_, "is a terminal; send a picture to it, or name a file");
  const std::string folder = FolderOfTemporaries();
  descriptor_ = OpenNameless(folder);
  const auto refuseFolder = [&] {
    throw CannotRead(
        name_, "cannot be kept in " + folder + ": " + strerror(errno) + "; TMPDIR names another folder");
  };
  if (descriptor_ < 0) refuseFolder();
  std::vector<char> block(kReadBlock);
  for (;;) {
    const ssize_t count = read(STDIN_FILENO, block.data(), block.size());
    if (count == 0) return;
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) throw CannotRead(name_, std::string("cannot be read: ") + strerror(errno));
    if (!WriteFully(descriptor_, block.data(), static_cast<size_t>(count))) refuseFolder();
  }
}

void InputFile::DemandUnchanged() const {
  struct stat status = {};
  fstat(descriptor_, &status);
  if (status.st_size != size_ || status.st_mtim.tv_sec != changed_.tv_sec ||
      status.st_mtim.tv_nsec != changed_.tv_nsec) {
    throw CannotRead(name_, "was changed while it was being read; try again");
  }
}

void InputFile::CopyTo(OutputFile* output) const {
  DemandUnchanged();
  std::vector<char> block(kReadBlock);
  for (off_t at = 0;;) {
    const ssize_t count = pread(descriptor_, block.data(), block.size(), at);
    if (count < 0) throw CannotRead(name_, std::string("cannot be read: ") + strerror(errno));
    if (count == 0) return;
    output->Write(block.data(), static_cast<size_t>(count));
    at += count;
  }
}

}  // namespace tessaline::cli
