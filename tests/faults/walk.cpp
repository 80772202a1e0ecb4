#include "tests/faults/walk.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <optional>
#include <sstream>

#include "tests/faults/fault_table.h"
#include "tests/support/failing_calls.h"
#include "tests/support/process.h"
#include "zordsock/settings.h"

// There only in a program that is built to look for leaks. It reports them on standard error.
extern "C" [[gnu::weak]] int __lsan_do_recoverable_leak_check();

// The thread sanitizer's settings, in a program that has it: a process that a fault ends neither
// waits for its other threads nor joins them.
extern "C" const char* __tsan_default_options();
extern "C" const char* __tsan_default_options() {
  return "atexit_sleep_ms=0:report_thread_leaks=0";
}

namespace {

// ---- In the child ----------------------------------------------------------------------------

constexpr unsigned longestRunSeconds = 30;

int openDescriptors() {
  const std::filesystem::directory_iterator folder("/proc/self/fd");
  return static_cast<int>(std::distance(begin(folder), end(folder)));
}

// The pool keeps its sockets for the life of the process.
int pooledSockets() {
  int count = 0;
  for (int i = 0; zordsock::_UDPSockList != nullptr && i < zordsock::_envDCHUDPSocks; ++i)
    if (zordsock::_UDPSockList[i].sockUDP >= 0) ++count;
  return count;
}

// Sockets of the pool that are marked as taken, with nobody left who would give them back.
int takenSockets() {
  int count = 0;
  for (int i = 0; zordsock::_UDPSockList != nullptr && i < zordsock::_envDCHUDPSocks; ++i)
    count += zordsock::_UDPSockList[i].inUse;
  return count;
}

struct Observed {
  char outcome[100] = "";
  char outcomeOfNext[100] = "";
  bool wasReached = false;
  int newDescriptors = 0;
  long newAllocations = 0;
  int mutexesHeld = 0;
  int takenSockets = 0;
  int pooledSockets = 0;
  bool leaks = false;
};

bool canBeCalledAgain(const Scenario& scenario, const Fault& fault, const Observed& observed) {
  // Settings are read once per process: one that could not be read is missing for good.
  if (fault.call == SystemCall::getEnvironment && observed.outcome != scenario.success)
    return false;
  // With every socket taken for good, who comes next would wait for ever.
  return observed.pooledSockets == 0 || observed.takenSockets < observed.pooledSockets;
}

void runInto(char (&outcome)[100], const Scenario& scenario) {
  const std::string text = scenario.run();
  std::snprintf(outcome, sizeof outcome, "%s", text.c_str());
}

Observed observe(const Scenario& scenario, const Fault& fault, bool looksForLeaks) {
  Observed observed;
  const int descriptors = openDescriptors() - pooledSockets();
  const long allocations = liveAllocations();
  runInto(observed.outcome, scenario);
  observed.newAllocations = liveAllocations() - allocations;
  observed.newDescriptors = openDescriptors() - pooledSockets() - descriptors;
  observed.mutexesHeld = mutexesHeld();
  observed.takenSockets = takenSockets();
  observed.pooledSockets = pooledSockets();
  observed.wasReached = faultHappened();
  if (looksForLeaks && __lsan_do_recoverable_leak_check != nullptr)
    observed.leaks = __lsan_do_recoverable_leak_check() != 0;
  planNoFault();
  if (canBeCalledAgain(scenario, fault, observed)) runInto(observed.outcomeOfNext, scenario);
  return observed;
}

// ---- Between the two -------------------------------------------------------------------------

void print(const Observed& observed) {
  std::printf("%s\n%s\n%d %d %ld %d %d %d %d\n", observed.outcome, observed.outcomeOfNext,
              observed.wasReached, observed.newDescriptors, observed.newAllocations,
              observed.mutexesHeld, observed.takenSockets, observed.pooledSockets, observed.leaks);
}

// Nothing when the child did not come to its end.
std::optional<Observed> observedBy(const ProcessResult& child) {
  Observed observed;
  std::istringstream text(child.standardOutput);
  text.getline(observed.outcome, sizeof observed.outcome);
  text.getline(observed.outcomeOfNext, sizeof observed.outcomeOfNext);
  text >> observed.wasReached >> observed.newDescriptors >> observed.newAllocations >>
      observed.mutexesHeld >> observed.takenSockets >> observed.pooledSockets >> observed.leaks;
  if (!text || child.exitStatus != EXIT_SUCCESS) return std::nullopt;
  return observed;
}

// ---- In the test -----------------------------------------------------------------------------

bool says(const ProcessResult& child, const std::string& text) {
  return child.standardError.find(text) != std::string::npos;
}

class Walk {
 public:
  Walk(const Scenario& scenario, Use use) : _scenario(scenario), _use(use) {}

  int walk() {
    if (_use == Use::later) {
      planNoFault();
      EXPECT_EQ(_scenario.run(), _scenario.success);
    }
    const std::vector<int> calls = countCalls();
    for (int i = 0; i < systemCallCount && !::testing::Test::HasFailure(); ++i)
      if (calls[static_cast<std::size_t>(i)] > 0) walkThrough(static_cast<SystemCall>(i));
    return _reached;
  }

 private:
  ProcessResult runChild(const Fault& fault, bool looksForLeaks) const {
    planFault(fault);
    return runInChild([&] {
      alarm(longestRunSeconds);
      print(observe(_scenario, fault, looksForLeaks));
      return EXIT_SUCCESS;
    });
  }

  // How often the scenario makes each call when none fails.
  std::vector<int> countCalls() const {
    planNoFault();
    const ProcessResult child = runInChild([&] {
      alarm(longestRunSeconds);
      return _scenario.run() == _scenario.success ? EXIT_SUCCESS : EXIT_FAILURE;
    });
    EXPECT_EQ(child.exitStatus, EXIT_SUCCESS) << "without a fault\n" << child.standardError;
    std::vector<int> calls;
    for (int i = 0; i < systemCallCount; ++i)
      calls.push_back(callsMade(static_cast<SystemCall>(i)));
    return calls;
  }

  void walkThrough(SystemCall call) {
    for (int number = 1; failInEveryWay(call, number); ++number) ASSERT_LT(number, 1000);
  }

  // The code takes one way whatever the error is, so one of them is enough to look for leaks, and
  // where a walk is dear; but the first use alone opens the pool's sockets.
  bool failInEveryWay(SystemCall call, int number) {
    const std::vector<Failing>& failures = failuresOf(call);
    const bool isShort = _use == Use::first && call != SystemCall::openSocket &&
                         call != SystemCall::bindSocket && _scenario.name != "dp_cancel";
    for (std::size_t i = 0; i < failures.size() && (i == 0 || !isShort); ++i) {
      const Fault fault{call, number, failures[i].error, failures[i].errnoAfter};
      const bool looksForLeaks = i == 0;
      if (!check(fault, runChild(fault, looksForLeaks))) return false;
      _reached += 1;
    }
    return true;
  }

  // Whether the fault was reached.
  bool check(const Fault& fault, const ProcessResult& child) const {
    SCOPED_TRACE(_scenario.name + ": " + describe(fault) + "\n" + child.standardError);
    EXPECT_GE(child.exitStatus, 0) << "a signal ended it";
    EXPECT_FALSE(says(child, "Sanitizer") || says(child, "runtime error"));
    const std::optional<Observed> observed = observedBy(child);
    if (!observed) {
      EXPECT_FALSE(_scenario.lastWords.empty()) << "the process ended";
      EXPECT_EQ(child.exitStatus, EXIT_FAILURE);
      EXPECT_TRUE(says(child, _scenario.lastWords));
      return faultHappened();
    }
    checkOutcome(fault, *observed, child);
    checkLeftovers(fault, *observed);
    return observed->wasReached;
  }

  void checkOutcome(const Fault& fault, const Observed& observed,
                    const ProcessResult& child) const {
    const std::string outcome = observed.outcome;
    if (canBeCalledAgain(_scenario, fault, observed)) {
      EXPECT_EQ(observed.outcomeOfNext, _scenario.success) << "when it was called again";
    }
    if (outcome == _scenario.success) return;
    if (fault.call == SystemCall::getEnvironment && outcome == _scenario.withoutSetting) return;
    EXPECT_TRUE(observed.wasReached) << "failed without a fault";
    for (const Failure& failure : _scenario.failures) {
      if (outcome != failure.outcome) continue;
      const bool mayBeSilent =
          failure.silent == Silent::always ||
          (failure.silent == Silent::withoutMemory && fault.call == SystemCall::memory);
      const bool isTold = std::any_of(failure.lines.begin(), failure.lines.end(),
                                      [&](const std::string& line) { return says(child, line); });
      EXPECT_TRUE(mayBeSilent || isTold) << "failed without an error line: " << outcome;
      return;
    }
    ADD_FAILURE() << "not an outcome of this function: " << outcome;
  }

  void checkLeftovers(const Fault& fault, const Observed& observed) const {
    EXPECT_EQ(observed.mutexesHeld, 0);
    EXPECT_FALSE(observed.leaks);
    // Without the pool's lock the socket cannot be given back.
    if (fault.call != SystemCall::lockMutex) {
      EXPECT_EQ(observed.takenSockets, 0) << "in the pool";
    }
    const bool wentWell = observed.outcome == _scenario.success;
    EXPECT_LE(observed.newDescriptors, wentWell ? 0 : _scenario.descriptorsLeft);
    EXPECT_GE(observed.newDescriptors, 0);
    // What is made once per process is there later; where a setting is missing, another thing is.
    if (_use == Use::first || fault.call == SystemCall::getEnvironment) return;
    EXPECT_LE(observed.newAllocations, wentWell ? 0 : _scenario.allocationsLeft);
    EXPECT_GE(observed.newAllocations, 0);
  }

  const Scenario& _scenario;
  const Use _use;
  int _reached = 0;
};

}  // namespace

int walkThroughFaults(const Scenario& scenario, Use use) {
  const int reached = Walk(scenario, use).walk();
  ::testing::Test::RecordProperty("faults", reached);
  return reached;
}
