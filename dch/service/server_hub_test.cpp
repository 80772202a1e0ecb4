#include "dch/service/server_hub.h"

#include <gmock/gmock.h>

#include <new>
#include <optional>

#include "dch/testkit/jet_stream.h"
#include "dch/testkit/link_test.h"
#include "dch/testkit/loop_thread.h"
#include "dch/testkit/nats_server.h"
#include "dch/testkit/recording_ports.h"
#include "dch/testkit/remote_test.h"
#include "dch/testkit/scripted_site.h"
#include "tests/support/wait_until.h"

namespace dch::testkit {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::UnorderedElementsAre;

using Lines = std::vector<std::string>;

// Takes its time, and has no memory for the first entries.
class CrampedStore : public SlowStore {
 public:
  void append(Entry* entry, StoreClient* client) override {
    if (withoutMemory > 0) {
      --withoutMemory;
      throw std::bad_alloc();
    }
    SlowStore::append(entry, client);
  }
  void handOver() override { ++timesHandedOver; }

  int withoutMemory = 0;
  int timesHandedOver = 0;
};

// A hub on a loop of its own, with a store that does what the test says.
class ServerHubTest : public RemoteTest {
 protected:
  // The store is asked, and the file is there to be read: nothing is kept in it.
  ServerHubTest() : _west(_nats.url(), "west", 1), _east(_nats.url(), "east", 2) {
    start();
    askJetStream(_nats.url(), "CREATE");
  }
  ~ServerHubTest() override {
    _thread.call([this] { _hub.reset(); });
  }

  void startHub() {
    _thread.call([this] {
      _hub.emplace(
          _loop, _asked, LinkSettings{.servers = {_nats.url()}, .site = "hub"},
          [this] { return _store->places(); }, _linkLog);
    });
  }
  void tick() {
    _thread.call([this] { _hub->tick(); });
  }
  void conclude(bool isKept) {
    _thread.call([&] { _asked.conclude(isKept); });
  }
  void concludeAll(bool isKept) {
    _thread.call([&] { _asked.concludeAll(isKept); });
  }
  // What is on its way into the store.
  Lines entries() {
    return _thread.call([this] {
      Lines lines;
      for (const auto& [entry, client] : _asked.entries) lines.push_back(textOf(entry.change));
      return lines;
    });
  }
  static std::string textOf(const Change& change) {
    if (const auto* const read = std::get_if<StreamRead>(&change))
      return "read up to " + std::to_string(read->sequence);
    const auto& rows = std::get<RemoteRows>(change);
    std::string text = rows.site;
    for (const RemoteRow& each : rows.rows) text += ", " + each.message;
    return text;
  }
  Lines waitForEntries() {
    Lines found;
    waitUntil([&] { return !(found = entries()).empty(); }, linkPatience);
    return found;
  }
  // West's first row is on its way then.
  Lines waitForFirst() {
    _west.publish({1});
    startHub();
    Lines first = waitForEntries();
    EXPECT_THAT(first, ElementsAre("west, row 1"));
    return first;
  }
  // Until further rows of both are read: each is asked whether there are more.
  void readBehindIt() {
    for (ScriptedSite* const each : {&_west, &_east})
      each->setScript(
          [each](const std::vector<RowName>& question) { return each->fileAnswer(question, 0); });
    _west.publish({2});
    _east.publish({1});
    const auto isAskedBehind = [](const ScriptedSite& site, std::int64_t number) {
      const auto questions = site.questions();
      return !questions.empty() && questions.back() == std::vector{site.nameOf(number)};
    };
    ASSERT_TRUE(waitUntil([&] { return isAskedBehind(_west, 2) && isAskedBehind(_east, 1); },
                          linkPatience));
  }
  static Lines rowsOf(Lines entries) {
    std::erase_if(entries, [](const std::string& each) { return each.starts_with("read"); });
    return entries;
  }
  std::uint64_t counter(Counter counter) {
    return _thread.call([&] {
      Counters counters;
      _hub->setCounters(&counters);
      return counters[counter];
    });
  }

  NatsServer _nats;
  ScriptedSite _west, _east;
  LinkLog _linkLog;
  CrampedStore _asked;
  EventLoop _loop;
  std::optional<ServerHub> _hub;
  LoopThread _thread{_loop};
};

// Nothing of the second batch is there before the first one is kept.
TEST_F(ServerHubTest, WhatIsNotKeptComesAgainAndNothingElseBeforeIt) {
  const Lines first = waitForFirst();
  readBehindIt();
  for (int times = 0; times < 3; ++times) {
    concludeAll(false);
    EXPECT_THAT(entries(), IsEmpty()) << "before the next tick";
    tick();
    EXPECT_EQ(entries(), first);
  }
  EXPECT_EQ(counter(Counter::linkRowsCollected), 0u);
  concludeAll(true);
  EXPECT_THAT(rowsOf(waitForEntries()), UnorderedElementsAre("west, row 2", "east, row 1"));
  EXPECT_EQ(counter(Counter::linkRowsCollected), 1u);
}

TEST_F(ServerHubTest, WhatWasKeptDoesNotComeAgainWithTheRest) {
  waitForFirst();
  readBehindIt();
  concludeAll(true);
  Lines second = waitForEntries();
  ASSERT_GE(second.size(), 2u);
  conclude(true);
  tick();
  EXPECT_THAT(entries(), SizeIs(second.size() - 1)) << "while they are on their way";
  concludeAll(false);
  tick();
  second.erase(second.begin());
  EXPECT_EQ(entries(), second);
  concludeAll(true);
  const auto areAllKept = [&] { return counter(Counter::linkRowsCollected) == 3; };
  EXPECT_TRUE(waitUntil(areAllKept, linkPatience));
}

TEST_F(ServerHubTest, WhatTheStoreHasNoMemoryForComesAgain) {
  _thread.call([this] { _asked.withoutMemory = 2; });
  _west.publish({1});
  startHub();
  const auto isRefused = [&] {
    tick();
    return _thread.call([this] { return _asked.withoutMemory; }) == 0;
  };
  ASSERT_TRUE(waitUntil(isRefused, linkPatience));
  tick();
  EXPECT_THAT(entries(), ElementsAre("west, row 1"));
}

TEST_F(ServerHubTest, TheStoreBeginsWithWhatItHasAtOnce) {
  waitForFirst();
  EXPECT_EQ(_thread.call([this] { return _asked.timesHandedOver; }), 1);
}

TEST_F(ServerHubTest, EndsWhileTheStoreKeepsNothing) {
  waitForFirst();
  _hub->stop();
  EXPECT_TRUE(_hub->waitForEnd(linkPatience));
}

}  // namespace
}  // namespace dch::testkit
