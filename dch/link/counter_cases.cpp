// What the link makes move.
#include "dch/testkit/counter_cases.h"

#include "dch/clock.h"
#include "dch/net/event_loop.h"
#include "dch/service/server_link.h"
#include "dch/service/server_store.h"
#include "dch/testkit/link_test.h"
#include "dch/testkit/nats_server.h"
#include "dch/testkit/store_test.h"
#include "dch/testkit/tcp_gate.h"
#include "tests/support/wait_until.h"

namespace dch::testkit::counter_cases {

namespace {

// A store with source 1, linked when the case says so.
class LinkedStore {
 public:
  LinkedStore() {
    _store.store().load([](Change&&) {});
    keep(registered(hostmonRegistration));
    keep(WentOnline{"HOSTMON", "load", "host1", 1});
  }

  void link(const std::string& server) {
    LinkSettings settings;
    settings.servers = {server};
    settings.site = "west";
    _link.start(settings);
  }

  // A row of today: retention would remove one that is too old before it is published.
  void keepRow(std::size_t bytes = 0) {
    std::string message = dataMessage(1);
    message.resize(message.size() + bytes);
    keep(Row{1, now(), message});
  }

  // Whether it comes to have moved so far, or farther.
  bool comesTo(const CounterMoves& moves, Counter counter, std::int64_t moved,
               bool orFarther = false) {
    const auto hasMoved = [&] {
      _link.setCounters(&counters);
      return moves.of(counter) == moved || (orFarther && moves.of(counter) > moved);
    };
    return waitUntil(hasMoved, linkPatience);
  }

  Counters counters;

 private:
  void keep(Change change) {
    Entry entry;
    entry.change = std::move(change);
    _store.store().append(&entry, &_client);
    _store.finish([] {});
  }

  const TemporaryFolder _folder;
  const RecordingLog _log;
  RecordingClient _client;
  EventLoop _loop;
  ServerStore _store{
      _loop, _folder.path() + "/state.db", newEpoch(), Durability::process, {}, true, _log, [] {}};
  ServerLink _link{_loop, _store, _log};
};

}  // namespace

void linkRowsPublished() {
  const NatsServer nats;
  LinkedStore store;
  const CounterMoves moves(store.counters);
  for (int row = 0; row < 7; ++row) store.keepRow();
  store.link(nats.url());
  EXPECT_TRUE(store.comesTo(moves, Counter::linkRowsPublished, 7));
  EXPECT_TRUE(store.comesTo(moves, Counter::linkChangesBehind, 0));
  EXPECT_EQ(moves.of(Counter::linkRowsPublished), 7);
  EXPECT_EQ(moves.of(Counter::linkRowsTooLarge), 0);
}

void linkRowsTooLarge() {
  const NatsServer nats({.more = "max_payload: 4096"});
  LinkedStore store;
  const CounterMoves moves(store.counters);
  for (int row = 0; row < 3; ++row) store.keepRow(5'000);
  store.keepRow();
  store.link(nats.url());
  EXPECT_TRUE(store.comesTo(moves, Counter::linkRowsPublished, 1));
  EXPECT_EQ(moves.of(Counter::linkRowsTooLarge), 3);
}

void linkFailures() {
  const NatsServer nats;
  TcpGate gate(nats.port());
  LinkedStore store;
  const CounterMoves moves(store.counters);
  store.link(gate.natsUrl());
  EXPECT_TRUE(store.comesTo(moves, Counter::linkConnected, 1));
  // None, unless the machine stood still meanwhile.
  const std::int64_t before = moves.of(Counter::linkFailures);
  gate.cut();
  // It is tried again all the time.
  EXPECT_TRUE(store.comesTo(moves, Counter::linkFailures, before + 3, true));
  gate.pass();
  EXPECT_TRUE(store.comesTo(moves, Counter::linkConnected, 1));
}

void linkConnected() {
  NatsServer nats;
  LinkedStore store;
  const CounterMoves moves(store.counters);
  store.link(nats.url());
  EXPECT_TRUE(store.comesTo(moves, Counter::linkConnected, 1));
  nats.kill();
  EXPECT_TRUE(store.comesTo(moves, Counter::linkConnected, 0));
}

void linkChangesBehind() {
  const NatsServer nats;
  TcpGate gate(nats.port());
  gate.cut();
  LinkedStore store;
  const CounterMoves moves(store.counters);
  store.link(gate.natsUrl());
  for (int row = 0; row < 4; ++row) store.keepRow();
  // The registration and the source are changes, too.
  EXPECT_TRUE(store.comesTo(moves, Counter::linkChangesBehind, 6));
  gate.pass();
  EXPECT_TRUE(store.comesTo(moves, Counter::linkChangesBehind, 0));
}

}  // namespace dch::testkit::counter_cases
