// The collection server's requests, with each of the calls that they make failing once in each way
// in which it can.
#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/faults/scenario.h"
#include "tests/faults/walk.h"

namespace {

class CollectionServer : public testing::TestWithParam<Scenario> {
 protected:
  CollectionServer() {
    unsetenv("ZORA_TRACE");
    unsetenv("ZORA_TRACE_FILE");
    setenv("ZOR0_PRODUCT_SPEC", "/dev/null", 1);
  }
};

TEST_P(CollectionServer, LosesNothingByAFault) {
  EXPECT_GT(walkThroughFaults(GetParam(), Use::later), 0);
}

INSTANTIATE_TEST_SUITE_P(Each, CollectionServer, testing::ValuesIn(collectionServerScenarios()),
                         [](const auto& test) { return test.param.name; });

}  // namespace
