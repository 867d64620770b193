#include "cli/batch_log.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>

#include "cli/messages.h"

namespace tessaline::cli {
namespace {

constexpr const char* kCleaned = "cleaned";
constexpr const char* kFoundOnly = "found";  // of a dry run
constexpr const char* kNothingFound = "nothing found";
constexpr const char* kSkipped = "skipped";
constexpr const char* kFailed = "failed";

// In the order in which they are told, with the words for it.
constexpr struct {
  const char* result;
  const char* words;
} kResults[] = {
    {kCleaned, "cleaned"},
    {kFoundOnly, "with a pattern"},
    {kNothingFound, "without a pattern"},
    {kSkipped, "skipped, done before"},
};
constexpr struct {
  ExitStatus status;
  const char* words;
} kReasons[] = {
    {ExitStatus::kWrongUsage, "of a format that is not written"},
    {ExitStatus::kUnreadable, "missing, unreadable or damaged"},
    {ExitStatus::kUnsupported, "of a kind not taken"},
    {ExitStatus::kTooLarge, "too large"},
    {ExitStatus::kOutOfMemory, "short of memory"},
    {ExitStatus::kCannotWrite, "not to be written"},
    {ExitStatus::kInterrupted, "interrupted"},
};

Json SizeOf(const std::string& file) {
  struct stat status = {};
  return !file.empty() && stat(file.c_str(), &status) == 0 ? Json(status.st_size) : Json(nullptr);
}

Json LogEntry(const std::string& input, const std::string& output, const char* result, ExitStatus status,
              const std::string& message) {
  Json entry = DescribeNames(input, output.empty() ? std::nullopt : std::optional(output));
  entry["result"] = result;
  entry["status"] = static_cast<int>(status);
  entry["message"] = Printable(message);
  return entry;
}

std::string Now() {
  const time_t now = time(nullptr);
  tm parts = {};
  char text[32];
  gmtime_r(&now, &parts);
  strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
  return text;
}

Refusal CannotAppend(const std::string& path, const std::string& why) {
  return Refusal(ExitStatus::kCannotWrite, path, why);
}

}  // namespace

Json LogEntryOfDone(const std::string& input, const std::string& output, bool isDry, const std::string& found,
                    const std::string& message, const Json& report) {
  const char* const result = found.empty() ? kNothingFound : isDry ? kFoundOnly : kCleaned;
  Json entry = LogEntry(input, isDry ? "" : output, result, ExitStatus::kDone, message);
  entry["found"] = found.empty() ? Json(nullptr) : Json(found);
  entry["seconds"] = std::round(report["seconds"]["total"].get<double>() * 1000) / 1000;
  entry["width"] = report["width"];
  entry["height"] = report["height"];
  entry["pages"] = report.value("documentPages", report["pages"].size());  // of a PDF document
  entry["inputBytes"] = SizeOf(input);
  entry["outputBytes"] = SizeOf(isDry ? "" : output);
  return entry;
}

Json LogEntryOfSkipped(const std::string& input, const std::string& output, const std::string& message) {
  Json entry = LogEntry(input, output, kSkipped, ExitStatus::kDone, message);
  entry["outputBytes"] = SizeOf(output);
  return entry;
}

Json LogEntryOfFailed(const std::string& input, const std::string& output, const Refusal& refusal) {
  return LogEntry(input, output, kFailed, refusal.status(), refusal.what());
}

BatchLog::BatchLog(const std::string& path, const std::vector<FileIdentity>& inputs) : path_(path) {
  if (path.empty()) return;
  if (path == "-") {
    descriptor_ = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  } else {
    descriptor_ = open(path.c_str(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
    if (descriptor_ < 0) descriptor_ = open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
  }
  if (descriptor_ < 0) throw CannotAppend(path, std::string("cannot be written: ") + strerror(errno));
  struct stat status = {};
  isFile_ = path != "-" && fstat(descriptor_, &status) == 0 && S_ISREG(status.st_mode);
  if (!isFile_) return;
  if (std::binary_search(inputs.begin(), inputs.end(), IdentityOf(descriptor_))) {
    throw CannotAppend(path, "is one of the inputs, which are never changed; give the log another name");
  }
  MendEnd();
}

BatchLog::~BatchLog() {
  if (descriptor_ >= 0) close(descriptor_);
}

void BatchLog::MendEnd() const {
  flock(descriptor_, LOCK_EX);
  const off_t size = lseek(descriptor_, 0, SEEK_END);
  char byte = '{';
  if (size > 0 && (pread(descriptor_, &byte, 1, 0) != 1 || byte != '{')) {
    flock(descriptor_, LOCK_UN);
    throw CannotAppend(path_, "is there and no log; give another name");
  }
  off_t end = size;
  while (end > 0 && pread(descriptor_, &byte, 1, end - 1) == 1 && byte != '\n') --end;
  if (end < size && ftruncate(descriptor_, end) != 0) {
    // It stays as it is: one line that cannot be read.
  }
  flock(descriptor_, LOCK_UN);
}

void BatchLog::Append(const Json& entry) const {
  if (descriptor_ < 0) return;
  Json line = {{"time", Now()}};
  line.update(entry);
  const std::string text = line.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
  if (!isFile_) {
    if (WriteFully(descriptor_, text.data(), text.size())) return;
    throw CannotAppend(path_, std::string("cannot be written: ") + strerror(errno));
  }
  flock(descriptor_, LOCK_EX);
  const off_t before = lseek(descriptor_, 0, SEEK_END);
  const bool isWhole = WriteFully(descriptor_, text.data(), text.size());
  const int error = errno;
  if (!isWhole && ftruncate(descriptor_, before) != 0) {
    // The next run takes the piece off.
  }
  flock(descriptor_, LOCK_UN);
  if (!isWhole) throw CannotAppend(path_, std::string("cannot be written: ") + strerror(error));
}

void Tally::Count(const Json& entry) {
  ++finished_;
  if (entry["status"] != 0) {
    ++failed_[entry["status"].get<int>()];
  } else {
    ++results_[entry["result"].get<std::string>()];
  }
}

size_t Tally::skipped() const {
  const auto found = results_.find(kSkipped);
  return found == results_.end() ? 0 : found->second;
}

std::string Tally::Words(double seconds, bool isInterrupted) const {
  std::string text = isInterrupted ? "interrupted after " + Duration(seconds) + ": " : "";
  text += Counted(pictures_, "picture");
  text += isInterrupted ? "" : " in " + Duration(seconds);
  const char* between = ": ";
  const auto add = [&](size_t count, const std::string& words) {
    if (count == 0) return;
    text += between + std::to_string(count) + " " + words;
    between = ", ";
  };
  for (const auto& row : kResults) {
    const auto found = results_.find(row.result);
    if (found != results_.end()) add(found->second, row.words);
  }
  size_t failures = 0;
  std::string reasons;
  for (const auto& [status, count] : failed_) {
    const auto* const reason =
        std::find_if(std::begin(kReasons), std::end(kReasons),
                     [status = status](const auto& row) { return static_cast<int>(row.status) == status; });
    failures += count;
    reasons += (reasons.empty() ? "" : ", ") + std::to_string(count) + " " +
               (reason != std::end(kReasons) ? reason->words : "for no known reason");
  }
  add(failures, "failed (" + reasons + ")");
  add(pictures_ - finished_, "not done");
  return text;
}

Json Tally::Description(double seconds, bool isInterrupted) const {
  Json failed = Json::object();
  for (const auto& [status, count] : failed_) failed[std::to_string(status)] = count;
  Json counts = {{"pictures", pictures_}};
  for (const auto& row : kResults) {
    const auto found = results_.find(row.result);
    if (found != results_.end()) counts[row.result] = found->second;
  }
  counts["failed"] = failed;
  counts["notDone"] = pictures_ - finished_;
  counts["interrupted"] = isInterrupted;
  counts["seconds"] = std::round(seconds * 1000) / 1000;
  return {{"summary", counts}};
}

std::string Duration(double seconds) {
  constexpr int64_t kMinute = 60, kHour = 3600;
  const auto whole = static_cast<int64_t>(std::ceil(seconds));
  if (whole < 2 * kMinute) return std::to_string(whole) + " s";
  if (whole < 2 * kHour) return std::to_string((whole + kMinute / 2) / kMinute) + " min";
  return std::to_string(whole / kHour) + " h " + std::to_string(whole % kHour / kMinute) + " min";
}

}  // namespace tessaline::cli
