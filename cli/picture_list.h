// Which pictures a call is about, and where each goes: arguments, lists and folders.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "cli/options.h"
#include "cli/output_file.h"

namespace tessaline::cli {

// Inputs in their order, held close together: tens of thousands of names are a few megabytes. Outputs are
// made of them when asked for.
class PictureList {
 public:
  // Reads the list and walks the folders that `command` names. Refuses, before anything is written: with
  // kWrongUsage when two pictures would become the same one, or an output is the log or the report; with
  // kUnreadable when the list or a folder cannot be read; with kCannotWrite when there is no output folder.
  // An input named twice is taken once.
  explicit PictureList(const PictureCommand& command);

  size_t size() const { return places_.size(); }
  std::string Input(size_t index) const { return Name(places_[index]); }
  std::string Output(size_t index) const;  // empty where none is wanted

  // What the user should know of: pictures named twice, files passed over.
  const std::vector<std::string>& notes() const { return notes_; }

 private:
  struct Place {
    uint64_t at;    // of the name in names_, to a NUL
    uint32_t kept;  // from here on the name goes into the output folder
  };

  const char* Name(const Place& place) const { return names_.data() + place.at; }
  std::string_view KeptName(const Place& place) const;
  void Add(const std::string& input, size_t kept);
  void AddFolder(const std::string& folder, size_t kept);
  void AddArgument(const std::string& input);
  void AddListed(const std::string& input);
  void ReadList(const std::string& file, char separator);
  void SettleSameOutputs();
  void RefuseOutputNamed(const std::string& file, const char* role) const;
  bool IsResult(const std::string& name) const;

  const PictureCommand& command_;
  FileIdentity outputFolder_;
  std::string names_;
  std::vector<Place> places_;
  std::vector<std::string> notes_;
  size_t passedOver_ = 0;
};

// "page.tif" with suffix "-clean": "page-clean.tif".
std::string WithSuffix(const std::string& path, const std::string& suffix);

// Makes the folders between `given`, which stands, and the file `path` below it. What cannot be made is told
// by the opening of the file.
void MakeFoldersBelow(const std::string& given, const std::string& path);

}  // namespace tessaline::cli
