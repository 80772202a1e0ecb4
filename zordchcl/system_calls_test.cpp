// A request costs three system calls: send, wait, receive. In particular it asks no resolver. With
// strict answers it gets a new socket before.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/process.h"
#include "tests/support/scripted_dch.h"

namespace {

using testing::AnyOf;
using testing::ElementsAre;

ProcessResult runUnderStrace(const char* program) {
  // Sanitizers that look for leaks would trace the process themselves.
  return Process("strace", {"-f", "-o", "/dev/stdout", program},
                 {{"ASAN_OPTIONS", "detect_leaks=0"}})
      .finish();
}

// "" when programs can be traced here.
std::string whyNotTraceable() {
  const ProcessResult result = runUnderStrace("/bin/true");
  if (result.exitStatus == Process::notFound) return "strace is not installed";
  return result.exitStatus == 0 ? "" : "strace cannot trace: " + result.standardError;
}

struct TracedCall {
  std::string thread;
  std::string name;
};

// Lines are "THREAD NAME(ARGUMENTS) = RESULT". Of a call that another thread interrupts only the
// first half counts.
std::vector<TracedCall> callsIn(const std::string& trace) {
  std::vector<TracedCall> calls;
  std::istringstream lines(trace);
  for (std::string line; std::getline(lines, line);) {
    TracedCall call;
    std::istringstream(line) >> call.thread >> call.name;
    if (call.name.starts_with("<...")) continue;
    call.name = call.name.substr(0, call.name.find('('));
    calls.push_back(call);
  }
  return calls;
}

// The calls of the marking thread between its two marks.
std::vector<std::string> callsBetweenMarks(const std::string& trace) {
  std::vector<std::string> between;
  std::string thread;
  for (const TracedCall& call : callsIn(trace)) {
    if (call.name == "getppid") {
      if (!thread.empty()) return between;
      thread = call.thread;
    } else if (call.thread == thread) {
      between.push_back(call.name);
    }
  }
  ADD_FAILURE() << "the marks are not in the trace";
  return between;
}

const auto waiting = AnyOf("select", "pselect6", "_newselect", "pselect6_time64");

std::vector<std::string> callsOfARow() {
  const ProcessResult result = runUnderStrace(SYSTEM_CALLS_PROGRAM);
  EXPECT_EQ(result.exitStatus, 0) << result.standardError;
  return callsBetweenMarks(result.standardOutput);
}

void expectThreeCalls() {
  EXPECT_THAT(callsOfARow(), ElementsAre("sendto", waiting, "recvfrom"));
}

class SystemCalls : public testing::Test {
 protected:
  void SetUp() override {
    const std::string reason = whyNotTraceable();
    if (!reason.empty()) GTEST_SKIP() << reason;
  }

  const ScriptedDch dch{always(statusAnswer(0))};
};

TEST_F(SystemCalls, ARequestToADottedAddressMakesThree) {
  expectThreeCalls();
}

TEST_F(SystemCalls, ARequestToLocalhostMakesThree) {
  setenv("ZORA_DCH_ADDR", "localhost", 1);
  expectThreeCalls();
}

TEST_F(SystemCalls, ARequestToTheDefaultHostMakesThree) {
  unsetenv("ZORA_DCH_ADDR");
  expectThreeCalls();
}

TEST_F(SystemCalls, ARequestWithStrictAnswersMakesFourMore) {
  setenv("ZOR0_STRICT_ANSWERS", "Y", 1);
  EXPECT_THAT(callsOfARow(),
              ElementsAre("socket", "dup3", "close", "getsockname", "sendto", waiting, "recvfrom"));
}

}  // namespace
