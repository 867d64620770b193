// A fresh folder of the test's own, so that no test ever sees the preferences of whoever runs it.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <random>
#include <string>

#include "glue/parameters/settings_record.h"

namespace tessaline {

class ScratchFolder {
 public:
  ScratchFolder() {
    std::random_device random;
    do {
      path_ = std::filesystem::path(testing::TempDir()) / ("tessaline_test_" + std::to_string(random()));
    } while (!std::filesystem::create_directories(path_));
    std::filesystem::permissions(path_, std::filesystem::perms::owner_all);
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;
  ~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  std::string path() const { return path_.string(); }
  std::string File(const char* name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};

// Clean program-wide settings and preferences of its own for every test.
class PreferencesTest : public testing::Test {
 protected:
  PreferencesTest() {
    SetPreferencesFolder(folder.path().c_str());
    ClearSettings();
  }
  ~PreferencesTest() override {
    ClearSettings();
    SetPreferencesFolder(nullptr);
  }
  std::string PreferencesPath() const { return folder.File("Plug-In Preferences.xyz"); }

  ScratchFolder folder;
};

}  // namespace tessaline
