#include "dch/store/state_file.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>

#include "dch/testkit/store_test.h"
#include "tests/support/process.h"

namespace dch {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class StateFileTest : public testkit::StoreTest {
 protected:
  static std::string errorOf(const std::string& path) {
    try {
      const StateFile file(path, Durability::process);
    } catch (const StateFileError& error) {
      return error.what();
    }
    return "";
  }
  void expectError(const std::string& reason) {
    const std::string error = errorOf(path());
    EXPECT_THAT(error, HasSubstr(path()));
    EXPECT_THAT(error, HasSubstr(reason));
  }
  void write(const std::string& sql) const { sqlite::Connection(path(), nullptr).execute(sql); }
};

TEST_F(StateFileTest, AnEmptyFileBecomesAStateFile) {
  std::ofstream(path()).flush();
  EXPECT_EQ(errorOf(path()), "");
  EXPECT_EQ(read("PRAGMA user_version"), "4\n");
  EXPECT_EQ(read("PRAGMA journal_mode"), "wal\n");
}

TEST_F(StateFileTest, OneFileHasOneServer) {
  const StateFile file(path(), Durability::process);
  expectError("in use by another server (process " + std::to_string(getpid()) + "): stop that one");
  std::filesystem::create_symlink(path(), path() + "-link");
  EXPECT_THAT(errorOf(path() + "-link"), HasSubstr("in use by another server"));
}

TEST_F(StateFileTest, OneFileHasOneServerAmongProcesses) {
  {
    const StateFile file(path(), Durability::process);
    const ProcessResult other = runInChild([&] { return errorOf(path()).empty() ? 0 : 3; });
    EXPECT_EQ(other.exitStatus, 3) << other.standardError;
  }
  EXPECT_EQ(errorOf(path()), "") << "the first one has ended";
}

TEST_F(StateFileTest, ReadersAreNotKeptOut) {
  start();
  goOnline();
  EXPECT_EQ(read("SELECT name FROM applications"), "HOSTMON\n");
}

TEST_F(StateFileTest, AReaderThatStaysDoesNotHoldUpTheServer) {
  start({.path = {}, .checkpointPages = 10});
  goOnline();
  sqlite::Connection reader(path(), nullptr);
  reader.execute("BEGIN");
  EXPECT_EQ(sqlite::queryNumber(reader, "SELECT count(*) FROM \"HOSTMON.load\""), 0);
  for (Time time = 1; time <= 200; ++time) EXPECT_TRUE(keep(Row{1, time, testkit::dataMessage(1)}));
  EXPECT_EQ(sqlite::queryNumber(reader, "SELECT count(*) FROM \"HOSTMON.load\""), 0);
  reader.execute("COMMIT");
  EXPECT_EQ(sqlite::queryNumber(reader, "SELECT count(*) FROM \"HOSTMON.load\""), 200);
  EXPECT_EQ(_store->figures().failures, 0u);
}

TEST_F(StateFileTest, AWriterThatStaysKeepsRowsWaitingOnce) {
  start();
  goOnline();
  sqlite::Connection writer(path(), nullptr);
  writer.execute("BEGIN IMMEDIATE");
  const auto begin = std::chrono::steady_clock::now();
  for (Time time = 1; time <= 5; ++time) EXPECT_FALSE(keep(Row{1, time, testkit::dataMessage(1)}));
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20)) << "5 of them each";
  writer.execute("COMMIT");
  EXPECT_TRUE(keep(Row{1, 6, testkit::dataMessage(1)}));
  EXPECT_EQ(read("SELECT time_us FROM \"HOSTMON.load\""), "6\n");
}

TEST_F(StateFileTest, ANewerVersionIsRefused) {
  EXPECT_EQ(errorOf(path()), "");
  write("PRAGMA user_version = 5");
  expectError("has version 5, and this server knows versions up to 4: run the newer server");
}

TEST_F(StateFileTest, AnOlderVersionIsBroughtUpToDate) {
  start();
  goOnline();
  ASSERT_TRUE(keep(Row{1, 1, testkit::dataMessage(1)}));
  const std::string before = knownAfterRestart();
  stop();
  takeBackTo(1);
  EXPECT_EQ(knownAfterRestart(), before);
  EXPECT_EQ(read("PRAGMA user_version"), "4\n");
  EXPECT_TRUE(keep(Row{1, 2, testkit::dataMessage(1)}));
  EXPECT_EQ(read("SELECT time_us FROM \"HOSTMON.load\""), "1\n2\n");
}

TEST_F(StateFileTest, AnotherDatabaseIsRefusedAndNotChanged) {
  write("CREATE TABLE t (a); PRAGMA user_version = 1");
  expectError("another program's database");
  EXPECT_EQ(read("SELECT name FROM sqlite_schema"), "t\n");
  EXPECT_EQ(read("PRAGMA journal_mode"), "delete\n");
}

TEST_F(StateFileTest, WhatIsNoDatabaseIsRefused) {
  std::ofstream(path()) << std::string(5000, 'x');
  expectError("is no database: name another file");
}

TEST_F(StateFileTest, ADamagedFileIsRefused) {
  start();
  goOnline();
  for (int count = 0; count < 100; ++count) keep(testkit::deferred(count));
  stop();
  std::filesystem::resize_file(path(), std::filesystem::file_size(path()) / 2);
  try {
    start();
    ADD_FAILURE() << "it was opened";
  } catch (const StateFileError& error) {
    EXPECT_THAT(error.what(), HasSubstr("is damaged"));
    EXPECT_THAT(error.what(), HasSubstr("put back a copy"));
    EXPECT_THAT(error.what(), HasSubstr(path()));
  }
}

TEST_F(StateFileTest, ASourceWithAnImpossibleHandleIsDamage) {
  for (const char* handle : {"0", "-1", "2000000000"}) {
    start();
    goOnline();
    stop();
    write(std::string("UPDATE known_sources SET handle = ") + handle);
    try {
      start();
      ADD_FAILURE() << "it was opened with " << handle;
    } catch (const StateFileError& error) {
      EXPECT_THAT(error.what(),
                  HasSubstr("is damaged (a source has handle " + std::string(handle)));
    }
    stop();
    std::filesystem::remove(path());
  }
}

TEST_F(StateFileTest, AMissingDirectoryIsNamed) {
  EXPECT_THAT(errorOf(_folder.path() + "/no/state.db"),
              HasSubstr("has no directory: make " + _folder.path() + "/no"));
}

TEST_F(StateFileTest, WhatIsNoFileIsRefusedAndNothingLeftBesideIt) {
  std::filesystem::create_directory(path());
  expectError("is a directory: name a file");
  EXPECT_THAT(errorOf(path() + '/'), HasSubstr("is a directory: name a file"));
  std::filesystem::remove(path());
  ASSERT_EQ(mkfifo(path().c_str(), 0600), 0);
  expectError("is a device or a pipe: name a file");
  EXPECT_THAT(_folder.files(), ElementsAre("state.db"));
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(_folder.path());
  EXPECT_THAT(errorOf(":memory:"), HasSubstr("cannot be :memory:"));
  std::filesystem::current_path(before);
  EXPECT_THAT(_folder.files(), ElementsAre("state.db"));
}

// The log of the one name would be missed under the other.
TEST_F(StateFileTest, AFileWithTwoNamesIsRefusedUnderEach) {
  const std::string other = path() + "-other";
  start();
  goOnline();
  std::filesystem::create_hard_link(path(), other);
  EXPECT_THAT(errorOf(other), HasSubstr("the state file " + other + " has 2 names (hard links)"));
  EXPECT_FALSE(std::filesystem::exists(other + "-lock"));
  EXPECT_TRUE(keep(Row{1, 1, testkit::dataMessage(1)})) << "who has it goes on";
  stop();
  expectError("has 2 names (hard links)");
  std::filesystem::remove(other);
  EXPECT_EQ(errorOf(path()), "");
}

TEST_F(StateFileTest, AFileWithoutPermissionIsRefused) {
  if (geteuid() != 0) {
    EXPECT_EQ(errorOf(path()), "");
    std::filesystem::permissions(path(), std::filesystem::perms::none);
    expectError("Permission denied");
    return;
  }
  // Root may read everything: so another user tries.
  EXPECT_EQ(errorOf(path()), "");
  std::filesystem::permissions(_folder.path(), std::filesystem::perms(0777));
  std::filesystem::permissions(path() + "-lock", std::filesystem::perms(0666));
  std::filesystem::permissions(path(), std::filesystem::perms(0600));
  const ProcessResult other = runInChild([&] {
    if (setgid(65534) != 0 || setuid(65534) != 0) return 1;
    const std::string error = errorOf(path());
    return error.find("cannot be opened (Permission denied)") != std::string::npos &&
                   error.find(path()) != std::string::npos
               ? 3
               : 2;
  });
  EXPECT_EQ(other.exitStatus, 3) << other.standardError;
  std::filesystem::permissions(path(), std::filesystem::perms(0644));
  const ProcessResult reader = runInChild([&] {
    if (setgid(65534) != 0 || setuid(65534) != 0) return 1;
    return errorOf(path()).find("cannot be opened") != std::string::npos ? 3 : 2;
  });
  EXPECT_EQ(reader.exitStatus, 3) << "it can only be read";
}

}  // namespace
}  // namespace dch
