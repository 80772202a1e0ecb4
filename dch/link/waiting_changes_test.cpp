#include "dch/link/waiting_changes.h"

#include <gmock/gmock.h>

#include "dch/testkit/row_names.h"

namespace dch::testkit {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

SiteChanges changesOf(const std::string& site, int run, std::uint64_t from, std::uint64_t to) {
  return {site, name(1, run).epoch, from, to, from < to ? "U HOSTMON\n" : ""};
}

SiteChanges largeChangesOf(const std::string& site) {
  SiteChanges changes = changesOf(site, 1, 1, 2);
  changes.text = std::string(std::size_t{64} * 1024, '\n');
  return changes;
}

class WaitingChangesTest : public ::testing::Test {
 protected:
  // How many of them find room.
  std::uint64_t flood(const std::string& site) {
    constexpr std::uint64_t more = 1'000;
    const std::uint64_t droppedBefore = _waiting.dropped();
    for (std::uint64_t i = 0; i < more; ++i) _waiting.add(largeChangesOf(site));
    return more - (_waiting.dropped() - droppedBefore);
  }

  WaitingChanges _waiting;
};

TEST_F(WaitingChangesTest, KeepsTheOrderInWhichTheyCame) {
  const SiteChanges first = changesOf("west", 1, 1, 3), second = changesOf("east", 2, 0, 0),
                    third = changesOf("west", 1, 3, 4), fourth = changesOf("west", 1, 4, 4);
  for (const SiteChanges& each : {first, second, third, fourth}) _waiting.add(SiteChanges(each));
  EXPECT_THAT(_waiting.take(), ElementsAre(first, second, third, fourth));
  EXPECT_THAT(_waiting.take(), IsEmpty());
  EXPECT_EQ(_waiting.dropped(), 0u);
}

TEST_F(WaitingChangesTest, OfARevisionThatIsSaidAgainTheLastOneIsEnough) {
  const SiteChanges changes = changesOf("west", 1, 1, 2), last = changesOf("west", 1, 9, 9),
                    east = changesOf("east", 1, 5, 5), otherRun = changesOf("west", 2, 7, 7);
  _waiting.add(SiteChanges(changes));
  for (std::uint64_t revision = 2; revision <= 9; ++revision) {
    _waiting.add(changesOf("west", 1, revision, revision));
    _waiting.add(SiteChanges(east));
  }
  _waiting.add(SiteChanges(otherRun));
  EXPECT_THAT(_waiting.take(), ElementsAre(changes, last, east, otherRun));
}

TEST_F(WaitingChangesTest, ASiteThatFloodsLeavesRoomForOthersAndIsCounted) {
  const std::uint64_t kept = flood("west");
  EXPECT_GT(kept, 0u);
  EXPECT_LT(kept * largeChangesOf("west").text.size(), WaitingChanges::mostBytesOfASite);
  _waiting.add(changesOf("east", 1, 1, 2));
  EXPECT_EQ(_waiting.take().size(), kept + 1);
  EXPECT_EQ(flood("west"), kept) << "there is room again";
}

TEST_F(WaitingChangesTest, AllSitesTogetherHaveOnlySoMuch) {
  std::uint64_t bytes = 0;
  for (int site = 0; site < 8; ++site)
    bytes += flood("site" + std::to_string(site)) * largeChangesOf("").text.size();
  EXPECT_GT(bytes, WaitingChanges::mostBytesOfASite);
  EXPECT_LE(bytes, WaitingChanges::mostBytes);
}

TEST_F(WaitingChangesTest, ASiteOfManyRunsTakesNoMoreThanOthers) {
  for (int run = 0; run < 100'000; ++run) _waiting.add(changesOf("west", run % 2, 1, 1));
  EXPECT_GT(_waiting.dropped(), 0u);
  EXPECT_LE(_waiting.take().size() * sizeof(SiteChanges), WaitingChanges::mostBytesOfASite);
}

}  // namespace
}  // namespace dch::testkit
