// A stream message when memory, pieces or the wait for the next piece fail.
#include <gtest/gtest.h>

#include <cerrno>
#include <future>
#include <thread>
#include <vector>

#include "tests/support/failing_calls.h"
#include "tests/support/trace_lines.h"
#include "zordsock/test_endpoint.h"
#include "zordsock/test_stream_message.h"

namespace {

using zordsock::StreamMessage;

// Sends a first piece of 8 bytes that announces `length`, and `further` pieces of one byte. The
// connection does not hold them all, so a thread of its own sends them; it is detached, because the
// process may end before it could be joined.
void readManyPieces(const PieceConnection& connection, unsigned length, int further,
                    const std::function<void(const StreamMessage&)>& use) {
  std::packaged_task<void()> sender([&] {
    bool sent = connection.send(messageBytes(8, length));
    for (int i = 0; i < further && sent; ++i) sent = connection.send("x");
  });
  const std::future<void> sent = sender.get_future();
  std::thread(std::move(sender)).detach();
  readMessage(connection.serverEnd(), use);
  sent.wait();
}

void expectNothing(const StreamMessage&) {
  ADD_FAILURE() << "the process should have ended";
}

TraceLine waitLine(int descriptor) {
  return detailLine(textOf("[@{address}]Waiting on SELECT: connectedSockFD[%d] MaxFD[%d]\n",
                           descriptor, descriptor + 1));
}

const TraceLine reuseLine = detailLine("Back from Select, reusing ipcBuffer @{address}\n");

// The lines of the first piece, of 8 bytes, up to the wait for the second.
std::vector<TraceLine> linesOfFirstPiece(int descriptor, int length) {
  return {
      waitLine(descriptor),
      reuseLine,
      flowLine("ipcBufCount=0 totalLen=0 totalRead=0 bytesRead=8 initRead=1 moreData=1\n"),
      detailLine(textOf("TCP: totalLen=%d, bytesRead=8, totalRead=8, errno=0\n", length)),
      waitLine(descriptor),
  };
}

TEST(StreamMessageFailures, TheHighestNumberOfPiecesIsAWholeMessage) {
  const PieceConnection connection;
  readManyPieces(connection, 8 + 1022, 1022, [](const StreamMessage& message) {
    EXPECT_EQ(message.pieceCount(), 1023);
    EXPECT_TRUE(message.whole());
    const auto joined = message.join();
    EXPECT_EQ(std::string(joined.get(), 8 + 1022),
              messageBytes(8, 8 + 1022) + std::string(1022, 'x'));
  });
}

TEST(StreamMessageFailures, OnePieceMoreEndsTheProcess) {
  const PieceConnection connection;
  constexpr int length = 1 << 30;
  std::vector<TraceLine> lines = linesOfFirstPiece(connection.serverEnd(), length);
  for (int piece = 1; piece < 1024; ++piece) {
    const int read = 7 + piece;
    if (piece > 1) lines.push_back(waitLine(connection.serverEnd()));
    lines.push_back(storageLine(
        textOf("Allocated ipcBuffer @{address}, storing in ipcBufArray at index: %d\n", piece)));
    lines.push_back(flowLine(
        textOf("ipcBufCount=%d totalLen=%d totalRead=%d bytesRead=1 initRead=0 moreData=1\n", piece,
               length, read)));
    if (piece < 1023)
      lines.push_back(detailLine(
          textOf("TCP: totalLen=%d, bytesRead=1, totalRead=%d, errno=0\n", length, read + 1)));
  }
  lines.push_back(
      errorLine("Error: ipcBufCount 1024 exceeded allowed limit of 1023.  Exiting...\n\n"));
  expectTraceAndExit(
      "ipcSock::IPCServer", [&] { readManyPieces(connection, length, 1023, expectNothing); },
      lines);
}

TEST(StreamMessageFailures, WithoutMemoryForAPieceTheProcessEnds) {
  const PieceConnection connection;
  std::vector<TraceLine> lines = linesOfFirstPiece(connection.serverEnd(), 10);
  lines.push_back(errorLine(
      "Error: allocating 4096 bytes for ipcBuffer, current ipcBufCount: 1.  Exiting...\n\n"));
  expectTraceAndExit(
      "ipcSock::IPCServer",
      [&] {
        connection.discardUnread();  // of the run before
        connection.send(messageBytes(8, 10));
        connection.send("ab");
        const NoMemory noMemory;
        readMessage(connection.serverEnd(), expectNothing);
      },
      lines);
}

TEST(StreamMessageFailures, WithoutMemoryForTheWholeMessageTheProcessEnds) {
  const PieceConnection connection;
  std::vector<TraceLine> lines = linesOfFirstPiece(connection.serverEnd(), 10);
  lines.insert(
      lines.end(),
      {
          storageLine("Allocated ipcBuffer @{address}, storing in ipcBufArray at index: 1\n"),
          flowLine("ipcBufCount=1 totalLen=10 totalRead=8 bytesRead=2 initRead=0 moreData=1\n"),
          detailLine("TCP: totalLen=10, bytesRead=2, totalRead=10, errno=0\n"),
          errorLine("Error: allocating 10 bytes for completeBuffer.  Exiting...\n\n"),
      });
  expectTraceAndExit(
      "ipcSock::IPCServer",
      [&] {
        connection.send(messageBytes(8, 10));
        connection.send("ab");
        readMessage(connection.serverEnd(), [](const StreamMessage& message) {
          const NoMemory noMemory;
          message.join();
        });
      },
      lines);
}

TEST(StreamMessageFailures, AFailedFirstWaitIsTheEndOfTheConnection) {
  expectTrace("ipcSock::IPCServer", [] {
    const PieceConnection connection;
    const FailingCall failing(nthCall(SystemCall::select, 1), EBADF);
    readMessage(connection.serverEnd(),
                [](const StreamMessage& message) { EXPECT_TRUE(message.peerGone()); });
    return std::vector<TraceLine>{
        waitLine(connection.serverEnd()),
        errorLine(textOf("Warning: select returned. errno[%d]\n", EBADF)),
    };
  });
}

TEST(StreamMessageFailures, AFailedFurtherWaitLeavesTheMessageShort) {
  expectTrace("ipcSock::IPCServer", [] {
    const PieceConnection connection;
    const FailingCall failing(nthCall(SystemCall::select, 2), EINTR);
    connection.send(messageBytes(8, 10));
    readMessage(connection.serverEnd(), [](const StreamMessage& message) {
      EXPECT_FALSE(message.peerGone());
      EXPECT_FALSE(message.whole());
      EXPECT_EQ(message.totalRead(), 8);
    });
    std::vector<TraceLine> lines = linesOfFirstPiece(connection.serverEnd(), 10);
    lines.push_back(errorLine(textOf("Warning: select returned. errno[%d]\n", EINTR)));
    return lines;
  });
}

}  // namespace
