#include "dch/link/waiting_live_rows.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "dch/core/rows_out.h"
#include "dch/link/live_header.h"
#include "dch/link/subject.h"

namespace dch {
namespace {

class WaitingLiveRowsTest : public testing::Test {
 protected:
  WaitingLiveRowsTest() {
    _rows.open();
    _rows.setWake([this] { ++_wakes; });
  }

  void put(const std::string& site, std::uint64_t count, const std::string& message = "row") {
    _rows.put(liveSubject(site, "HOST.MON", "load"), liveHeaderText({_run, count, 5, "host 1"}),
              message);
  }
  // "SITE COUNT" of each that waits.
  std::vector<std::string> take() {
    std::vector<std::string> taken;
    while (const auto row = _rows.take())
      taken.push_back(row->row.site + ' ' + std::to_string(row->count));
    return taken;
  }

  const Epoch _run = newEpoch();
  WaitingLiveRows _rows{"own", {.rows = 16, .bytes = 4'000}};
  std::atomic<int> _wakes = 0;
};

TEST_F(WaitingLiveRowsTest, KeepsThemInTheirOrder) {
  put("west", 7, "the message");
  put("east", 1);
  const auto row = _rows.take();
  ASSERT_TRUE(row);
  EXPECT_EQ(row->row.site, "west");
  EXPECT_EQ(row->row.application, "HOST.MON");
  EXPECT_EQ(row->row.group, "load");
  EXPECT_EQ(row->row.source, "host 1");
  EXPECT_EQ(row->row.message, "the message");
  EXPECT_EQ(row->run, _run);
  EXPECT_EQ(row->count, 7u);
  EXPECT_EQ(take(), std::vector<std::string>{"east 1"});
}

TEST_F(WaitingLiveRowsTest, WakesWhenThereAreSomeAfterThereWereNone) {
  put("west", 1);
  put("west", 2);
  EXPECT_EQ(_wakes, 1);
  take();
  put("west", 3);
  EXPECT_EQ(_wakes, 2);
  take();
  _rows.setWake(nullptr);
  put("west", 4);
  EXPECT_EQ(_wakes, 2);
}

TEST_F(WaitingLiveRowsTest, ASiteHasAQuarterOfTheRows) {
  std::vector<std::string> expected;
  for (const char* site : {"west", "a", "b", "c"})
    for (std::uint64_t count = 1; count <= 6; ++count) {
      put(site, count);
      if (count <= 4) expected.push_back(site + (' ' + std::to_string(count)));
    }
  put("late", 1);  // there is no room at all
  EXPECT_EQ(take(), expected);
  put("west", 9);
  EXPECT_EQ(take(), std::vector<std::string>{"west 9"});
}

TEST_F(WaitingLiveRowsTest, ASiteHasAQuarterOfTheBytes) {
  put("west", 1, std::string(600, 'x'));
  put("west", 2, std::string(600, 'x'));
  put("west", 3, std::string(400, 'x'));
  EXPECT_EQ(take(), (std::vector<std::string>{"west 1", "west 3"}));
  put("west", 4, std::string(1'000, 'x'));
  EXPECT_EQ(take(), std::vector<std::string>{"west 4"}) << "what was taken leaves its room";
}

TEST_F(WaitingLiveRowsTest, RefusesWhatIsNoRow) {
  const std::string subject = liveSubject("west", "A", "g");
  const std::string header = liveHeaderText({_run, 1, 5, "host1"});
  _rows.put("zord.live.west.A", header, "row");
  _rows.put(subject, "", "row");
  _rows.put(subject, header + ' ', "row");
  _rows.put(subject, header, std::string(maxDatagramBytes + 1, 'x'));
  EXPECT_EQ(_rows.refused(), 4u);
  EXPECT_FALSE(_rows.take());
}

TEST_F(WaitingLiveRowsTest, HearsNoOtherServerOfItsOwnName) {
  put("own", 1);
  EXPECT_FALSE(_rows.take());
  EXPECT_EQ(_rows.refused(), 0u);
}

TEST_F(WaitingLiveRowsTest, ThrowsAllAwayWhileItIsClosed) {
  for (std::uint64_t count = 1; count <= 4; ++count) put("west", count);
  _rows.close();
  EXPECT_FALSE(_rows.take());
  put("west", 5);
  EXPECT_FALSE(_rows.take());
  _rows.open();
  put("west", 6);
  EXPECT_EQ(take(), std::vector<std::string>{"west 6"});
  EXPECT_EQ(_wakes, 2);
}

TEST_F(WaitingLiveRowsTest, MayBeFilledAndTakenOnTwoThreads) {
  constexpr std::uint64_t count = 20'000;
  std::atomic<bool> isFilled = false;
  std::thread putter([&] {
    for (std::uint64_t row = 1; row <= count; ++row) put("west", row);
    isFilled = true;
  });
  std::uint64_t last = 0;
  while (!isFilled)
    if (const auto row = _rows.take()) {
      EXPECT_GT(row->count, last);
      last = row->count;
    }
  putter.join();
  take();
  put("west", count + 1);
  EXPECT_EQ(take(), std::vector<std::string>{"west " + std::to_string(count + 1)});
}

}  // namespace
}  // namespace dch
