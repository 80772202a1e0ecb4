// What the real program makes of connections that break off, stall, do not read or are many.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <list>

#include "dch/testkit/clients.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/server_process.h"
#include "tests/support/sockets.h"
#include "tests/support/wait_until.h"
#include "zordchcl/messages.h"
#include "zordchcl/status.h"

namespace dch::testkit {
namespace {

using ::testing::HasSubstr;

constexpr std::size_t sizeOfStatusAnswer = 14;

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

TEST_F(ZordchdConnectionsTest, WhatCameOnConnectionsThatNobodyHasTakenYetIsAnsweredAtItsEnd) {
  kill(_server.processId(), SIGSTOP);
  std::list<TcpClient> clients;
  for (int i = 0; i < 100; ++i) clients.emplace_back(port()).send(question());
  kill(_server.processId(), SIGTERM);
  EXPECT_EQ(_server.stop(SIGCONT), 0);
  for (const TcpClient& client : clients) EXPECT_TRUE(isAnswer(client.receive().value_or("")));
}

// What lies there when a connection is closed has the system throw away the answers on their way.
TEST_F(ZordchdConnectionsTest, WhoIsStillSendingAtItsEndReadsAllAnswers) {
  kill(_server.processId(), SIGSTOP);
  const TcpClient client(port());
  std::string requests;
  while (requests.size() < 1'000'000) requests += question();
  ASSERT_GT(send(client.descriptor(), requests.data(), requests.size(), MSG_DONTWAIT), 0);
  kill(_server.processId(), SIGTERM);
  EXPECT_EQ(_server.stop(SIGCONT), 0);
  std::array<char, 100'000> answers;
  std::size_t size = 0;
  ssize_t count;
  while ((count = recv(client.descriptor(), answers.data(), answers.size(), 0)) > 0)
    size += static_cast<std::size_t>(count);
  EXPECT_EQ(count, 0) << std::strerror(errno);
  EXPECT_GT(size, 100 * sizeOfStatusAnswer);
  EXPECT_EQ(size % sizeOfStatusAnswer, 0u);
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

TEST_F(ZordchdConnectionsTest, AMessageThatStopsInTheMiddleHoldsUpNobody) {
  TcpClient stalling(_server.port()), other(_server.port());
  EXPECT_TRUE(isAnswer(stalling.ask(question())));
  stalling.send(registerMessage().substr(0, 20));
  expectDatagramsAreServed();
  EXPECT_TRUE(isAnswer(other.ask(question())));
  stalling.send(registerMessage().substr(20));
  EXPECT_EQ(statusOf(stalling.receive().value_or("")), DCH_STATUS_OK);
  EXPECT_EQ(_server.stop(SIGTERM), 0) << _server.standardError();
}

TEST_F(ZordchdConnectionsTest, ManyAreServedAtATime) {
  std::list<TcpClient> clients;
  for (int i = 0; i < 300; ++i) clients.emplace_back(_server.port()).send(question());
  for (TcpClient& each : clients) EXPECT_TRUE(isAnswer(each.receive().value_or("")));
  expectDatagramsAreServed();
  EXPECT_EQ(_server.stop(SIGTERM), 0);
}

TEST_F(ZordchdConnectionsTest, AMessageThatIsTooLongEndsItsConnectionAndHoldsUpNobody) {
  TcpClient client(_server.port()), other(_server.port());
  constexpr std::uint32_t size = 4 << 20;
  client.send(withLengthWord("0123", size));
  EXPECT_EQ(statusOf(client.receive().value_or("")), DCH_STATUS_MALFORMED);
  EXPECT_EQ(client.receive(), "");
  EXPECT_TRUE(isAnswer(other.ask(question())));
  expectDatagramsAreServed();
  EXPECT_EQ(_server.stop(SIGTERM), 0);
}

TEST_F(ZordchdConnectionsTest, AMessageOfAMebibyteIsTaken) {
  TcpClient client(_server.port());
  constexpr std::uint32_t size = 1 << 20;
  client.send(withLengthWord(std::string(size, 'x'), size));
  EXPECT_EQ(statusOf(client.receive().value_or("")), DCH_STATUS_MALFORMED);
  EXPECT_TRUE(isAnswer(client.ask(question())));
  EXPECT_EQ(_server.stop(SIGTERM), 0);
}

TEST_F(ZordchdConnectionsTest, RequestsThatComeTogetherAreAnsweredInTheirOrder) {
  TcpClient client(_server.port());
  client.send(question() + registerMessage() + question());
  const std::string answers = client.StreamSocket::receive(3 * sizeOfStatusAnswer);
  ASSERT_EQ(answers.size(), 3 * sizeOfStatusAnswer);
  EXPECT_TRUE(isAnswer(answers.substr(0, sizeOfStatusAnswer)));
  EXPECT_EQ(statusOf(answers.substr(sizeOfStatusAnswer, sizeOfStatusAnswer)), DCH_STATUS_OK);
  EXPECT_TRUE(isAnswer(answers.substr(2 * sizeOfStatusAnswer)));
  EXPECT_EQ(_server.stop(SIGTERM), 0);
}

TEST_F(ZordchdConnectionsTest, AClientThatReadsNothingHoldsUpNobody) {
  TcpClient greedy(_server.port()), other(_server.port());
  EXPECT_EQ(statusOf(greedy.ask(registerMessage())), DCH_STATUS_OK);
  // As much as its own system takes: the server does not take all of it up.
  std::string questions;
  for (int i = 0; i < 1'000; ++i) questions += catalogueMessage(DCH_REQUEST_ATTRIBUTES, "HOSTMON");
  for (int i = 0; i < 1'000; ++i)
    if (::send(greedy.descriptor(), questions.data(), questions.size(), MSG_DONTWAIT) < 0) break;
  EXPECT_TRUE(isAnswer(other.ask(question())));
  expectDatagramsAreServed();
  EXPECT_EQ(_server.stop(SIGTERM), 0);
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
