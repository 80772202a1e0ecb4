#include "dch/web/access.h"

#include <gtest/gtest.h>

namespace dch {
namespace {

TEST(Access, AllowsHostsThatNobodyElseCanHave) {
  const Access access;
  for (const char* each : {"127.0.0.1", "127.0.0.1:1980", "10.1.2.3:80", "[::1]", "[::1]:1980",
                           "[2001:db8::1]:1", "localhost", "localhost:1980", "LOCALHOST"})
    EXPECT_TRUE(access.allowsHost(each)) << each;
}

TEST(Access, RefusesNamesThatSomebodyElseMayLeadHere) {
  const Access access{.hosts = {"monitor.example"}, .token = {}};
  for (const char* each :
       {"", ":1980", "evil.example", "localhost.evil.example", "127.0.0.1.evil.example",
        "evil.example:1980", "127.0.0.1:1980x", "127.0.0.1:", "127.1", "[::1", "::1", "[::1]x",
        "[evil]", "monitor.example.evil", "xmonitor.example", "127.0.0.1 ", "localhost:999999",
        "localhost:80:80"})
    EXPECT_FALSE(access.allowsHost(each)) << each;
}

TEST(Access, RefusesWhatOnlyBeginsWithAnAddress) {
  EXPECT_FALSE(Access().allowsHost({"127.0.0.1\0", 10}));
  EXPECT_FALSE(Access().allowsHost({"127.0.0.1\0.evil.example", 23}));
  EXPECT_FALSE(Access().allowsHost({"[::1\0]:80", 9}));
}

TEST(Access, AllowsTheHostsThatTheOperatorNamed) {
  const Access access{.hosts = {"monitor.example", "other"}, .token = {}};
  EXPECT_TRUE(access.allowsHost("monitor.example"));
  EXPECT_TRUE(access.allowsHost("Monitor.Example:1980"));
  EXPECT_TRUE(access.allowsHost("other:1"));
}

TEST(Access, WantsNoTokenWhereThereIsNone) {
  EXPECT_TRUE(Access().allowsToken("", ""));
}

TEST(Access, TakesTheTokenFromTheHeaderOrTheCookie) {
  const Access access{.hosts = {}, .token = "s3cret=/+"};
  EXPECT_TRUE(access.allowsToken("Bearer s3cret=/+", ""));
  EXPECT_TRUE(access.allowsToken("bearer  s3cret=/+ ", ""));
  EXPECT_TRUE(access.allowsToken("", "zord410_token=s3cret=/+"));
  EXPECT_TRUE(access.allowsToken("", "a=b; zord410_token=s3cret=/+; c=d"));
  EXPECT_TRUE(access.allowsToken("Bearer wrong", "zord410_token=s3cret=/+"));
}

TEST(Access, TakesTheCookieAsThePageWritesIt) {
  const Access access{.hosts = {}, .token = "s3cret=/+%3d;"};
  EXPECT_TRUE(access.allowsToken("", "zord410_token=s3cret%3D%2F%2B%253d%3B"));
  for (const char* each : {"s3cret%3D%2F%2B%253d%3", "s3cret%3D%2F%2B%3d%3B", "%", "%zz"})
    EXPECT_FALSE(access.allowsToken("", std::string("zord410_token=") + each)) << each;
}

TEST(Access, TellsWhetherATokenIsShown) {
  EXPECT_FALSE(Access::showsToken("", ""));
  EXPECT_FALSE(Access::showsToken("Basic abc", "zord410_token=; a=b"));
  EXPECT_TRUE(Access::showsToken("Bearer wrong", ""));
  EXPECT_TRUE(Access::showsToken("", "a=b; zord410_token=wrong"));
}

TEST(Access, RefusesEveryOtherToken) {
  const Access access{.hosts = {}, .token = "s3cret"};
  for (const char* each : {"", "Bearer", "Bearer ", "Bearer s3cre", "Bearer s3crets",
                           "Basic s3cret", "s3cret", "Bearers3cret", "Bearer S3CRET"})
    EXPECT_FALSE(access.allowsToken(each, "")) << each;
  for (const char* each :
       {"zord410_token", "zord410_token=", "zord410_token=s3cre", "xzord410_token=s3cret",
        "zord410_tokens3cret", "a=zord410_token=s3cret"})
    EXPECT_FALSE(access.allowsToken("", each)) << each;
}

}  // namespace
}  // namespace dch
