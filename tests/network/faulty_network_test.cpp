// The faulty network itself: it does to datagrams what it is told, and nothing else.
#include "tests/network/faulty_network.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/sockets.h"

namespace network {
namespace {

using ::testing::ElementsAre;

class FaultyNetworkTest : public ::testing::Test {
 protected:
  void toDch(const DatagramSocket& client, const std::string& bytes) {
    client.sendTo(static_cast<unsigned short>(_network.port()), bytes);
  }

  // The DCH's next datagrams.
  std::vector<std::string> atDch(std::size_t count) const {
    std::vector<std::string> datagrams;
    while (datagrams.size() < count) datagrams.push_back(_dch.receive());
    return datagrams;
  }

  DatagramSocket _dch;
  FaultyNetwork _network{_dch.port(), noFaults()};
  DatagramSocket _client;
};

TEST_F(FaultyNetworkTest, LosesAndRepeatsWhatItIsTold) {
  _network.setFaults([](const Passing& passing) {
    return passing.number == 1 ? lost : passing.number == 2 ? twice : once;
  });
  for (const char* datagram : {"one", "two", "three", "four"}) toDch(_client, datagram);
  EXPECT_THAT(atDch(4), ElementsAre("one", "three", "three", "four"));
  EXPECT_FALSE(_dch.hasDatagram());
}

TEST_F(FaultyNetworkTest, HoldsADatagramUntilItIsReleased) {
  _network.setFaults(faultOf(Direction::toDch, 0, late));
  for (const char* datagram : {"one", "two"}) toDch(_client, datagram);
  EXPECT_THAT(atDch(1), ElementsAre("two"));
  EXPECT_FALSE(_dch.hasDatagram());
  _network.release();
  EXPECT_THAT(atDch(1), ElementsAre("one"));
}

TEST_F(FaultyNetworkTest, DelaysSoThatALaterDatagramOvertakes) {
  _network.setFaults(
      faultOf(Direction::toDch, 0, {Arrival{.delay = std::chrono::milliseconds(200)}}));
  for (const char* datagram : {"one", "two"}) toDch(_client, datagram);
  EXPECT_THAT(atDch(2), ElementsAre("two", "one"));
}

TEST_F(FaultyNetworkTest, TheSameSeedGivesTheSameFaults) {
  const auto pattern = [](unsigned seed) {
    const Faults faults = randomFaults(seed, {.loss = 0.3, .repetition = 0.3});
    std::string copies;
    for (int i = 0; i < 200; ++i) copies += std::to_string(faults(Passing{}).size());
    return copies;
  };
  EXPECT_EQ(pattern(1), pattern(1));
  EXPECT_NE(pattern(1), pattern(2));
  for (const char* copies : {"0", "1", "2"})
    EXPECT_NE(pattern(1).find(copies), std::string::npos) << copies;
}

}  // namespace
}  // namespace network
