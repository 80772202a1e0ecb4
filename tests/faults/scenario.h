// scenario.h: one use of an exported function, for the walk through its faults.
#ifndef TESTS_FAULTS_SCENARIO_H
#define TESTS_FAULTS_SCENARIO_H

#include <ostream>
#include <string>
#include <vector>

#include "tests/support/fault_plan.h"
#include "zora/zora.h"

// When a failed call keeps to itself why it failed.
enum class Silent { never, withoutMemory, always };

// What may come of a call in which something failed. An error line tells why.
struct Failure {
  const char* outcome;
  Silent silent = Silent::never;
};

struct Scenario {
  std::string name;  // of the function, and of the situation where there is more than one
  // Prepares what the function needs, calls it by tested(), and gives back everything that the call
  // gave. Returns what came of it as text. It is run several times in one
  // process.
  std::string (*run)();
  std::string success;
  std::vector<Failure> failures = {};
  // A transport that cannot be set up ends the process, with exit status 1.
  bool mayEndProcess = false;
  // A subscription that failed stays alive, with its two sockets.
  bool leavesItsClient = false;
  // What comes of it, for good, when a setting that it reads once per process could not be read.
  std::string withoutSetting = {};
  // Settings, before the process uses the library.
  void (*setEnvironment)() = [] {};
};

// For the messages of the tests.
void PrintTo(const Scenario& scenario, std::ostream* out);

// Runs `call` under test, and it alone, and returns its result.
template <class Call>
auto tested(Call call) {
  const UnderTest scope;
  return call();
}

// The status variable before the call.
constexpr ZORA_Long untouched = -815;

// "0 status 5", "1 status untouched".
std::string outcomeOf(int result, ZORA_Long status);

std::vector<Scenario> providerScenarios();
std::vector<Scenario> consumerScenarios();
std::vector<Scenario> utilityScenarios();

// All of them.
std::vector<Scenario> everyScenario();

#endif  // TESTS_FAULTS_SCENARIO_H
