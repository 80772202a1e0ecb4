// What the core counts.
#include "dch/testkit/counter_cases.h"

#include "dch/testkit/core_test.h"

namespace dch::testkit::counter_cases {

namespace {

// A core that is not a test of its own. HOSTMON is registered in it.
class CountedCore : public CoreTest {
 public:
  explicit CountedCore(std::unique_ptr<Store> store = std::make_unique<MemoryStore>())
      : CoreTest(std::move(store)) {}

  using CoreTest::_actionRules;
  using CoreTest::_answers;
  using CoreTest::_core;
  using CoreTest::_counters;
  using CoreTest::_rowsOut;
  using CoreTest::client;
  using CoreTest::goOnline;
  using CoreTest::receive;

  void receiveTimes(int times, const std::string& bytes) {
    for (int i = 0; i < times; ++i) receive(bytes);
  }

 private:
  void TestBody() override {}
};

// One whose store concludes what it is told to.
struct CountedSlowCore : CountedCore {
  CountedSlowCore() : CountedCore(std::make_unique<SlowStore>()) { store().concludeAll(); }
  SlowStore& store() { return static_cast<SlowStore&>(*_store); }
};

std::string row(ZORA_Long handle) {
  return dataMessage(handle, {{"load1", 'D', "0.42"}});
}

}  // namespace

void rowsReceived() {
  CountedCore core;
  const ZORA_Long handle = core.goOnline();
  const CounterMoves moves(core._counters);
  core.receive(row(handle));
  core.receive(row(handle + 1));
  const std::string bad = row(handle) + 'x';
  core.receive(withLengthWord(bad, static_cast<std::uint32_t>(bad.size())));
  moves.expect({{Counter::rowsReceived, 3}, {Counter::rowsKept, 1}});
}

void rowsKept() {
  CountedSlowCore core;
  core.receive(onlineMessage("HOSTMON", "load", "host1"));
  core.store().concludeAll();
  const CounterMoves moves(core._counters);
  core.receiveTimes(3, row(1));
  moves.expect({{Counter::rowsReceived, 3}});
  core.store().conclude();
  core.store().conclude();
  moves.expect({{Counter::rowsReceived, 3}, {Counter::rowsKept, 2}});
}

void pushed() {
  CountedCore core;
  const ZORA_Long handle = core.goOnline();
  for (const unsigned number : {1u, 2u})
    core.receive(subscribeMessage("HOSTMON", "load"), core.client(number));
  core.receive(subscribeMessage("HOSTMON", "disk"), core.client(3));
  const CounterMoves moves(core._counters);
  core.receiveTimes(3, row(handle));
  moves.expect({{Counter::rowsReceived, 3}, {Counter::rowsKept, 3}, {Counter::pushed, 6}});
  // What is on line, and its going off line.
  core.receive(statusSubscribeMessage(), core.client(4));
  core.receive(offlineMessage(handle));
  EXPECT_EQ(moves.of(Counter::pushed), 8);
}

void pushesLost() {
  CountedCore core;
  const ZORA_Long handle = core.goOnline();
  for (const unsigned number : {1u, 2u})
    core.receive(subscribeMessage("HOSTMON", "load"), core.client(number));
  core._rowsOut.full.push_back(core.client(1).peer);
  const CounterMoves moves(core._counters);
  core.receiveTimes(5, row(handle));
  moves.expect({{Counter::rowsReceived, 5},
                {Counter::rowsKept, 5},
                {Counter::pushed, 5},
                {Counter::pushesLost, 5}});
}

void subscribersGone() {
  CountedCore core;
  const ZORA_Long handle = core.goOnline();
  for (const unsigned number : {1u, 2u, 3u})
    for (const char* group : {"load", "disk"})
      core.receive(subscribeMessage("HOSTMON", group), core.client(number));
  // One of them is known to nobody.
  core._rowsOut.gone = {core.client(1).peer, core.client(2).peer, core.client(4).peer};
  const CounterMoves moves(core._counters);
  core.receiveTimes(2, row(handle));
  moves.expect({{Counter::rowsReceived, 2},
                {Counter::rowsKept, 2},
                {Counter::pushed, 4},
                {Counter::subscribersGone, 2}});
}

void subscriptionsRefused() {
  CountedCore core;
  const CounterMoves moves(core._counters);
  for (unsigned number = 0; number < Subscriptions::defaultCapacity; ++number)
    core.receive(subscribeMessage("HOSTMON", "load"), core.client(number));
  moves.expect({});
  core.receive(subscribeMessage("HOSTMON", "disk"), core.client(1));
  core.receive(statusSubscribeMessage(), core.client(2));
  core.receive(subscribeMessage("HOSTMON", "load"), core.client(3));  // has one
  moves.expect({{Counter::subscriptionsRefused, 2}});
}

void answersIgnored() {
  CountedCore core;
  core._answers.sent.clear();
  core.receive(unregisterMessage("NONE"));
  const std::string answer = core._answers.sent.at(0).second;
  const CounterMoves moves(core._counters);
  core.receiveTimes(2, answer);
  core.receive(answer, core.client(0, 1));  // on a connection it is a bad request
  moves.expect({{Counter::answersIgnored, 2}});
}

void changesNotKept() {
  CountedSlowCore core;
  core.receive(onlineMessage("HOSTMON", "load", "host1"));
  core.store().concludeAll();
  const CounterMoves moves(core._counters);
  core.receive(row(1));
  core.receive(deferralMessage(1));
  core.receive(offlineMessage(1));
  core.receive(offlineMessage(2));
  core.store().concludeAll(false);
  moves.expect({{Counter::rowsReceived, 1}, {Counter::changesNotKept, 3}});
}

void deferralsForgotten() {
  CountedCore core;
  const CounterMoves moves(core._counters);
  core.receiveTimes(static_cast<int>(Deferrals::defaultCapacity), deferralMessage(1));
  moves.expect({});
  core.receiveTimes(3, deferralMessage(2));
  moves.expect({{Counter::deferralsForgotten, 3}});
}

void resultsForgotten() {
  CountedCore core;
  const CounterMoves moves(core._counters);
  constexpr ZORA_Long results = 10'000;
  static_assert(results == ActionLimits{}.results);
  for (ZORA_Long id = 1; id <= results; ++id) core.receive(actionMessage("broken", id));
  moves.expect({{Counter::actionsNotStarted, results}});
  for (ZORA_Long id = 1; id <= 3; ++id) core.receive(actionMessage("broken", results + id));
  moves.expect({{Counter::actionsNotStarted, results + 3}, {Counter::resultsForgotten, 3}});
}

void waitersForgotten() {
  CountedCore core;
  core.receive(actionMessage("last", 1));
  core.receive(actionMessage("last", 2));
  for (const ZORA_Long id : {1, 2, 1})  // the last one is known
    for (const std::uint64_t connection : {5u, 6u})
      core.receive(actionResultsMessage(id), core.client(0, connection));
  const CounterMoves moves(core._counters);
  core._core.connectionClosed(core.client(0, 5));
  core._core.connectionClosed(core.client(0, 7));
  moves.expect({{Counter::waitersForgotten, 2}});
}

void actionsNotAllowed() {
  CountedCore core;
  core.receive(actionMessage("succeed", 1));
  core._actionRules.allowed = {};
  const CounterMoves moves(core._counters);
  core.receiveTimes(2, actionMessage("succeed", 2));
  core.receive(actionResultsMessage(1));
  moves.expect({{Counter::actionsNotAllowed, 2}});
}

void actionsNotStarted() {
  CountedCore core;
  const CounterMoves moves(core._counters);
  core.receive(actionMessage("unlisted", 1));
  core.receive(actionMessage("last", 2));
  core.receiveTimes(2, actionMessage("last", 2));  // it runs
  moves.expect({{Counter::actionsNotStarted, 3}});
}

void brokenMessages() {
  CountedCore core;
  const CounterMoves moves(core._counters);
  core._core.receiveBroken(core.client(0, 1));
  core._core.receiveBroken(core.client(0, 2));
  moves.expect({{Counter::brokenMessages, 2}});
}

// ---- Gauges ------------------------------------------------------------------------------------

void applications() {
  CountedCore core;
  const CounterMoves moves(core._counters);
  core.receive(registerMessage("appl:OTHER,OTH;group:g;attr:a,N,4;", "OTHER", "OTH"));
  core.receive(registerMessage());
  core._core.setGauges();
  moves.expect({{Counter::applications, 2}});
  core.goOnline();
  core.receive(unregisterMessage("HOSTMON"));
  core._core.setGauges();
  moves.expect({{Counter::applications, 1}, {Counter::sources, 1}});
}

void sources() {
  CountedCore core;
  const CounterMoves moves(core._counters);
  core.goOnline("load", "host1");
  core.goOnline("load", "host1");
  core.goOnline("disk", "host1");
  core.receive(offlineMessage(core.goOnline("load", "host2")));
  core._core.setGauges();
  moves.expect({{Counter::applications, 1}, {Counter::sources, 3}, {Counter::sourcesOnline, 2}});
}

void sourcesOnline() {
  CountedCore core;
  const CounterMoves moves(core._counters);
  const ZORA_Long handle = core.goOnline("load", "host1");
  core.goOnline("load", "host2");
  core._core.setGauges();
  moves.expect({{Counter::applications, 1}, {Counter::sources, 2}, {Counter::sourcesOnline, 2}});
  core.receive(offlineMessage(handle));
  core._core.setGauges();
  moves.expect({{Counter::applications, 1}, {Counter::sources, 2}, {Counter::sourcesOnline, 1}});
}

void subscriptions() {
  CountedCore core;
  const CounterMoves moves(core._counters);
  for (const unsigned number : {1u, 2u, 1u})
    core.receive(subscribeMessage("HOSTMON", "load"), core.client(number));
  core.receive(statusSubscribeMessage(), core.client(1));
  core._core.setGauges();
  EXPECT_EQ(moves.of(Counter::subscriptions), 3);
  core.receive(withdrawMessage("HOSTMON", "load"), core.client(1));
  core._core.setGauges();
  moves.expect({{Counter::applications, 1}, {Counter::subscriptions, 2}});
}

void changesWaiting() {
  CountedSlowCore core;
  core.receive(onlineMessage("HOSTMON", "load", "host1"));
  core.store().concludeAll();
  const CounterMoves moves(core._counters);
  core.receiveTimes(3, row(1));
  core.receive(deferralMessage(1));
  core._core.setGauges();
  EXPECT_EQ(moves.of(Counter::changesWaiting), 4);
  core.store().conclude();
  core._core.setGauges();
  EXPECT_EQ(moves.of(Counter::changesWaiting), 3);
  core.store().concludeAll();
  core._core.setGauges();
  EXPECT_EQ(moves.of(Counter::changesWaiting), 0);
}

}  // namespace dch::testkit::counter_cases
