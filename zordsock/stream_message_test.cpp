#include "zordsock/stream_message.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <random>
#include <vector>

#include "tests/support/trace_capture.h"
#include "tests/support/trace_lines.h"
#include "zordsock/test_endpoint.h"
#include "zordsock/test_stream_message.h"

namespace {

using testing::ElementsAre;
using zordsock::StreamMessage;

// What became of one message.
struct Received {
  bool peerGone = false;
  bool whole = false;
  ZORA_Long totalLength = 0;
  ZORA_Long totalRead = 0;
  ZORA_Long pieceCount = 0;
  std::string bytes;  // of a whole message
};

Received readFrom(const PieceConnection& connection) {
  Received received;
  readMessage(connection.serverEnd(), [&](const StreamMessage& message) {
    received = {message.peerGone(),  message.whole(),      message.totalLength(),
                message.totalRead(), message.pieceCount(), ""};
    if (message.peerGone() || !message.whole()) return;
    const auto joined = message.pieceCount() > 1 ? message.join() : nullptr;
    received.bytes.assign(joined ? joined.get() : message.firstPiece(),
                          static_cast<std::size_t>(message.totalRead()));
  });
  return received;
}

std::vector<std::string> piecesOf(const std::string& message, std::size_t size) {
  std::vector<std::string> pieces;
  for (std::size_t at = 0; at < message.size(); at += size)
    pieces.push_back(message.substr(at, size));
  return pieces;
}

// Reads what comes of these pieces, after which the peer closes.
Received readPieces(const std::vector<std::string>& pieces) {
  PieceConnection connection;
  for (const std::string& piece : pieces) EXPECT_TRUE(connection.send(piece));
  connection.closeClient();
  return readFrom(connection);
}

std::string wholeMessage(unsigned length) {
  return messageBytes(length, length);
}

void expectWhole(const Received& received, const std::string& message, std::size_t pieceCount) {
  EXPECT_TRUE(received.whole);
  EXPECT_FALSE(received.peerGone);
  EXPECT_EQ(received.pieceCount, static_cast<ZORA_Long>(pieceCount));
  EXPECT_EQ(received.bytes, message);
}

void expectNeitherWholeNorGone(const Received& received, ZORA_Long totalLength,
                               ZORA_Long totalRead) {
  EXPECT_FALSE(received.whole);
  EXPECT_FALSE(received.peerGone);
  EXPECT_EQ(received.totalLength, totalLength);
  EXPECT_EQ(received.totalRead, totalRead);
}

TEST(StreamMessage, OfOnePieceIsReadWithoutAskingForMore) {
  const PieceConnection connection;
  const std::string message = wholeMessage(100);
  ASSERT_TRUE(connection.send(message));
  // The peer sends nothing further and does not close: a second read would not come back.
  expectWhole(readFrom(connection), message, 1);
}

TEST(StreamMessage, ThatIsOnlyALengthWordIsWhole) {
  expectWhole(readPieces({wholeMessage(4)}), wholeMessage(4), 1);
}

TEST(StreamMessage, IsReadInPiecesOfAtMost4096Bytes) {
  for (const unsigned length : {4095u, 4096u, 4097u, 8192u, 8193u, 10000u}) {
    SCOPED_TRACE(length);
    const std::string message = wholeMessage(length);
    expectWhole(readPieces(piecesOf(message, 4096)), message, (length + 4095) / 4096);
  }
}

TEST(StreamMessage, OfPiecesOfAnySizeIsJoinedInOrder) {
  const std::string message = wholeMessage(150);
  for (std::size_t size = 4; size <= message.size(); ++size) {
    SCOPED_TRACE(size);
    const std::vector<std::string> pieces = piecesOf(message, size);
    expectWhole(readPieces(pieces), message, pieces.size());
  }
}

TEST(StreamMessage, OfRandomPiecesIsJoinedInOrder) {
  std::mt19937 random(20260131);
  const auto upTo = [&](std::size_t highest) { return random() % (highest + 1); };
  for (int round = 0; round < 200; ++round) {
    const std::string message = wholeMessage(4 + static_cast<unsigned>(upTo(20000)));
    std::vector<std::string> pieces;
    for (std::size_t at = 0; at < message.size(); at += pieces.back().size())
      pieces.push_back(message.substr(at, 300 + upTo(3796)));
    expectWhole(readPieces(pieces), message, pieces.size());
  }
}

// The length word is that of the first piece, whose missing bytes count as zero.
TEST(StreamMessage, WhoseFirstPieceIsShorterThanTheLengthWordIsNotWhole) {
  for (std::size_t size = 1; size <= 3; ++size)
    expectNeitherWholeNorGone(readPieces(piecesOf(wholeMessage(150), size)), 0,
                              static_cast<ZORA_Long>(size));
  expectNeitherWholeNorGone(readPieces({std::string("\0\0\3", 3)}), 0x300, 3);
}

// It is as long as the first piece seems to say, but not as long as it says.
TEST(StreamMessage, WhoseLengthWordComesInPiecesIsWholeWhenTheJoinedOneIsRight) {
  const std::string right = wholeMessage(0x300);
  expectWhole(readPieces({right.substr(0, 3), right.substr(3)}), right, 2);
  std::string wrong = right;
  wrong[3] = '\xFF';
  expectNeitherWholeNorGone(readPieces({wrong.substr(0, 3), wrong.substr(3)}), 0x3FF, 0x300);
  expectNeitherWholeNorGone(readPieces({wrong.substr(0, 3), wrong.substr(3, 1), wrong.substr(4)}),
                            0x3FF, 0x300);
}

TEST(StreamMessage, ThatEndsShortIsNotWhole) {
  expectNeitherWholeNorGone(readPieces({messageBytes(3000, 5000)}), 5000, 3000);
}

TEST(StreamMessage, ThatGoesBeyondItsLengthIsNotWhole) {
  expectNeitherWholeNorGone(readPieces({messageBytes(10, 8)}), 8, 10);
  expectNeitherWholeNorGone(readPieces({messageBytes(8, 9), "ab"}), 9, 10);
}

TEST(StreamMessage, WithALengthBelowItsLengthWordEndsWithTheFirstPiece) {
  for (const ZORA_Long length : {0, 1, 3, -1, INT_MIN, INT_MIN + 1}) {
    SCOPED_TRACE(length);
    const PieceConnection connection;
    ASSERT_TRUE(connection.send(messageBytes(20, static_cast<unsigned>(length))));
    expectNeitherWholeNorGone(readFrom(connection), length, 20);
  }
}

TEST(StreamMessage, WithAHugeLengthIsNotWholeWhenItsPeerCloses) {
  for (const unsigned length : {0x7FFFFFFFu, 0x40000000u, 5000000u})
    expectNeitherWholeNorGone(readPieces({messageBytes(20, length), "abc"}),
                              static_cast<ZORA_Long>(length), 23);
}

TEST(StreamMessage, OfRandomBytesIsReadWithinItsBounds) {
  std::mt19937 random(4711);
  for (int round = 0; round < 300; ++round) {
    std::vector<std::string> pieces;
    ZORA_Long sent = 0;
    for (auto count = 1 + random() % 6; count > 0; --count) {
      std::string piece(1 + random() % 4096, '\0');
      for (char& byte : piece) byte = static_cast<char>(random());
      sent += static_cast<ZORA_Long>(piece.size());
      pieces.push_back(piece);
    }
    const Received received = readPieces(pieces);
    EXPECT_FALSE(received.peerGone);
    EXPECT_GE(received.totalRead, static_cast<ZORA_Long>(pieces[0].size()));
    EXPECT_LE(received.totalRead, sent);
  }
}

TEST(StreamMessage, OfAPeerThatClosedIsItsEnd) {
  const Received received = readPieces({});
  EXPECT_TRUE(received.peerGone);
  EXPECT_EQ(received.pieceCount, 0);
}

TEST(StreamMessage, OfAPeerThatResetIsItsEnd) {
  PieceConnection connection;
  connection.resetClient();
  EXPECT_TRUE(readFrom(connection).peerGone);
}

TEST(StreamMessage, SeesNothingOfTheOneBefore) {
  TRC1_QUIET_FUNCTION("ipcSock::IPCServer");
  const ipcSock server(0, 0, 0);
  StreamMessage message(server, trc1Scope);
  PieceConnection connection;
  for (const std::string& piece : piecesOf(wholeMessage(9000), 4096)) connection.send(piece);
  message.receive(connection.serverEnd());
  EXPECT_TRUE(message.whole());
  message.freePieces();
  connection.send(std::string("\0\0", 2));
  message.receive(connection.serverEnd());
  EXPECT_EQ(message.totalLength(), 0);
  EXPECT_EQ(message.totalRead(), 2);
  EXPECT_EQ(std::string(message.firstPiece(), 4096), std::string(4096, '\0'));
  message.freePieces();
  connection.resetClient();
  message.receive(connection.serverEnd());
  EXPECT_TRUE(message.peerGone());
}

// ---- Trace -----------------------------------------------------------------------------------

TraceLine waitLine(int descriptor) {
  return detailLine(textOf("[@{address}]Waiting on SELECT: connectedSockFD[%d] MaxFD[%d]\n",
                           descriptor, descriptor + 1));
}

TraceLine storageLineOfPiece(int index) {
  return storageLine(
      textOf("Allocated ipcBuffer @{address}, storing in ipcBufArray at index: %d\n", index));
}

const char reuseText[] = "Back from Select, reusing ipcBuffer @{address}\n";

TEST(StreamMessageTrace, TellsOfEveryPieceAndOfTheJoining) {
  expectTrace("ipcSock::IPCServer", [] {
    PieceConnection connection;
    for (const std::string& piece : piecesOf(wholeMessage(10000), 4096)) connection.send(piece);
    EXPECT_TRUE(readFrom(connection).whole);
    const int descriptor = connection.serverEnd();
    return std::vector<TraceLine>{
        waitLine(descriptor),
        detailLine(reuseText),
        flowLine("ipcBufCount=0 totalLen=0 totalRead=0 bytesRead=4096 initRead=1 moreData=1\n"),
        detailLine("TCP: totalLen=10000, bytesRead=4096, totalRead=4096, errno=0\n"),
        waitLine(descriptor),
        storageLineOfPiece(1),
        flowLine(
            "ipcBufCount=1 totalLen=10000 totalRead=4096 bytesRead=4096 initRead=0 moreData=1\n"),
        detailLine("TCP: totalLen=10000, bytesRead=4096, totalRead=8192, errno=0\n"),
        waitLine(descriptor),
        storageLineOfPiece(2),
        flowLine(
            "ipcBufCount=2 totalLen=10000 totalRead=8192 bytesRead=1808 initRead=0 moreData=1\n"),
        detailLine("TCP: totalLen=10000, bytesRead=1808, totalRead=10000, errno=0\n"),
        storageLine("Allocated <10000> bytes for completeBuffer<@{address}>\n"),
        detailLine("[0] completeBuffer[@{address}], offset[0], buffer[@{address}], "
                   "dataLen[4096]\n"),
        detailLine("[1] completeBuffer[@{address}], offset[4096], buffer[@{address}], "
                   "dataLen[4096]\n"),
        detailLine("[2] completeBuffer[@{address}], offset[8192], buffer[@{address}], "
                   "dataLen[1808]\n"),
        storageLine("Deleting ipcBufArray[1]: @{address}\n"),
        storageLine("Deleting ipcBufArray[2]: @{address}\n"),
    };
  });
}

TEST(StreamMessageTrace, TellsOfThePieceThatNeverCame) {
  expectTrace("ipcSock::IPCServer", [] {
    PieceConnection connection;
    connection.send(messageBytes(3000, 5000));
    connection.closeClient();
    EXPECT_FALSE(readFrom(connection).whole);
    const int descriptor = connection.serverEnd();
    return std::vector<TraceLine>{
        waitLine(descriptor),
        detailLine(reuseText),
        flowLine("ipcBufCount=0 totalLen=0 totalRead=0 bytesRead=3000 initRead=1 moreData=1\n"),
        detailLine("TCP: totalLen=5000, bytesRead=3000, totalRead=3000, errno=0\n"),
        waitLine(descriptor),
        storageLineOfPiece(1),
        flowLine("ipcBufCount=1 totalLen=5000 totalRead=3000 bytesRead=0 initRead=0 moreData=1\n"),
        storageLine("Deleting ipcBuffer @{address}, bytesRead: 0\n"),
        detailLine("Nulling out ipcBuffer at ipcBufArray index 1\n"),
        detailLine("TCP: totalLen=5000, bytesRead=0, totalRead=3000, errno=0\n"),
    };
  });
}

TEST(StreamMessageTrace, TellsOfAPeerThatIsGone) {
  expectTrace("ipcSock::IPCServer", [] {
    PieceConnection connection;
    connection.resetClient();
    EXPECT_TRUE(readFrom(connection).peerGone);
    return std::vector<TraceLine>{
        waitLine(connection.serverEnd()),
        detailLine(reuseText),
        flowLine("ipcBufCount=0 totalLen=0 totalRead=0 bytesRead=-1 initRead=1 moreData=1\n"),
        detailLine(textOf("TCP: totalLen=0, bytesRead=-1, totalRead=0, errno=%d\n", ECONNRESET)),
    };
  });
}

// How many lines tell of an entry cleared, when the peer closes after so many pieces.
int nullingLinesAfter(int pieces) {
  const TraceCapture trace("0x10");
  std::vector<std::string> sent{messageBytes(4, 1000)};
  for (int i = 1; i < pieces; ++i) sent.push_back("x");
  EXPECT_EQ(readPieces(sent).pieceCount, pieces);
  return trace.count(textOf("Nulling out ipcBuffer at ipcBufArray index %d\n", pieces));
}

TEST(StreamMessageTrace, TellsOfAClearedEntryUpToTheFifteenth) {
  EXPECT_EQ(nullingLinesAfter(1), 1);
  EXPECT_EQ(nullingLinesAfter(15), 1);
  EXPECT_EQ(nullingLinesAfter(16), 0);
  EXPECT_EQ(nullingLinesAfter(40), 0);
}

std::vector<std::string> dumpOfOneMessage(const char* verbose, const char* rules) {
  setenv("ZORA_VERBOSE", verbose, 1);
  const TraceCapture trace(rules);
  readPieces({messageBytes(8, 8)});
  return trace.textsOf("ZOR0_PrintDump");
}

TEST(StreamMessageTrace, DumpsEveryPieceForWhoAsksForIt) {
  EXPECT_THAT(dumpOfOneMessage("D", "0x01"),
              ElementsAre("0000  00 00 00 08 04 05 06 07                          |........|\n"));
  EXPECT_THAT(dumpOfOneMessage("D", "0xfe"), ElementsAre());
}

TEST(StreamMessageTrace, DumpsNothingForOtherDebugSettings) {
  EXPECT_THAT(dumpOfOneMessage("Y", "0xff"), ElementsAre());
}

}  // namespace
