// Actions, deferral and the reserved entry points without memory for their client.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/failing_calls.h"
#include "tests/support/scripted_dch.h"
#include "zordchcl/test_lines.h"
#include "zordchcl/zordchcl.h"

namespace {

using testing::IsEmpty;

// Every class of a function that has no client: `lines`, and nothing is sent.
void expectWithoutClient(const std::string& function, const std::function<void()>& call,
                         const Lines& lines) {
  const ScriptedDch dch(never());
  expectTrace(function, [&] {
    const NoMemory failing;
    call();
    return lines;
  });
  EXPECT_THAT(dch.requests(), IsEmpty());
}

const TraceLine noClient = errorLine("Error: allocating DCHclient.\n");
const TraceLine notInstantiated = errorLine("Error: failed to instantiate DCHclient.\n");

TEST(WithoutAClient, AnActionFailsWithoutASecondLine) {
  expectWithoutClient(
      "dc_provideAction",
      [] { EXPECT_EQ(dc_provideAction(3, "owner", "node", "sub", "act", 17, "parms"), 1); },
      {entryLine(), noClient, exitLine(1)});
}

TEST(WithoutAClient, TheResultsOfAnActionAreOne) {
  expectWithoutClient("dc_waitForActionResults", [] { EXPECT_EQ(dc_waitForActionResults(17), 1); },
                      {entryLine(), noClient, exitLine(1)});
}

TEST(WithoutAClient, ADeferralCountsAsMade) {
  expectWithoutClient(
      "dc_deferReportRequest",
      [] { EXPECT_EQ(dc_deferReportRequest(nullptr, 17, 1, "HMN", "table", "hostA"), 0); },
      {entryLine(), noClient, exitLine(0)});
}

TEST(WithoutAClient, AProviderCannotWaitForAnAction) {
  expectWithoutClient("dp_waitForAction", [] { dp_waitForAction(17); },
                      {entryLine(), notInstantiated, exitLine()});
}

TEST(WithoutAClient, AProviderCannotGiveResults) {
  expectWithoutClient("dp_provideActionResults", [] { dp_provideActionResults(17, 0); },
                      {entryLine(), notInstantiated, exitLine()});
}

TEST(WithoutAClient, AShutdownDoesNothing) {
  for (const char* function : {"DCH_shutdown", "DCHclient::shutdown"})
    expectWithoutClient(function, [] { DCH_shutdown(1); }, {});
}

}  // namespace
