#include "dch/link/incoming_rows.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <utility>

#include "dch/testkit/row_names.h"

namespace dch {
namespace {

using Wants = IncomingRows::Wants;
using Names = std::vector<RowName>;

using testkit::name;

RowHeader row(const RowName& each, const RowName& previous) {
  return {each, previous, 0, 0, {}};
}

RowHeader row(std::int64_t number) {
  return row(name(number), name(number - 1));
}

class IncomingRowsTest : public testing::Test {
 protected:
  // The hub dies, and goes on with what it had kept.
  void dieAndGoOn() { _rows = IncomingRows(_rows.state()); }

  void read(std::initializer_list<std::int64_t> numbers) {
    for (const std::int64_t number : numbers) _rows.fromStream(++_sequence, row(number));
  }

  // The site answers what it was asked. Returns which of these rows were to be kept.
  std::vector<std::int64_t> fetch(const std::vector<RowHeader>& rows, bool isAll = true,
                                  bool isAlone = true) {
    EXPECT_NE(Wants::reread, _rows.wants());
    _rows.beginFetch();
    std::vector<std::int64_t> kept;
    for (const RowHeader& each : rows)
      if (_rows.fetched(each)) kept.push_back(each.name.number);
    EXPECT_TRUE(_rows.fetchEnded({{}, rows.size(), isAll}, isAlone));
    return kept;
  }

  // The stream has these from where it is to be read again.
  std::vector<std::int64_t> reread(const std::vector<RowHeader>& rows) {
    EXPECT_EQ(Wants::reread, _rows.wants());
    std::uint64_t sequence = _rows.beginReread();
    std::vector<std::int64_t> kept;
    for (const RowHeader& each : rows)
      if (_rows.again(sequence++, each)) kept.push_back(each.name.number);
    _rows.rereadEnded();
    return kept;
  }

  std::int64_t known(int run = 1) const {
    for (const RowName& each : _rows.state().have)
      if (each.epoch == name(0, run).epoch) return each.number;
    return 0;
  }

  IncomingRows _rows;
  std::uint64_t _sequence = 0;
};

using Numbers = std::vector<std::int64_t>;

TEST_F(IncomingRowsTest, KeepsEachRowOnceAsItComes) {
  EXPECT_TRUE(_rows.fromStream(1, row(name(5), name(0))));
  EXPECT_TRUE(_rows.fromStream(2, row(name(9), name(5))));
  EXPECT_FALSE(_rows.fromStream(3, row(name(5), name(0))));
  EXPECT_FALSE(_rows.fromStream(4, row(name(9), name(5))));
  EXPECT_EQ(Names{name(9)}, _rows.state().have);
  EXPECT_EQ(Wants::nothing, _rows.wants());
  EXPECT_FALSE(_rows.state().passedFrom);
}

TEST_F(IncomingRowsTest, HasAllWhenAGoodAnswerSaysThatThereIsNoMore) {
  EXPECT_FALSE(_rows.hasAll());
  read({1});
  EXPECT_FALSE(_rows.hasAll()) << "the stream may have lost some";
  fetch({row(2)}, false);
  EXPECT_FALSE(_rows.hasAll());
  fetch({row(3)});
  EXPECT_TRUE(_rows.hasAll());
  read({6});
  EXPECT_FALSE(_rows.hasAll());
  fetch({row(4), row(5)});
  EXPECT_FALSE(_rows.hasAll()) << "what was passed over is to be taken still";
  reread({row(6)});
  EXPECT_TRUE(_rows.hasAll());
  _rows.beginFetch();
  EXPECT_FALSE(_rows.hasAll());
  _rows.fetchFailed();
  EXPECT_FALSE(_rows.hasAll());
}

TEST_F(IncomingRowsTest, GoesOnFromOneRunOfTheSiteToTheNext) {
  read({1, 2});
  EXPECT_TRUE(_rows.fromStream(3, row(name(3, 2), name(2))));
  EXPECT_TRUE(_rows.fromStream(4, row(name(4, 2), name(3, 2))));
  EXPECT_FALSE(_rows.fromStream(5, row(2)));
  EXPECT_EQ((Names{name(4, 2), name(2)}), _rows.state().have);
}

TEST_F(IncomingRowsTest, TakesARowOfEachRunUnderTheSameNumber) {
  read({1, 2, 3});
  EXPECT_TRUE(_rows.fromStream(4, row(name(3, 2), name(2))));
  EXPECT_TRUE(_rows.fromStream(5, row(4)));
}

TEST_F(IncomingRowsTest, PassesOverWhatIsBehindAHole) {
  read({1, 3});
  EXPECT_EQ(1, known());
  EXPECT_EQ(2U, _rows.state().passedFrom);
  EXPECT_EQ(Wants::fetch, _rows.wants());
}

TEST_F(IncomingRowsTest, TakesWhatFitsThoughSomethingWasPassedOver) {
  read({1, 3, 2});
  EXPECT_EQ(2, known());
  EXPECT_TRUE(_rows.fromStream(4, row(name(2, 2), name(1))));
}

TEST_F(IncomingRowsTest, FillsAHoleFromTheSiteAndGoesOnWithTheStream) {
  read({1, 3, 4});
  EXPECT_EQ(Numbers{2}, fetch({row(2)}));
  EXPECT_EQ((Numbers{3, 4}), reread({row(3), row(4)}));
  EXPECT_EQ(Wants::nothing, _rows.wants());
  EXPECT_FALSE(_rows.state().passedFrom);
  EXPECT_EQ(0U, _rows.gaps());
}

TEST_F(IncomingRowsTest, AsksForWhatIsBehindTheNewestRowsOfTheLastRuns) {
  for (int run = 1; run <= 70; ++run)
    _rows.fromStream(++_sequence, row(name(run, run), name(run - 1, run - 1)));
  const Names names = _rows.beginFetch();
  ASSERT_EQ(64U, names.size());
  EXPECT_EQ(name(70, 70), names.front());
  EXPECT_EQ(name(7, 7), names.back());
}

// Its file is from before the last 64 runs, and it knows none of them.
TEST_F(IncomingRowsTest, AsksNextForWhatIsBehindTheRowsThatItWasToldAndHas) {
  for (int run = 1; run <= 70; ++run)
    _rows.fromStream(++_sequence, row(name(run, run), name(run - 1, run - 1)));
  EXPECT_EQ(Numbers(), fetch({row(name(1, 1), name(0, 1)), row(name(2, 2), name(1, 1))}, false));
  EXPECT_EQ(Wants::fetch, _rows.wants());
  EXPECT_EQ(name(2, 2), _rows.beginFetch().front());
}

TEST_F(IncomingRowsTest, AsksOnWhileThereIsMore) {
  read({1, 5});
  EXPECT_EQ((Numbers{2, 3}), fetch({row(2), row(3)}, false));
  EXPECT_EQ(Wants::fetch, _rows.wants());
  EXPECT_EQ((Numbers{4, 5}), fetch({row(4), row(5)}));
  EXPECT_EQ(Numbers(), reread({row(5)}));
  EXPECT_EQ(Wants::nothing, _rows.wants());
}

TEST_F(IncomingRowsTest, AsksAgainWhenAFetchedRowWasLost) {
  read({1, 5});
  _rows.beginFetch();
  EXPECT_TRUE(_rows.fetched(row(2)));
  EXPECT_FALSE(_rows.fetched(row(4)));
  EXPECT_FALSE(_rows.fetchEnded({{}, 2, true}, true)) << "what it says and what came do not fit";
  reread({row(5)});
  EXPECT_EQ(Wants::fetch, _rows.wants());
  _rows.beginFetch();
  EXPECT_TRUE(_rows.fetched(row(3)));
  EXPECT_FALSE(_rows.fetchEnded({{}, 2, true}, true)) << "the last one was lost";
  reread({row(5)});
  EXPECT_EQ(Numbers{4}, fetch({row(4)}));
  EXPECT_EQ(Numbers{5}, reread({row(5)}));
  EXPECT_EQ(0U, _rows.gaps());
}

TEST_F(IncomingRowsTest, TakesNothingAcrossAHoleWhileTheSiteDoesNotAnswer) {
  read({1, 3});
  for (int time = 0; time < 3; ++time) {
    if (_rows.wants() == Wants::reread) {
      EXPECT_EQ(Numbers(), reread({row(3)}));
    }
    EXPECT_EQ(Wants::fetch, _rows.wants());
    _rows.beginFetch();
    EXPECT_EQ(Wants::nothing, _rows.wants()) << "one request at a time";
    _rows.fetchFailed();
  }
  EXPECT_EQ(1, known());
}

TEST_F(IncomingRowsTest, TakesWhatIsInTheStreamThoughTheSiteDoesNotAnswer) {
  read({1, 3, 2});
  dieAndGoOn();
  _rows.beginFetch();
  _rows.fetchFailed();
  EXPECT_EQ(Numbers{3}, reread({row(3), row(2)}));
  EXPECT_EQ(Wants::nothing, _rows.wants());
}

TEST_F(IncomingRowsTest, ReadsTheStreamNotAgainInVain) {
  read({1, 3});
  _rows.beginFetch();
  _rows.fetchFailed();
  reread({row(3)});
  _rows.beginFetch();
  _rows.fetchFailed();
  EXPECT_EQ(Wants::fetch, _rows.wants());
  EXPECT_TRUE(_rows.fromStream(3, row(2)));
  _rows.beginFetch();
  _rows.fetchFailed();
  EXPECT_EQ(Wants::reread, _rows.wants());
}

TEST_F(IncomingRowsTest, TakesAcrossAHoleWhatNeitherTheStreamNorTheSiteCanFill) {
  read({1, 3, 4});
  EXPECT_EQ(Numbers(), fetch({}));
  EXPECT_EQ(Numbers(), reread({row(3), row(4)})) << "the stream can have the missing one later on";
  EXPECT_EQ((Numbers{3, 4}), reread({row(3), row(4)}));
  EXPECT_EQ(Wants::nothing, _rows.wants());
  EXPECT_EQ(1U, _rows.gaps());
}

TEST_F(IncomingRowsTest, TakesTheLowestAcrossAHoleFirst) {
  read({1, 6, 7, 3, 4});
  fetch({});
  const std::vector<RowHeader> stream = {row(6), row(7), row(3), row(4)};
  EXPECT_EQ(Numbers(), reread(stream));
  EXPECT_EQ((Numbers{3, 4}), reread(stream));
  EXPECT_EQ((Numbers{6, 7}), reread(stream));
  EXPECT_EQ(Wants::nothing, _rows.wants());
  EXPECT_EQ(2U, _rows.gaps());
}

TEST_F(IncomingRowsTest, ReadsTheStreamToItsEndAfterEachAnswerBeforeItTakesAcross) {
  const RowHeader ofNextRun = row(name(9, 2), name(8, 2));
  read({1, 3});
  _rows.fromStream(++_sequence, ofNextRun);
  EXPECT_EQ(Numbers(), fetch({row(name(6), name(1))}));
  EXPECT_EQ(Numbers(), reread({row(3), ofNextRun}));
  EXPECT_EQ(Numbers{3}, reread({row(3), ofNextRun}));
  EXPECT_EQ(Numbers{6}, fetch({row(name(6), name(3))}));
  EXPECT_EQ(Numbers(), reread({ofNextRun}));
  EXPECT_EQ(Numbers{9}, reread({ofNextRun}));
  EXPECT_EQ(Wants::nothing, _rows.wants());
  EXPECT_EQ(2U, _rows.gaps());
}

// What one of two servers of a name has not the other may have.
TEST_F(IncomingRowsTest, TakesNothingAcrossAHoleOnTheWordOfOneOfTwo) {
  read({1, 3});
  EXPECT_EQ(Numbers(), fetch({}, true, false));
  EXPECT_EQ(Numbers(), reread({row(3)})) << "the stream may have what was missing";
  EXPECT_EQ(Numbers(), fetch({}, true, false));
  EXPECT_EQ(Wants::fetch, _rows.wants()) << "nothing has changed in the stream";
  EXPECT_EQ(Numbers{2}, fetch({row(2)}, true, false)) << "the other one has answered";
  EXPECT_EQ(Numbers{3}, reread({row(3)}));
  EXPECT_EQ(Wants::nothing, _rows.wants());
  EXPECT_EQ(0U, _rows.gaps());
}

TEST_F(IncomingRowsTest, TakesRowsAcrossAHoleWhenOneOfTwoIsLeft) {
  read({1, 3});
  fetch({}, true, false);
  reread({row(3)});
  fetch({});
  reread({row(3)});
  EXPECT_EQ(Numbers{3}, reread({row(3)}));
  EXPECT_EQ(1U, _rows.gaps());
}

TEST_F(IncomingRowsTest, TakesNothingAcrossAHoleThatIsNewerThanTheAnswer) {
  read({1, 3});
  _rows.beginFetch();
  read({5});
  _rows.fetched(row(2));
  EXPECT_TRUE(_rows.fetchEnded({{}, 1, true}, true));
  EXPECT_EQ(Numbers{3}, reread({row(3), row(5)}));
  EXPECT_EQ(Wants::fetch, _rows.wants());
  EXPECT_EQ(Numbers{4}, fetch({row(4)}));
  EXPECT_EQ(Numbers{5}, reread({row(5)}));
  EXPECT_EQ(0U, _rows.gaps());
}

// It has removed 2 to 5 since.
TEST_F(IncomingRowsTest, TakesFromTheStreamWhatTheSiteHasNoLonger) {
  read({1, 3, 4});
  EXPECT_EQ(Numbers(), fetch({row(name(6), name(1)), row(7)}));
  EXPECT_EQ(Numbers(), reread({row(3), row(4), row(5)}));
  EXPECT_EQ((Numbers{3, 4, 5}), reread({row(3), row(4), row(5)}));
  EXPECT_EQ(1U, _rows.gaps());
  read({6});
  EXPECT_EQ(6, known());
}

TEST_F(IncomingRowsTest, TakesNothingFromTheSiteThatIsBehindARowInTheStream) {
  read({1, 3});
  _rows.beginFetch();
  _rows.fetchFailed();
  reread({row(3)});
  EXPECT_EQ(Numbers(), fetch({row(name(5), name(1)), row(6)}));
  reread({row(3)});
  EXPECT_EQ(Numbers{3}, reread({row(3)}));
  EXPECT_EQ(Wants::nothing, _rows.wants());
}

TEST_F(IncomingRowsTest, TakesFromTheSiteWhatIsBehindRowsThatNobodyHas) {
  read({1, 8});
  EXPECT_EQ(Numbers(), fetch({row(name(6), name(1)), row(7)})) << "the stream may have some";
  EXPECT_EQ(Numbers(), reread({row(8)}));
  EXPECT_EQ((Numbers{6, 7}), fetch({row(name(6), name(1)), row(7)}));
  EXPECT_EQ(Numbers{8}, reread({row(8)}));
  EXPECT_EQ(Wants::nothing, _rows.wants());
}

TEST_F(IncomingRowsTest, FindsByAskingThatTheLastRowsWereLost) {
  read({1});
  EXPECT_EQ((Numbers{2, 5}), fetch({row(2), row(name(5), name(2))}));
  EXPECT_EQ(Wants::nothing, _rows.wants());
  EXPECT_EQ(Numbers(), fetch({}));
  _rows.beginFetch();
  _rows.fetchFailed();
  EXPECT_EQ(Wants::nothing, _rows.wants());
}

TEST_F(IncomingRowsTest, KnowsAfterItsDeathThatSomethingWasPassedOver) {
  read({1, 3, 4});
  dieAndGoOn();
  EXPECT_EQ(Wants::fetch, _rows.wants());
  EXPECT_EQ(2U, _rows.state().passedFrom);
  EXPECT_EQ(Numbers(), fetch({}));
  EXPECT_EQ(Numbers(), reread({row(3), row(4)}));
  EXPECT_EQ(Wants::fetch, _rows.wants()) << "it does not know for what the site was asked";
  fetch({});
  reread({row(3), row(4)});
  EXPECT_EQ((Numbers{3, 4}), reread({row(3), row(4)}));
  EXPECT_EQ(Wants::nothing, _rows.wants());
}

TEST_F(IncomingRowsTest, ReadsAgainFromTheBeginningWhenTheSecondReaderFails) {
  read({1, 3, 4});
  fetch({row(2)});
  EXPECT_EQ(2U, _rows.beginReread());
  EXPECT_TRUE(_rows.again(2, row(3)));
  _rows.rereadFailed();
  EXPECT_EQ(Wants::reread, _rows.wants());
  EXPECT_EQ(Numbers{4}, reread({row(3), row(4)}));
  EXPECT_EQ(Wants::nothing, _rows.wants());
}

TEST_F(IncomingRowsTest, ReadsNextFromTheFirstRowThatIsLeft) {
  read({1, 3, 5});
  fetch({row(2)});
  EXPECT_EQ(Numbers{3}, reread({row(3), row(5)}));
  EXPECT_EQ(3U, _rows.state().passedFrom);
}

TEST_F(IncomingRowsTest, KnowsWhatTheFirstReaderPassesOverWhileTheSecondReads) {
  read({1, 3});
  fetch({row(2)});
  _rows.beginReread();
  read({5});
  EXPECT_TRUE(_rows.again(2, row(3)));
  _rows.rereadEnded();
  EXPECT_EQ(3U, _rows.state().passedFrom);
  EXPECT_EQ(Wants::fetch, _rows.wants());
}

// A server that has lost the end of the stream gives its sequences again.
TEST_F(IncomingRowsTest, ReadsAgainFromTheLowestSequenceThatWasPassedOver) {
  read({1});
  EXPECT_FALSE(_rows.fromStream(10, row(3)));
  EXPECT_FALSE(_rows.fromStream(5, row(7)));
  EXPECT_EQ(5U, _rows.state().passedFrom);
}

TEST_F(IncomingRowsTest, ReadsAStreamThatBeganAnewFromItsBeginning) {
  read({1, 2, 4});
  fetch({row(3)});
  _rows.beginReread();
  _rows.streamBeganAnew();
  EXPECT_EQ(Wants::reread, _rows.wants());
  EXPECT_EQ(0U, _rows.beginReread());
  _rows.rereadEnded();
  _rows.streamBeganAnew();
  EXPECT_EQ(Wants::nothing, _rows.wants());
}

// Whoever makes up runs takes no memory.
TEST_F(IncomingRowsTest, ForgetsTheRunsThatWereChangedLongestAgo) {
  const auto runs = static_cast<int>(mostKnownEpochs) + 10;
  for (int run = 1; run <= runs; ++run)
    EXPECT_TRUE(_rows.fromStream(1, row(name(1, run), name(0, run))));
  EXPECT_EQ(mostKnownEpochs, _rows.state().have.size());
  EXPECT_EQ(0, known(10));
  EXPECT_EQ(1, known(11));
  EXPECT_EQ(1, known(runs));
}

TEST_F(IncomingRowsTest, FindsRowsOfMoreRunsThanItNotesBehindAHole) {
  const auto runs = static_cast<int>(IncomingRows::mostPassedEpochs) + 10;
  std::vector<RowHeader> rows;
  for (int run = 1; run <= runs; ++run) rows.push_back(row(name(2, run), name(1, run)));
  for (const RowHeader& each : rows) EXPECT_FALSE(_rows.fromStream(++_sequence, each));
  std::size_t kept = 0;
  for (int round = 0; _rows.wants() != Wants::nothing && round < 10; ++round) {
    fetch({});
    while (_rows.wants() == Wants::reread) kept += reread(rows).size();
  }
  EXPECT_EQ(rows.size(), kept) << "each across its hole";
  EXPECT_EQ(Wants::nothing, _rows.wants());
  EXPECT_EQ(std::nullopt, _rows.state().passedFrom);
}

TEST_F(IncomingRowsTest, TakesNoAnswerThatNobodyWaitsFor) {
  read({1, 3});
  EXPECT_FALSE(_rows.fetched(row(2)));
  EXPECT_FALSE(_rows.fetchEnded({{}, 0, true}, true));
  EXPECT_EQ(Wants::fetch, _rows.wants());
  _rows.fetchFailed();
  EXPECT_EQ(Wants::fetch, _rows.wants());
  _rows.rereadEnded();
  EXPECT_EQ(2U, _rows.state().passedFrom);
}

}  // namespace
}  // namespace dch
