// Files of the state that are removed, moved or replaced while the server has them open: what is
// acknowledged is found by the next server all the same.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <unistd.h>

#include <filesystem>

#include "dch/testkit/store_test.h"
#include "tests/support/wait_until.h"

namespace dch {
namespace {

namespace fs = std::filesystem;

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class LostFileTest : public testkit::StoreTest {
 protected:
  LostFileTest() {
    start();
    goOnline();
  }

  bool keepRow() {
    const bool isKept = keep(Row{1, ++_time, testkit::dataMessage(1)});
    if (isKept) ++_kept;
    return isKept;
  }
  // What is sent as long as it is not noticed is kept by what was taken away.
  void keepRowsUntilItIsNoticed() {
    EXPECT_TRUE(waitUntil([&] { return !keepRow(); }));
  }
  void keepRowsAgain() {
    EXPECT_TRUE(waitUntil([&] { return keepRow(); }));
    EXPECT_TRUE(keepRow());
  }
  bool isTold(const std::string& text) {
    return waitUntil([&] {
      _store->collect();
      return testing::Matches(Contains(HasSubstr(text)))(_log.lines);
    });
  }

  // What the next server finds when this one is killed now.
  std::string rowsAfterDeath() const {
    const TemporaryFolder folder;
    for (const char* suffix : {"", "-wal"})
      if (fs::exists(path() + suffix)) fs::copy(path() + suffix, folder.path() + "/db" + suffix);
    return testkit::query(folder.path() + "/db", count);
  }
  std::string lockPath() const { return path() + "-lock"; }
  std::string kept() const { return std::to_string(_kept) + "\n"; }

  static constexpr char count[] = "SELECT count(*) FROM \"HOSTMON.load\"";
  Time _time = 0;
  int _kept = 0;
};

TEST_F(LostFileTest, NothingIsKeptByAFileThatWasMovedUntilItIsBack) {
  EXPECT_TRUE(keepRow());
  fs::rename(path(), path() + "-moved");
  keepRowsUntilItIsNoticed();
  EXPECT_FALSE(keepRow());
  // All is in the file itself, so that it is enough to move that.
  EXPECT_EQ(testkit::query(path() + "-moved", count), kept());
  fs::rename(path() + "-moved", path());
  keepRowsAgain();
  EXPECT_THAT(_log.lines,
              ElementsAre("the state file " + path() +
                              " takes nothing more: it was removed, moved or replaced; put it "
                              "back, or start the server anew to go on with what is there",
                          "the state file " + path() + " takes changes again"));
  EXPECT_EQ(rowsAfterDeath(), kept());
}

TEST_F(LostFileTest, WorksAgainWhenItIsBackThoughNothingIsToBeKept) {
  fs::rename(path(), path() + "-moved");
  keepRowsUntilItIsNoticed();
  fs::rename(path() + "-moved", path());
  EXPECT_TRUE(waitUntil([&] { return !_store->figures().isFailing; }));
}

TEST_F(LostFileTest, NothingIsKeptByAFileThatWasRemoved) {
  fs::remove(path());
  keepRowsUntilItIsNoticed();
  EXPECT_FALSE(keepRow());
  EXPECT_TRUE(_store->figures().isFailing);
  EXPECT_GE(_store->figures().failures, 1u);
  EXPECT_EQ(_store->figures().changesRefused, 2u);
}

TEST_F(LostFileTest, ACopyThatComesIntoItsPlaceIsLeftAsItIs) {
  EXPECT_TRUE(keepRow());
  const std::string copy = path() + "-copy";
  sqlite::Connection(path(), nullptr).execute("VACUUM INTO '" + copy + "'");
  for (int i = 0; i < 100; ++i) EXPECT_TRUE(keepRow());
  fs::rename(copy, path());
  keepRowsUntilItIsNoticed();
  EXPECT_EQ(rowsAfterDeath(), "1\n");
  stop();
  start();
  EXPECT_EQ(read(count), "1\n");
  EXPECT_EQ(read("PRAGMA integrity_check"), "ok\n");
  EXPECT_TRUE(keepRow());
}

TEST_F(LostFileTest, ALogThatWasRemovedIsBegunAnew) {
  for (const char* suffix : {"-wal", "-shm"}) {
    EXPECT_TRUE(keepRow());
    fs::remove(path() + suffix);
    EXPECT_TRUE(waitUntil([&] {
      keepRow();
      return !_log.lines.empty();
    }));
    keepRowsAgain();
    EXPECT_EQ(rowsAfterDeath(), kept());
    EXPECT_THAT(_log.lines,
                ElementsAre(HasSubstr("takes nothing more: " + path() + suffix + " was removed"),
                            HasSubstr("takes changes again")));
    _log.lines.clear();
  }
}

TEST_F(LostFileTest, ALogThatIsReadIsBegunAnewWhenThatEnds) {
  EXPECT_TRUE(keepRow());
  auto reader = std::make_unique<sqlite::Connection>(path(), nullptr);
  EXPECT_EQ(sqlite::queryNumber(*reader, count), 1);
  fs::rename(path() + "-wal", path() + "-moved");
  keepRowsUntilItIsNoticed();
  EXPECT_FALSE(keepRow());
  EXPECT_EQ(rowsAfterDeath(), kept()) << "all is in the file itself";
  reader.reset();
  keepRowsAgain();
  EXPECT_EQ(rowsAfterDeath(), kept());
}

TEST_F(LostFileTest, ALockThatWasRemovedIsTakenAgain) {
  fs::remove(lockPath());
  // Its number is in it when it is locked.
  EXPECT_TRUE(waitUntil([&] { return contentOf(lockPath()) == std::to_string(getpid()); }));
  EXPECT_THROW(StateFile(path(), Durability::process), StateFileError);
  EXPECT_TRUE(keepRow());
  EXPECT_THAT(_log.lines, IsEmpty());
}

TEST_F(LostFileTest, NothingIsKeptByAFileThatAnotherServerHasHad) {
  EXPECT_TRUE(keepRow());
  {
    const std::string anothers = lockPath() + "-new";
    const Descriptor lock(open(anothers.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    ASSERT_EQ(flock(lock.get(), LOCK_EX), 0);
    fs::rename(anothers, lockPath());
    keepRowsUntilItIsNoticed();
  }
  EXPECT_FALSE(keepRow());
  EXPECT_THAT(_log.lines, ElementsAre(HasSubstr("takes nothing more: " + lockPath() +
                                                " was removed, moved or replaced, and another")));
  stop();
  start();
  EXPECT_TRUE(keepRow());
}

TEST_F(LostFileTest, IsToldWhenNothingIsToBeKeptToo) {
  fs::rename(path(), path() + "-moved");
  EXPECT_TRUE(isTold("takes nothing more"));
  fs::rename(path() + "-moved", path());
  EXPECT_TRUE(isTold("takes changes again"));
  EXPECT_TRUE(keepRow());
}

}  // namespace
}  // namespace dch
