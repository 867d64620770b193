#include "tests/cli/program.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <sstream>

namespace tessaline::cli {

namespace {

// Milliseconds without a sign of life after which a program is taken to hang.
constexpr int kPatience = 400000;

}  // namespace

TemporaryFolder::TemporaryFolder() {
  std::string name = (std::filesystem::temp_directory_path() / "tessaline-test-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) abort();
  path_ = name;
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::vector<std::string> TemporaryFolder::Names() const {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(path_))
    names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  return names;
}

int Ended::ErrorLines() const {
  return static_cast<int>(std::count(err.begin(), err.end(), '\n'));
}

RunningProgram::RunningProgram(const std::vector<std::string>& arguments, const Start& start) {
  int in[2], out[2], err[2];
  if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0) abort();
  process_ = fork();
  if (process_ < 0) abort();
  if (process_ == 0) {
    const int input = start.inputFile.empty() ? in[0] : open(start.inputFile.c_str(), O_RDONLY);
    dup2(input, STDIN_FILENO);
    dup2(out[1], STDOUT_FILENO);
    dup2(err[1], STDERR_FILENO);
    if (start.largestFile != RLIM_INFINITY) {
      const rlimit limit = {start.largestFile, start.largestFile};
      setrlimit(RLIMIT_FSIZE, &limit);
    }
    std::vector<char*> argv = {const_cast<char*>(TESSALINE_PROGRAM)};
    for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    execv(TESSALINE_PROGRAM, argv.data());
    _exit(127);
  }
  close(in[0]);
  close(out[1]);
  close(err[1]);
  in_ = in[1];
  out_ = out[0];
  err_ = err[0];
  signal(SIGPIPE, SIG_IGN);
}

RunningProgram::~RunningProgram() {
  if (process_ <= 0) return;
  kill(process_, SIGKILL);
  Wait();
}

void RunningProgram::Write(const std::string& bytes) {
  size_t done = 0;
  while (done < bytes.size()) {
    // Both ways at once, or each side would wait for the other to read.
    pollfd polled[] = {{in_, POLLOUT, 0}, {out_, POLLIN, 0}, {err_, POLLIN, 0}};
    fcntl(in_, F_SETFL, O_NONBLOCK);
    poll(polled, 3, -1);
    if (polled[0].revents != 0) {
      const ssize_t written = write(in_, bytes.data() + done, bytes.size() - done);
      if (written < 0 && errno != EAGAIN) return;  // it has stopped reading
      if (written > 0) done += static_cast<size_t>(written);
    }
    for (int i = 1; i < 3; ++i) {
      if (polled[i].revents == 0) continue;
      char block[65536];
      const ssize_t count = read(polled[i].fd, block, sizeof block);
      if (count > 0) (i == 1 ? ended_.out : ended_.err).append(block, static_cast<size_t>(count));
    }
  }
}

void RunningProgram::CloseInput() {
  if (in_ >= 0) close(in_);
  in_ = -1;
}

void RunningProgram::CloseOutput() {
  if (out_ >= 0) close(out_);
  out_ = -1;
}

bool RunningProgram::ReadUntil(const std::function<bool()>& isDone) {
  while (!isDone()) {
    pollfd polled[] = {{out_, POLLIN, 0}, {err_, POLLIN, 0}};  // negative ones are passed over
    if (out_ < 0 && err_ < 0) return false;
    const int events = poll(polled, 2, kPatience);
    if (events == 0) return false;
    if (events < 0) continue;
    int* const ends[] = {&out_, &err_};
    for (int i = 0; i < 2; ++i) {
      if (*ends[i] < 0 || polled[i].revents == 0) continue;
      char block[65536];
      const ssize_t count = read(*ends[i], block, sizeof block);
      if (count > 0) (i == 0 ? ended_.out : ended_.err).append(block, static_cast<size_t>(count));
      if (count == 0) {
        close(*ends[i]);
        *ends[i] = -1;
      }
    }
  }
  return true;
}

bool RunningProgram::WaitForOutput(size_t bytes) {
  return ReadUntil([&] { return ended_.out.size() >= bytes; });
}

bool RunningProgram::WaitForError(const std::string& text) {
  return ReadUntil([&] { return ended_.err.find(text) != std::string::npos; });
}

void RunningProgram::Signal(int signal) {
  kill(process_, signal);
}

int64_t RunningProgram::PeakKilobytes() const {
  std::ifstream status("/proc/" + std::to_string(process_) + "/status");
  for (std::string word; status >> word;) {
    int64_t kilobytes = 0;
    if (word == "VmHWM:" && status >> kilobytes) return kilobytes;
  }
  return 0;
}

Ended RunningProgram::Wait() {
  CloseInput();
  ReadUntil([] { return false; });
  if (out_ >= 0 || err_ >= 0) kill(process_, SIGKILL);  // it hangs
  int status = 0;
  waitpid(process_, &status, 0);
  process_ = -1;
  ended_.status = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  return ended_;
}

Ended RunProgram(const std::vector<std::string>& arguments, const std::string& input) {
  RunningProgram program(arguments);
  program.Write(input);
  return program.Wait();
}

std::string ReadWholeFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream bytes;
  bytes << file.rdbuf();
  return bytes.str();
}

void WriteWholeFile(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

}  // namespace tessaline::cli
