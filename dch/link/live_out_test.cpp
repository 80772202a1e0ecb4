#include "dch/link/live_out.h"

#include <gtest/gtest.h>

#include <vector>

#include "dch/core/rows_out.h"
#include "dch/link/live_header.h"

namespace dch {
namespace {

class LiveOutTest : public testing::Test {
 protected:
  void keep(const std::string& group, const std::string& source, const std::string& message,
            Time time) {
    Application application;
    application.name = "HOST.MON";
    Group known;
    known.application = &application;
    known.name = group;
    known.topic = topicOf(application.name, group);
    Source each;
    each.group = &known;
    each.name = source;
    _live.rowKept(each, message, {}, time);
  }
  std::vector<OutgoingLiveRow> take() { return std::exchange(_rows, {}); }
  static LiveHeader headerOf(const OutgoingLiveRow& row) {
    return parseLiveHeader(row.header).value();
  }

  const Epoch _run = newEpoch();
  bool _hasRoom = true;
  std::vector<OutgoingLiveRow> _rows;
  LiveOut _live{"west", _run, [this](OutgoingLiveRow&& row) {
                  if (_hasRoom) _rows.push_back(std::move(row));
                  return _hasRoom;
                }};
};

TEST_F(LiveOutTest, RowsGoOutAsTheyAreUntilNobodyWantsThem) {
  keep("load", "host 1", "first", 5);
  keep("load", "host2", "second", 6);
  const std::vector<OutgoingLiveRow> rows = take();
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_EQ(rows[0].subject, "zord.live.west.HOST%2EMON.load");
  EXPECT_EQ(headerOf(rows[0]), (LiveHeader{_run, 1, 5, "host 1"}));
  EXPECT_EQ(rows[0].message, "first");
  EXPECT_EQ(rows[0].question, 1u);
  EXPECT_EQ(headerOf(rows[1]), (LiveHeader{_run, 2, 6, "host2"}));
  EXPECT_EQ(rows[1].question, 0u);
  _live.interest().nobody(rows[0].group, rows[0].question);
  keep("load", "host2", "third", 7);
  EXPECT_TRUE(take().empty());
  keep("load", "host2", "fourth", 5 + LiveInterest::pauseOfQuestions);
  const std::vector<OutgoingLiveRow> later = take();
  ASSERT_EQ(later.size(), 1u);
  EXPECT_EQ(headerOf(later[0]).count, 3u) << "what was not to go out is not counted";
  EXPECT_EQ(later[0].question, 2u);
  EXPECT_EQ(_live.lost(), 0u);
}

TEST_F(LiveOutTest, EachGroupHasItsOwnQuestionsAndCounts) {
  keep("load", "host", "1", 5);
  keep("disk", "host", "2", 5);
  const std::vector<OutgoingLiveRow> rows = take();
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_NE(rows[0].group, rows[1].group);
  EXPECT_EQ(headerOf(rows[1]).count, 1u);
  _live.interest().nobody(rows[1].group, rows[1].question);
  keep("load", "host", "3", 6);
  keep("disk", "host", "4", 6);
  ASSERT_EQ(take().size(), 1u);
}

TEST_F(LiveOutTest, WhatHasNoRoomIsMissedByItsCount) {
  keep("load", "host", "1", 5);
  _hasRoom = false;
  keep("load", "host", "2", 6);
  _hasRoom = true;
  keep("load", "host", "3", 7);
  const std::vector<OutgoingLiveRow> rows = take();
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_EQ(headerOf(rows[1]).count, 3u);
  EXPECT_EQ(_live.lost(), 1u);
}

TEST_F(LiveOutTest, RowsOfTooManyGroupsAndTooLongOnesDoNotGoOut) {
  for (std::size_t group = 0; group <= LiveOut::mostGroups; ++group)
    keep(std::to_string(group), "host", "1", 5);
  EXPECT_EQ(take().size(), LiveOut::mostGroups);
  EXPECT_EQ(_live.lost(), 1u);
  keep("7", "host", std::string(maxDatagramBytes, 'x'), 5);
  keep("7", "host", std::string(maxDatagramBytes + 1, 'x'), 5);
  EXPECT_EQ(take().size(), 1u);
}

}  // namespace
}  // namespace dch
