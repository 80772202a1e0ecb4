#include <gtest/gtest.h>

#include <string>

#include "tests/support/trace_capture.h"
#include "tests/support/trace_lines.h"
#include "zora/zora.h"

namespace {

std::string stored(const char* name) {
  ZORA_SetInstanceName(name);
  return ZORA_GetInstanceName();
}

TEST(InstanceName, IsEmptyAtFirst) {
  EXPECT_STREQ(ZORA_GetInstanceName(), "");
}

TEST(InstanceName, LosesLeadingBlanksOnly) {
  EXPECT_EQ(stored("   inst1"), "inst1");
  EXPECT_EQ(stored(" a b  "), "a b  ");
  EXPECT_EQ(stored("\tinst2"), "\tinst2");
}

TEST(InstanceName, IsCutAfterTwentyCharacters) {
  EXPECT_EQ(stored("1234567890123456789"), "1234567890123456789");
  EXPECT_EQ(stored("12345678901234567890"), "12345678901234567890");
  EXPECT_EQ(stored("123456789012345678901"), "12345678901234567890");
  EXPECT_EQ(stored("1234567890123456789012345"), "12345678901234567890");
  EXPECT_EQ(stored("   1234567890123456789012345"), "12345678901234567890");
}

TEST(InstanceName, KeepsNothingOfALongerOne) {
  stored("a-long-instance-name");
  EXPECT_EQ(stored("short"), "short");
  EXPECT_EQ(std::string(ZORA_GetInstanceName() + 6, 14), std::string(14, '\0'));
}

TEST(InstanceName, IsEmptiedByANullAndByBlanks) {
  stored("inst1");
  EXPECT_EQ(stored(nullptr), "");
  stored("inst1");
  EXPECT_EQ(stored("    "), "");
  stored("inst1");
  EXPECT_EQ(stored(""), "");
}

TEST(InstanceName, IsZeroedWhole) {
  const std::string zeros(21, '\0');
  for (const char* const nothing : {static_cast<const char*>(nullptr), "  "}) {
    stored("a-long-instance-name");
    ZORA_SetInstanceName(nothing);
    EXPECT_EQ(std::string(ZORA_GetInstanceName(), 21), zeros);
  }
}

TEST(InstanceName, LivesInOneBuffer) {
  char* const buffer = ZORA_GetInstanceName();
  ZORA_SetInstanceName("inst1");
  EXPECT_EQ(ZORA_GetInstanceName(), buffer);
  EXPECT_STREQ(buffer, "inst1");
}

TEST(SetInstanceName, ShowsWhatItStores) {
  expectTrace("ZORA_SetInstanceName", [] {
    ZORA_SetInstanceName("  1234567890123456789012345");
    return std::vector{entryLine(), detailLine("Storing InstanceName <12345678901234567890>\n"),
                       exitLine()};
  });
}

TEST(SetInstanceName, ReportsATextOfBlanks) {
  for (const char* blanks : {"", "   "}) {
    expectTrace("ZORA_SetInstanceName", [&] {
      ZORA_SetInstanceName(blanks);
      return std::vector{entryLine(),
                         errorLine("*****Nothing stored in InstanceName variable for <>\n"),
                         exitLine()};
    });
  }
}

TEST(SetInstanceName, TakesANullInSilence) {
  expectTrace("ZORA_SetInstanceName", [] {
    ZORA_SetInstanceName(nullptr);
    return std::vector{entryLine(), exitLine()};
  });
}

TEST(GetInstanceName, ShowsANameWithoutEvents) {
  ZORA_SetInstanceName("inst1");
  expectTrace("ZORA_GetInstanceName", [] {
    ZORA_GetInstanceName();
    return std::vector{detailLine("Returning InstanceName <inst1>\n")};
  });
}

TEST(GetInstanceName, ShowsNothingWithoutAName) {
  ZORA_SetInstanceName(nullptr);
  expectTrace("ZORA_GetInstanceName", [] {
    ZORA_GetInstanceName();
    return Lines{};
  });
}

}  // namespace
