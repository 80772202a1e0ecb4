#include "dch/net/paced_answers.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <vector>

#include "dch/core/rows_out.h"
#include "dch/testkit/error_log.h"
#include "dch/testkit/loop_thread.h"
#include "tests/support/wait_until.h"

namespace dch {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

// As good as no end: what waits for it is not sent.
constexpr std::chrono::hours longPause{1};

Origin receiver(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  return {.peer = PeerAddress(address)};
}

// A message of `datagrams` datagrams, the last one short.
std::string longMessage(std::size_t datagrams, char byte) {
  return std::string((datagrams - 1) * maxDatagramBytes + 100, byte);
}

class PacedAnswersTest : public ::testing::Test {
 protected:
  struct Sent {
    Clock::time_point time;
    std::string bytes;
  };

  void start(milliseconds pause, std::size_t capacity = PacedAnswers::defaultCapacity) {
    _answers.emplace(
        _loop,
        [this](const Origin& origin, std::string_view datagram) {
          _sent[ntohs(origin.peer.port)].push_back({Clock::now(), std::string(datagram)});
        },
        _counters, _log, pause, capacity);
    _thread.emplace(_loop);
  }

  bool send(std::uint16_t port, const std::string& message) {
    return _thread->call([&] { return _answers->send(receiver(port), message); });
  }
  void giveUp(std::uint16_t port) {
    _thread->call([&] { _answers->giveUp(receiver(port).peer); });
  }
  // All that was sent to a receiver, once there are so many datagrams.
  std::vector<Sent> sentTo(std::uint16_t port, std::size_t datagrams) {
    std::vector<Sent> sent;
    EXPECT_TRUE(waitUntil([&] {
      sent = _thread->call([&] { return _sent[port]; });
      return sent.size() >= datagrams;
    }));
    return sent;
  }
  std::string bytesSentTo(std::uint16_t port, std::size_t datagrams) {
    std::string all;
    for (const Sent& each : sentTo(port, datagrams)) all += each.bytes;
    return all;
  }

  EventLoop _loop;
  Counters _counters;
  const testkit::ErrorLog _log{false};
  std::map<std::uint16_t, std::vector<Sent>> _sent;
  std::optional<PacedAnswers> _answers;
  std::optional<testkit::LoopThread> _thread;
};

TEST_F(PacedAnswersTest, AreSentInDatagramsOfTheLargestSize) {
  start(milliseconds(1));
  EXPECT_TRUE(send(1, longMessage(3, 'a')));
  const std::vector<Sent> sent = sentTo(1, 3);
  ASSERT_EQ(sent.size(), 3u);
  EXPECT_EQ(sent[0].bytes, std::string(maxDatagramBytes, 'a'));
  EXPECT_EQ(sent[1].bytes, std::string(maxDatagramBytes, 'a'));
  EXPECT_EQ(sent[2].bytes, std::string(100, 'a'));
}

TEST_F(PacedAnswersTest, PauseBetweenTheirDatagrams) {
  start(milliseconds(50));
  send(1, longMessage(3, 'a'));
  const std::vector<Sent> sent = sentTo(1, 3);
  ASSERT_EQ(sent.size(), 3u);
  EXPECT_GE(sent[1].time - sent[0].time, milliseconds(50));
  EXPECT_GE(sent[2].time - sent[1].time, milliseconds(50));
}

TEST_F(PacedAnswersTest, GoToSeveralReceiversAtATime) {
  start(milliseconds(1));
  constexpr std::uint16_t receivers = 20;
  for (std::uint16_t i = 1; i <= receivers; ++i)
    EXPECT_TRUE(send(i, longMessage(4, static_cast<char>('a' + i))));
  for (std::uint16_t i = 1; i <= receivers; ++i)
    EXPECT_EQ(bytesSentTo(i, 4), longMessage(4, static_cast<char>('a' + i)));
}

TEST_F(PacedAnswersTest, AreReplacedByANewOneWhichWaitsForItsTurn) {
  start(milliseconds(50));
  // In one go: nothing is due in between, however slow the machine is.
  _thread->call([&] {
    _answers->send(receiver(1), longMessage(3, 'a'));
    _answers->send(receiver(1), longMessage(2, 'b'));
  });
  const std::vector<Sent> sent = sentTo(1, 3);
  ASSERT_EQ(sent.size(), 3u);
  EXPECT_EQ(sent[0].bytes[0], 'a');
  EXPECT_EQ(sent[1].bytes + sent[2].bytes, longMessage(2, 'b'));
  EXPECT_GE(sent[1].time - sent[0].time, milliseconds(50));
  EXPECT_EQ(_thread->call([&] { return _counters[Counter::longAnswersGivenUp]; }), 1u);
}

TEST_F(PacedAnswersTest, AreNotSentFasterToWhoGivesUpAndAsksAgain) {
  start(longPause);
  for (int i = 0; i < 100; ++i) {
    send(1, longMessage(2, 'a'));
    giveUp(1);
  }
  EXPECT_EQ(sentTo(1, 1).size(), 1u);
}

TEST_F(PacedAnswersTest, AreGivenUpForOneReceiverAlone) {
  start(milliseconds(20));
  _thread->call([&] {
    _answers->send(receiver(1), longMessage(2, 'a'));
    _answers->send(receiver(2), longMessage(2, 'b'));
    _answers->giveUp(receiver(1).peer);
  });
  EXPECT_EQ(bytesSentTo(2, 2), longMessage(2, 'b'));
  EXPECT_EQ(sentTo(1, 1).size(), 1u);
}

TEST_F(PacedAnswersTest, AreNotMoreThanTheCapacity) {
  start(longPause, 2);
  EXPECT_TRUE(send(1, longMessage(2, 'a')));
  EXPECT_TRUE(send(2, longMessage(2, 'a')));
  EXPECT_FALSE(send(3, longMessage(2, 'a')));
  EXPECT_TRUE(send(2, longMessage(2, 'b')));
}

TEST_F(PacedAnswersTest, MakeRoomWhenTheyAreSent) {
  start(milliseconds(1), 1);
  EXPECT_TRUE(send(1, longMessage(2, 'a')));
  EXPECT_TRUE(waitUntil([&] { return send(2, longMessage(2, 'b')); }));
  EXPECT_EQ(bytesSentTo(2, 2), longMessage(2, 'b'));
}

TEST_F(PacedAnswersTest, LetsOneMachineHaveAQuarterOfThem) {
  start(longPause, 8);
  const auto isSent = [&](const char* address, int port) {
    Origin origin = receiver(static_cast<std::uint16_t>(port));
    origin.peer.address = inet_addr(address);
    return _thread->call([&] { return _answers->send(origin, longMessage(2, 'x')); });
  };
  for (const int port : {1, 2}) EXPECT_TRUE(isSent("192.0.2.1", port));
  EXPECT_FALSE(isSent("192.0.2.1", 3));
  EXPECT_TRUE(isSent("192.0.2.1", 2)) << "it takes the place of the one before";
  EXPECT_TRUE(isSent("192.0.2.2", 3));
  for (const int port : {4, 5, 6, 7, 8}) EXPECT_TRUE(isSent("127.0.0.1", port));
  EXPECT_FALSE(isSent("127.0.0.1", 9)) << "all places are taken";
}

}  // namespace
}  // namespace dch
