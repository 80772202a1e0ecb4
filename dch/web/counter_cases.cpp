// What the web counts, and what is counted where it meets the channel.
#include <gtest/gtest.h>

#include <cerrno>
#include <list>
#include <memory>
#include <optional>
#include <vector>

#include "dch/testkit/connections_thread.h"
#include "dch/testkit/counter_cases.h"
#include "dch/testkit/http_client.h"
#include "dch/testkit/loop_thread.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/watched_core.h"
#include "dch/web/connections.h"
#include "dch/web/live_feed.h"
#include "dch/web/live_streams.h"
#include "dch/web/web_server.h"
#include "tests/support/failing_calls.h"
#include "tests/support/wait_until.h"

namespace dch::testkit::counter_cases {

namespace {

// Room for two, who are answered nothing.
class SilentWeb : public ConnectionsThread {
 public:
  SilentWeb()
      : ConnectionsThread({.connections = 2},
                          [unanswered = std::make_shared<std::vector<Connections::Respond>>()](
                              const WebRequest&, const Connections::Respond& respond) {
                            unanswered->push_back(respond);
                          }) {}
};

// The web before a channel with group load of HOSTMON, with host1 in it, that has not told of
// itself for an hour.
class WholeWeb {
 public:
  WholeWeb() {
    for (const std::string& each : {registerMessage(), onlineMessage("HOSTMON", "load", "host1")})
      _watched.core.receive({each, Origin{}, 1});
    _watched.side.attach(
        _watched.core, [this] { _watched.core.setGauges(); }, [this] { _web.wake(); });
    thread.emplace(_watched.loop);
  }
  ~WholeWeb() { thread.reset(); }
  WholeWeb(const WholeWeb&) = delete;
  WholeWeb& operator=(const WholeWeb&) = delete;

  HttpAnswer get(const std::string& target, const HttpClient::Fields& fields = {}) const {
    return httpGet(port, target, fields);
  }
  // As if the channel had kept it.
  void tellRow(const std::string& message) {
    thread->call([&] {
      Group group;
      group.topic = topicOf("HOSTMON", "load");
      Source source;
      source.group = &group;
      _watched.side.observer().rowKept(source, message, {}, 1);
    });
  }

 private:
  WatchedCore _watched;
  const Health _health{Health::Clock::now() - std::chrono::hours(1)};
  WebPort _port = openWebPort({"127.0.0.1", 0});

 public:
  Counters& counters = _watched.counters;
  const int port = _port.address.port;

 private:
  WebServer _web{
      std::move(_port), {}, {_watched.side, _watched.counters, _health, {"1", 0, ""}, nullptr}};

 public:
  std::optional<LoopThread> thread;  // the channel's
};

constexpr char liveTarget[] = "/api/live?application=HOSTMON&group=load";

}  // namespace

void webRequests() {
  SilentWeb web;
  const CounterMoves moves(web.counters);
  const HttpClient client(web.port);
  client.send(HttpClient::request("/"));
  EXPECT_TRUE(waitUntil([&] { return moves.of(Counter::webRequests) == 1; }));
  moves.expect({{Counter::webRequests, 1}, {Counter::webConnections, 1}});
}

void webRequestsRefused() {
  WholeWeb web;
  const HttpClient client(web.port);
  EXPECT_EQ(client.get("/none").status, 404);
  const CounterMoves moves(web.counters);
  EXPECT_EQ(client.get("/", {"Host: evil.example"}).status, 403);
  moves.expect({{Counter::webRequests, 1}, {Counter::webRequestsRefused, 1}});
}

void webFailures() {
  WholeWeb web;
  const HttpClient client(web.port);
  EXPECT_EQ(client.get("/none").status, 404);
  EXPECT_EQ(client.get("/healthz").status, 503) << "which is no failure: it is asked how it is";
  std::list<HttpClient> live;
  for (std::size_t i = 0; i < LiveStreams::mostStreams; ++i)
    EXPECT_EQ(live.emplace_back(web.port).watch(liveTarget).status, 200);
  const CounterMoves moves(web.counters);
  EXPECT_EQ(client.get(liveTarget).status, 503);
  moves.expect({{Counter::webRequests, 1}, {Counter::webFailures, 1}});
}

void webConnectionsRefused() {
  SilentWeb web;
  const HttpClient first(web.port), second(web.port);
  for (const HttpClient* each : {&first, &second}) each->send(HttpClient::request("/"));
  EXPECT_TRUE(waitUntil([&] { return web.counters[Counter::webRequests] == 2; }));
  const CounterMoves moves(web.counters);
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(HttpClient(web.port).isClosed());
  moves.expect({{Counter::webConnectionsRefused, 3}});
}

void webConnectionsGivenUp() {
  SilentWeb web;
  const HttpClient first(web.port), second(web.port);
  EXPECT_TRUE(waitUntil([&] { return web.counters[Counter::webConnections] == 2; }));
  const CounterMoves moves(web.counters);
  const HttpClient third(web.port);
  EXPECT_TRUE(first.isClosed());
  EXPECT_TRUE(waitUntil([&] { return web.counters[Counter::webConnections] == 2; }));
  moves.expect({{Counter::webConnectionsGivenUp, 1}});
}

void webAcceptFailures() {
  SilentWeb web;
  const CounterMoves moves(web.counters);
  const FailingCall failing({.kind = SystemCall::acceptConnection, .first = 1, .last = 3}, EMFILE);
  const HttpClient client(web.port);
  EXPECT_TRUE(waitUntil([&] { return moves.of(Counter::webConnections) == 1; }));
  moves.expect({{Counter::webAcceptFailures, 3}, {Counter::webConnections, 1}});
}

void webConnections() {
  SilentWeb web;
  const CounterMoves moves(web.counters);
  {
    const HttpClient client(web.port);
    EXPECT_TRUE(waitUntil([&] { return moves.of(Counter::webConnections) == 1; }));
  }
  EXPECT_TRUE(waitUntil([&] { return moves.of(Counter::webConnections) == 0; }));
  moves.expect({});
}

void liveClients() {
  WholeWeb web;
  const HttpClient other(web.port);
  EXPECT_EQ(other.get("/none").status, 404);
  const CounterMoves moves(web.counters);
  {
    const HttpClient client(web.port);
    EXPECT_EQ(client.watch(liveTarget).status, 200);
    moves.expect(
        {{Counter::liveClients, 1}, {Counter::webRequests, 1}, {Counter::webConnections, 1}});
  }
  EXPECT_TRUE(waitUntil([&] { return moves.of(Counter::webConnections) == 0; }));
  moves.expect({{Counter::webRequests, 1}});
}

void liveClientsDropped() {
  WholeWeb web;
  const HttpClient reading(web.port), notReading(web.port);
  EXPECT_EQ(reading.watch(liveTarget).status, 200);
  EXPECT_EQ(notReading.watch(liveTarget).status, 200);
  const CounterMoves moves(web.counters);
  std::vector<Value> values;
  for (int i = 0; i < 50; ++i)
    values.push_back({"note" + std::to_string(i), 'T', std::string(10'000, 'x')});
  const std::string row = dataMessage(1, values);
  // The system keeps some megabytes of them.
  for (int rows = 0; rows < 1'000 && moves.of(Counter::liveClientsDropped) == 0; ++rows) {
    web.tellRow(row);
    if (!reading.news()) break;
  }
  // His place is free at once.
  EXPECT_TRUE(waitUntil([&] { return moves.of(Counter::webConnections) == -1; }));
  moves.expect({{Counter::liveClientsDropped, 1},
                {Counter::liveClients, -1},
                {Counter::webConnections, -1}});
}

void liveEventsLost() {
  Counters counters;
  Doorbell bell;
  LiveFeed feed(counters, bell);
  feed.watch({std::make_shared<WatchedTopic>(topicOf("A", "g"), 1)});
  feed.offerTopics();
  feed.takeTopics();
  Group group;
  group.topic = topicOf("A", "g");
  Source source;
  source.group = &group;
  const CounterMoves moves(counters);
  for (std::size_t i = 0; i < LiveFeed::mostEvents + 3; ++i) feed.rowKept(source, "row", 1);
  moves.expect({{Counter::liveEventsLost, 3}});
}

}  // namespace dch::testkit::counter_cases
