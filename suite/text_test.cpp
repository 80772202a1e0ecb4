#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <thread>

#include "suite/text.h"
#include "zora/zora.h"

namespace {

std::string truncated(std::string text, int keep) {
  ZOR0_TruncateFromLeft(text.data(), static_cast<int>(text.size()), keep);
  return text.c_str();
}

TEST(Truncate, KeepsTheRightmostCharacters) {
  EXPECT_EQ(truncated("abcdef", 4), "cdef");
  EXPECT_EQ(truncated("abcdef", 1), "f");
}

TEST(Truncate, KeepingNothingOrLessEmptiesTheText) {
  EXPECT_EQ(truncated("abcdef", 0), "");
  EXPECT_EQ(truncated("abcdef", -3), "");
}

TEST(Truncate, KeepingAllOrMoreChangesNothing) {
  EXPECT_EQ(truncated("abcdef", 6), "abcdef");
  EXPECT_EQ(truncated("abcdef", 100), "abcdef");
  ZOR0_TruncateFromLeft(nullptr, 5, 2);
}

TEST(Strtok, SplitsAndSkipsRunsOfDelimiters) {
  char text[] = "::host:ABC00:";
  EXPECT_STREQ(ZOR0_strtok(text, ":"), "host");
  EXPECT_STREQ(ZOR0_strtok(nullptr, ":"), "ABC00");
  EXPECT_EQ(ZOR0_strtok(nullptr, ":"), nullptr);
  EXPECT_EQ(ZOR0_strtok(nullptr, ":"), nullptr);
}

TEST(Strtok, WithoutATextThereIsNoToken) {
  EXPECT_EQ(ZOR0_strtok(nullptr, ":"), nullptr);
}

TEST(Strtok, EachThreadHasItsOwnPlace) {
  char text[] = "one:two";
  EXPECT_STREQ(ZOR0_strtok(text, ":"), "one");
  std::thread([] {
    char other[] = "three:four";
    EXPECT_STREQ(ZOR0_strtok(other, ":"), "three");
  }).join();
  EXPECT_STREQ(ZOR0_strtok(nullptr, ":"), "two");
}

TEST(CheckSum, HasTheKnownCheckValues) {
  EXPECT_EQ(ZOR0_ComputeCheckSum("123456789", 9), 0xCBF43926u);
  EXPECT_EQ(ZOR0_ComputeCheckSum("", 0), 0u);
  EXPECT_EQ(ZOR0_ComputeCheckSum(nullptr, 0), 0u);
  EXPECT_EQ(ZOR0_ComputeCheckSum("\xFF\xFF\xFF\xFF", 4), 0xFFFFFFFFu);
  EXPECT_EQ(ZOR0_ComputeCheckSum("The quick brown fox jumps over the lazy dog", 43), 0x414FA339u);
}

TEST(ValidPointer, IsAnyThatIsNotNull) {
  int somewhere = 0;
  EXPECT_NE(ZOR0_IsValidPointer(&somewhere), 0);
  EXPECT_EQ(ZOR0_IsValidPointer(nullptr), 0);
}

TEST(ProviderTypeNames, StandInTheirFixedOrder) {
  const char* const expected[] = {"APIS", "APPC", "ASFS", "FILE", "HTTP", "JDBC",
                                  "ODBC", "POST", "SNMP", "SOCK", "WBEM", "NODP"};
  static_assert(std::size(expected) == ZORA_DP_TYPE_COUNT);
  for (std::size_t i = 0; i < std::size(expected); ++i)
    EXPECT_STREQ(ZORA_DPTypeNames[i], expected[i]);
}

}  // namespace
