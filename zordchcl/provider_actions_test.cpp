// The reserved entry points: the provider's side of actions, and the shutdown request. Each makes a
// client, says once that it is unfinished, and sends nothing.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/fake_transport.h"
#include "tests/support/process.h"
#include "tests/support/scripted_dch.h"
#include "tests/support/trace_capture.h"
#include "zordchcl/test_lines.h"

namespace {

using testing::EndsWith;
using testing::IsEmpty;

const TraceLine unfinished = errorLine("Error: FINISH ME UP!");

struct EntryPoint {
  std::string name;
  std::function<void()> call;
  std::string method;
  std::function<void(DCHclient&)> run;
};

const EntryPoint providersEntryPoints[] = {
    {"dp_waitForAction", [] { dp_waitForAction(17); }, "DCHclient::dp_waitForAction",
     [](DCHclient& client) { client.dp_waitForAction(17); }},
    {"dp_provideActionResults", [] { dp_provideActionResults(17, -1); },
     "DCHclient::dp_provideActionResults",
     [](DCHclient& client) { client.dp_provideActionResults(17, -1); }},
};
const EntryPoint shutdownEntryPoint = {"DCH_shutdown", [] { DCH_shutdown(1); },
                                       "DCHclient::shutdown",
                                       [](DCHclient& client) { client.shutdown(1); }};
const EntryPoint allEntryPoints[] = {providersEntryPoints[0], providersEntryPoints[1],
                                     shutdownEntryPoint};

// ---- The methods -----------------------------------------------------------------------------

void expectLines(const EntryPoint& entryPoint, ZORA_Long latch, const Lines& lines) {
  expectTrace(entryPoint.method, [&] {
    FakedClient faked;
    faked.client._clientError = latch;
    entryPoint.run(faked.client);
    EXPECT_EQ(faked.client._clientError, latch);
    EXPECT_THAT(faked.transport.written, IsEmpty());
    EXPECT_THAT(faked.transport.waits, IsEmpty());
    return lines;
  });
}

TEST(ReservedMethod, SaysThatItIsUnfinished) {
  for (const EntryPoint& entryPoint : allEntryPoints)
    expectLines(entryPoint, 0, {entryLine(), unfinished, exitLine()});
}

TEST(ReservedMethod, SaysNothingOnceTheLatchIsSet) {
  for (const EntryPoint& entryPoint : allEntryPoints)
    for (const ZORA_Long latch : {1, 4}) expectLines(entryPoint, latch, {entryLine(), exitLine()});
}

TEST(ReservedMethod, AfterACancelledWaitOnlyTheShutdownSpeaks) {
  for (const EntryPoint& entryPoint : providersEntryPoints)
    expectLines(entryPoint, -1, {entryLine(), exitLine()});
  expectLines(shutdownEntryPoint, -1, {entryLine(), unfinished, exitLine()});
}

// ---- The exported functions ------------------------------------------------------------------

TEST(ReservedFunction, OfAProviderTracesEntryAndExit) {
  for (const EntryPoint& entryPoint : providersEntryPoints) {
    expectTrace(entryPoint.name, [&] {
      entryPoint.call();
      return Lines{entryLine(), exitLine()};
    });
  }
}

TEST(ReservedFunction, ForShutdownTracesNothingOfItsOwn) {
  expectTrace(shutdownEntryPoint.name, [] {
    shutdownEntryPoint.call();
    return Lines{};
  });
}

TEST(ReservedFunction, RunsItsMethodOnAClientOfItsOwn) {
  for (const EntryPoint& entryPoint : allEntryPoints) {
    expectTrace(entryPoint.method, [&] {
      entryPoint.call();
      return Lines{entryLine(), unfinished, exitLine()};
    });
    const TraceCapture trace;
    entryPoint.call();
    EXPECT_EQ(trace.textsOf("DCHclient::DCHclient").front(), "<<Entry>>\n");
    EXPECT_EQ(trace.textsOf("DCHclient::~DCHclient").back(), "<<Exit>>\n");
  }
}

TEST(ReservedFunction, SendsNothingAndReturnsAtOnce) {
  const ScriptedDch dch(never());
  const TraceCapture trace("0x10");
  for (const EntryPoint& entryPoint : allEntryPoints) entryPoint.call();
  EXPECT_THAT(trace.textsOf("ipcSock::ipcWrite"), IsEmpty());
  EXPECT_THAT(trace.textsOf("ipcSock::ipcRead"), IsEmpty());
  EXPECT_THAT(dch.requests(), IsEmpty());
}

TEST(ReservedFunction, GivesItsPooledSocketBack) {
  setenv("ZORA_DCH_UDP_SOCKETS_IN_POOL", "1", 1);
  for (int round = 0; round < 3; ++round)
    for (const EntryPoint& entryPoint : allEntryPoints) entryPoint.call();
}

TEST(ReservedFunction, EndsTheProcessOverAnUnknownIpcType) {
  for (const EntryPoint& entryPoint : allEntryPoints) {
    const ProcessResult child = runInChild(
        [&] {
          entryPoint.call();
          return 77;
        },
        {{"ZORA_DCH_IPCTYPE", "7"}});
    EXPECT_EQ(child.exitStatus, 1);
    EXPECT_GE(child.seconds, 1.0);
    EXPECT_THAT(child.standardError, EndsWith(" Error: Unrecognized IPC type 7, exiting...\n"));
  }
}

}  // namespace
