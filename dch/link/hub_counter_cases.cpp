// What the rows of other sites make move in a hub.
#include "dch/net/event_loop.h"
#include "dch/service/server_link.h"
#include "dch/service/server_store.h"
#include "dch/testkit/counter_cases.h"
#include "dch/testkit/jet_stream.h"
#include "dch/testkit/link_test.h"
#include "dch/testkit/loop_thread.h"
#include "dch/testkit/nats_server.h"
#include "dch/testkit/scripted_site.h"
#include "dch/testkit/store_test.h"
#include "tests/support/wait_until.h"

namespace dch::testkit::counter_cases {

namespace {

using Question = std::vector<RowName>;

// A server whose stream the sites of a case use, and a hub that reads it once the case says so.
class CountedHub {
 public:
  CountedHub() {
    askJetStream(nats.url(), "CREATE");
    _store.store().load([](Change&&) {});
  }

  void collect() {
    _thread.call([this] { _link.start(nullptr); });
  }

  std::int64_t moved(Counter counter) const { return _moves.of(counter); }

  bool comesTo(Counter counter, std::int64_t expected) {
    const auto hasMoved = [&] {
      _thread.call([this] {
        _link.tick();
        _link.setCounters(&_counters);
      });
      return moved(counter) == expected;
    };
    return waitUntil(hasMoved, linkPatience);
  }

  const NatsServer nats;

 private:
  const TemporaryFolder _folder;
  const RecordingLog _log;
  Counters _counters;
  const CounterMoves _moves{_counters};
  EventLoop _loop;
  ServerStore _store{
      _loop, _folder.path() + "/state.db", newEpoch(), Durability::process, {}, true, _log, [] {}};
  ServerLink _link{_loop,
                   _store,
                   _log,
                   {.servers = {nats.url()}, .site = "hub", .storeRemote = true},
                   newEpoch()};
  LoopThread _thread{_loop};  // ends before what it calls
};

// Answers as one whose file has all rows up to that one.
void letAnswer(ScriptedSite* site, std::int64_t last) {
  site->setScript([=](const Question& question) { return site->fileAnswer(question, last); });
}

}  // namespace

// The last row is behind all others in the stream.
void linkRowsCollected() {
  CountedHub hub;
  ScriptedSite west(hub.nats.url(), "west", 1), east(hub.nats.url(), "east", 2);
  ScriptedSite own(hub.nats.url(), "hub", 3);
  west.publish({1, 2});
  west.publish({1, 2});
  own.publish({1, 2, 3});
  east.publish({1});
  west.publish({3});
  hub.collect();
  EXPECT_TRUE(hub.comesTo(Counter::linkRowsCollected, 4));
  west.publish({4, 5, 5, 6});
  EXPECT_TRUE(hub.comesTo(Counter::linkRowsCollected, 7));
  EXPECT_EQ(hub.moved(Counter::linkRowsFetched), 0);
  EXPECT_EQ(hub.moved(Counter::linkRowsAfterGaps), 0);
  EXPECT_EQ(hub.moved(Counter::linkRowsRefused), 0);
}

// Its file has lost the last row, which is in the stream alone.
void linkRowsFetched() {
  CountedHub hub;
  ScriptedSite west(hub.nats.url(), "west");
  letAnswer(&west, 3);
  west.publish({1, 4});
  hub.collect();
  EXPECT_TRUE(hub.comesTo(Counter::linkRowsCollected, 4));
  EXPECT_TRUE(hub.comesTo(Counter::linkRowsFetched, 2));
  EXPECT_EQ(hub.moved(Counter::linkRowsAfterGaps), 0);
}

// Each gap counts once, when the site has been the only one of its name for a while, however many
// rows it was wide and follow it.
void linkRowsAfterGaps() {
  CountedHub hub;
  ScriptedSite west(hub.nats.url(), "west");
  letAnswer(&west, 1);
  west.publish({1, 3, 4, 9, 10, 11});
  hub.collect();
  EXPECT_TRUE(hub.comesTo(Counter::linkRowsCollected, 6));
  EXPECT_TRUE(hub.comesTo(Counter::linkRowsAfterGaps, 2));
  EXPECT_EQ(hub.moved(Counter::linkRowsFetched), 0);
}

// The last row is behind all others in the stream.
void linkRowsRefused() {
  CountedHub hub;
  ScriptedSite west(hub.nats.url(), "west");
  const std::string header = rowHeaderText(west.headerOf(1));
  west.publish(west.subject(), "", "without a header");
  west.publish(west.subject(), "1 2 3", "with another header");
  west.publish("zord.rows.west", header, "of another subject");
  west.publish({1, 1, 2});
  hub.collect();
  EXPECT_TRUE(hub.comesTo(Counter::linkRowsCollected, 2));
  EXPECT_TRUE(hub.comesTo(Counter::linkRowsRefused, 3));
}

}  // namespace dch::testkit::counter_cases
