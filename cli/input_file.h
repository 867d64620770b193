// A file that is read: opened once, so that everything comes from the same one, whatever happens to its name.
#pragma once

#include <sys/types.h>
#include <time.h>
#include <unistd.h>

#include <string>

#include "cli/output_file.h"

namespace tessaline::cli {

class InputFile {
 public:
  // Refuses with kUnreadable what is missing, cannot be read or is no file. "-" is standard input, which is
  // kept in a file without a name. Then name() is "standard input".
  explicit InputFile(const std::string& path);
  // Takes over an open file; `name` is for messages.
  InputFile(int descriptor, const std::string& name);
  ~InputFile();
  InputFile(InputFile&& other) noexcept;
  InputFile& operator=(InputFile&&) = delete;

  const std::string& name() const { return name_; }
  int descriptor() const { return descriptor_; }  // for positioned reads
  off_t size() const { return size_; }
  bool isStandardInput() const { return isStandardInput_; }
  FileIdentity identity() const { return IdentityOf(isStandardInput_ ? STDIN_FILENO : descriptor_); }

  // The file's bytes as they are. Refuses with kUnreadable when the file changed since it was opened.
  void CopyTo(OutputFile* output) const;
  // Refuses likewise.
  void DemandUnchanged() const;

 private:
  void KeepStandardInput();
  void TakeStatus();

  std::string name_;
  bool isStandardInput_ = false;
  int descriptor_ = -1;
  off_t size_ = 0;
  timespec changed_ = {};
};

}  // namespace tessaline::cli
