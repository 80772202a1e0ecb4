// Rows of other sites go as the server's own do: the oldest first when there are too many, and
// those that are too old by the clocks of their sites.
#include <filesystem>

#include "dch/testkit/remote_test.h"
#include "tests/support/wait_until.h"

namespace dch {
namespace {

using testkit::day;
using testkit::epochOf;
using testkit::remoteRow;

class RemoteRetention : public testkit::RemoteTest {
 protected:
  void SetUp() override {
    start({.path = {}, .isPublished = true});
    goOnline();
  }
  void keepRemote(int count, Time time, std::size_t bytes = 0, const std::string& site = "s") {
    RemoteRows change = rows({}, site);
    for (int i = 0; i < count; ++i) {
      RemoteRow row = remoteRow({epochOf(site == "s" ? 1 : 2), ++_number}, "HOSTMON", "load", "h");
      row.time = time;
      row.message.resize(row.message.size() + bytes);
      change.rows.push_back(std::move(row));
      if (change.rows.size() < 500 && i + 1 < count) continue;
      append(change);
      change.rows.clear();
    }
    _store->finish();
  }
  std::string count(const std::string& condition) {
    return read("SELECT count(*) FROM \"HOSTMON.load\" WHERE " + condition);
  }
  bool waitForCount(const std::string& condition, const std::string& wanted) {
    return waitUntil([&] { return count(condition) == wanted; });
  }
  bool waitForRemoved(std::uint64_t wanted) {
    return waitUntil([&] { return _store->figures().rowsRemoved == wanted; });
  }
  long usedBytes() {
    return 4'096 *
           (std::stol(read("PRAGMA page_count")) - std::stol(read("PRAGMA freelist_count")));
  }
  static constexpr long megabyte = 1'048'576;
  std::int64_t _number = 0;
};

// A clock that is far ahead keeps the rows of its site, and one that is far behind loses them: the
// others are as old as they are.
TEST_F(RemoteRetention, RemovesWhatIsTooOldBySitesOwnClocks) {
  keepRows(1, 10, 35 * day);
  keepRemote(5'000, 1 * day);
  keepRemote(7, 35 * day);
  keepRemote(3, 30'000 * day, 0, "ahead");
  keepRemote(4, -30'000 * day, 0, "behind");
  keepRemote(2'500, 2 * day);
  keepRemote(8, 36 * day);
  keepRows(1, 10, 36 * day);
  _now = 40 * day;
  _store->setRetention({.days = 30, .megabytes = 999});
  EXPECT_TRUE(waitForCount("site IS NOT NULL", "18\n"));
  EXPECT_EQ(count("site = 'ahead'"), "3\n");
  EXPECT_EQ(count("site IS NULL"), "20\n");
  EXPECT_TRUE(waitForRemoved(7'504));
  EXPECT_EQ(_store->figures().rowsRemovedUnpublished, 0u)
      << "they are not this server's to publish";
  // Also those that come when all others are young.
  keepRemote(1, 3 * day);
  EXPECT_TRUE(waitForRemoved(7'505));
  EXPECT_EQ(read("SELECT count(*) FROM remote_sources"), "3\n") << "handles stay";
  EXPECT_EQ(read("SELECT count(*) FROM clock_steps"), "0\n");
}

TEST_F(RemoteRetention, RemovesTheOldestOfBothKindsWhenTheFileIsTooLarge) {
  keepRemote(1'500, 3, 1'000);
  keepRows(1, 1'500, 2, 1'000);
  keepRemote(1'500, 1, 1'000);
  _store->setRetention({.days = 30, .megabytes = 3});
  EXPECT_TRUE(waitUntil([&] { return usedBytes() <= 3 * megabyte; }));
  stop();
  EXPECT_EQ(count("time_us = 3"), "0\n") << "they came first";
  EXPECT_EQ(count("time_us = 1"), "1500\n");
  const long own = std::stol(count("site IS NULL"));
  EXPECT_LT(own, 1'500);
  EXPECT_GT(own, 0);
  EXPECT_EQ(read("SELECT max(number) - min(number) + 1 FROM rows_1"), std::to_string(own) + "\n");
}

TEST_F(RemoteRetention, CountsOnlyItsOwnRowsAsUnpublished) {
  keepRemote(1'000, 3, 1'000);
  keepRows(1, 1'000, 2, 1'000);
  keepRemote(6'000, 1, 1'000);
  _store->setRetention({.days = 30, .megabytes = 3});
  EXPECT_TRUE(waitForCount("time_us > 1", "0\n"));
  // They are counted when they are gone.
  EXPECT_TRUE(waitUntil([&] { return _store->figures().rowsRemovedUnpublished >= 1'000; }));
  EXPECT_EQ(_store->figures().rowsRemovedUnpublished, 1'000u);
  EXPECT_GE(_store->figures().rowsRemoved, 2'000u);
}

// Whatever a site says that the time was.
TEST_F(RemoteRetention, NoTimeKeepsARowForEver) {
  keepRemote(1'000, std::numeric_limits<Time>::max(), 1'000);
  keepRemote(4'000, std::numeric_limits<Time>::min(), 1'000);
  keepRemote(1'000, 5, 1'000);
  _now = 1;
  _store->setRetention({.days = 30, .megabytes = 2});
  EXPECT_TRUE(waitUntil([&] { return usedBytes() <= 2 * megabyte; }));
  EXPECT_EQ(count("time_us > 5"), "0\n");
  EXPECT_NE(count("time_us = 5"), "0\n");
}

// Many come with one change, and are looked after as many.
TEST_F(RemoteRetention, TheFileStaysFlat) {
  _store->setRetention({.days = 30, .megabytes = 4});
  for (int round = 0; round < 10; ++round) keepRemote(5'000, 1, 300);
  stop();
  EXPECT_LT(std::filesystem::file_size(path()), 12'000'000u) << "of 17,000,000 that were written";
}

// Who makes them up loses nobody any rows.
TEST_F(RemoteRetention, SourcesPushOutNoRows) {
  keepRemote(1'000, 1, 1'300);
  for (int round = 0; round < 2; ++round) {
    for (int source = 0; source < 20'000; ++source)
      append(RemoteSourceSeen{"s" + std::to_string(round), "HOSTMON", "load",
                              "source" + std::to_string(source)});
    _store->finish();
    EXPECT_GT(usedBytes(), 5 * megabyte / 2);
    _store->setRetention({.days = 30 + round, .megabytes = 2});
    keepRemote(1'000, 2, 10);
    EXPECT_EQ(count("time_us = 1"), "1000\n");
    stop();
    start({.path = {}, .isPublished = true});
  }
  _store->setRetention({.days = 30, .megabytes = 1});
  EXPECT_TRUE(waitUntil([&] { return count("time_us = 1") != "1000\n"; }));
}

TEST_F(RemoteRetention, GoesOnAfterARestart) {
  keepRemote(10, 1 * day);
  keepRemote(10, 35 * day);
  stop();
  start();
  _now = 40 * day;
  _store->setRetention({.days = 30, .megabytes = 999});
  EXPECT_TRUE(waitForCount("site IS NOT NULL", "10\n"));
}

}  // namespace
}  // namespace dch
