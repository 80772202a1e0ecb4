// How long resolved names are kept. This program has a resolver and a clock of its own.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <ctime>
#include <string>

#include "suite/names.h"

namespace {

int questions = 0;
const char* answer = nullptr;  // null: the name is unknown
std::time_t clockAheadSeconds = 0;

sockaddr_in answeredAddress;
addrinfo answeredInfo;

}  // namespace

int getaddrinfo(const char*, const char*, const addrinfo* hints, addrinfo** result) {
  ++questions;
  if (answer == nullptr) return EAI_NONAME;
  answeredAddress = {};
  answeredAddress.sin_family = AF_INET;
  inet_pton(AF_INET, answer, &answeredAddress.sin_addr);
  answeredInfo = *hints;
  answeredInfo.ai_addrlen = sizeof answeredAddress;
  answeredInfo.ai_addr = reinterpret_cast<sockaddr*>(&answeredAddress);
  *result = &answeredInfo;
  return 0;
}

void freeaddrinfo(addrinfo*) noexcept {}

// Time passes when a test lets it pass, but for a nanosecond with each look.
int clock_gettime(clockid_t clock, timespec* now) noexcept {
  if (clock != CLOCK_MONOTONIC) return static_cast<int>(syscall(SYS_clock_gettime, clock, now));
  static long looks = 0;
  *now = {1000 + clockAheadSeconds, ++looks};
  return 0;
}

namespace {

std::string converted(const std::string& name) {
  sockaddr_in address{};
  return ZOR0_ConvertNameToAddr(name.c_str(), 1, &address) != 0 ? inet_ntoa(address.sin_addr)
                                                                : "unknown";
}

TEST(NameCache, AnswersForTenSeconds) {
  answer = "192.0.2.1";
  EXPECT_EQ(converted("dch.example"), "192.0.2.1");
  answer = "192.0.2.2";
  clockAheadSeconds += 9;
  EXPECT_EQ(converted("dch.example"), "192.0.2.1");
  EXPECT_EQ(questions, 1);
  clockAheadSeconds += 1;
  EXPECT_EQ(converted("dch.example"), "192.0.2.2");
  EXPECT_EQ(questions, 2);
}

TEST(NameCache, DoesNotKeepFailures) {
  EXPECT_EQ(converted("dch.example"), "unknown");
  answer = "192.0.2.1";
  EXPECT_EQ(converted("dch.example"), "192.0.2.1");
}

TEST(NameCache, IsNotAskedForAddressesAndLocalhost) {
  EXPECT_EQ(converted("192.0.2.9"), "192.0.2.9");
  EXPECT_EQ(converted("localhost"), "127.0.0.1");
  EXPECT_EQ(questions, 0);
}

TEST(NameCache, GivesUpTheOldestOfTooManyNames) {
  answer = "192.0.2.1";
  for (int i = 0; i < 17; ++i) converted("host" + std::to_string(i));
  EXPECT_EQ(questions, 17);
  converted("host16");
  EXPECT_EQ(questions, 17);
  converted("host0");
  EXPECT_EQ(questions, 18);
}

TEST(NameCache, LeavesOutNamesThatAreTooLongForIt) {
  answer = "192.0.2.1";
  const std::string name(300, 'a');
  EXPECT_EQ(converted(name), "192.0.2.1");
  EXPECT_EQ(converted(name), "192.0.2.1");
  EXPECT_EQ(questions, 2);
}

}  // namespace
