// Which classes the rules of the trace switch on.
#include <algorithm>

#include "suite/trc1_test.h"

namespace {

using testing::HasSubstr;

TEST(TraceRules, WithoutAnyOnlyErrorsAreTraced) {
  unsetenv("ZORA_TRACE");
  EXPECT_TRUE(hasFlags(&ipcRead, 0x80));
}

TEST(TraceRules, AreReadFromTheEnvironmentAtFirstUse) {
  setenv("ZORA_TRACE", "0x10", 1);
  EXPECT_TRUE(hasFlags(&ipcRead, 0x10));
  setenv("ZORA_TRACE", "0x40", 1);
  EXPECT_TRUE(hasFlags(&dpOnline, 0x10));
}

TEST(TraceRules, SetBeforeTheFirstUseWinOverTheEnvironment) {
  setenv("ZORA_TRACE", "0x10", 1);
  TRC1_Configure("0x40");
  EXPECT_TRUE(hasFlags(&ipcRead, 0x40));
}

TEST(TraceRules, ABareMaskIsForAllFunctions) {
  TRC1_Configure("64");
  EXPECT_TRUE(hasFlags(&ipcRead, 0x40));
  EXPECT_TRUE(hasFlags(&dpOnline, 0x40));
}

TEST(TraceRules, MasksAreDecimalOrHexadecimal) {
  TRC1_Configure("*=16,zordchcl/*=0x1F");
  EXPECT_TRUE(hasFlags(&ipcRead, 0x10));
  EXPECT_TRUE(hasFlags(&dpOnline, 0x1F));
  TRC1_Configure("*=010");
  EXPECT_TRUE(hasFlags(&ipcRead, 10));
}

TEST(TraceRules, PatternsAreGlobsOverUnitAndFunction) {
  TRC1_Configure("zordsock/*=0x10");
  EXPECT_TRUE(hasFlags(&ipcRead, 0x10));
  EXPECT_TRUE(hasFlags(&dpOnline, 0x80));
  TRC1_Configure("*/ipcSock::ipc[R]ead=0x04");
  EXPECT_TRUE(hasFlags(&ipcRead, 0x04));
  EXPECT_TRUE(hasFlags(&ipcWrite, 0x80));
  TRC1_Configure("zordchcl/dp_onlin?=0x02");
  EXPECT_TRUE(hasFlags(&dpOnline, 0x02));
}

TEST(TraceRules, AStarMatchesTheSlashToo) {
  TRC1_Configure("zord*ipcRead=0x10");
  EXPECT_TRUE(hasFlags(&ipcRead, 0x10));
}

TEST(TraceRules, APatternMustMatchTheWholeName) {
  TRC1_Configure("zordsock=0x10,ipcSock::ipcRead=0x10,zordsock/ipcSock::ipc=0x10");
  EXPECT_TRUE(hasFlags(&ipcRead, 0x80));
}

TEST(TraceRules, TheLastMatchWins) {
  TRC1_Configure("zordsock/*=0x10,*/ipcSock::ipcRead=0x40");
  EXPECT_TRUE(hasFlags(&ipcRead, 0x40));
  EXPECT_TRUE(hasFlags(&ipcWrite, 0x10));
  TRC1_Configure("*/ipcSock::ipcRead=0x40,zordsock/*=0x10,zordchcl/*=0");
  EXPECT_TRUE(hasFlags(&ipcRead, 0x10));
  EXPECT_TRUE(hasFlags(&dpOnline, 0));
}

TEST(TraceRules, BlanksAroundTheirPartsDoNotCount) {
  TRC1_Configure(" zordsock/* = 0x10 , , zordchcl/* = 2 ,");
  EXPECT_TRUE(hasFlags(&ipcRead, 0x10));
  EXPECT_TRUE(hasFlags(&dpOnline, 2));
}

TEST(TraceRules, NullMeansNone) {
  TRC1_Configure("0x10");
  TRC1_Configure(nullptr);
  EXPECT_TRUE(hasFlags(&ipcRead, 0x80));
}

TEST(TraceRules, ABadRuleIsNamedOnceAndSkipped) {
  testing::internal::CaptureStderr();
  TRC1_Configure("zordsock/*=0x10,bad/rule=abc,zordchcl/*=0x40");
  EXPECT_TRUE(hasFlags(&ipcRead, 0x10));
  EXPECT_TRUE(hasFlags(&ipcWrite, 0x10));
  EXPECT_TRUE(hasFlags(&dpOnline, 0x40));
  const std::string said = testing::internal::GetCapturedStderr();
  EXPECT_THAT(said, HasSubstr("<bad/rule=abc>"));
  EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1) << said;
}

TEST(TraceRules, EveryKindOfBadMaskIsNamed) {
  for (const char* rule :
       {"zordsock/*", "a=", "a=-1", "a=0x", "a=12x", "a=0x1FFFFFFFF", "a=0x 10"}) {
    testing::internal::CaptureStderr();
    TRC1_Configure(rule);
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("<" + std::string(rule) + ">"));
    EXPECT_TRUE(hasFlags(&ipcRead, 0x80)) << rule;
  }
}

TEST(TraceRules, ChangeWhileTheProcessRuns) {
  TRC1_Configure("0x10");
  EXPECT_TRUE(hasFlags(&ipcRead, 0x10));
  TRC1_Configure("0x40");
  EXPECT_TRUE(hasFlags(&ipcRead, 0x40));
  // A unit that is first seen after a change.
  EXPECT_TRUE(hasFlags(&dpOnline, 0x40));
  TRC1_Configure("0x04");
  EXPECT_TRUE(hasFlags(&ipcRead, 0x04));
  EXPECT_TRUE(hasFlags(&dpOnline, 0x04));
}

}  // namespace
