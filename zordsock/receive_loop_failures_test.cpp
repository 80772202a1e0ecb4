// The receive loop when listen, accept, select or memory fail it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>

#include "tests/support/failing_calls.h"
#include "tests/support/process.h"
#include "tests/support/sockets.h"
#include "tests/support/trace_capture.h"
#include "zordsock/test_receive_loop.h"

namespace {

// A socket that does not listen is readable at once, and nothing can be accepted from it.
TEST(ServerFailures, AFailedListenIsReportedAndTheLoopRuns) {
  expectTrace(loopName, [] {
    const FailingCall end = endAtWait(3);
    const FailingCall failing(nthCall(SystemCall::listenOnSocket, 1), EADDRINUSE);
    RunningServer server;
    expectQueued(server.start(), "IPC-SERVER_READY", server.endpoint()._sockAddress, 0, blankName);
    EXPECT_EQ(server.waitForEnd(), 2);
    LoopTrace trace(server,
                    errorLine(textOf("Error: listen for _sockTCP failed. errno=%d\n", EADDRINUSE)));
    for (int i = 0; i < 2; ++i)
      trace.addPass().addReadableListener().add(
          {errorLine(textOf("Error: accept failed. errno=%d\n", EINVAL))});
    return trace.end();
  });
}

// The queue is full, so the loop stops before its first pass, in which accept would fail too.
TEST(ServerFailures, AFailedListenLeavesAnError) {
  const TraceCapture trace("0,*/DCHipc::ipc_put_data=0x10");
  const FailingCall failing(nthCall(SystemCall::listenOnSocket, 1), EADDRINUSE);
  RunningServer server;
  ipcSock& endpoint = server.endpoint();
  for (int i = 0; i < 4; ++i)
    endpoint.ipc_put_data(6, "before", &endpoint._sockAddress, 16, nullptr, 0);
  auto result = std::async(std::launch::async, [&] { return endpoint.IPCServer(); });
  EXPECT_TRUE(trace.waitFor("Waiting for circular buffers to be freed.\n"));
  EXPECT_EQ(endpoint._sockError, 1);
  endpoint._sockError = 2;
  for (int i = 0; i < 4; ++i) EXPECT_EQ(server.next().bytes, "before");
  EXPECT_EQ(server.next().bytes, "IPC-SERVER_READY");
  EXPECT_EQ(result.get(), 2);
}

TEST(ServerFailures, AfterAFailedListenDatagramsAreStillReceived) {
  TRC1_Configure("0");
  const FailingCall failing(nthCall(SystemCall::listenOnSocket, 1), EADDRINUSE);
  RunningServer server;
  server.start();
  const DatagramSocket client;
  for (const std::string datagram : {"one", "two", "three"}) {
    client.sendTo(server.datagramPort(), datagram);
    EXPECT_EQ(server.next().bytes, datagram);
    EXPECT_EQ(server.endpoint()._sockError, 1);
  }
}

TEST(ServerFailures, AFailedAcceptIsReportedAndItsSlotStaysTaken) {
  expectTrace(loopName, [] {
    const FailingCall end = endAtWait(3);
    const FailingCall failing(nthCall(SystemCall::acceptConnection, 1), EMFILE);
    RunningServer server;
    server.start();
    const StreamSocket client(server.streamPort());
    EXPECT_EQ(server.waitForEnd(), 2);
    const ZORA_Long* const connections = server.endpoint()._sockClientFD;
    EXPECT_EQ(connections[0], -1);
    EXPECT_GT(connections[1], 0);
    return LoopTrace(server)
        .addPass()
        .addReadableListener()
        .add({errorLine(textOf("Error: accept failed. errno=%d\n", EMFILE))})
        .addPass()
        .addAccept(client.address(), 1, connections[1])
        .end(connections[1]);
  });
}

TEST(ServerFailures, AFailedAcceptLeavesAnErrorThatDoesNotEndTheLoop) {
  const FailingCall failing(nthCall(SystemCall::acceptConnection, 1), EMFILE);
  RunningServer server;
  server.start();
  const StreamSocket client(server.streamPort());
  client.send(messageBytes(8, 8));
  EXPECT_EQ(server.next().bytes, messageBytes(8, 8));
  EXPECT_EQ(server.endpoint()._sockError, 1);
}

TEST(ServerFailures, AFailedSelectEndsTheThreadInError) {
  expectTrace("IPCServerThread", [] {
    const FailingCall end = endAtWait(1);
    RunningServer server;
    EXPECT_EQ(IPCServerThread(&server.endpoint()), nullptr);
    EXPECT_EQ(server.endpoint()._sockError, 2);
    EXPECT_EQ(server.endpoint().ipcGetError(), 1);
    return std::vector<TraceLine>{
        entryLine(),
        errorLine("Error: IPCServer initialization failure, cannot continue processing.\n"),
        {TRC1_CLASS_EVENTS, "Returning NULL\n"},
    };
  });
}

TEST(ServerFailures, WithoutMemoryForTheLoopTheProcessEnds) {
  const ProcessResult child = runInChild([] {
    RunningServer server;
    const NoMemory noMemory;
    server.endpoint().IPCServer();
    return 0;
  });
  EXPECT_EQ(child.exitStatus, 1);
  EXPECT_THAT(child.standardError,
              testing::ContainsRegex(
                  "ipcSock::IPCServer:[0-9]+ Error: allocating [0-9]+ bytes for the receive loop.  "
                  "Exiting...\n\n$"));
}

}  // namespace
