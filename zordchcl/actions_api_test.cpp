// The exported functions for actions and deferral: what the caller gets, and the scope around the
// request.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <thread>

#include "tests/support/bytes.h"
#include "tests/support/scripted_dch.h"
#include "tests/support/trace_capture.h"
#include "zordchcl/test_lines.h"
#include "zordchcl/zordchcl.h"

namespace {

using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::Ge;
using testing::Le;

int provide() {
  return dc_provideAction(3, "owner", "node", "sub", "act", 17, "quiet");
}

int defer() {
  return dc_deferReportRequest(nullptr, 17, 1900000000, "HMN", "table", "hostA");
}

// Only the library's own error lines: the end of a client over local procedure calls has one too.
const char* const errorsOfRequests = "0,*/dc_*=0x80,*/DCHclient::dc_*=0x80";

TEST(ProvideActionApi, SendsTheRequestAndReturnsAtOnce) {
  const ScriptedDch dch(never());
  expectTrace("dc_provideAction", [] {
    EXPECT_EQ(provide(), 0);
    return Lines{entryLine(), exitLine(0)};
  });
  EXPECT_THAT(dch.waitForRequests(7),
              Each(bytesOf("00000055 0010 00000002 2080 0100 00000002 0003 0150 00000006 'owner' 00"
                           "0022 00000005 'node' 00 0022 00000004 'sub' 00 0110 00000004 'act' 00"
                           "0120 00000004 00000011 0130 00000006 'quiet' 00")));
}

TEST(ProvideActionApi, ReportsAFailure) {
  setenv("ZORA_DCH_IPCTYPE", "2", 1);
  expectTrace("dc_provideAction", [] {
    EXPECT_EQ(provide(), 1);
    return Lines{entryLine(), errorLine("Error: dc_provideAction failed.\n"), exitLine(1)};
  });
  const TraceCapture trace(errorsOfRequests);
  EXPECT_EQ(provide(), 1);
  EXPECT_THAT(trace.texts(), ElementsAre("Error: writing dc_provideAction message to DCHserver\n",
                                         "Error: dc_provideAction failed.\n"));
}

TEST(ActionResultsApi, AreWhateverTheDchAnswers) {
  // The action's number says what its result is.
  const ScriptedDch dch([](const std::string& request) {
    return std::vector<std::string>{bytesOf("0000000e 0011 00000004") + request.substr(18, 4)};
  });
  for (const ZORA_Long result : {0, 1, -1, 42, -2147483647}) {
    expectTrace("dc_waitForActionResults", [&] {
      EXPECT_EQ(dc_waitForActionResults(result), result);
      return Lines{entryLine(), exitLine(result)};
    });
  }
}

TEST(ActionResultsApi, OfAMalformedAnswerAreNone) {
  const ScriptedDch dch(always(bytesOf("0000000c 0020 00000002 'A' 00")));
  expectTrace("dc_waitForActionResults", [] {
    EXPECT_EQ(dc_waitForActionResults(17), -1);
    return Lines{entryLine(), exitLine(-1)};
  });
}

TEST(ActionResultsApi, OfDatagramsThatAreNoMessagesAreNone) {
  const std::string datagrams[] = {
      "",                                          // no byte
      bytesOf("00"),                               // less than a length word
      bytesOf("00000000"),                         // the length word of nothing
      bytesOf("00000004 0011 00000004 00000001"),  // more than announced
      bytesOf("0000000e 0011 fffffff0 00000001"),  // a field that goes far beyond
  };
  // The action's number says which one is wanted.
  const ScriptedDch dch([&](const std::string& request) {
    return std::vector<std::string>{datagrams[static_cast<std::size_t>(request.at(21))]};
  });
  for (ZORA_Long i = 0; i < 5; ++i) EXPECT_EQ(dc_waitForActionResults(i), -1);
  EXPECT_EQ(dch.requests().size(), 5u);
}

// The result of a wait for action results, and how long it took.
struct TimedResults {
  TimedResults() {
    const auto start = std::chrono::steady_clock::now();
    result = dc_waitForActionResults(17);
    seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  }
  ZORA_Long result;
  double seconds;
};

TEST(ActionResultsApi, AreAwaitedAsLongAsAnyAnswer) {
  setenv("ZORA_DCH_TIMEOUT", "1", 1);
  const ScriptedDch dch(never());
  const TraceCapture trace(errorsOfRequests);
  const TimedResults timed;
  EXPECT_EQ(timed.result, -1);
  EXPECT_THAT(timed.seconds, AllOf(Ge(1.0), Le(5.0)));
  EXPECT_THAT(trace.texts(), ElementsAre("Error: ipcRead with wait[1 second] failed\n"));
}

TEST(ActionResultsApi, AreNotReportedAfterALongerTimeout) {
  setenv("ZORA_DCH_TIMEOUT", "2", 1);
  const ScriptedDch dch(never());
  const TraceCapture trace(errorsOfRequests);
  const TimedResults timed;
  EXPECT_EQ(timed.result, -1);
  EXPECT_THAT(timed.seconds, AllOf(Ge(2.0), Le(6.0)));
  EXPECT_THAT(trace.texts(), testing::IsEmpty());
}

// A datagram to the broadcast address is refused: the socket has not asked for it.
TEST(ActionResultsApi, AreAwaitedEvenWhenTheRequestDidNotGoOut) {
  setenv("ZORA_DCH_ADDR", "255.255.255.255", 1);
  setenv("ZORA_DCH_TIMEOUT", "1", 1);
  const TraceCapture trace(errorsOfRequests);
  const TimedResults timed;
  EXPECT_EQ(timed.result, -1);
  EXPECT_THAT(timed.seconds, AllOf(Ge(1.0), Le(5.0)));
  EXPECT_THAT(trace.texts(),
              ElementsAre("Error: writing dc_waitForActionResults message to DCHserver\n",
                          "Error: ipcRead with wait[1 second] failed\n"));
}

TEST(ActionResultsApi, OfManyThreadsDoNotMix) {
  const ScriptedDch dch([](const std::string& request) {
    return std::vector<std::string>{bytesOf("0000000e 0011 00000004") + request.substr(18, 4)};
  });
  std::vector<int> mixed(4, 0);
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < mixed.size(); ++i) {
    threads.emplace_back([&mixed, i] {
      for (ZORA_Long round = 0; round < 30; ++round) {
        const ZORA_Long actionID = static_cast<ZORA_Long>(i) * 1000 + round;
        if (dc_waitForActionResults(actionID) != actionID) ++mixed[i];
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(mixed, ElementsAre(0, 0, 0, 0));
}

TEST(DeferReportApi, SendsTheRequestAndReturnsAtOnce) {
  const ScriptedDch dch(never());
  expectTrace("dc_deferReportRequest", [] {
    EXPECT_EQ(defer(), 0);
    return Lines{entryLine(), exitLine(0)};
  });
  EXPECT_THAT(dch.waitForRequests(7),
              Each(bytesOf("0000004c 0010 00000002 20a0 0120 00000004 00000011"
                           "0170 00000004 00000000 0160 00000004 713fb300"
                           "0021 00000004 'HMN' 00 0024 00000006 'table' 00"
                           "0022 00000006 'hostA' 00")));
}

TEST(DeferReportApi, LeavesTheReportOfAFailureToTheRequest) {
  setenv("ZORA_DCH_IPCTYPE", "2", 1);
  expectTrace("dc_deferReportRequest", [] {
    EXPECT_EQ(defer(), 1);
    return Lines{entryLine(), exitLine(1)};
  });
  const TraceCapture trace(errorsOfRequests);
  EXPECT_EQ(defer(), 1);
  EXPECT_THAT(trace.texts(),
              ElementsAre("Error: writing dc_deferReportRequest message to DCHserver"));
}

TEST(ActionsApi, GiveTheirPooledSocketBack) {
  setenv("ZORA_DCH_UDP_SOCKETS_IN_POOL", "1", 1);
  const ScriptedDch dch([](const std::string& request) {
    const bool isAnswered = request.substr(10, 2) == bytesOf("2090");
    return std::vector<std::string>(isAnswered ? 1 : 0, statusAnswer(7));
  });
  for (int round = 0; round < 3; ++round) {
    EXPECT_EQ(provide(), 0);
    EXPECT_EQ(dc_waitForActionResults(17), 7);
    EXPECT_EQ(defer(), 0);
  }
}

TEST(ActionsApi, TellTheirResultOnceTheClientIsGone) {
  const ScriptedDch dch(always(statusAnswer(0)));
  const std::pair<std::string, std::function<void()>> calls[] = {
      {"dc_provideAction", [] { provide(); }},
      {"dc_waitForActionResults", [] { dc_waitForActionResults(17); }},
      {"dc_deferReportRequest", [] { defer(); }},
  };
  for (const auto& [name, call] : calls) {
    const TraceCapture trace("0x40");
    call();
    const std::vector<CapturedRecord> records = trace.records();
    ASSERT_GT(records.size(), 3u);
    EXPECT_EQ(records.front().function, name);
    EXPECT_EQ(records[records.size() - 2].function, "DCHclient::~DCHclient");
    EXPECT_EQ(records.back().function, name);
  }
}

}  // namespace
