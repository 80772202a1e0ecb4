// The half of the channel that a server uses, with each of the calls that it makes failing once in
// each way in which it can.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>

#include "tests/faults/scenario.h"
#include "tests/faults/walk.h"

namespace {

class ServerHalf : public testing::TestWithParam<Scenario> {
 protected:
  void SetUp() override {
    // The servers of these tests are made in a way that the transport complains about.
    setenv("ZORA_TRACE", "0x80,*/DCHipc::startup=0,*/ipcSock::ipcSock=0", 1);
    unsetenv("ZORA_TRACE_FILE");
    setenv("ZOR0_PRODUCT_SPEC", "/dev/null", 1);
    // Where a fault hides the variable.
    if (access("/var/lib/zord410/product.spec", F_OK) == 0)
      GTEST_SKIP() << "this machine has product settings, which a test must not change";
    GetParam().setEnvironment();
  }
};

TEST_P(ServerHalf, FailsCleanlyOnItsFirstUse) {
  EXPECT_GT(walkThroughFaults(GetParam(), Use::first), 0);
}

TEST_P(ServerHalf, FailsCleanlyLater) {
  EXPECT_GT(walkThroughFaults(GetParam(), Use::later), 0);
}

std::string nameOfTest(const testing::TestParamInfo<Scenario>& test) {
  return test.param.name;
}

INSTANTIATE_TEST_SUITE_P(Each, ServerHalf, testing::ValuesIn(transportScenarios()), nameOfTest);
INSTANTIATE_TEST_SUITE_P(Loop, ServerHalf, testing::ValuesIn(serverScenarios()), nameOfTest);

}  // namespace
