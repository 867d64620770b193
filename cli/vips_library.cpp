#include "cli/vips_library.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <gmodule.h>
#include <stdio.h>
#include <stdlib.h>
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

// Where the modules of the library are: beside it. Empty where there are none.
std::string ModuleFolder() {
  Dl_info library = {};
  if (dladdr(reinterpret_cast<const void*>(&vips_init), &library) == 0 || library.dli_fname == nullptr)
    return {};
  const std::string path = library.dli_fname;
  const std::string folder = path.substr(0, path.find_last_of('/') + 1) + "vips-modules-" +
                             std::to_string(vips_version(0)) + "." + std::to_string(vips_version(1));
  return g_file_test(folder.c_str(), G_FILE_TEST_IS_DIR) ? folder : "";
}

// Left to itself the library loads all its modules when it starts, and with them what draws pages, reads
// slides of microscopes and makes films: a sixth of the time that a small picture takes, again in each
// process of a batch, for what no picture here needs but those of two formats. It looks for modules below
// this folder of the environment, if it is set.
class ModulesLeftOut {
 public:
  ModulesLeftOut() : isOurs_(getenv(kVariable) == nullptr && !ModuleFolder().empty()) {
    if (isOurs_) setenv(kVariable, "/dev/null", 1);
  }
  ~ModulesLeftOut() {
    if (isOurs_) unsetenv(kVariable);
  }
  ModulesLeftOut(const ModulesLeftOut&) = delete;
  ModulesLeftOut& operator=(const ModulesLeftOut&) = delete;

 private:
  static constexpr const char* kVariable = "VIPSHOME";
  bool isOurs_;
};

Refusal CannotStart() {
  return Refusal(ExitStatus::kOutOfMemory,
                 "the picture library cannot start; is it installed whole, is there memory?");
}

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
  const ModulesLeftOut modulesLeftOut;
  if (VIPS_INIT("tessaline") != 0) throw CannotStart();
  // Every picture is read once, from top to bottom: a cache of operations would only hold memory and files,
  // and more than one worker more buffers.
  vips_cache_set_max(0);
  vips_concurrency_set(1);
  isStarted = true;
}

void LoadModuleFor(const std::string& operation) {
  if (vips_type_find("VipsOperation", operation.c_str()) != 0) return;
  const std::string format = operation.substr(0, operation.find("load"));  // modules are named for it
  const std::string path = ModuleFolder() + "/vips-" + format + ".so";
  if (!g_file_test(path.c_str(), G_FILE_TEST_EXISTS)) return;
  GModule* const module = g_module_open(path.c_str(), G_MODULE_BIND_LAZY);
  if (module == nullptr) throw CannotStart();
  g_module_make_resident(module);
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
