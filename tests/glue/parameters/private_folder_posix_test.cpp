// Where the preferences go on POSIX, what they must never go through, and several processes on them.
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "glue/parameters/settings_record.h"
#include "image/result_codes.h"
#include "platform/files.h"
#include "tests/glue/scratch_folder.h"

namespace tessaline {
namespace {

namespace fs = std::filesystem;

class PrivateFolderTest : public PreferencesTest {
 protected:
  PrivateFolderTest() : state_(Variable("XDG_STATE_HOME")), home_(Variable("HOME")) {}
  ~PrivateFolderTest() override {
    Set("XDG_STATE_HOME", state_);
    Set("HOME", home_);
  }
  static std::optional<std::string> Variable(const char* name) {
    const char* const value = std::getenv(name);
    return value != nullptr ? std::optional<std::string>(value) : std::nullopt;
  }
  static void Set(const char* name, const std::optional<std::string>& value) {
    if (value) {
      setenv(name, value->c_str(), 1);
    } else {
      unsetenv(name);
    }
  }
  static unsigned Mode(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777u : 0;
  }
  static bool Write() { return ReplacePrivateFile("file", "new", 3); }
  static std::string Content(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }

 private:
  std::optional<std::string> state_, home_;
};

TEST_F(PrivateFolderTest, TheStateFolderComesFirstThenTheHomeFolder) {
  SetPreferencesFolder(nullptr);
  Set("XDG_STATE_HOME", folder.File("state"));
  Set("HOME", folder.path());
  ASSERT_TRUE(Write());
  EXPECT_EQ("new", Content(folder.File("state/tessaline/file")));

  Set("XDG_STATE_HOME", "relative/paths/count/as/unset");
  ASSERT_TRUE(Write());
  EXPECT_EQ("new", Content(folder.File(".local/state/tessaline/file")));
  EXPECT_FALSE(fs::exists("relative"));
}

TEST_F(PrivateFolderTest, FolderAndFileAreTheUsersAlone) {
  const mode_t before = umask(0);
  SetPreferencesFolder(folder.File("made").c_str());
  EXPECT_TRUE(Write());
  umask(before);
  EXPECT_EQ(0700u, Mode(folder.File("made")));
  EXPECT_EQ(0600u, Mode(folder.File("made/file")));
}

TEST_F(PrivateFolderTest, ALinkedFileIsReplacedNotFollowed) {
  std::ofstream(folder.File("victim")) << "old";
  fs::create_symlink(folder.File("victim"), folder.File("file"));
  char bytes[8];
  EXPECT_EQ(kFileIsUnreadable, ReadPrivateFile("file", bytes, sizeof bytes));
  EXPECT_TRUE(Write());
  EXPECT_EQ("old", Content(folder.File("victim")));
  EXPECT_FALSE(fs::is_symlink(folder.File("file")));
  EXPECT_EQ(3, ReadPrivateFile("file", bytes, sizeof bytes));
}

// Its texts would be lost: nothing that memory holds is worth as much.
TEST_F(PrivateFolderTest, PreferencesThatCannotBeReadAreLeftAlone) {
  std::ofstream(folder.File("elsewhere")) << std::string(kPreferencesFileBytes, 'x');
  fs::create_symlink(folder.File("elsewhere"), PreferencesPath());
  EXPECT_EQ(kInvalidSlotOrFile, ReadPreferences());
  EXPECT_EQ(kInvalidSlotOrFile, WritePreferences());
  EXPECT_TRUE(fs::is_symlink(PreferencesPath()));
  fs::remove(PreferencesPath());  // missing is another thing
  EXPECT_EQ(kInvalidSlotOrFile, ReadPreferences());
  EXPECT_EQ(kSuccess, WritePreferences());
}

TEST_F(PrivateFolderTest, FoldersThatOthersCouldSteerAreRefused) {
  fs::create_directory(folder.File("real"));
  fs::permissions(folder.File("real"), fs::perms::owner_all);
  fs::create_directory_symlink(folder.File("real"), folder.File("link"));
  for (const char* const link : {"link", "link/"}) {
    SetPreferencesFolder(folder.File(link).c_str());
    EXPECT_FALSE(Write());
  }

  SetPreferencesFolder(folder.File("real").c_str());
  EXPECT_TRUE(Write());
  fs::permissions(folder.File("real"), fs::perms::owner_all | fs::perms::others_all);
  EXPECT_FALSE(Write());
  EXPECT_EQ(kInvalidSlotOrFile, ReadPreferences());
}

TEST_F(PrivateFolderTest, APipeInTheFilesPlaceDoesNotStopTheProgram) {
  ASSERT_EQ(0, mkfifo(folder.File("file").c_str(), 0600));
  char byte;
  EXPECT_EQ(kFileIsUnreadable, ReadPrivateFile("file", &byte, 1));
  EXPECT_EQ(kFileIsMissing, ReadPrivateFile("no file", &byte, 1));
}

// What a run does to them, over and over, in eight processes: each reads the file of one of them, and none is
// lost.
TEST_F(PrivateFolderTest, EightProcessesOnOneFileReadWhatOneOfThemWrote) {
  std::ofstream(PreferencesPath(), std::ios::binary) << std::string(kPreferencesFileBytes, 'a');
  const auto runOften = [](char letter) {
    for (int i = 0; i < 40; ++i) {
      if (ReadPreferences() != kSuccess) return false;
      const std::string settings(reinterpret_cast<const char*>(&imageInfo.settings), kSettingsBytes);
      if (settings != std::string(kSettingsBytes, settings[0])) return false;
      for (char* const text : textRecords) {
        if (text != std::string(kTextRecordBytes - 1, settings[0])) return false;
        std::memset(text, letter, kTextRecordBytes - 1);
      }
      std::memset(&imageInfo.settings, letter, kSettingsBytes);
      if (WritePreferences() != kSuccess) return false;
    }
    return true;
  };
  std::vector<pid_t> processes;
  for (int i = 0; i < 8; ++i) {
    processes.push_back(fork());
    if (processes.back() == 0) _exit(runOften(static_cast<char>('b' + i)) ? 0 : 1);
  }
  for (const pid_t process : processes) {
    int status = -1;
    EXPECT_EQ(process, waitpid(process, &status, 0));
    EXPECT_EQ(0, status);
  }
  EXPECT_EQ(static_cast<uintmax_t>(kPreferencesFileBytes), fs::file_size(PreferencesPath()));
  EXPECT_EQ(1, std::distance(fs::directory_iterator(folder.path()), {})) << "a temporary file was left";
}

}  // namespace
}  // namespace tessaline
