// The limits that connections have, and what the real program makes of connections that break off,
// stall, or are too many.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <fstream>
#include <list>
#include <memory>

#include "dch/testkit/clients.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/server_process.h"
#include "tests/support/sockets.h"
#include "tests/support/wait_until.h"
#include "zordchcl/status.h"
#include "zordsock/zordsock.h"

namespace dch::testkit {
namespace {

using ::testing::HasSubstr;

constexpr int noWait = 0;
constexpr int momentMilliseconds = 300;  // in which a server that serves would answer

std::string question() {
  return unregisterMessage("NONE");
}
bool isAnswer(const std::string& bytes) {
  return statusOf(bytes) == DCH_STATUS_UNKNOWN_APPLICATION;
}

class ZordchdConnectionsTest : public ::testing::Test {
 protected:
  void expectDatagramsAreServed() {
    UdpClient client(_server.port());
    for (int i = 0; i < 20; ++i) EXPECT_TRUE(isAnswer(client.ask(question())));
  }
  unsigned short port() const { return static_cast<unsigned short>(_server.port()); }

  ServerProcess _server{{"--verbose"}};
};

TEST_F(ZordchdConnectionsTest, APeerThatBreaksOffInAMessageIsForgotten) {
  StreamSocket peer(port());
  peer.send(registerMessage().substr(0, 20));
  peer.breakOff();
  EXPECT_TRUE(_server.waitForError(" closed\n"));
  expectDatagramsAreServed();
  EXPECT_EQ(_server.stop(SIGTERM), 0);
}

TEST_F(ZordchdConnectionsTest, APeerThatIsGoneBeforeItsAnswerHoldsUpNobody) {
  for (int i = 0; i < 30; ++i) {
    StreamSocket peer(port());
    peer.send(question());
    peer.breakOff();
    expectDatagramsAreServed();  // few may wait to be accepted
  }
  TcpClient next(_server.port());
  EXPECT_TRUE(isAnswer(next.ask(question())));
  EXPECT_EQ(_server.stop(SIGTERM), 0);
}

TEST_F(ZordchdConnectionsTest, AMessageThatStallsHoldsUpEverybodyUntilItsConnectionEnds) {
  auto stalling = std::make_unique<TcpClient>(_server.port());
  EXPECT_TRUE(isAnswer(stalling->ask(question())));
  stalling->send(registerMessage().substr(0, 20));
  UdpClient client(_server.port());
  // Datagrams go first: as long as a next question is there in time, the part of a message waits.
  constexpr int manyQuestions = 100'000;
  int answered = -1;
  do {
    client.send(question());
    ++answered;
  } while (client.receive(momentMilliseconds) && answered < manyQuestions);
  EXPECT_LT(answered, manyQuestions);
  stalling.reset();
  EXPECT_TRUE(isAnswer(client.receive().value_or("")));
  EXPECT_EQ(_server.stop(SIGTERM), 0) << _server.standardError();
}

TEST_F(ZordchdConnectionsTest, OfSixtyFourConnectionsTheLastIsNotRead) {
  std::list<TcpClient> clients;
  for (int i = 1; i < MAX_TCP_CLIENTS; ++i)
    EXPECT_TRUE(isAnswer(clients.emplace_back(_server.port()).ask(question()))) << i;
  TcpClient& last = clients.emplace_back(_server.port());
  last.send(question());
  expectDatagramsAreServed();
  EXPECT_TRUE(isAnswer(clients.front().ask(question())));
  EXPECT_EQ(last.receive(momentMilliseconds), std::nullopt);
  EXPECT_EQ(_server.stop(SIGTERM), 0);
}

TEST_F(ZordchdConnectionsTest, OneTooManyIsToldOnceAndStopsTheOthersButNotDatagrams) {
  std::list<TcpClient> clients;
  for (int i = 0; i <= MAX_TCP_CLIENTS; ++i) clients.emplace_back(_server.port());
  const std::string told = "Error: Maximum of 64 TCP clients has been reached.\n";
  EXPECT_TRUE(_server.waitForError(told));
  expectDatagramsAreServed();
  clients.front().send(question());
  EXPECT_EQ(clients.front().receive(momentMilliseconds), std::nullopt);
  const std::string errors = _server.standardError();
  EXPECT_EQ(errors.find(told), errors.rfind(told));
  EXPECT_EQ(_server.stop(SIGTERM), 0);
}

TEST_F(ZordchdConnectionsTest, AMessageOfTooManyPiecesEndsTheProcess) {
  TcpClient client(_server.port());
  constexpr std::uint32_t size = 1024 * SERVER_PIECE_SIZE;
  client.send(withLengthWord(std::string(size, 'x'), size));  // it may end meanwhile
  EXPECT_TRUE(_server.waitForError(
      "Error: ipcBufCount 1024 exceeded allowed limit of 1023.  Exiting...\n\n"));
  EXPECT_EQ(_server.stop(noWait), 1);
}

// The system's table of connections shows for each of them the timer that runs, 02 for the one that
// looks after a quiet peer.
TEST_F(ZordchdConnectionsTest, AreWatchedForPeersThatVanish) {
  TcpClient client(_server.port());
  EXPECT_TRUE(isAnswer(client.ask(question())));
  char ends[64];
  std::snprintf(ends, sizeof ends, ":%04X 0100007F:%04X 01 00000000:00000000 02:", _server.port(),
                static_cast<unsigned>(ntohs(client.address().port)));
  // The answer is acknowledged a moment after it came; and a table that changes while it is read
  // may lack a connection.
  std::string connections;
  waitUntil([&] {
    std::ifstream table("/proc/net/tcp");
    connections.assign(std::istreambuf_iterator<char>(table), {});
    return connections.find(ends) != std::string::npos;
  });
  EXPECT_THAT(connections, HasSubstr(ends));
  EXPECT_EQ(_server.stop(SIGTERM), 0);
}

}  // namespace
}  // namespace dch::testkit
