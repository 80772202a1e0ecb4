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

class RowWindowTest : public testing::Test {
 protected:
  void add(std::int64_t number, bool isNew = true) {
    _window.add({number, "S", "ID", "H", "M"}, isNew);
  }

  // The numbers of all that are to be sent.
  std::vector<std::int64_t> sendAll(TimePoint now) {
    std::vector<std::int64_t> numbers;
    while (const OutgoingRow* row = _window.takeNext(now)) numbers.push_back(row->number);
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
  _window.add({11, "subject", "id", "header", "message"}, true);
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

TEST_F(RowWindowTest, SendsARefusedRowAgainAfterAPause) {
  add(11);
  add(12);
  sendAll(start);
  _window.refused(11, start);
  const TimePoint due = start + fewRows.pause;
  EXPECT_EQ(due, _window.nextDue());
  EXPECT_EQ(Numbers(), sendAll(due - milliseconds(1)));
  EXPECT_EQ(Numbers{11}, sendAll(due));
}

TEST_F(RowWindowTest, SendsTheLowestNumberFirst) {
  add(11);
  add(12);
  ASSERT_EQ(11, _window.takeNext(start)->number);
  ASSERT_EQ(12, _window.takeNext(start)->number);
  add(13);
  _window.refused(12, start);
  _window.refused(11, start + milliseconds(1));
  EXPECT_EQ((Numbers{11, 12, 13}), sendAll(start + fewRows.patience));
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
}

TEST_F(RowWindowTest, TakesAnAnswerOnceAndOnlyOfARowThatWasSent) {
  add(11);
  EXPECT_FALSE(_window.taken(11));
  EXPECT_FALSE(_window.duplicate(11));
  _window.refused(11, start);
  EXPECT_EQ(Numbers{11}, sendAll(start));
  EXPECT_FALSE(_window.taken(10));
  EXPECT_FALSE(_window.taken(12));
  EXPECT_TRUE(_window.taken(11));
  EXPECT_FALSE(_window.taken(11));
  EXPECT_FALSE(_window.duplicate(11));
  _window.refused(11, start);
  EXPECT_TRUE(_window.empty());
}

TEST_F(RowWindowTest, TakesALateAnswerOfARowThatIsToBeSentAgain) {
  add(11);
  sendAll(start);
  _window.disconnected();
  EXPECT_TRUE(_window.taken(11));
  EXPECT_EQ(Numbers(), sendAll(start + fewRows.patience));
}

TEST_F(RowWindowTest, BelievesThatARowOfAnEarlierRunIsADuplicate) {
  add(11, false);
  sendAll(start);
  EXPECT_TRUE(_window.duplicate(11));
  EXPECT_EQ(11, _window.published());
}

TEST_F(RowWindowTest, BelievesThatARowThatWasSentTwiceIsADuplicate) {
  add(11);
  sendAll(start);
  sendAll(start + fewRows.patience);
  EXPECT_TRUE(_window.duplicate(11));
  EXPECT_TRUE(_window.empty());
}

TEST_F(RowWindowTest, SendsANewRowWithoutAnIdWhenAnotherHasThat) {
  add(11);
  sendAll(start);
  EXPECT_FALSE(_window.duplicate(11));
  EXPECT_EQ(10, _window.published());
  const OutgoingRow* const row = _window.takeNext(start);
  ASSERT_NE(nullptr, row);
  EXPECT_EQ("", row->id);
  EXPECT_EQ("M", row->message);
  EXPECT_FALSE(_window.duplicate(11)) << "the same answer once more";
  EXPECT_EQ(nullptr, _window.takeNext(start));
  EXPECT_TRUE(_window.taken(11));
}

TEST_F(RowWindowTest, CountsARowAsDoneThatIsGivenUp) {
  add(11);
  add(12);
  sendAll(start);
  _window.giveUp(11);
  _window.giveUp(11);
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
  _window.add({11, "S", "ID", "H", std::string(995, 'M')}, true);
  EXPECT_TRUE(_window.hasRoom());
  _window.add({12, "", "I", "", ""}, true);
  EXPECT_FALSE(_window.hasRoom());
  sendAll(start);
  _window.duplicate(12);  // which takes its ID away
  EXPECT_FALSE(_window.hasRoom());
  _window.taken(12);
  EXPECT_TRUE(_window.hasRoom());
}

TEST(RowWindow, HasRoomForOneRowWhateverItsLimits) {
  RowWindow window(0, {0, 0, milliseconds(1), milliseconds(1)});
  EXPECT_TRUE(window.hasRoom());
  window.add({1, "", "", "", std::string(100, 'M')}, true);
  EXPECT_FALSE(window.hasRoom());
  window.takeNext(start);
  window.taken(1);
  EXPECT_TRUE(window.hasRoom());
}

}  // namespace
}  // namespace dch
