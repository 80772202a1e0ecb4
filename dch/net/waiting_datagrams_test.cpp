#include "dch/net/waiting_datagrams.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

namespace dch {
namespace {

class WaitingDatagramsTest : public ::testing::Test {
 protected:
  bool add(int sender, const std::string& bytes = "x") {
    Origin origin;
    origin.peer.port = static_cast<std::uint16_t>(sender);
    return _waiting.add({.bytes = bytes, .origin = origin});
  }

  // Those of the next `count` turns, each as "SENDER:BYTES".
  std::vector<std::string> take(std::size_t count) {
    std::vector<Message> messages(count);
    messages.resize(_waiting.take(messages));
    std::vector<std::string> taken;
    for (const Message& each : messages)
      taken.push_back(std::to_string(each.origin.peer.port) + ":" + std::string(each.bytes));
    return taken;
  }

  // How many a sender can add.
  std::size_t addAll(int sender) {
    std::size_t added = 0;
    while (!_waiting.isFull() && add(sender)) ++added;
    return added;
  }

  WaitingDatagrams _waiting;
};

using Texts = std::vector<std::string>;

TEST_F(WaitingDatagramsTest, GivesSendersTheirTurnsAndKeepsTheOrderOfEach) {
  for (const char* bytes : {"a", "b", "c"}) add(1, bytes);
  add(2, "d");
  for (const char* bytes : {"e", "f"}) add(3, bytes);
  EXPECT_EQ(take(4), (Texts{"1:a", "2:d", "3:e", "1:b"}));
  add(2, "g");
  EXPECT_EQ(take(4), (Texts{"3:f", "1:c", "2:g"}));
  EXPECT_TRUE(_waiting.empty());
  EXPECT_EQ(take(4), Texts());
}

TEST_F(WaitingDatagramsTest, TakesABurstOfOneSenderUntilItIsFull) {
  EXPECT_EQ(addAll(1), WaitingDatagrams::mostDatagrams);
  EXPECT_TRUE(_waiting.isFull());
  take(1);
  EXPECT_FALSE(_waiting.isFull());
}

TEST_F(WaitingDatagramsTest, IsFullWithManyBytes) {
  const std::string large(8'192, 'x');
  std::size_t count = 0;
  for (; !_waiting.isFull(); ++count) EXPECT_TRUE(add(1, large));
  EXPECT_EQ(count, WaitingDatagrams::mostBytes / large.size());
}

TEST_F(WaitingDatagramsTest, LeavesRoomForOthersWhileSharesAreLimited) {
  _waiting.limitShares(true);
  constexpr int flooding = 1'000, rounds = 100;
  for (int round = 0; round < rounds; ++round)
    for (int sender = 1; sender <= flooding; ++sender) add(sender);
  EXPECT_FALSE(_waiting.isFull());
  EXPECT_TRUE(add(2'000));
}

TEST_F(WaitingDatagramsTest, LimitsTheBytesOfASenderToo) {
  _waiting.limitShares(true);
  const std::string large(8'192, 'x');
  std::size_t bytes = 0;
  while (add(1, large)) bytes += large.size();
  EXPECT_LE(bytes, WaitingDatagrams::mostBytes * 2 / 3 + large.size());
  EXPECT_TRUE(add(2, large));
}

TEST_F(WaitingDatagramsTest, TakesMoreOfASenderWhoseShareBecameFree) {
  _waiting.limitShares(true);
  addAll(1);
  EXPECT_FALSE(add(1));
  take(10);
  EXPECT_TRUE(add(1));
}

}  // namespace
}  // namespace dch
