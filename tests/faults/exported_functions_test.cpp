// Every exported function, with each of the calls that it makes failing once in each way in which
// it can.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <optional>
#include <regex>
#include <set>

#include "tests/faults/answering_dch.h"
#include "tests/faults/scenario.h"
#include "tests/faults/walk.h"

namespace {

std::vector<Scenario> everyScenario() {
  std::vector<Scenario> all;
  for (const auto& scenarios : {providerScenarios(), consumerScenarios(), utilityScenarios()})
    all.insert(all.end(), scenarios.begin(), scenarios.end());
  return all;
}

class ExportedFunction : public testing::TestWithParam<Scenario> {
 protected:
  ExportedFunction() {
    unsetenv("ZORA_TRACE");
    unsetenv("ZORA_TRACE_FILE");
    setenv("ZOR0_PRODUCT_SPEC", "/dev/null", 1);
    setenv("ZORA_DCH_UDP_SOCKETS_IN_POOL", "2", 1);
    // A time-out of one second is the one that is reported.
    setenv("ZORA_DCH_TIMEOUT", "1", 1);
    if (hasTransport()) _dch.emplace();
    GetParam().setEnvironment();
  }

 private:
  static bool hasTransport() { return !GetParam().lastWords.empty(); }

  std::optional<AnsweringDch> _dch;
};

// The trace alone takes a lock.
TEST_P(ExportedFunction, FailsCleanlyOnItsFirstUse) {
  EXPECT_GT(walkThroughFaults(GetParam(), Use::first), 0);
}

TEST_P(ExportedFunction, FailsCleanlyLater) {
  walkThroughFaults(GetParam(), Use::later);
}

INSTANTIATE_TEST_SUITE_P(Each, ExportedFunction, testing::ValuesIn(everyScenario()),
                         [](const auto& test) { return test.param.name; });

// The function that a scenario is named after.
std::string functionOf(const Scenario& scenario) {
  static const std::regex situation("_(that_).*");
  return std::regex_replace(scenario.name, situation, "");
}

TEST(ExportedFunctions, AreAllWalkedThrough) {
  std::set<std::string> walked;
  for (const Scenario& scenario : everyScenario()) walked.insert(functionOf(scenario));
  std::set<std::string> exported;
  std::ifstream map(EXPORT_MAP);
  std::string line;
  const std::regex name("\\s+([A-Za-z_0-9]+);");
  while (std::getline(map, line) && line != "ZORD410_PRIVATE {") {
    std::smatch match;
    if (std::regex_match(line, match, name)) exported.insert(match[1]);
  }
  exported.erase("ZORA_DPTypeNames");  // a table
  EXPECT_EQ(walked, exported);
}

}  // namespace
