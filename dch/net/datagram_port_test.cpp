#include "dch/net/datagram_port.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <list>
#include <optional>

#include "dch/net/answer_batch.h"
#include "dch/net/port.h"
#include "dch/net/port_sockets.h"
#include "dch/net/socket_option.h"
#include "dch/testkit/clients.h"
#include "dch/testkit/error_log.h"
#include "dch/testkit/loop_thread.h"
#include "tests/support/wait_until.h"

namespace dch {
namespace {

using testkit::UdpClient;

// Answers each datagram with what it was; a text in front tells of one that is not whole.
class DatagramPortTest : public ::testing::Test {
 protected:
  explicit DatagramPortTest(in_addr_t address = INADDR_LOOPBACK)
      : _served(openPort({htonl(address)}, 0)),
        _port(
            _loop, std::move(_served.datagramSockets),
            [this](std::span<const Message> messages) { answer(messages); },
            [this] { _answers.flush(); }, _counters),
        _answers(_port.descriptor(), _counters, _log) {
    _port.start();
    _thread.emplace(_loop);
  }

  void answer(std::span<const Message> messages) {
    for (const Message& each : messages) {
      if (_received) _received(each);
      if (each.isWhole)
        _answers.add(each.origin, each.bytes);
      else
        _answers.add(each.origin, "cut to " + std::to_string(each.bytes.size()));
    }
  }

  int port() const { return ntohs(_served.address.port); }

  EventLoop _loop;
  Counters _counters;
  const testkit::ErrorLog _log{false};
  ServedPort _served;
  std::function<void(const Message&)> _received;  // called for each datagram
  DatagramPort _port;
  AnswerBatch _answers;
  std::optional<testkit::LoopThread> _thread;
};

TEST_F(DatagramPortTest, TellsWhatCameAndFromWhom) {
  std::list<UdpClient> clients;
  for (int i = 0; i < 50; ++i) clients.emplace_back(port()).send("datagram " + std::to_string(i));
  int i = 0;
  for (UdpClient& each : clients) EXPECT_EQ(each.receive(), "datagram " + std::to_string(i++));
}

TEST_F(DatagramPortTest, KeepsTheOrderOfAClient) {
  UdpClient client(port());
  for (int i = 0; i < 100; ++i) client.send(std::to_string(i));
  for (int i = 0; i < 100; ++i) EXPECT_EQ(client.receive(), std::to_string(i));
}

TEST_F(DatagramPortTest, HandlesABurstOfOneClientInItsOrder) {
  UdpClient client(port());
  constexpr int bursts = 20, datagrams = 200;
  for (int burst = 0; burst < bursts; ++burst) {
    for (int i = 0; i < datagrams; ++i) client.send(std::to_string(burst * datagrams + i));
    for (int i = 0; i < datagrams; ++i)
      ASSERT_EQ(client.receive(), std::to_string(burst * datagrams + i));
  }
}

TEST_F(DatagramPortTest, TakesDatagramsUpToTheLargestSize) {
  UdpClient client(port());
  const std::string largest(maxDatagramBytes, 'x');
  EXPECT_EQ(client.ask(largest), largest);
  EXPECT_EQ(client.ask(largest + "x"), "cut to 8192");
  EXPECT_EQ(client.ask(std::string(60'000, 'x')), "cut to 8192");
}

TEST_F(DatagramPortTest, CountsEmptyDatagramsAndLeavesThemOut) {
  UdpClient client(port());
  client.send("");
  EXPECT_EQ(client.ask("next"), "next");
  EXPECT_EQ(_thread->call([&] { return _counters[Counter::emptyDatagrams]; }), 1u);
}

TEST_F(DatagramPortTest, CountsWhatTheSystemThrewAway) {
  UdpClient client(port());
  _thread->call([&] {
    // Nothing is received meanwhile.
    const std::string large(8'000, 'x');
    for (int i = 0; i < 3'000; ++i) client.send(large);
  });
  // The system tells with the datagrams that it could keep.
  EXPECT_EQ(client.receive(), std::string(8'000, 'x'));
  while (client.ask("next") != "next") {
  }
  const std::uint64_t thrownAway =
      _thread->call([&] { return _counters[Counter::datagramsThrownAway]; });
  EXPECT_GT(thrownAway, 0u);
  EXPECT_LT(thrownAway, 3'000u);
}

TEST_F(DatagramPortTest, DrainsWhatHasComeAndNotWhatComesMeanwhile) {
  UdpClient client(port());
  int count = 0;
  _thread->call([&] {
    constexpr int sent = 100, most = 10 * sent;
    _received = [&](const Message&) {
      if (++count < most) client.send("meanwhile");
    };
    for (int i = 0; i < sent; ++i) client.send("before");
    _port.drain();
    _received = nullptr;
    EXPECT_GE(count, sent);
    EXPECT_LT(count, most);
  });
}

TEST_F(DatagramPortTest, EndsToDrainWhileManyClientsGoOnSending) {
  std::list<UdpClient> clients;
  for (int i = 0; i < 64; ++i) clients.emplace_back(port());
  _thread->call([&] {
    constexpr std::size_t sent = 64 * 8, most = 8 * sent;
    std::size_t count = 0;
    _received = [&](const Message&) {
      if (++count >= most) return;
      for (int i = 0; i < 2; ++i) {
        clients.front().send("meanwhile");
        clients.splice(clients.end(), clients, clients.begin());
      }
    };
    for (int i = 0; i < 8; ++i)
      for (const UdpClient& each : clients) each.send("before");
    _port.drain();
    _received = nullptr;
    EXPECT_GE(count, sent);
    EXPECT_LT(count, most);
  });
}

TEST_F(DatagramPortTest, LetsNobodyWaitForAllThatAnotherClientSent) {
  const UdpClient flooding(port());
  std::list<UdpClient> others;
  for (int i = 0; i < 20; ++i) others.emplace_back(port());
  constexpr int flood = 200;
  std::size_t handled = 0, otherHandled = 0, last = 0;
  _thread->call([&] {
    _received = [&](const Message& message) {
      ++handled;
      if (message.bytes == "flood") return;
      ++otherHandled;
      last = handled;
    };
    for (int i = 0; i < flood; ++i) flooding.send("flood");
    for (const UdpClient& each : others) each.send("other");
  });
  for (const UdpClient& each : others) EXPECT_EQ(each.receive(), "other");
  _thread->call([&] {
    _received = nullptr;
    EXPECT_EQ(otherHandled, others.size());
    // One of the flood has its turn for each of theirs, and some that went before they came.
    EXPECT_LE(last, 4 * others.size());
  });
}

// A port on a socket that outlives it.
class PortOnSocket {
 public:
  explicit PortOnSocket(const Descriptor& socket)
      : _port(
            _loop, copies(socket), [this](auto messages) { note(messages); }, [] {}, _counters) {
    _port.start();
    _thread.emplace(_loop);
  }

  // Sends while nothing is received.
  template <class Send>
  void holdUpDuring(Send send) {
    _thread->call(send);
  }

  // What was thrown away of what came up to now: the system tells with what comes afterwards, which
  // is `last` here. Some of those may be left for who comes next.
  std::uint64_t thrownAway(const UdpClient& client, std::string_view last) {
    _thread->call([&] { _last = last; });
    EXPECT_TRUE(waitUntil([&] {
      client.send(std::string(last));
      return _hasLast.load();
    }));
    return _counters[Counter::datagramsThrownAway];
  }

 private:
  static std::vector<Descriptor> copies(const Descriptor& socket) {
    std::vector<Descriptor> one;
    one.emplace_back(dup(socket.get()));
    return one;
  }

  void note(std::span<const Message> messages) {
    for (const Message& each : messages)
      if (!_last.empty() && each.bytes == _last) _hasLast = true;
  }

  std::string_view _last;
  std::atomic<bool> _hasLast = false;
  EventLoop _loop;
  Counters _counters;
  DatagramPort _port;
  std::optional<testkit::LoopThread> _thread;
};

TEST(DatagramPortAfterAnotherTest, CountsWhatWasThrownAwaySinceThen) {
  sockaddr_in address = loopbackAddress(0);
  int error;
  const Descriptor socket = openDatagramSocket(&address, &error);
  const UdpClient client(ntohs(address.sin_port));
  constexpr int count = 3'000;
  const auto flood = [&] {
    for (int i = 0; i < count; ++i) client.send(std::string(8'000, 'x'));
  };
  {
    PortOnSocket first(socket);
    first.holdUpDuring(flood);
    EXPECT_GT(first.thrownAway(client, "end of the first"), 0u);
  }
  EXPECT_EQ(PortOnSocket(socket).thrownAway(client, "end of the second"), 0u);
  flood();
  const std::uint64_t thrownAway = PortOnSocket(socket).thrownAway(client, "end of the third");
  EXPECT_GT(thrownAway, 0u);
}

class AnyAddressTest : public DatagramPortTest {
 protected:
  AnyAddressTest() : DatagramPortTest(INADDR_ANY) {}
};

TEST_F(AnyAddressTest, AnswersFromTheAddressThatWasAsked) {
  const DatagramSocket client;
  for (const char* text : {"127.0.0.1", "127.0.0.2", "127.1.2.3"}) {
    sockaddr_in asked = loopbackAddress(port());
    inet_pton(AF_INET, text, &asked.sin_addr);
    client.sendTo(asked, text);
    sockaddr_in answering{};
    EXPECT_EQ(client.tryReceive(longestWaitMilliseconds, &answering), text);
    EXPECT_EQ(answering.sin_addr.s_addr, asked.sin_addr.s_addr) << text;
  }
}

}  // namespace
}  // namespace dch
