#include "dch/link/row_window.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

namespace dch {
namespace {

using std::chrono::milliseconds;
using TimePoint = RowWindow::TimePoint;

constexpr TimePoint start{std::chrono::hours(1)};
constexpr RowWindow::Limits fewRows{3, 1'000, milliseconds(2'000), milliseconds(500)};
constexpr milliseconds pause = fewRows.pause;

class RowWindowTest : public testing::Test {
 protected:
  void add(std::int64_t number) { _window.add({number, "S", "ID", "H", "M"}); }

  // The numbers of all that are to be sent, of which there are never so many.
  std::vector<std::int64_t> sendAll(TimePoint now) {
    std::vector<std::int64_t> numbers;
    while (numbers.size() < 10) {
      const OutgoingRow* const row = _window.takeNext(now);
      if (row == nullptr) break;
      numbers.push_back(row->number);
    }
    return numbers;
  }

  RowWindow _window{10, fewRows};
};

using Numbers = std::vector<std::int64_t>;

TEST_F(RowWindowTest, HasNothingToSendAtFirst) {
  EXPECT_EQ(nullptr, _window.takeNext(start));
  EXPECT_EQ(TimePoint::max(), _window.nextDue());
  EXPECT_EQ(10, _window.published());
  EXPECT_TRUE(_window.empty());
}

TEST_F(RowWindowTest, GivesEachRowOnceAsItWasAdded) {
  _window.add({11, "subject", "id", "header", "message"});
  EXPECT_LE(_window.nextDue(), start);
  const OutgoingRow* const row = _window.takeNext(start);
  ASSERT_NE(nullptr, row);
  EXPECT_EQ(11, row->number);
  EXPECT_EQ("subject", row->subject);
  EXPECT_EQ("id", row->id);
  EXPECT_EQ("header", row->header);
  EXPECT_EQ("message", row->message);
  EXPECT_EQ(nullptr, _window.takeNext(start));
}

TEST_F(RowWindowTest, IsPublishedUpToWhatIsNotDone) {
  add(12);
  add(15);
  add(16);
  EXPECT_EQ(11, _window.published());
  EXPECT_EQ((Numbers{12, 15, 16}), sendAll(start));
  EXPECT_TRUE(_window.taken(15));
  EXPECT_EQ(11, _window.published());
  EXPECT_TRUE(_window.taken(12));
  EXPECT_EQ(15, _window.published());
  EXPECT_EQ(1U, _window.waiting());
  EXPECT_TRUE(_window.taken(16));
  EXPECT_EQ(16, _window.published());
}

TEST_F(RowWindowTest, IsPublishedUpToWhereNoRowsAre) {
  add(12);
  _window.settle(20);
  EXPECT_EQ(11, _window.published());
  sendAll(start);
  _window.taken(12);
  EXPECT_EQ(20, _window.published());
  _window.settle(19);
  EXPECT_EQ(20, _window.published());
}

TEST_F(RowWindowTest, RefusesRowsThatDoNotAscend) {
  EXPECT_THROW(add(10), std::invalid_argument);
  add(12);
  EXPECT_THROW(add(12), std::invalid_argument);
  _window.settle(15);
  EXPECT_THROW(add(15), std::invalid_argument);
  EXPECT_EQ(1U, _window.waiting());
}

TEST_F(RowWindowTest, SendsARowAgainThatWasNotAnswered) {
  add(11);
  sendAll(start);
  const TimePoint due = start + fewRows.patience;
  EXPECT_EQ(due, _window.nextDue());
  EXPECT_EQ(Numbers(), sendAll(due - milliseconds(1)));
  EXPECT_EQ(Numbers{11}, sendAll(due));
  EXPECT_EQ(due + fewRows.patience, _window.nextDue());
  EXPECT_TRUE(_window.taken(11));
  EXPECT_EQ(TimePoint::max(), _window.nextDue());
}

TEST_F(RowWindowTest, TriesAStreamThatRefusesWithTheLowestRowOnceEachPause) {
  add(11);
  add(12);
  sendAll(start);
  add(13);
  _window.refused(12, start);
  for (TimePoint due = start + pause; due < start + 20 * pause; due += pause) {
    EXPECT_EQ(due, _window.nextDue());
    EXPECT_EQ(Numbers(), sendAll(due - milliseconds(1)));
    EXPECT_EQ(Numbers{11}, sendAll(due));
    _window.refused(11, due + milliseconds(1));
  }
}

TEST_F(RowWindowTest, TriesAgainThoughTheTryIsNotAnswered) {
  add(11);
  add(12);
  sendAll(start);
  _window.refused(11, start);
  EXPECT_EQ(Numbers{11}, sendAll(start + pause));
  EXPECT_EQ(start + 2 * pause, _window.nextDue());
  EXPECT_EQ(Numbers{11}, sendAll(start + 2 * pause));
}

TEST_F(RowWindowTest, DoesNotPutATryOffWhenMoreIsRefused) {
  add(11);
  add(12);
  sendAll(start);
  _window.refused(11, start);
  _window.refused(12, start + pause - milliseconds(1));
  EXPECT_EQ(start + pause, _window.nextDue());
  EXPECT_EQ(Numbers{11}, sendAll(start + pause));
}

TEST_F(RowWindowTest, SendsAllThatWereRefusedWhenTheTryIsTaken) {
  add(11);
  add(12);
  add(13);
  sendAll(start);
  for (const std::int64_t number : {13, 12, 11}) _window.refused(number, start);
  ASSERT_EQ(Numbers{11}, sendAll(start + pause));
  EXPECT_TRUE(_window.taken(11));
  EXPECT_LE(_window.nextDue(), start);
  EXPECT_EQ((Numbers{12, 13}), sendAll(start + pause));
}

TEST_F(RowWindowTest, IsNoLongerRefusedWhenAnyRowIsTaken) {
  add(11);
  add(12);
  sendAll(start);
  add(13);
  _window.refused(11, start);
  EXPECT_TRUE(_window.taken(12));
  EXPECT_EQ((Numbers{11, 13}), sendAll(start));
  EXPECT_EQ(start + fewRows.patience, _window.nextDue());
}

TEST_F(RowWindowTest, LeavesTheTryOnItsWayWhenAnotherRowIsTaken) {
  add(11);
  add(12);
  sendAll(start);
  _window.refused(11, start);
  ASSERT_EQ(Numbers{11}, sendAll(start + pause));
  EXPECT_TRUE(_window.taken(12));
  EXPECT_EQ(Numbers(), sendAll(start + pause));
  EXPECT_EQ(start + pause + fewRows.patience, _window.nextDue());
}

TEST_F(RowWindowTest, IsStillRefusedWhenAnAnswerComesOnceMore) {
  add(11);
  add(12);
  sendAll(start);
  _window.taken(11);
  _window.refused(12, start);
  EXPECT_FALSE(_window.taken(11));
  EXPECT_EQ(Numbers(), sendAll(start));
}

TEST_F(RowWindowTest, TriesTheNextRowWhenTheLowestIsGivenUp) {
  add(11);
  add(12);
  sendAll(start);
  _window.refused(11, start);
  ASSERT_EQ(Numbers{11}, sendAll(start + pause));
  _window.giveUp(11);
  EXPECT_EQ(Numbers(), sendAll(start + pause));
  EXPECT_EQ(Numbers{12}, sendAll(start + 2 * pause));
  _window.giveUp(12);
  EXPECT_EQ(TimePoint::max(), _window.nextDue());
}

// As when no stream was there to answer.
TEST_F(RowWindowTest, IsRefusedByAnAnswerThatDoesNotSayWhichRow) {
  add(11);
  add(12);
  sendAll(start);
  add(13);
  _window.refused(0, start);
  EXPECT_EQ(Numbers{11}, sendAll(start + pause));
  EXPECT_TRUE(_window.taken(11));
  EXPECT_EQ(Numbers{13}, sendAll(start + pause)) << "12 may be on its way";
  EXPECT_EQ(Numbers{12}, sendAll(start + fewRows.patience));
}

TEST_F(RowWindowTest, SendsTheLowestNumberFirst) {
  add(11);
  add(12);
  ASSERT_EQ(11, _window.takeNext(start)->number);
  ASSERT_EQ(12, _window.takeNext(start + milliseconds(1))->number);
  add(13);
  EXPECT_EQ((Numbers{11, 12, 13}), sendAll(start + fewRows.patience + milliseconds(1)));
}

TEST_F(RowWindowTest, SendsAllThatWaitAgainAfterADisconnection) {
  add(11);
  add(12);
  add(13);
  sendAll(start);
  _window.taken(12);
  _window.refused(13, start);
  _window.disconnected();
  EXPECT_LE(_window.nextDue(), start);
  EXPECT_EQ((Numbers{11, 13}), sendAll(start));
  EXPECT_EQ(start + fewRows.patience, _window.nextDue());
}

TEST_F(RowWindowTest, TakesAnAnswerOnceAndOnlyOfARowThatWasSent) {
  add(11);
  EXPECT_FALSE(_window.taken(11));
  EXPECT_EQ(Numbers{11}, sendAll(start));
  EXPECT_FALSE(_window.taken(10));
  EXPECT_FALSE(_window.taken(12));
  EXPECT_TRUE(_window.taken(11));
  EXPECT_FALSE(_window.taken(11));
  EXPECT_TRUE(_window.empty());
}

TEST_F(RowWindowTest, TakesALateAnswerOfARowThatIsToBeSentAgain) {
  add(11);
  sendAll(start);
  _window.disconnected();
  EXPECT_TRUE(_window.taken(11));
  EXPECT_EQ(Numbers(), sendAll(start + fewRows.patience));
}

TEST_F(RowWindowTest, CountsARowAsDoneThatIsGivenUp) {
  add(11);
  add(12);
  sendAll(start);
  EXPECT_TRUE(_window.giveUp(11));
  EXPECT_FALSE(_window.giveUp(11)) << "it is counted once";
  EXPECT_EQ(11, _window.published());
  EXPECT_FALSE(_window.taken(11));
  EXPECT_EQ(Numbers{12}, sendAll(start + fewRows.patience));
}

TEST_F(RowWindowTest, HasRoomForSoManyRows) {
  add(11);
  add(12);
  EXPECT_TRUE(_window.hasRoom());
  add(13);
  EXPECT_FALSE(_window.hasRoom());
  sendAll(start);
  _window.taken(12);
  EXPECT_TRUE(_window.hasRoom());
}

TEST_F(RowWindowTest, HasRoomForSoManyBytes) {
  _window.add({11, "S", "ID", "H", std::string(995, 'M')});
  EXPECT_TRUE(_window.hasRoom());
  _window.add({12, "", "I", "", ""});
  EXPECT_FALSE(_window.hasRoom());
  sendAll(start);
  _window.taken(12);
  EXPECT_TRUE(_window.hasRoom());
}

TEST(RowWindow, HasRoomForOneRowWhateverItsLimits) {
  RowWindow window(0, {0, 0, milliseconds(1), milliseconds(1)});
  EXPECT_TRUE(window.hasRoom());
  window.add({1, "", "", "", std::string(100, 'M')});
  EXPECT_FALSE(window.hasRoom());
  window.takeNext(start);
  window.taken(1);
  EXPECT_TRUE(window.hasRoom());
}

}  // namespace
}  // namespace dch
