// What the carriers count.
#include <cerrno>
#include <list>

#include "dch/testkit/channel_thread.h"
#include "dch/testkit/clients.h"
#include "dch/testkit/counter_cases.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/recording_ports.h"
#include "tests/support/failing_calls.h"
#include "tests/support/wait_until.h"
#include "zordchcl/messages.h"

namespace dch::testkit::counter_cases {

namespace {

std::string question() {
  return catalogueMessage(DCH_REQUEST_APPLICATIONS);
}

}  // namespace

void answersDropped() {
  ChannelThread server({}, std::make_unique<SlowStore>());
  auto& store = static_cast<SlowStore&>(*server.store);
  std::list<TcpClient> clients;
  for (const char* name : {"ONE", "TWO", "THREE"}) {
    TcpClient& client = clients.emplace_back(server.port);
    client.send(
        registerMessage("appl:" + std::string(name) + ",KEY;group:g;attr:a,N,4;", name, "KEY"));
  }
  EXPECT_TRUE(
      waitUntil([&] { return server.thread->call([&] { return store.entries.size(); }) == 3; }));
  const CounterMoves moves(server.counters);
  clients.front().breakOff();
  clients.back().breakOff();
  server.thread->call([&] {
    store.concludeAll();
    server.channel.settle();
  });
  EXPECT_FALSE(TcpClient(server.port).ask(question()).empty());
  moves.expect({{Counter::answersDropped, 2}});
}

void datagramsThrownAway() {
  ChannelThread server;
  const UdpClient client(server.port);
  const std::string row = dataMessage(77, {{"name", 'T', std::string(8'000, 'x')}});
  const CounterMoves moves(server.counters);
  constexpr std::int64_t sent = 3'000;
  server.thread->call([&] {
    // Nothing is received meanwhile.
    for (int i = 1; i < sent; ++i) client.send(row);
    server.channel.drain();
    // The system tells with the next one that it can keep.
    client.send(row);
    server.channel.drain();
  });
  const std::int64_t thrownAway = moves.of(Counter::datagramsThrownAway);
  EXPECT_GT(thrownAway, 0);
  moves.expect(
      {{Counter::rowsReceived, sent - thrownAway}, {Counter::datagramsThrownAway, thrownAway}});
}

void notAllowed() {
  ChannelThread server;
  const UdpClient client(server.port);
  EXPECT_FALSE(client.ask(question()).empty());
  const CounterMoves moves(server.counters);
  server.thread->call([&] {
    server.channel.setLimits({.allowed = {}});
    for (int i = 0; i < 3; ++i) client.send(question());
    server.channel.drain();
  });
  EXPECT_EQ(TcpClient(server.port).receive(), "");
  EXPECT_FALSE(client.hasDatagram());
  moves.expect({{Counter::notAllowed, 4}});
}

void emptyDatagrams() {
  ChannelThread server;
  const UdpClient client(server.port);
  const CounterMoves moves(server.counters);
  for (int i = 0; i < 3; ++i) client.send("");
  EXPECT_FALSE(client.ask(question()).empty());
  moves.expect({{Counter::emptyDatagrams, 3}});
}

void longAnswersGivenUp() {
  ChannelThread server;
  // Each line of the answer begins with the group.
  std::string text = "appl:HOSTMON,HMN;group:" + std::string(30, 'g') + ";";
  for (int i = 0; i < 250; ++i) text += "attr:a" + std::to_string(i) + ",N,4;";
  EXPECT_FALSE(TcpClient(server.port).ask(registerMessage(text)).empty());
  const UdpClient client(server.port);
  const CounterMoves moves(server.counters);
  server.thread->call([&] {
    // No time passes for the rest of the answer.
    for (int times = 1; times <= 2; ++times) {
      client.send(catalogueMessage(DCH_REQUEST_ATTRIBUTES, "HOSTMON"));
      client.send(question());
      server.channel.drain();
      moves.expect({{Counter::longAnswersGivenUp, times}});
    }
  });
}

void connectionsRefused() {
  ChannelThread server({.connections = 2});
  const TcpClient first(server.port), second(server.port);
  EXPECT_FALSE(first.ask(question()).empty());
  EXPECT_FALSE(second.ask(question()).empty());
  const CounterMoves moves(server.counters);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(TcpClient(server.port).receive(), "");
  moves.expect({{Counter::connectionsRefused, 3}});
}

void acceptFailures() {
  ChannelThread server;
  const CounterMoves moves(server.counters);
  const FailingCall failing({.kind = SystemCall::acceptConnection, .first = 1, .last = 3}, EMFILE);
  EXPECT_FALSE(TcpClient(server.port).ask(question()).empty());
  moves.expect({{Counter::acceptFailures, 3}});
}

void stalledConnections() {
  ChannelThread server({.stall = std::chrono::milliseconds(1)});
  const TcpClient quiet(server.port);
  EXPECT_FALSE(quiet.ask(question()).empty());
  const CounterMoves moves(server.counters);
  std::list<TcpClient> stalling;
  for (int i = 0; i < 2; ++i) stalling.emplace_back(server.port).send(question().substr(0, 6));
  EXPECT_TRUE(waitUntil([&] {
    server.thread->call([&] { server.channel.tick(); });
    return moves.of(Counter::stalledConnections) == 2;
  }));
  for (const TcpClient& each : stalling) EXPECT_EQ(each.receive(), "");
  EXPECT_FALSE(quiet.ask(question()).empty());
  moves.expect({{Counter::stalledConnections, 2}});
}

void crowdedConnections() {
  ChannelThread server({.heldBytes = 400'000});
  const std::string large = withLengthWord(std::string(400'000, 'x'), 400'000);
  const CounterMoves moves(server.counters);
  std::list<TcpClient> crowding;
  for (int i = 0; i < 2; ++i)
    crowding.emplace_back(server.port).send(large.substr(0, large.size() - 1));
  EXPECT_TRUE(waitUntil([&] { return moves.of(Counter::crowdedConnections) == 1; }));
  EXPECT_FALSE(TcpClient(server.port).ask(question()).empty());
  moves.expect({{Counter::crowdedConnections, 1}});
}

void connections() {
  ChannelThread server;
  const CounterMoves moves(server.counters);
  const auto isTold = [&](std::int64_t number) {
    return waitUntil([&] {
      server.thread->call([&] { return server.channel.report(); });
      return moves.of(Counter::connections) == number;
    });
  };
  std::list<TcpClient> clients;
  for (int number = 1; number <= 3; ++number) {
    EXPECT_FALSE(clients.emplace_back(server.port).ask(question()).empty());
    EXPECT_TRUE(isTold(number));
  }
  clients.pop_back();
  EXPECT_TRUE(isTold(2));
}

}  // namespace dch::testkit::counter_cases
