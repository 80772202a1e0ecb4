#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "suite/names.h"

namespace {

std::string textOf(const sockaddr_in& address) {
  char text[INET_ADDRSTRLEN] = "";
  inet_ntop(AF_INET, &address.sin_addr, text, sizeof text);
  return std::string(text) + ":" + std::to_string(ntohs(address.sin_port));
}

std::string converted(const char* name, int port) {
  sockaddr_in address{};
  if (ZOR0_ConvertNameToAddr(name, port, &address) == 0) return "unknown";
  EXPECT_EQ(address.sin_family, AF_INET);
  return textOf(address);
}

TEST(ConvertName, TakesDottedAddressesAsTheyAre) {
  EXPECT_EQ(converted("192.0.2.17", 1919), "192.0.2.17:1919");
  EXPECT_EQ(converted("255.255.255.255", 65535), "255.255.255.255:65535");
}

TEST(ConvertName, LocalhostIsTheLoopbackAddress) {
  EXPECT_EQ(converted("localhost", 80), "127.0.0.1:80");
  EXPECT_EQ(converted("LocalHost", 0), "127.0.0.1:0");
}

TEST(ConvertName, TheLocalHostsNameLeadsToTheLoopbackInterface) {
  ASSERT_STREQ(ZOR0_LocalHostNameString(), "localhost");
  EXPECT_EQ(converted(ZOR0_LocalHostNameString(), 7), "127.0.0.1:7");
}

TEST(ConvertName, AsksTheResolverForAnythingElse) {
  // A form of address that only the resolver reads.
  EXPECT_EQ(converted("127.1", 5), "127.0.0.1:5");
}

TEST(ConvertName, AKeptNameAnswersWithTheNewPort) {
  EXPECT_EQ(converted("127.2", 5), "127.0.0.2:5");
  EXPECT_EQ(converted("127.2", 6), "127.0.0.2:6");
}

TEST(ConvertName, MoreNamesThanAreKeptStillResolve) {
  for (int round = 0; round < 2; ++round)
    for (int host = 1; host <= 40; ++host)
      EXPECT_EQ(converted(("127." + std::to_string(host)).c_str(), 9),
                "127.0.0." + std::to_string(host) + ":9");
}

TEST(ConvertName, FailsForNullEmptyAndUnknownNamesAndLeavesTheAddressAlone) {
  for (const char* name : {static_cast<const char*>(nullptr), "", "no such host", "256.1.1.1"}) {
    sockaddr_in address{};
    address.sin_port = 4711;
    EXPECT_EQ(ZOR0_ConvertNameToAddr(name, 1, &address), 0) << (name ? name : "null");
    EXPECT_EQ(address.sin_port, 4711);
  }
}

TEST(ConvertName, AVeryLongNameFails) {
  EXPECT_EQ(converted(std::string(5000, 'a').c_str(), 1), "unknown");
}

TEST(ConvertName, ThreadsMayAskAtTheSameTime) {
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int thread = 0; thread < 4; ++thread)
    threads.emplace_back([] {
      for (int host = 1; host <= 30; ++host)
        EXPECT_EQ(converted(("127." + std::to_string(host)).c_str(), 1),
                  "127.0.0." + std::to_string(host) + ":1");
    });
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
