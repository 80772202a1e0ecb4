#include "dch/store/retention.h"

#include <filesystem>

#include "dch/testkit/store_test.h"
#include "tests/support/wait_until.h"

namespace dch {
namespace {

using testkit::day;

class RetentionTest : public testkit::StoreTest {
 protected:
  void SetUp() override {
    start();
    goOnline();
    ASSERT_TRUE(keep(WentOnline{"HOSTMON", "disk", "sda", 2}));
  }
  bool waitForRows(const std::string& view, const std::string& count) {
    return waitUntil(
        [&] { return read("SELECT count(*) FROM \"HOSTMON." + view + "\"") == count; });
  }
  long usedBytes() {
    return 4'096 *
           (std::stol(read("PRAGMA page_count")) - std::stol(read("PRAGMA freelist_count")));
  }
  static constexpr long megabyte = 1'048'576;
  std::uint64_t removed() const { return _store->figures().rowsRemoved; }
  std::uint64_t lost() const { return _store->figures().rowsRemovedUnpublished; }
  void startPublishing() {
    stop();
    _now = 0;
    start({.path = {}, .isPublished = true});
  }
  std::uint64_t rowCount(const std::string& condition) const {
    std::uint64_t count = 0;
    for (const std::string& table : testkit::rowTables(path()))
      count += std::stoull(read("SELECT count(*) FROM " + table + condition));
    return count;
  }
};

TEST_F(RetentionTest, RemovesWhatIsTooOld) {
  keepRows(1, 5'000, 1 * day);
  keepRows(2, 10, 1 * day);
  keepRows(1, 7, 40 * day);
  keepRows(2, 3, 40 * day);
  _now = 32 * day;
  _store->setRetention({.days = 30, .megabytes = 999});
  EXPECT_TRUE(waitForRows("load", "7\n"));
  EXPECT_TRUE(waitForRows("disk", "3\n"));
  EXPECT_TRUE(waitUntil([&] { return removed() == 5'010; }));
}

// Also when the limit between them is within a step, rows of both groups stay that are not too old,
// and the server is started anew.
TEST_F(RetentionTest, CountsExactlyWhatItRemovesUnpublished) {
  startPublishing();
  for (int i = 0; i < 300; ++i) {
    keepRows(1, 10, 1 * day);
    keepRows(2, 10, 1 * day);
    keepRows(1 + i % 2, 1, 40 * day);
  }
  const std::int64_t published = 3'500;
  ASSERT_TRUE(keep(RowsPublished{published}));
  EXPECT_EQ(lost(), 0u);
  startPublishing();
  const std::string behind = " WHERE number > " + std::to_string(published);
  const std::uint64_t before = rowCount(behind);
  _now = 32 * day;
  _store->setRetention({.days = 30, .megabytes = 999});
  EXPECT_TRUE(waitUntil([&] { return removed() == 6'000; }));
  EXPECT_EQ(rowCount(""), 300u);
  EXPECT_GT(before - rowCount(behind), 2'000u);
  EXPECT_EQ(lost(), before - rowCount(behind));
}

TEST_F(RetentionTest, CountsNothingThatIsPublishedOrIsNotToBe) {
  for (const bool isPublished : {false, true}) {
    if (isPublished) startPublishing();
    keepRows(1, 3'000, 1 * day);
    if (isPublished) {
      ASSERT_TRUE(keep(RowsPublished{std::stoll(read("SELECT max(number) FROM rows_1"))}));
    }
    _now = 32 * day;
    _store->setRetention({.days = 29, .megabytes = 999});
    EXPECT_TRUE(waitUntil([&] { return removed() == 3'000; }));
    EXPECT_EQ(lost(), 0u);
  }
}

TEST_F(RetentionTest, RowsOfAClockThatWasAheadKeepNoOthers) {
  for (const Time time : {4'000 * day, 1 * day, 2 * day}) keepRows(1, 5, time);
  for (const Time time : {3'000 * day, 1 * day, 40 * day}) keepRows(2, 5, time);
  knownAfterRestart();
  keepRows(1, 5, 2 * day);
  keepRows(2, 5, 2 * day);
  _now = 32 * day + 1;
  _store->setRetention({.days = 30, .megabytes = 999});
  EXPECT_TRUE(waitForRows("load", "5\n"));
  EXPECT_TRUE(waitForRows("disk", "10\n"));
  EXPECT_EQ(read("SELECT DISTINCT time_us FROM \"HOSTMON.load\""),
            std::to_string(4'000 * day) + "\n");
  _now = 4'031 * day;
  _store->setRetention({.days = 29, .megabytes = 999});
  EXPECT_TRUE(waitForRows("load", "0\n"));
  EXPECT_TRUE(waitForRows("disk", "0\n"));
}

TEST_F(RetentionTest, StepsOfTheClockAreForgottenWithTheirRows) {
  for (const Time time : {5 * day, 4 * day, 3 * day, 3 * day - ClockSteps::leastStep, 20 * day})
    keepRows(1, 1, time);
  EXPECT_EQ(read("SELECT count(*) FROM clock_steps"), "2\n") << "a short one is none";
  _now = 21 * day;
  _store->setRetention({.days = 10, .megabytes = 999});
  EXPECT_TRUE(waitForRows("load", "1\n"));
  EXPECT_EQ(read("SELECT count(*) FROM clock_steps"), "0\n");
  keepRows(1, 1, 20 * day);
  EXPECT_EQ(read("SELECT count(*) FROM clock_steps"), "0\n");
}

TEST_F(RetentionTest, LessOfItIsInForceSoon) {
  _now = 10 * day;
  keepRows(1, 4, 1 * day);
  keepRows(1, 6, 9 * day);
  EXPECT_EQ(read("SELECT count(*) FROM \"HOSTMON.load\""), "10\n");
  _store->setRetention({.days = 2, .megabytes = 1'000});
  EXPECT_TRUE(waitForRows("load", "6\n"));
}

TEST_F(RetentionTest, RemovesTheOldestWhateverTheirGroupWhenTheFileIsTooLarge) {
  keepRows(1, 1'500, 1, 1'000);
  keepRows(2, 1'500, 2, 1'000);
  keepRows(1, 1'500, 3, 1'000);
  _store->setRetention({.days = 30, .megabytes = 3});
  EXPECT_TRUE(waitUntil([&] { return usedBytes() <= 3 * megabyte; }));
  // The first ones are gone, which were all those of 1 in group load and some of 2 in disk.
  EXPECT_EQ(read("SELECT min(time_us), max(time_us), count(*) FROM \"HOSTMON.load\""),
            "3|3|1500\n");
  const int left = std::stoi(read("SELECT count(*) FROM rows_2"));
  EXPECT_EQ(left + 1'500 + static_cast<int>(removed()), 4'500);
  EXPECT_EQ(read("SELECT max(number) - min(number) + 1 FROM rows_2"), std::to_string(left) + "\n");
}

TEST_F(RetentionTest, RemovesNoMoreThanWhatIsTooMuch) {
  _store->setRetention({.days = 30, .megabytes = 4});
  for (int round = 0; round < 10; ++round) keepRows(1, 100, 1, 7'900);
  EXPECT_TRUE(waitUntil([&] { return removed() > 0 && usedBytes() <= 4 * megabyte; }));
  stop();
  EXPECT_GT(usedBytes(), 3 * megabyte);
}

TEST_F(RetentionTest, DeferralsAndActionsPushOutNoRows) {
  keepRows(2, 1, 1 * day);
  keepRows(1, 500, 40 * day);
  keepRows(1, 500, 41 * day);
  const std::string text(2'100, 'T');  // two are more than a page
  for (ZORA_Long id = 1; id <= 2'000; ++id) {
    append(testkit::deferred(id, text));
    append(ActionStarted{id, "succeed", text, 40 * day});
    append(ActionEnded{id, 40 * day, 3});
  }
  _store->finish();
  _now = 32 * day;
  // The row of 1 day goes in the first look: then it has been looked at the size, too.
  _store->setRetention({.days = 30, .megabytes = 4});
  EXPECT_TRUE(waitForRows("disk", "0\n"));
  EXPECT_EQ(read("SELECT count(*) FROM \"HOSTMON.load\""), "1000\n");
  stop();
  start();
  _now = 71 * day;
  _store->setRetention({.days = 30, .megabytes = 5});
  EXPECT_TRUE(waitForRows("load", "500\n"));
  EXPECT_TRUE(waitUntil([&] { return removed() == 500; })) << "after a restart too";
  EXPECT_EQ(read("SELECT count(*) FROM deferrals"), "2000\n");
  EXPECT_EQ(read("SELECT count(*) FROM actions"), "2000\n");
}

TEST_F(RetentionTest, NeverTakesWhatIsKnown) {
  keepRows(1, 3, 1 * day);
  keep(testkit::deferred(1));
  keep(ActionStarted{7, "succeed", "operator", 1 * day});
  keep(ActionEnded{7, 1 * day, 3});
  knownAfterRestart();
  const std::string before = _known->text();
  EXPECT_TRUE(_known->registry().findSource(1)->row.has_value());
  _now = 100 * day;
  _store->setRetention({.days = 1, .megabytes = 1'000});
  EXPECT_TRUE(waitForRows("load", "0\n"));
  EXPECT_EQ(knownAfterRestart(), before) << "the newest row of a source too";
}

TEST_F(RetentionTest, NumbersGoOnWhenAllRowsAreGone) {
  keepRows(1, 3, 1 * day);
  const std::string last = read("SELECT max(number) FROM rows_1");
  _now = 100 * day;
  _store->setRetention({.days = 1, .megabytes = 1'000});
  ASSERT_TRUE(waitForRows("load", "0\n"));
  knownAfterRestart();
  keepRows(1, 1, 100 * day);
  EXPECT_GT(std::stoll(read("SELECT number FROM rows_1")), std::stoll(last));
}

TEST_F(RetentionTest, TheFileShrinksWhenLessIsKept) {
  keepRows(1, 12'000, 1, 4'000);
  EXPECT_GT(std::stoull(read("PRAGMA page_count")), 12'000u);
  _store->setRetention({.days = 30, .megabytes = 1});
  constexpr std::uintmax_t most =
      (Retention::sparePages + Retention::stepPages) * std::uintmax_t{4'096} + 2'000'000;
  EXPECT_TRUE(waitUntil([&] { return std::stoull(read("PRAGMA page_count")) * 4'096 < most; }));
  stop();
  EXPECT_LT(std::filesystem::file_size(path()), most);
}

TEST_F(RetentionTest, TheFileStaysFlat) {
  _store->setRetention({.days = 30, .megabytes = 4});
  for (int round = 0; round < 10; ++round) keepRows(1, 5'000, 1, 300);
  stop();
  EXPECT_LT(std::filesystem::file_size(path()), 12'000'000u) << "of 17,000,000 that were written";
}

}  // namespace
}  // namespace dch
