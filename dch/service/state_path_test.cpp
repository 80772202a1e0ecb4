#include "dch/service/state_path.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "dch/store/state_file_error.h"
#include "tests/support/temporary_files.h"

namespace dch {
namespace {

class StatePathTest : public ::testing::Test {
 protected:
  StatePathTest() {
    unsetenv("STATE_DIRECTORY");
    setenv("XDG_STATE_HOME", _directory.path().c_str(), 1);
  }

  std::string inDirectory(const std::string& name) const { return _directory.path() + "/" + name; }

  const TemporaryFolder _directory;
};

TEST_F(StatePathTest, IsWhatTheOperatorAskedFor) {
  EXPECT_EQ(statePath("/some/file.db", false, 1919), "/some/file.db");
  EXPECT_EQ(statePath("/some/file.db", true, 1919), "/some/file.db");
  EXPECT_EQ(statePath("memory", false, 1919), std::nullopt);
}

TEST_F(StatePathTest, IsNothingForAServerOnAnyFreePort) {
  EXPECT_EQ(statePath(std::nullopt, true, 20'000), std::nullopt);
}

#ifdef ZORD410_SQLITE

TEST_F(StatePathTest, IsInTheUsersStateDirectoryWhichIsMade) {
  EXPECT_EQ(statePath(std::nullopt, false, 1919), inDirectory("zord410/zordchd-1919.db"));
  EXPECT_TRUE(std::filesystem::is_directory(inDirectory("zord410")));
}

TEST_F(StatePathTest, IsInTheHomeDirectoryWithoutAnotherOne) {
  unsetenv("XDG_STATE_HOME");
  setenv("HOME", _directory.path().c_str(), 1);
  EXPECT_EQ(statePath(std::nullopt, false, 1919),
            inDirectory(".local/state/zord410/zordchd-1919.db"));
}

TEST_F(StatePathTest, IsInTheFirstDirectoryThatSystemdMade) {
  setenv("STATE_DIRECTORY", "/var/lib/one:/var/lib/two", 1);
  EXPECT_EQ(statePath(std::nullopt, false, 1919), "/var/lib/one/zordchd.db");
}

TEST_F(StatePathTest, SaysWhichDirectoryCannotBeMade) {
  setenv("XDG_STATE_HOME", "/proc/none", 1);
  try {
    statePath(std::nullopt, false, 1919);
    FAIL();
  } catch (const StateFileError& error) {
    EXPECT_NE(std::string(error.what()).find("/proc/none/zord410"), std::string::npos);
  }
}

#endif

}  // namespace
}  // namespace dch
