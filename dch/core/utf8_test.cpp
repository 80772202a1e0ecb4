#include "dch/core/utf8.h"

#include <gtest/gtest.h>

namespace dch {
namespace {

TEST(Utf8, TakesCharactersOfEachLength) {
  EXPECT_TRUE(isUtf8(""));
  EXPECT_TRUE(isUtf8("a\x7F"));
  EXPECT_TRUE(isUtf8("\xC2\x80\xDF\xBF"));
  EXPECT_TRUE(isUtf8("\xE0\xA0\x80\xEF\xBF\xBF"));
  EXPECT_TRUE(isUtf8("\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"));
}

TEST(Utf8, RefusesWhatIsOverlongASurrogateTooHighOrCut) {
  for (const char* each : {"\x80", "\xC1\xBF", "\xE0\x9F\xBF", "\xED\xA0\x80", "\xF0\x8F\xBF\xBF",
                           "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xC2", "\xE2\x82", "a\xFF"})
    EXPECT_FALSE(isUtf8(each)) << testing::PrintToString(each);
}

TEST(Utf8, ReplacesEachByteThatIsNoPartOfACharacter) {
  EXPECT_EQ(
      "a\xEF\xBF\xBD\xEF\xBF\xBD"
      "b",
      asUtf8("a\xE2\x82"
             "b"));
  EXPECT_EQ("\xC3\xA4", asUtf8("\xC3\xA4"));
}

}  // namespace
}  // namespace dch
