#include "cli/picture_list.h"

#include <errno.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>

#include "cli/messages.h"
#include "cli/picture_format.h"
#include "cli/refusal.h"

namespace tessaline::cli {
namespace {

std::optional<struct stat> StatusOf(const std::string& path) {
  struct stat status = {};
  if (stat(path.c_str(), &status) != 0) return std::nullopt;
  return status;
}

bool IsFolder(const std::string& path) {
  const auto status = StatusOf(path);
  return status && S_ISDIR(status->st_mode);
}

FileIdentity IdentityOfPath(const std::string& path) {
  const auto status = StatusOf(path);
  return status ? FileIdentity{status->st_dev, status->st_ino} : FileIdentity{};
}

std::string JoinPath(const std::string& folder, std::string_view name) {
  return folder.back() == '/' ? folder + std::string(name) : folder + "/" + std::string(name);
}

// Where the last part of a path begins; "scans/" is called "scans/".
size_t LastPart(const std::string& path) {
  const size_t last = path.find_last_not_of('/');
  const size_t slash = last == std::string::npos ? last : path.find_last_of('/', last);
  return slash == std::string::npos ? 0 : slash + 1;
}

struct Entry {
  std::string name;
  bool isFolder;  // links to folders are not followed: they may lead round
};

// What is not hidden, in the order of names. Refuses with kUnreadable.
std::vector<Entry> EntriesOf(const std::string& folder) {
  std::vector<Entry> entries;
  std::error_code error;
  for (std::filesystem::directory_iterator at(folder, error), end; !error && at != end; at.increment(error)) {
    std::error_code gone;
    const std::string name = at->path().filename();
    const bool isFolder = at->symlink_status(gone).type() == std::filesystem::file_type::directory;
    if (name[0] != '.' && (isFolder || !at->is_directory(gone))) entries.push_back({name, isFolder});
  }
  if (error) throw Refusal(ExitStatus::kUnreadable, folder, "cannot be read: " + error.message());
  std::sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) { return a.name < b.name; });
  return entries;
}

}  // namespace

std::string WithSuffix(const std::string& path, const std::string& suffix) {
  const size_t name = LastPart(path), dot = path.find_last_of('.');
  const size_t at = dot == std::string::npos || dot <= name ? path.size() : dot;
  return path.substr(0, at) + suffix + path.substr(at);
}

void MakeFoldersBelow(const std::string& given, const std::string& path) {
  for (size_t slash = path.find('/', given.size() + 1); slash != std::string::npos;
       slash = path.find('/', slash + 1)) {
    mkdir(path.substr(0, slash).c_str(), 0777);
  }
}

PictureList::PictureList(const PictureCommand& command)
    : command_(command), outputFolder_(IdentityOfPath(command.outputFolder)) {
  for (const std::string& input : command.inputs) AddArgument(input);
  if (!command.listFile.empty()) ReadList(command.listFile, command.listHasNuls ? '\0' : '\n');
  if (passedOver_ > 0) {
    notes_.push_back(Counted(passedOver_, "file") + " passed over, called otherwise than pictures" +
                     (command.suffix.empty() ? "" : ", or results of before"));
  }
  SettleSameOutputs();
  if (command.dryRun) return;
  if (!command.outputFolder.empty() && !IsFolder(command.outputFolder)) {
    throw Refusal(ExitStatus::kCannotWrite, command.outputFolder, "is no folder that exists; make it first");
  }
  RefuseOutputNamed(command.reportFile, "--report");
  RefuseOutputNamed(command.logFile, "--log");
}

std::string_view PictureList::KeptName(const Place& place) const {
  std::string_view kept = Name(place) + place.kept;
  while (kept.size() > 1 && kept.back() == '/') kept.remove_suffix(1);
  return kept;
}

std::string PictureList::Output(size_t index) const {
  const std::string_view kept = KeptName(places_[index]);
  if (!command_.outputFolder.empty())
    return WithSuffix(JoinPath(command_.outputFolder, kept), command_.suffix);
  return command_.suffix.empty() ? "" : WithSuffix(std::string(kept), command_.suffix);
}

void PictureList::Add(const std::string& input, size_t kept) {
  places_.push_back({names_.size(), static_cast<uint32_t>(command_.outputFolder.empty() ? 0 : kept)});
  names_ += input;
  names_ += '\0';
}

// A picture that an earlier run wrote beside its input is not taken for an input.
bool PictureList::IsResult(const std::string& name) const {
  const std::string stem = name.substr(0, name.find_last_of('.'));
  return !command_.suffix.empty() && stem.ends_with(command_.suffix);
}

void PictureList::AddFolder(const std::string& folder, size_t kept) {
  for (const Entry& entry : EntriesOf(folder)) {
    const std::string path = JoinPath(folder, entry.name);
    if (entry.isFolder) {
      const bool isOutputFolder = !command_.outputFolder.empty() && IdentityOfPath(path) == outputFolder_;
      if (!isOutputFolder) AddFolder(path, kept);
    } else if (IsPictureName(entry.name) && !IsResult(entry.name)) {
      Add(path, kept);
    } else {
      ++passedOver_;
    }
  }
}

void PictureList::AddArgument(const std::string& input) {
  if (!command_.recursive || !IsFolder(input)) return Add(input, LastPart(input));
  AddFolder(input, input.back() == '/' ? input.size() : input.size() + 1);
}

// A name of a list keeps its folders where folders are mirrored.
void PictureList::AddListed(const std::string& input) {
  if (!command_.recursive) return Add(input, LastPart(input));
  size_t kept = 0;
  while (input[kept] == '/' || input.compare(kept, 2, "./") == 0) ++kept;
  if (("/" + input + "/").find("/../") != std::string::npos) {
    throw Refusal(ExitStatus::kWrongUsage, command_.listFile,
                  "names " + input + ", whose .. would leave the output folder; name it without");
  }
  IsFolder(input) ? AddFolder(input, kept) : Add(input, kept);
}

void PictureList::ReadList(const std::string& file, char separator) {
  std::ifstream opened;
  if (file != "-") {
    opened.open(file, std::ios::binary);
    if (!opened || IsFolder(file)) {
      const char* const why =
          IsFolder(file) ? "is a folder; --recursive takes those as INPUT" : strerror(errno);
      throw Refusal(ExitStatus::kUnreadable, file, std::string("cannot be read as a list: ") + why);
    }
  }
  std::istream& list = file == "-" ? std::cin : opened;
  for (std::string name; std::getline(list, name, separator);) {
    if (separator != '\0' && name.find('\0') != std::string::npos) {
      throw Refusal(ExitStatus::kWrongUsage, file, "separates its names by NUL bytes; add -0");
    }
    if (!name.empty()) AddListed(name);
  }
  if (list.bad()) throw Refusal(ExitStatus::kUnreadable, file, "cannot be read to its end");
}

// Of pictures with the same output the first stays when they are one file, otherwise the call is refused.
void PictureList::SettleSameOutputs() {
  std::vector<size_t> order(places_.size());
  for (size_t i = 0; i < order.size(); ++i) order[i] = i;
  std::stable_sort(order.begin(), order.end(),
                   [this](size_t a, size_t b) { return KeptName(places_[a]) < KeptName(places_[b]); });
  std::vector<bool> isRepeated(places_.size());
  size_t repeated = 0;
  for (size_t i = 1, first = 0; i < order.size(); ++i) {
    const std::string one = Input(order[first]), other = Input(order[i]);
    if (KeptName(places_[order[first]]) != KeptName(places_[order[i]])) {
      first = i;
    } else if (one == other || (StatusOf(one) && IdentityOfPath(one) == IdentityOfPath(other))) {
      isRepeated[order[i]] = true;
      ++repeated;
    } else if (!command_.outputFolder.empty()) {
      throw Refusal(ExitStatus::kWrongUsage,
                    one + " and " + other + " would both become " + Output(order[i]) +
                        "; nothing was written: clean them in separate calls" +
                        (command_.recursive ? "" : ", or keep their folders with --recursive"));
    }
  }
  if (repeated == 0) return;
  size_t kept = 0;
  for (size_t i = 0; i < places_.size(); ++i) {
    if (!isRepeated[i]) places_[kept++] = places_[i];
  }
  places_.resize(kept);
  notes_.push_back(Counted(repeated, "name") + " passed over, of pictures named before");
}

void PictureList::RefuseOutputNamed(const std::string& file, const char* role) const {
  if (file.empty() || file == "-") return;
  const auto whole = [](const std::string& path) {
    return std::filesystem::absolute(path).lexically_normal();
  };
  for (size_t i = 0; i < size(); ++i) {
    const std::string output = Output(i);
    if (FileNameOf(output) != FileNameOf(file) || whole(output) != whole(file)) continue;
    throw Refusal(ExitStatus::kWrongUsage, std::string("OUTPUT and ") + role + " are the same file, " + file);
  }
}

}  // namespace tessaline::cli
