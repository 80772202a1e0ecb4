#include "dch/web/request_target.h"

#include <gtest/gtest.h>

#include <functional>

#include "dch/web/web_error.h"

namespace dch {
namespace {

// The sentence of the error that it throws, which has status 400; "none" without one.
std::string complaintOf(const std::function<void()>& call) {
  try {
    call();
  } catch (const WebError& error) {
    EXPECT_EQ(400, error.status());
    return error.what();
  }
  return "none";
}

TEST(RequestTarget, IsDividedAtTheFirstQuestionMark) {
  const RequestTarget target = parseTarget("/api/rows?group=a?b");
  EXPECT_EQ("/api/rows", target.path);
  EXPECT_EQ("group=a?b", target.query);
  EXPECT_EQ("", parseTarget("/").query);
}

TEST(RequestTarget, HasToBeAnAddressOfThisServer) {
  EXPECT_EQ("the address has to begin with /, and 'http://other/' does not",
            complaintOf([] { parseTarget("http://other/"); }));
  EXPECT_EQ("the address has to begin with /, and '*' does not",
            complaintOf([] { parseTarget("*"); }));
  EXPECT_NE("none", complaintOf([] { parseTarget(""); }));
}

TEST(Parameters, AreDecoded) {
  const Parameters parameters("application=A%20b+c&group=%C3%A4%00%ff&source=&status");
  EXPECT_EQ("A b c", parameters.get("application"));
  EXPECT_EQ(std::string_view("\xC3\xA4\0\xFF", 4), parameters.get("group"));
  EXPECT_EQ("", parameters.get("source"));
  EXPECT_TRUE(parameters.flag("status"));
  EXPECT_FALSE(parameters.flag("limit"));
  EXPECT_EQ(std::nullopt, parameters.find("limit"));
}

TEST(Parameters, MayBeNoneAtAll) {
  for (const char* each : {"", "&", "&&"}) Parameters(each).allow({});
}

TEST(Parameters, AreRefusedWhenTheyCannotBeDecoded) {
  for (const char* each : {"a=%", "a=%4", "a=%4g", "a=%g4", "%zz=1", "a=1&b=%%"})
    EXPECT_NE("none", complaintOf([each] { Parameters{each}; })) << each;
}

TEST(Parameters, AreThereOnce) {
  EXPECT_EQ("parameter 'limit' is there twice", complaintOf([] { Parameters("limit=1&limit=2"); }));
  EXPECT_EQ("parameter 'limit' is there twice",
            complaintOf([] { Parameters("limit=1&%6cimit=2"); }));
}

TEST(Parameters, AreRefusedWhenNobodyKnowsThem) {
  EXPECT_EQ("unknown parameter 'x'; known are application, group", complaintOf([] {
              Parameters("group=1&x=2").allow({"application", "group"});
            }));
  EXPECT_EQ("unknown parameter 'x'; there are none here",
            complaintOf([] { Parameters("x").allow({}); }));
  EXPECT_EQ("unknown parameter '\\x0a'; there are none here",
            complaintOf([] { Parameters("%0a=1").allow({}); }));
}

TEST(Parameters, ThatAreNeededHaveToBeThere) {
  EXPECT_EQ("parameter 'group' is missing",
            complaintOf([] { static_cast<void>(Parameters("a=1").get("group")); }));
}

TEST(Parameters, AreNumbersInTheirRange) {
  EXPECT_EQ(5, Parameters("n=5").number("n", 1, 9));
  EXPECT_EQ(std::nullopt, Parameters("").number("n", 1, 9));
  for (const char* each :
       {"n=0", "n=10", "n=", "n=-1", "n=1x", "n=+1", "n=1.0", "n=99999999999999999999", "n"})
    EXPECT_NE("none",
              complaintOf([each] { static_cast<void>(Parameters(each).number("n", 1, 9)); }))
        << each;
}

TEST(Parameters, ThatAreFlagsTakeNoValue) {
  EXPECT_EQ("'status' takes no value",
            complaintOf([] { static_cast<void>(Parameters("status=1").flag("status")); }));
}

TEST(Shown, IsPrintableAndNotTooLong) {
  EXPECT_EQ("'a\\x00b'", shown(std::string_view("a\0b", 3)));
  EXPECT_EQ("'" + std::string(60, 'x') + "...'", shown(std::string(1'000, 'x')));
}

}  // namespace
}  // namespace dch
