#include "dch/core/address_ranges.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>

namespace dch {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;

PeerAddress peer(const char* address) {
  PeerAddress result;
  inet_pton(AF_INET, address, &result.address);
  return result;
}

TEST(AddressRangesTest, HasNobodyAtFirst) {
  EXPECT_FALSE(AddressRanges().contains(peer("127.0.0.1")));
}

TEST(AddressRangesTest, HasWhatIsInOneOfItsRanges) {
  AddressRanges ranges;
  EXPECT_THAT(ranges.add("10.1.0.0/16"), IsEmpty());
  EXPECT_THAT(ranges.add("192.168.1.5"), IsEmpty());
  for (const char* address : {"10.1.0.0", "10.1.255.255", "192.168.1.5"})
    EXPECT_TRUE(ranges.contains(peer(address))) << address;
  for (const char* address : {"10.0.255.255", "10.2.0.0", "192.168.1.4", "192.168.1.6", "0.0.0.0"})
    EXPECT_FALSE(ranges.contains(peer(address))) << address;
}

TEST(AddressRangesTest, HasTheLargestAndTheSmallestRange) {
  EXPECT_TRUE(AddressRanges::everyone().contains(peer("255.255.255.255")));
  AddressRanges one;
  EXPECT_THAT(one.add("10.0.0.7/32"), IsEmpty());
  EXPECT_TRUE(one.contains(peer("10.0.0.7")));
  EXPECT_FALSE(one.contains(peer("10.0.0.6")));
}

TEST(AddressRangesTest, ThisMachineIsItsLoopbackAddresses) {
  const AddressRanges ranges = AddressRanges::thisMachine();
  EXPECT_TRUE(ranges.contains(peer("127.0.0.1")));
  EXPECT_TRUE(ranges.contains(peer("127.255.255.254")));
  EXPECT_FALSE(ranges.contains(peer("128.0.0.1")));
}

TEST(AddressRangesTest, RefusesWhatIsNoRangeAndAddsNothing) {
  AddressRanges ranges;
  for (const std::string text :
       {"", "/", "/8", "10.0.0.0/", "10.0.0.0/33", "10.0.0.0/-1", "10.0.0.0/8x", "10.0.0.0/ 8",
        "10.0.0.0/08/8", "10.0.0", "localhost", "::1", "::/0", " 10.0.0.1", "10.0.0.256"})
    EXPECT_THAT(ranges.add(text), HasSubstr("not an IPv4 address")) << text;
  EXPECT_THAT(ranges.add(std::string("10.0.0.1\0", 9)), HasSubstr("not an IPv4 address"));
  EXPECT_FALSE(ranges.contains(peer("10.0.0.1")));
}

TEST(AddressRangesTest, ShowsWhatMayBeMeantByAnAddressInsideOfARange) {
  AddressRanges ranges;
  EXPECT_THAT(ranges.add("192.168.1.5/24"), HasSubstr("192.168.1.0/24, or 192.168.1.5/32"));
  EXPECT_FALSE(ranges.contains(peer("192.168.1.5")));
}

}  // namespace
}  // namespace dch
