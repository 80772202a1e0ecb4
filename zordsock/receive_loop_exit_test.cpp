// Messages that end the server's process.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/support/failing_calls.h"
#include "tests/support/process.h"
#include "tests/support/running_server.h"
#include "tests/support/sockets.h"
#include "zordsock/test_endpoint.h"

namespace {

using testing::ContainsRegex;
using testing::IsEmpty;

// Lets the receiver thread end the process; this thread must not use what that destroys.
[[noreturn]] void waitForTheEnd() {
  for (;;) pause();
}

// More than 4 MB: the server reads no more than 1024 pieces of one message.
int sendTooLongAMessage() {
  RunningServer server;
  server.start();
  const StreamSocket client(server.streamPort());
  constexpr std::size_t size = 1024 * SERVER_PIECE_SIZE;
  client.send(messageBytes(size, size + 1));
  waitForTheEnd();
}

int sendWhenThereIsNoMemory() {
  RunningServer server;
  server.start();
  const StreamSocket client(server.streamPort());
  const NoMemory noMemory;
  client.send(messageBytes(5000, 5000));
  waitForTheEnd();
}

ProcessResult runWithTrace(const char* rules, const std::function<int()>& body) {
  return runInChild([&] {
    TRC1_Configure(rules);
    return body();
  });
}

TEST(ServerExit, AMessageOfTooManyPiecesEndsTheProcess) {
  const ProcessResult child = runWithTrace("0x80", sendTooLongAMessage);
  EXPECT_EQ(child.exitStatus, 1);
  EXPECT_THAT(child.standardError,
              ContainsRegex("ipcSock::IPCServer:[0-9]+ Error: ipcBufCount 1024 exceeded allowed "
                            "limit of 1023.  Exiting...\n\n$"));
}

TEST(ServerExit, WithoutMemoryForAPieceTheProcessEnds) {
  const ProcessResult child = runWithTrace("0x80", sendWhenThereIsNoMemory);
  EXPECT_EQ(child.exitStatus, 1);
  EXPECT_THAT(child.standardError,
              ContainsRegex("ipcSock::IPCServer:[0-9]+ Error: allocating 4096 bytes for ipcBuffer, "
                            "current ipcBufCount: 1.  Exiting...\n\n$"));
}

TEST(ServerExit, IsTheSameWithoutAWordWhenErrorsAreNotTraced) {
  for (const auto& body : {sendTooLongAMessage, sendWhenThereIsNoMemory}) {
    const ProcessResult child = runWithTrace("0", body);
    EXPECT_EQ(child.exitStatus, 1);
    EXPECT_THAT(child.standardError, IsEmpty());
  }
}

}  // namespace
