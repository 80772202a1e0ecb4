// scenario.h: one use of an exported function, for the walk through its faults.
#ifndef TESTS_FAULTS_SCENARIO_H
#define TESTS_FAULTS_SCENARIO_H

#include <ostream>
#include <string>
#include <vector>

#include "tests/support/failing_calls.h"
#include "zora/zora.h"

// When a failed call may keep to itself why it failed.
enum class Silent { never, withoutMemory, always };

// What may come of a call in which something failed.
struct Failure {
  std::string outcome;
  std::vector<std::string> lines = {};  // one of these, or its beginning, is told in the trace
  Silent silent = Silent::never;
};

struct Scenario {
  // Of the function, with "_that_..." or "_with_..." behind it where it has more than one.
  std::string name;
  // Prepares what the function needs, calls it by tested(), and gives back everything that the call
  // gave. Returns what came of it as text. It is run several times in one
  // process.
  std::string (*run)();
  std::string success;
  std::vector<Failure> failures = {};
  // What a process says that ends with exit status 1, when a fault may end it.
  std::string lastWords = {};
  // What a call that did not go well may leave behind by design.
  int descriptorsLeft = 0;
  int allocationsLeft = 0;
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

// The last words of a process that cannot set up a client's transport.
constexpr char noTransportAtAll[] = "Error: DCH Client cannot continue.";

// "0 status 5", "1 status untouched".
std::string outcomeOf(int result, ZORA_Long status);

std::vector<Scenario> providerScenarios();
std::vector<Scenario> consumerScenarios();
std::vector<Scenario> utilityScenarios();
std::vector<Scenario> transportScenarios();
std::vector<Scenario> serverScenarios();
std::vector<Scenario> collectionServerScenarios();

#endif  // TESTS_FAULTS_SCENARIO_H
