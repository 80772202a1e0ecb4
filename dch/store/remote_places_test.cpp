#include "dch/store/remote_places.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <limits>

#include "dch/store/history.h"
#include "dch/testkit/remote_test.h"

namespace dch {
namespace {

using testkit::epochOf;
using testkit::remoteRow;

class RemotePlacesTest : public testkit::RemoteTest {
 protected:
  void SetUp() override { start(); }

  static std::string shortText(std::uint32_t epoch, std::int64_t number) {
    return " " + epochText(epochOf(epoch)).substr(0, 8) + ":" + std::to_string(number);
  }
};

TEST_F(RemotePlacesTest, ThereAreNoneAtFirst) {
  EXPECT_TRUE(readPlaces().sites.empty());
  EXPECT_EQ(places(), "stream '' 0");
}

TEST_F(RemotePlacesTest, AreThoseThatWereKeptLast) {
  RemoteRows change = rows({row(1), row(4)}, "s");
  change.passedFrom = 17;
  ASSERT_TRUE(keep(change));
  ASSERT_TRUE(keep(RemoteRows{"t", {}, {{epochOf(5), 50}, {epochOf(6), 60}}, std::nullopt}));
  ASSERT_TRUE(keep(StreamRead{"made then", 400}));
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(places(), "s 17" + shortText(1, 4) + "\nt -" + shortText(5, 50) + shortText(6, 60) +
                            "\nstream 'made then' 400");
    knownAfterRestart();
  }
  ASSERT_TRUE(keep(RemoteRows{"s", {}, {}, std::nullopt}));
  ASSERT_TRUE(keep(RemoteRows{"t", {}, {{epochOf(6), 59}}, std::uint64_t{1}}));
  ASSERT_TRUE(keep(StreamRead{"made again", 3}));
  EXPECT_EQ(places(), "s -" + shortText(1, 4) + "\nt 1" + shortText(6, 60) + shortText(5, 50) +
                          "\nstream 'made again' 3")
      << "what was passed over is replaced, what is known is never less";
}

TEST_F(RemotePlacesTest, TheEpochThatWasChangedLastComesFirst) {
  const auto rowOfEpoch = [](std::uint32_t epoch, std::int64_t number) {
    return remoteRow({epochOf(epoch), number}, "A", "g", "host1");
  };
  ASSERT_TRUE(keep(rows({rowOfEpoch(1, 1), rowOfEpoch(2, 1), rowOfEpoch(3, 1)})));
  EXPECT_EQ(places(),
            "s -" + shortText(3, 1) + shortText(2, 1) + shortText(1, 1) + "\nstream '' 0");
  ASSERT_TRUE(keep(rows({rowOfEpoch(1, 2), rowOfEpoch(3, 1)})));
  EXPECT_EQ(places(), "s -" + shortText(1, 2) + shortText(3, 1) + shortText(2, 1) + "\nstream '' 0")
      << "what was known already changes nothing";
}

TEST_F(RemotePlacesTest, SequencesMayBeAnyNumber) {
  constexpr std::uint64_t highest = std::numeric_limits<std::uint64_t>::max();
  ASSERT_TRUE(keep(RemoteRows{"s", {}, {}, highest}));
  ASSERT_TRUE(keep(StreamRead{"stream", highest - 1}));
  EXPECT_EQ(readPlaces().sites.at(0).passedFrom, highest);
  EXPECT_EQ(readPlaces().stream.sequence, highest - 1);
}

TEST_F(RemotePlacesTest, HoldUpNoCheckpoint) {
  ASSERT_TRUE(keep(rows({row(1)})));
  readPlaces();
  sqlite::Connection other(path(), nullptr);
  EXPECT_EQ(sqlite::queryNumber(other, "PRAGMA wal_checkpoint(TRUNCATE)"), 0);
}

TEST_F(RemotePlacesTest, AFileThatIsGoneIsAnError) {
  ASSERT_TRUE(keep(rows({row(1)})));
  std::filesystem::rename(path(), path() + "-moved");
  EXPECT_THROW(readPlaces(), HistoryError);
}

}  // namespace
}  // namespace dch
