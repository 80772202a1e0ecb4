// What the link makes move.
#include "dch/testkit/counter_cases.h"

#include <algorithm>
#include <optional>

#include "dch/clock.h"
#include "dch/link/alive_message.h"
#include "dch/net/event_loop.h"
#include "dch/service/server_link.h"
#include "dch/service/server_store.h"
#include "dch/testkit/link_test.h"
#include "dch/testkit/nats_client.h"
#include "dch/testkit/nats_server.h"
#include "dch/testkit/row_names.h"
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

  void link(const std::string& server, const Epoch& run = newEpoch()) {
    LinkSettings settings;
    settings.servers = {server};
    settings.site = "west";
    _link.emplace(_loop, _store, _log, settings, run);
    _link->start(nullptr);
  }
  // As each second.
  void tick() { _link->tick(); }

  // A row of today: retention would remove one that is too old before it is published.
  void keepRow(std::size_t bytes = 0) {
    std::string message = dataMessage(1);
    message.resize(message.size() + bytes);
    keep(Row{1, now(), message});
  }

  // Whether it comes to have moved so far, or farther.
  bool comesTo(const CounterMoves& moves, Counter counter, std::int64_t moved,
               bool orFarther = false) {
    return waitUntil(
        [&] { return hasMoved(moves, counter, moved) || (orFarther && moves.of(counter) > moved); },
        linkPatience);
  }
  bool hasMoved(const CounterMoves& moves, Counter counter, std::int64_t moved) {
    _link->setCounters(&counters);
    return moves.of(counter) == moved;
  }

  bool knowsSite(const std::string& name) const {
    const auto sites = _link->sites();
    return std::any_of(sites->begin(), sites->end(),
                       [&](const SiteState& each) { return each.name == name; });
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
  std::optional<ServerLink> _link;
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

namespace {

// What others say to a store's link, which hears nothing before it has said something itself.
class OtherSites {
 public:
  OtherSites(LinkedStore& store, const std::string& server) : _store(store), _client(server) {}

  void say(const std::string& subject, const std::string& text) {
    requireDone(natsConnection_PublishString(_client.get(), subject.c_str(), text.c_str()));
    requireDone(natsConnection_Flush(_client.get()));
  }
  void sayThatItIsThere(const std::string& site) {
    say(aliveSubject(site),
        aliveText({.run = _run, .count = ++_count, .period = std::chrono::seconds(1)}));
  }
  bool isHeard(const std::string& site) {
    const auto isKnown = [&] {
      _store.tick();
      sayThatItIsThere(site);
      return _store.knowsSite(site);
    };
    return waitUntil(isKnown, linkPatience);
  }

 private:
  LinkedStore& _store;
  const NatsClient _client;
  const Epoch _run = newEpoch();
  std::uint64_t _count = 0;
};

}  // namespace

void linkMessagesRefused() {
  const NatsServer nats;
  LinkedStore store;
  const CounterMoves moves(store.counters);
  store.link(nats.url());
  OtherSites sites(store, nats.url());
  ASSERT_TRUE(sites.isHeard("east"));
  EXPECT_EQ(moves.of(Counter::linkMessagesRefused), 0);
  for (int times = 0; times < 3; ++times) sites.say("zord.alive.east", "nonsense");
  EXPECT_TRUE(store.comesTo(moves, Counter::linkMessagesRefused, 3));
}

// A server that does not hear questions yet is asked again.
void linkQuestionsRefused() {
  const NatsServer nats;
  LinkedStore store;
  const CounterMoves moves(store.counters);
  store.link(nats.url());
  OtherSites sites(store, nats.url());
  ASSERT_TRUE(sites.isHeard("east"));
  EXPECT_EQ(moves.of(Counter::linkQuestionsRefused), 0);
  int asked = 0;
  const auto hasMoved = [&] {
    ++asked;
    sites.say("zord.known.west", "nonsense");
    store.hasMoved(moves, Counter::linkQuestionsRefused, 3);
    return moves.of(Counter::linkQuestionsRefused) >= 3;
  };
  EXPECT_TRUE(waitUntil(hasMoved, linkPatience));
  EXPECT_LE(moves.of(Counter::linkQuestionsRefused), asked);
}

void linkSites() {
  const NatsServer nats;
  LinkedStore store;
  const CounterMoves moves(store.counters);
  store.link(nats.url());
  OtherSites sites(store, nats.url());
  ASSERT_TRUE(sites.isHeard("east"));
  EXPECT_TRUE(store.comesTo(moves, Counter::linkSites, 1));
  ASSERT_TRUE(sites.isHeard("north"));
  EXPECT_TRUE(store.comesTo(moves, Counter::linkSites, 2));
}

void linkSitesSilent() {
  const NatsServer nats;
  LinkedStore store;
  const CounterMoves moves(store.counters);
  store.link(nats.url());
  OtherSites sites(store, nats.url());
  ASSERT_TRUE(sites.isHeard("east"));
  ASSERT_TRUE(sites.isHeard("north"));
  const auto isMissed = [&] {
    sites.sayThatItIsThere("north");
    return store.hasMoved(moves, Counter::linkSitesSilent, 1);
  };
  EXPECT_TRUE(waitUntil(isMissed, linkPatience)) << "east says nothing any more";
  const auto isBack = [&] {
    sites.sayThatItIsThere("east");
    sites.sayThatItIsThere("north");
    return store.hasMoved(moves, Counter::linkSitesSilent, 0);
  };
  EXPECT_TRUE(waitUntil(isBack, linkPatience));
  EXPECT_EQ(moves.of(Counter::linkSites), 2);
}

namespace {

// Two servers of one name, of which the second stands aside: it is a newcomer, or both are and its
// run is lower.
struct Namesakes {
  Namesakes() {
    first.link(nats.url(), name(1, 2).epoch);
    second.link(nats.url(), name(1, 1).epoch);
  }
  // Whether it comes to have moved so far there.
  bool comesTo(LinkedStore& store, const CounterMoves& moves, Counter counter, std::int64_t moved) {
    const auto hasMoved = [&] {
      first.tick();
      second.tick();
      return store.hasMoved(moves, counter, moved);
    };
    return waitUntil(hasMoved, linkPatience);
  }

  const NatsServer nats;
  LinkedStore first, second;
};

}  // namespace

void linkSiteNameRefused() {
  Namesakes both;
  const CounterMoves first(both.first.counters), second(both.second.counters);
  EXPECT_TRUE(both.comesTo(both.first, first, Counter::linkSiteNameRefused, 1));
  EXPECT_TRUE(both.comesTo(both.second, second, Counter::linkSiteNameRefused, 1));
}

void linkAside() {
  Namesakes both;
  const CounterMoves first(both.first.counters), second(both.second.counters);
  EXPECT_TRUE(both.comesTo(both.second, second, Counter::linkAside, 1));
  EXPECT_EQ(first.of(Counter::linkAside), 0);
  EXPECT_TRUE(both.comesTo(both.second, second, Counter::linkConnected, 0)) << "to publish rows";
}

}  // namespace dch::testkit::counter_cases
