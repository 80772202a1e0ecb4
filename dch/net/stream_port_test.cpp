#include "dch/net/stream_port.h"

#include <gtest/gtest.h>
#include <netinet/tcp.h>

#include <atomic>
#include <functional>
#include <list>
#include <vector>

#include "dch/net/port_sockets.h"
#include "dch/testkit/clients.h"
#include "dch/testkit/error_log.h"
#include "dch/testkit/loop_thread.h"
#include "dch/testkit/messages.h"
#include "tests/support/wait_until.h"

namespace dch {
namespace {

using testkit::ErrorLog;
using testkit::LoopThread;
using testkit::TcpClient;

std::string message(const std::string& text) {
  return testkit::withLengthWord("0123" + text, static_cast<std::uint32_t>(4 + text.size()));
}
const std::string brokenAnswer = "broken";

// Answers each message with itself, as often as it is told.
class Echo : public StreamClient {
 public:
  StreamPort* port = nullptr;
  std::size_t times = 1;
  std::atomic<bool> isOpen = true;
  std::function<void(const Message&)> onReceived;

  void received(const Message& message) override {
    if (onReceived) onReceived(message);
    std::string answer;
    for (std::size_t i = 0; i < times; ++i) answer += message.bytes;
    port->send(message.origin, answer);
    port->finished(message.origin);
    last = message.origin;
  }
  void receivedBroken(const Origin& origin) override { port->send(origin, brokenAnswer); }
  void closed(const Origin&) override { ++closedCount; }
  void worked() override { port->settle(); }
  bool isAllowed(const PeerAddress&) override { return isOpen; }

  Origin last;
  int closedCount = 0;
};

class StreamPortTest : public ::testing::Test {
 protected:
  explicit StreamPortTest(const StreamLimits& limits = {.connections = 4, .messageBytes = 100'000})
      : _port(_loop, openedListener(), limits, _echo, _counters, _log) {
    _echo.port = &_port;
    _port.start();
    _thread.emplace(_loop);
  }

  Descriptor openedListener() {
    int error = 0;
    Descriptor listener = openListener(&_address, &error);
    EXPECT_EQ(error, 0);
    _listener = listener.get();
    return listener;
  }
  int port() const { return ntohs(_address.sin_port); }

  std::uint64_t counted(Counter counter) {
    return _thread->call([&] { return _counters[counter]; });
  }
  int closedCount() {
    return _thread->call([&] { return _echo.closedCount; });
  }

  sockaddr_in _address = loopbackAddress(0);
  int _listener = -1;  // the port's
  EventLoop _loop;
  Counters _counters;
  const ErrorLog _log{false};
  Echo _echo;
  StreamPort _port;
  std::optional<LoopThread> _thread;
};

TEST_F(StreamPortTest, AnswersMessagesThatComeTogether) {
  TcpClient client(port());
  client.send(message("one") + message("two") + message("three").substr(0, 5));
  EXPECT_EQ(client.StreamSocket::receive(14), message("one") + message("two"));
  client.send(message("three").substr(5));
  EXPECT_EQ(client.StreamSocket::receive(9), message("three"));
}

TEST_F(StreamPortTest, ServesOthersBetweenTheMessagesOfOneThatSendsMany) {
  constexpr std::size_t many = 4'000;
  std::string requests;
  for (std::size_t i = 0; i < many; ++i) requests += message("a");
  TcpClient busy(port()), other(port());
  busy.ask(message("a"));
  other.ask(message("b"));
  std::string order;
  _thread->call([&] {  // on the loop's thread: all is there before it looks
    _echo.onReceived = [&order](const Message& each) { order += each.bytes.back(); };
    busy.send(requests);
    other.send(message("b"));
  });
  EXPECT_EQ(busy.StreamSocket::receive(requests.size()), requests);
  EXPECT_EQ(other.receive(), message("b"));
  _thread->call([&] { _echo.onReceived = nullptr; });
  EXPECT_EQ(order.size(), many + 1);
  EXPECT_LT(order.find('b'), many);
}

// The test sees what a client only notices by the clock.
TEST_F(StreamPortTest, SendsAnswersWithoutWaitingForThoseBeforeToBeConfirmed) {
  int isSentAtOnce = 0;
  socklen_t length = sizeof isSentAtOnce;
  // Connections have the options of their listener.
  ASSERT_EQ(getsockopt(_listener, IPPROTO_TCP, TCP_NODELAY, &isSentAtOnce, &length), 0);
  EXPECT_NE(isSentAtOnce, 0);
}

TEST_F(StreamPortTest, AnswersALengthThatNoMessageHasAndEndsTheConnection) {
  {
    TcpClient client(port());
    client.send(message("one") + std::string(4, '\0') + message("two"));
    EXPECT_EQ(client.StreamSocket::receive(1'000), message("one") + brokenAnswer);
  }
  EXPECT_TRUE(waitUntil([&] { return closedCount() == 1; }));
}

TEST_F(StreamPortTest, LosesNoAnswerWhenMuchFollowsALengthThatNoMessageHas) {
  std::string requests;
  for (int i = 0; i < 1'000; ++i) requests += message("one");
  TcpClient client(port());
  client.send(requests + std::string(1'000'000, '\0'));
  const std::string answers = requests + brokenAnswer;
  EXPECT_EQ(client.StreamSocket::receive(answers.size() + 1).size(), answers.size());
}

TEST_F(StreamPortTest, AnswersAMessageThatEndsInTheMiddle) {
  TcpClient client(port());
  client.send(message("one") + "\0\0");
  client.send(std::string("\0\0\1\0", 4) + "rest");
  client.finishSending();
  EXPECT_EQ(client.StreamSocket::receive(1'000), message("one") + brokenAnswer);
}

TEST_F(StreamPortTest, RefusesConnectionsBeyondItsLimitAndServesTheOthers) {
  std::list<TcpClient> clients;
  for (int i = 0; i < 4; ++i) {
    clients.emplace_back(port());
    EXPECT_EQ(clients.back().ask(message("hello")), message("hello"));
  }
  EXPECT_EQ(TcpClient(port()).receive(), "");
  EXPECT_EQ(counted(Counter::connectionsRefused), 1u);
  for (TcpClient& each : clients) EXPECT_EQ(each.ask(message("hello")), message("hello"));
  clients.pop_back();
  EXPECT_TRUE(waitUntil([&] { return closedCount() == 1; }));
  EXPECT_EQ(TcpClient(port()).ask(message("hello")), message("hello"));
}

TEST_F(StreamPortTest, KeepsAnswersForAClientThatReadsLater) {
  TcpClient client(port());
  _thread->call([&] { _echo.times = 100; });
  const std::string big = message(std::string(90'000, 'x'));
  for (int i = 0; i < 3; ++i) client.send(big);
  // It serves others while the answers wait.
  EXPECT_GT(TcpClient(port()).ask(message("hello")).size(), 0u);
  std::string all = client.StreamSocket::receive(300 * big.size());
  EXPECT_EQ(all.size(), 300 * big.size());
  EXPECT_EQ(counted(Counter::answersDropped), 0u);
}

TEST_F(StreamPortTest, TakesUpNoMoreFromAClientThatDoesNotReadThanTheSystemMayKeep) {
  TcpClient client(port()), other(port());
  constexpr std::size_t size = 1'000;
  std::size_t answered = 0;
  _thread->call([&] {
    _echo.times = 100;
    _echo.onReceived = [&](const Message&) { answered += _echo.times * size; };
  });
  std::string messages;
  while (messages.size() < 60 * size) messages += message(std::string(size - 8, 'x'));
  client.send(messages);
  EXPECT_GT(other.ask(message("hello")).size(), 0u);
  _thread->call([&] { _echo.onReceived = nullptr; });
  EXPECT_GT(answered, 0u);
  EXPECT_LT(answered, 1'000'000u);
}

TEST_F(StreamPortTest, DropsTheAnswerForAConnectionThatIsGone) {
  {
    TcpClient client(port());
    EXPECT_EQ(client.ask(message("hello")), message("hello"));
  }
  EXPECT_TRUE(waitUntil([&] { return closedCount() == 1; }));
  _thread->call([&] { _port.send(_echo.last, "late"); });
  EXPECT_EQ(counted(Counter::answersDropped), 1u);
}

TEST_F(StreamPortTest, CountsAnAnswerOnceThatItCouldNotSend) {
  TcpClient client(port());
  EXPECT_EQ(client.ask(message("hello")), message("hello"));
  _thread->call([&] {
    _echo.onReceived = [&](const Message&) { client.breakOff(); };
    client.send(message("hello"));
    _port.drain();
    _port.settle();
    _echo.onReceived = nullptr;
    EXPECT_EQ(_echo.closedCount, 1);
  });
  EXPECT_EQ(counted(Counter::answersDropped), 1u);
}

TEST_F(StreamPortTest, DrainsWhatHasComeAndNotWhatComesMeanwhile) {
  TcpClient client(port());
  EXPECT_EQ(client.ask(message("hello")), message("hello"));
  int count = 0;
  _thread->call([&] {
    constexpr int sent = 100, most = 10 * sent;
    _echo.onReceived = [&](const Message&) {
      if (++count < most) client.send(message("meanwhile"));
    };
    std::string before;
    for (int i = 0; i < sent; ++i) before += message("before");
    client.send(before);
    _port.drain();
    _echo.onReceived = nullptr;
    EXPECT_GE(count, sent);
    EXPECT_LT(count, most);
  });
}

TEST_F(StreamPortTest, EndsToDrainWhileAClientGoesOnSending) {
  TcpClient client(port());
  EXPECT_EQ(client.ask(message("hello")), message("hello"));
  int count = 0;
  _thread->call([&] {
    constexpr int most = 100;
    _echo.onReceived = [&](const Message&) {
      if (++count < most) client.send(message("meanwhile"));
    };
    client.send(message("before"));
    _port.drain();
    do _port.settle();
    while (_port.drainRest());
    _echo.onReceived = nullptr;
    EXPECT_GE(count, 1);
    EXPECT_LT(count, most);
  });
}

class CrowdedStreamTest : public StreamPortTest {
 protected:
  CrowdedStreamTest()
      : StreamPortTest({.connections = 4, .messageBytes = 1'000'000, .heldBytes = 400'000}) {}
};

TEST_F(CrowdedStreamTest, EndsTheConnectionWhoseMessageTakesTooMuchMemory) {
  const std::string large = message(std::string(400'000, 'x'));
  TcpClient first(port()), second(port());
  for (const TcpClient* each : {&first, &second}) each->send(large.substr(0, large.size() - 1));
  const TcpClient* kept = nullptr;
  EXPECT_TRUE(waitUntil([&] {
    constexpr int noWait = 0;
    if (first.receive(noWait) == "") kept = &second;
    if (second.receive(noWait) == "") kept = &first;
    return kept != nullptr;
  }));
  EXPECT_EQ(counted(Counter::crowdedConnections), 1u);
  EXPECT_EQ(TcpClient(port()).ask(message("hello")), message("hello"));
  kept->send(large.substr(large.size() - 1));
  EXPECT_EQ(kept->StreamSocket::receive(large.size()), large);
  EXPECT_EQ(counted(Counter::crowdedConnections), 1u);
}

TEST_F(CrowdedStreamTest, CountsNothingForMessagesThatAreWhole) {
  const std::string large = message(std::string(300'000, 'x'));
  TcpClient client(port());
  for (int i = 0; i < 5; ++i) {
    client.send(large);
    EXPECT_EQ(client.StreamSocket::receive(large.size()), large);
  }
  EXPECT_EQ(counted(Counter::crowdedConnections), 0u);
}

class StalledStreamTest : public StreamPortTest {
 protected:
  static constexpr std::chrono::milliseconds stall{1};

  StalledStreamTest()
      : StreamPortTest({.connections = 4, .messageBytes = 100'000, .stall = stall}) {}

  // Whether it has ended so many connections.
  bool endsStalled(std::uint64_t count) {
    return waitUntil([&] {
      return _thread->call([&] {
        _port.endStalled(std::chrono::steady_clock::now());
        _port.settle();
        return _counters[Counter::stalledConnections] == count;
      });
    });
  }
};

TEST_F(StalledStreamTest, EndsAConnectionThatStandsStillInAMessage) {
  TcpClient client(port());
  EXPECT_EQ(client.ask(message("hello")), message("hello"));
  client.send(message("hello").substr(0, 6));
  EXPECT_TRUE(endsStalled(1));
  EXPECT_EQ(client.receive(), "");
}

TEST_F(StalledStreamTest, EndsAConnectionThatStaysAfterABrokenMessage) {
  TcpClient client(port());
  client.send(std::string(4, '\0'));
  EXPECT_EQ(client.StreamSocket::receive(1'000), brokenAnswer);
  EXPECT_TRUE(endsStalled(1));
}

TEST_F(StalledStreamTest, EndsAConnectionWhoseClientDoesNotRead) {
  TcpClient client(port());
  _thread->call([&] { _echo.times = 1'000; });
  client.send(message(std::string(90'000, 'x')));
  // Else it may be ended in the midst of its message, which comes in pieces.
  EXPECT_TRUE(waitUntil([&] { return _thread->call([&] { return _echo.last.connection != 0; }); }));
  EXPECT_TRUE(endsStalled(1));
  EXPECT_EQ(counted(Counter::answersDropped), 1u);
}

TEST_F(StalledStreamTest, KeepsAConnectionThatIsQuietBetweenMessages) {
  TcpClient quiet(port()), stalling(port());
  EXPECT_EQ(quiet.ask(message("hello")), message("hello"));
  stalling.send(message("hello").substr(0, 6));
  EXPECT_TRUE(endsStalled(1));
  EXPECT_EQ(quiet.ask(message("hello")), message("hello"));
}

TEST_F(StalledStreamTest, KeepsAConnectionWhoseMessageItDoesNotTakeItself) {
  TcpClient client(port()), other(port());
  EXPECT_EQ(client.ask(message("hello")), message("hello"));
  client.send(message("hello").substr(0, 6));
  EXPECT_EQ(other.ask(message("hello")), message("hello"));  // it has the first part then
  _thread->call([&] { _port.setHeldUp(true); });
  client.send(message("hello").substr(6));
  _thread->call([&] {
    const auto now = std::chrono::steady_clock::now();
    _port.endStalled(now + std::chrono::hours(1));
    _port.setHeldUp(false);
    _port.endStalled(now + stall);
    _port.settle();
  });
  EXPECT_EQ(client.receive(), message("hello"));
}

}  // namespace
}  // namespace dch
