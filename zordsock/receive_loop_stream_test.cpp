// What the receive loop makes of stream connections: messages, their ends, and hostile bytes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <memory>
#include <optional>
#include <random>

#include "tests/support/sockets.h"
#include "zordsock/test_receive_loop.h"

namespace {

constexpr char disconnect[] = "DP-DISCONNECT";
constexpr char resend[] = "RESEND_MESSAGE";

// A loop with one client, which ends at its `waits`th wait.
struct OneClient {
  explicit OneClient(int waits) : end(endAtWait(waits)) {
    server.start();
    client.emplace(server.streamPort());
    address = client->address();
  }

  // What comes into the queue, and nothing comes after it.
  QueuedMessage last() {
    QueuedMessage message = server.next();
    EXPECT_EQ(server.waitForEnd(), 2);
    EXPECT_EQ(server.endpoint()._ipcCircularBuffer->num_full, 0);
    return message;
  }

  // The descriptor of a connection that the loop has kept.
  ZORA_Long connection() { return server.endpoint()._sockClientFD[0]; }

  // The lines up to the first piece.
  LoopTrace begun(ZORA_Long descriptor) {
    LoopTrace trace(server);
    trace.addPass().addAccept(address, 0, descriptor).addPass(descriptor);
    trace.addReadableConnection(0, descriptor);
    return trace;
  }

  const FailingCall end;
  RunningServer server;
  std::optional<StreamSocket> client;
  sockaddr_in address{};
};

TraceLine closedLine(ZORA_Long connection) {
  return detailLine(textOf("_sockClientFD[0]=%d closed TCP connection: continue...", connection));
}

TEST(ServerStream, QueuesAMessageOfOnePieceAsItCame) {
  expectTrace(loopName, [] {
    OneClient one(4);
    one.client->send(messageBytes(100, 100));
    const QueuedMessage message = one.last();
    const ZORA_Long connection = one.connection();
    expectQueued(message, messageBytes(100, 100), one.address, connection);
    return one.begun(connection)
        .addPiece(connection, 0, 100, 0, 100)
        .add({detailLine("recvfrom operation had no more data, totalRead: 100, ipcBufCount: 1\n"),
              detailLine("sockClientAddr set to" + tracedAddress(one.address))})
        .end(connection);
  });
}

TEST(ServerStream, QueuesAMessageOfThreePiecesOnce) {
  expectTrace(loopName, [] {
    OneClient one(6);
    one.client->send(messageBytes(10000, 10000));
    const QueuedMessage message = one.last();
    const ZORA_Long connection = one.connection();
    expectQueued(message, messageBytes(10000, 10000), one.address, connection);
    return one.begun(connection)
        .addPiece(connection, 0, 10000, 0, 4096)
        .addPiece(connection, 1, 10000, 4096, 4096)
        .addPiece(connection, 2, 10000, 8192, 1808)
        .add({detailLine("recvfrom operation had no more data, totalRead: 10000, ipcBufCount: 3\n"),
              detailLine("sockClientAddr set to" + tracedAddress(one.address)),
              storageLine("Allocated <10000> bytes for completeBuffer<@{address}>\n"),
              detailLine("[0] completeBuffer[@{address}], offset[0], buffer[@{address}], "
                         "dataLen[4096]\n"),
              detailLine("[1] completeBuffer[@{address}], offset[4096], buffer[@{address}], "
                         "dataLen[4096]\n"),
              detailLine("[2] completeBuffer[@{address}], offset[8192], buffer[@{address}], "
                         "dataLen[1808]\n"),
              storageLine("Deleting completeBuffer @{address}, totalRead: 10000\n"),
              storageLine("Deleting ipcBufArray[1]: @{address}\n"),
              storageLine("Deleting ipcBufArray[2]: @{address}\n")})
        .end(connection);
  });
}

TEST(ServerStream, QueuesADisconnectWhenThePeerCloses) {
  expectTrace(loopName, [] {
    OneClient one(4);
    one.client.reset();
    const QueuedMessage notice = one.last();
    const auto connection = static_cast<ZORA_Long>(notice.descriptor);
    expectQueued(notice, disconnect, one.address, connection, blankName);
    EXPECT_EQ(one.connection(), 0);
    EXPECT_FALSE(isOpen(connection));
    return one.begun(connection)
        .addPiece(connection, 0, 0, 0, 0)
        .add({closedLine(connection)})
        .end();
  });
}

TEST(ServerStream, QueuesADisconnectWhenThePeerResets) {
  expectTrace(loopName, [] {
    OneClient one(4);
    one.client->breakOff();
    const QueuedMessage notice = one.last();
    const auto connection = static_cast<ZORA_Long>(notice.descriptor);
    expectQueued(notice, disconnect, one.address, connection, blankName);
    EXPECT_EQ(one.connection(), 0);
    return one.begun(connection)
        .addPiece(connection, 0, 0, 0, -1, ECONNRESET)
        .add({closedLine(connection)})
        .end();
  });
}

// The reset comes while the loop waits for the second piece.
TEST(ServerStream, DropsAMessageInWhichThePeerResets) {
  expectTrace(loopName, [] {
    OneClient one(5);
    one.client->send(messageBytes(3000, 5000));
    EXPECT_TRUE(one.end.waitFor(4));
    one.client->breakOff();
    const QueuedMessage notice = one.last();
    const auto connection = static_cast<ZORA_Long>(notice.descriptor);
    expectQueued(notice, disconnect, one.address, connection, blankName);
    return one.begun(connection)
        .addPiece(connection, 0, 5000, 0, 3000)
        .addPiece(connection, 1, 5000, 3000, -1, ECONNRESET)
        .add({closedLine(connection)})
        .end();
  });
}

TEST(ServerStream, AsksForAMessageThatEndedShortAndKeepsTheConnection) {
  expectTrace(loopName, [] {
    OneClient one(5);
    one.client->send(messageBytes(3000, 5000));
    one.client->finishSending();
    const QueuedMessage notice = one.last();
    const ZORA_Long connection = one.connection();
    expectQueued(notice, resend, one.address, connection);
    std::string answer = "again";
    EXPECT_EQ(one.server.endpoint().ipcWrite(answer.data(), 5, notice.descriptor), 5);
    EXPECT_EQ(one.client->receive(5), answer);
    return one.begun(connection)
        .addPiece(connection, 0, 5000, 0, 3000)
        .addPiece(connection, 1, 5000, 3000, 0)
        .add({errorLine("Error: TCP received 3000 bytes, expected 5000 bytes\n")})
        .end(connection);
  });
}

TEST(ServerStream, DisconnectsAfterAShortMessageInAPassOfItsOwn) {
  RunningServer server;
  server.start();
  auto client = std::make_unique<StreamSocket>(server.streamPort());
  const sockaddr_in address = client->address();
  client->send(messageBytes(3000, 5000));
  client.reset();
  const QueuedMessage first = server.next();
  const auto connection = static_cast<ZORA_Long>(first.descriptor);
  expectQueued(first, resend, address, connection);
  expectQueued(server.next(), disconnect, address, connection, blankName);
}

TEST(ServerStream, AsksAgainWhenTwoMessagesComeAtOnce) {
  expectTrace(loopName, [] {
    OneClient one(4);
    one.client->send(messageBytes(8, 8) + messageBytes(12, 12));
    const QueuedMessage notice = one.last();
    const ZORA_Long connection = one.connection();
    expectQueued(notice, resend, one.address, connection);
    return one.begun(connection)
        .addPiece(connection, 0, 8, 0, 20)
        .add({errorLine("Error: TCP received 20 bytes, expected 8 bytes\n")})
        .end(connection);
  });
}

TEST(ServerStream, GivesAFreedSlotToTheNextConnection) {
  const FailingCall end = endAtWait(6);
  RunningServer server;
  server.start();
  auto first = std::make_unique<StreamSocket>(server.streamPort());
  ASSERT_TRUE(end.waitFor(2));
  const StreamSocket second(server.streamPort());
  ASSERT_TRUE(end.waitFor(3));
  first.reset();
  EXPECT_EQ(server.next().bytes, disconnect);
  ASSERT_TRUE(end.waitFor(5));
  const StreamSocket third(server.streamPort());
  server.waitForEnd();
  const ZORA_Long* const connections = server.endpoint()._sockClientFD;
  EXPECT_TRUE(connections[0] > 0 && connections[1] > 0);
  EXPECT_EQ(connections[2], 0);
}

TEST(ServerStream, NamesThePeerOfEachConnection) {
  RunningServer server;
  server.start();
  const StreamSocket one(server.streamPort());
  const StreamSocket other(server.streamPort());
  other.send(messageBytes(9, 9));
  const QueuedMessage ofOther = server.next();
  one.send(messageBytes(8, 8));
  const QueuedMessage ofOne = server.next();
  EXPECT_NE(ofOne.descriptor, ofOther.descriptor);
  EXPECT_TRUE(ofOne.sender == one.address());
  EXPECT_TRUE(ofOther.sender == other.address());
}

// Nothing is taken from the queue before all is sent, so one pass finds both connections readable.
TEST(ServerStream, ServesTheReadableConnectionsInTheOrderOfTheirSlots) {
  const CallCounter accepts({SystemCall::acceptConnection});
  RunningServer server;
  server.start();
  const StreamSocket one(server.streamPort());
  const StreamSocket other(server.streamPort());
  const DatagramSocket sender;
  ASSERT_TRUE(accepts.waitFor(2));
  for (int i = 0; i < 5; ++i) sender.sendTo(server.datagramPort(), "datagram");
  other.send(messageBytes(9, 9));
  one.send(messageBytes(8, 8));
  for (int i = 0; i < 5; ++i) EXPECT_EQ(server.next().bytes, "datagram");
  EXPECT_EQ(server.next().bytes, messageBytes(8, 8));
  EXPECT_EQ(server.next().bytes, messageBytes(9, 9));
}

TEST(ServerStream, ServesNothingElseWhileAMessageIsIncomplete) {
  const CallCounter waits({SystemCall::select});
  RunningServer server;
  server.start();
  const StreamSocket client(server.streamPort());
  const DatagramSocket sender;
  const std::string message = messageBytes(8, 8);
  client.send(message.substr(0, 5));
  // The waits: for the connection, for its first bytes, and for two pieces.
  ASSERT_TRUE(waits.waitFor(4));
  sender.sendTo(server.datagramPort(), "datagram");
  client.send(message.substr(5));
  EXPECT_EQ(server.next().bytes, message);
  EXPECT_EQ(server.next().bytes, "datagram");
}

TEST(ServerStream, JoinsMessagesHoweverTheyAreSent) {
  std::mt19937 random(20260131);
  RunningServer server;
  server.start();
  const StreamSocket client(server.streamPort());
  for (std::size_t length = 4; length < 20000; length += 1 + random() % 1500) {
    const std::string message = messageBytes(length, static_cast<unsigned>(length));
    // The length word comes in one piece, or the loop does not know what to wait for.
    for (std::size_t at = 0, size; at < length; at += size) {
      size = 4 + random() % 6000;
      client.send(message.substr(at, size));
    }
    EXPECT_EQ(server.next().bytes, message);
  }
}

TEST(HostileStream, WithAnImpossibleLengthIsAskedAgainAndMayGoOn) {
  RunningServer server;
  server.start();
  const StreamSocket client(server.streamPort());
  for (const int length : {0, 1, 3, -1, INT_MIN, INT_MIN + 1}) {
    client.send(messageBytes(20, static_cast<unsigned>(length)));
    EXPECT_EQ(server.next().bytes, resend);
    client.send(messageBytes(20, 20));
    EXPECT_EQ(server.next().bytes, messageBytes(20, 20));
  }
}

TEST(HostileStream, WithAHugeLengthEndsWithItsConnection) {
  RunningServer server;
  server.start();
  for (const unsigned length : {0x7FFFFFFFu, 0x7FFFFFFEu, 0x01000000u}) {
    auto client = std::make_unique<StreamSocket>(server.streamPort());
    client->send(messageBytes(9000, length));
    client.reset();
    EXPECT_EQ(server.next().bytes, resend);
    EXPECT_EQ(server.next().bytes, disconnect);
  }
}

TEST(HostileStream, OfLessThanALengthWordIsAskedAgain) {
  RunningServer server;
  server.start();
  for (std::size_t size = 1; size <= 3; ++size) {
    auto client = std::make_unique<StreamSocket>(server.streamPort());
    client->send(std::string(size, '\0'));
    EXPECT_EQ(server.next().bytes, resend);
    client.reset();
    EXPECT_EQ(server.next().bytes, disconnect);
  }
}

// Sends random bytes over a few connections at once, and ends them in one way or the other.
void sendGarbage(RunningServer& server, std::mt19937& random, int connections) {
  for (int i = 0; i < connections; ++i) {
    StreamSocket client(server.streamPort());
    std::string bytes(1 + random() % 9000, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    client.send(bytes);
    if (random() % 3 == 0) client.breakOff();
  }
}

TEST(HostileStream, OfRandomBytesNeverHarmsTheOthers) {
  constexpr int connections = 5;  // as many as wait to be accepted while the queue is full
  std::mt19937 random(4711);
  RunningServer server;
  server.start();
  const StreamSocket honest(server.streamPort());
  for (unsigned round = 0; round < 30; ++round) {
    sendGarbage(server, random, connections);
    for (int ended = 0; ended < connections;) {
      const std::string bytes = server.next().bytes;
      ASSERT_FALSE(bytes.empty());
      if (bytes == disconnect) ++ended;
    }
    honest.send(messageBytes(100 + round, 100 + round));
    EXPECT_EQ(server.next().bytes, messageBytes(100 + round, 100 + round));
  }
}

}  // namespace
