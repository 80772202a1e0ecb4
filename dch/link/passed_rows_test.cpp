#include "dch/link/passed_rows.h"

#include <gtest/gtest.h>

namespace dch {
namespace {

class PassedRowsTest : public testing::Test {
 protected:
  static RowName ofRun(int run, std::int64_t number) {
    Epoch epoch;
    epoch.bytes[0] = static_cast<std::uint8_t>(run);
    return {epoch, number};
  }
  void removeKnownOfRun1(std::int64_t upTo) {
    _passed.removeKnown([=](const Epoch& epoch) { return epoch == ofRun(1, 0).epoch ? upTo : 0; });
  }

  PassedRows _passed{2};
};

TEST_F(PassedRowsTest, HasNothingAtFirst) {
  EXPECT_EQ(std::nullopt, _passed.firstSequence());
  EXPECT_EQ(std::nullopt, _passed.lowest());
  EXPECT_FALSE(_passed.mayHaveBefore(ofRun(1, 9), 0));
  EXPECT_FALSE(_passed.hasFrom(ofRun(1, 1)));
}

TEST_F(PassedRowsTest, HasTheLowestNumberAndTheLowestPlaceInTheStream) {
  _passed.add(7, ofRun(1, 8));
  _passed.add(9, ofRun(1, 3));
  _passed.add(8, ofRun(2, 5));
  EXPECT_EQ(ofRun(1, 3), _passed.lowest());
  EXPECT_EQ(7U, _passed.firstSequence());
  _passed.add(4, ofRun(2, 6));
  EXPECT_EQ(4U, _passed.firstSequence());
}

TEST_F(PassedRowsTest, ForgetsAnEpochWhenAllOfItIsKnown) {
  _passed.add(7, ofRun(1, 3));
  _passed.add(8, ofRun(1, 8));
  _passed.add(9, ofRun(2, 5));
  removeKnownOfRun1(7);
  EXPECT_EQ(ofRun(1, 3), _passed.lowest());
  removeKnownOfRun1(8);
  EXPECT_EQ(ofRun(2, 5), _passed.lowest());
  EXPECT_EQ(9U, _passed.firstSequence());
  _passed.clear();
  EXPECT_EQ(std::nullopt, _passed.firstSequence());
}

TEST_F(PassedRowsTest, HasTheEpochsWithTheLowestNumbers) {
  _passed.add(6, ofRun(3, 8));
  _passed.add(7, ofRun(1, 3));
  _passed.add(8, ofRun(2, 5));
  _passed.add(9, ofRun(4, 7));
  EXPECT_EQ(ofRun(1, 3), _passed.lowest());
  EXPECT_TRUE(_passed.hasFrom(ofRun(2, 5)));
  EXPECT_FALSE(_passed.hasFrom(ofRun(3, 8)));
  EXPECT_EQ(6U, _passed.firstSequence());
  EXPECT_FALSE(_passed.mayHaveBefore(ofRun(4, 7), 0));
  EXPECT_TRUE(_passed.mayHaveBefore(ofRun(4, 8), 0));
  EXPECT_TRUE(_passed.mayHaveBefore(ofRun(3, 9), 0));
  _passed.removeKnown([](const Epoch&) { return 9; });
  EXPECT_EQ(std::nullopt, _passed.lowest());
  EXPECT_EQ(6U, _passed.firstSequence());
  _passed.clear();
  EXPECT_EQ(std::nullopt, _passed.firstSequence());
}

// Of one that was among the others once, a part may still be there.
TEST_F(PassedRowsTest, AnEpochThatComesBackAmongTheLowestMayHaveMore) {
  _passed.add(6, ofRun(1, 3));
  _passed.add(7, ofRun(2, 5));
  _passed.add(8, ofRun(3, 8));
  _passed.add(9, ofRun(3, 2));
  EXPECT_EQ(ofRun(3, 2), _passed.lowest());
  EXPECT_TRUE(_passed.mayHaveBefore(ofRun(3, 9), 2));
}

TEST_F(PassedRowsTest, SaysWhatMayBeBeforeARow) {
  _passed.add(7, ofRun(1, 4));
  _passed.add(8, ofRun(1, 6));
  EXPECT_FALSE(_passed.mayHaveBefore(ofRun(1, 4), 0));
  EXPECT_TRUE(_passed.mayHaveBefore(ofRun(1, 5), 0));
  EXPECT_TRUE(_passed.mayHaveBefore(ofRun(1, 9), 5)) << "6 is left";
  EXPECT_FALSE(_passed.mayHaveBefore(ofRun(1, 9), 6));
  EXPECT_FALSE(_passed.mayHaveBefore(ofRun(2, 9), 0)) << "those are of another run";
}

TEST_F(PassedRowsTest, SaysWhetherThereIsARowOrOneBehindIt) {
  _passed.add(7, ofRun(1, 4));
  _passed.add(8, ofRun(1, 6));
  EXPECT_TRUE(_passed.hasFrom(ofRun(1, 1)));
  EXPECT_TRUE(_passed.hasFrom(ofRun(1, 6)));
  EXPECT_FALSE(_passed.hasFrom(ofRun(1, 7)));
  EXPECT_FALSE(_passed.hasFrom(ofRun(2, 1)));
}

}  // namespace
}  // namespace dch
