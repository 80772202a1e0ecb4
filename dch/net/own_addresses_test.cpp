#include "dch/net/own_addresses.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include "dch/testkit/machine_addresses.h"

namespace dch {
namespace {

constexpr std::uint16_t servedPort = 1919, pushPort = 40'000, otherPort = 40'001;

PeerAddress at(const char* address, std::uint16_t port) {
  sockaddr_in whole{};
  inet_pton(AF_INET, address, &whole.sin_addr);
  whole.sin_port = htons(port);
  return PeerAddress(whole);
}

TEST(OwnAddressesTest, AreTwoPortsOfTheAddressThatIsServed) {
  const OwnAddresses own(at("127.0.0.1", servedPort), htons(pushPort));
  EXPECT_TRUE(own.contains(at("127.0.0.1", servedPort)));
  EXPECT_TRUE(own.contains(at("127.0.0.1", pushPort)));
  EXPECT_FALSE(own.contains(at("127.0.0.1", otherPort)));
  EXPECT_FALSE(own.contains(at("127.0.0.2", servedPort)));
  EXPECT_FALSE(own.contains(at("192.0.2.1", pushPort)));
}

TEST(OwnAddressesTest, AreTwoPortsOfAllAddressesOfTheMachineWhereAllAreServed) {
  const OwnAddresses own(at("0.0.0.0", servedPort), htons(pushPort));
  for (const std::uint16_t port : {servedPort, pushPort}) {
    EXPECT_TRUE(own.contains(at("127.0.0.1", port)));
    EXPECT_TRUE(own.contains(at("127.8.9.10", port)));
    EXPECT_FALSE(own.contains(at("192.0.2.1", port)));
    EXPECT_FALSE(own.contains(at("255.255.255.255", port)));
  }
  EXPECT_FALSE(own.contains(at("127.0.0.1", otherPort)));
  for (const in_addr each : testkit::machineAddresses()) {
    PeerAddress address(each);
    address.port = htons(servedPort);
    EXPECT_TRUE(own.contains(address)) << address.text().data();
  }
}

}  // namespace
}  // namespace dch
