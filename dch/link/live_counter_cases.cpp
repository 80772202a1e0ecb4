// What live rows make move, on their way out and in.
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "dch/link/live_header.h"
#include "dch/link/live_rows.h"
#include "dch/link/subject.h"
#include "dch/service/server_live.h"
#include "dch/testkit/channel_thread.h"
#include "dch/testkit/clients.h"
#include "dch/testkit/counter_cases.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/recording_ports.h"
#include "tests/support/wait_until.h"

namespace dch::testkit::counter_cases {

namespace {

// The channel of a site; this thread has what the link's would have.
class LiveChannel {
 public:
  explicit LiveChannel(std::unique_ptr<Store> store = std::make_unique<MemoryStore>())
      : server({}, std::move(store), {}, INADDR_LOOPBACK, rows.get()) {
    rows->outbox().open();
    rows->waiting().open();
    server.thread->call([this] { _live.emplace(server.loop, rows, server.channel); });
  }
  ~LiveChannel() {
    server.thread->call([this] { _live.reset(); });
  }

  void subscribe() {
    subscriber.send(subscribeMessage("HOSTMON", "load"));
    EXPECT_TRUE(waitUntil([this] {
      return server.thread->call([this] { return server.channel.core().subscriptionCount(); }) == 1;
    }));
  }

  // Rows of a source of this site; who looks on has been told of them when it returns.
  void keepRows(int count) {
    const TcpClient provider(server.port);
    EXPECT_FALSE(provider.ask(registerMessage()).empty());
    const ZORA_Long handle = handleOf(provider.ask(onlineMessage("HOSTMON", "load", "host1")));
    for (int row = 0; row < count; ++row) EXPECT_FALSE(provider.ask(dataMessage(handle)).empty());
    server.thread->call([] {});
  }

  // A row of another site has come.
  void put(std::uint64_t count, const std::string& message = dataMessage(7)) const {
    rows->waiting().put(liveSubject("west", "HOSTMON", "load"),
                        liveHeaderText({_run, count, 5, "host1"}), message);
  }

  bool comesTo(Counter counter, std::int64_t moved) {
    return waitUntil([&] {
      server.thread->call([this] { _live->setCounters(&server.counters); });
      return _moves.of(counter) == moved;
    });
  }

  const std::shared_ptr<LiveRows> rows = std::make_shared<LiveRows>("here", newEpoch());
  ChannelThread server;
  const UdpClient subscriber{server.port};

 private:
  const Epoch _run = newEpoch();
  const CounterMoves _moves{server.counters};
  std::optional<ServerLive> _live;
};

}  // namespace

void linkLiveSent() {
  LiveChannel site;
  site.keepRows(3);
  LiveOutbox& outbox = site.rows->outbox();
  for (int row = 0; row < 3 && outbox.first() != nullptr; ++row) outbox.take(true);
  EXPECT_TRUE(site.comesTo(Counter::linkLiveSent, 3));
}

void linkLivePushed() {
  LiveChannel site;
  site.subscribe();
  for (std::uint64_t count = 2; count <= 4; ++count) site.put(count);
  EXPECT_TRUE(site.comesTo(Counter::linkLivePushed, 3));
  EXPECT_TRUE(site.comesTo(Counter::linkLiveLost, 0));
}

// Two that could not be sent, three that have not come.
void linkLiveLost() {
  LiveChannel site;
  site.keepRows(2);
  site.rows->outbox().close();
  EXPECT_TRUE(site.comesTo(Counter::linkLiveLost, 2));
  site.subscribe();
  site.put(4);
  site.put(8);
  EXPECT_TRUE(site.comesTo(Counter::linkLivePushed, 2));
  EXPECT_TRUE(site.comesTo(Counter::linkLiveLost, 5));
}

void linkLiveRefused() {
  LiveChannel site;
  site.subscribe();
  site.put(1, "no row");
  site.rows->waiting().put("zord.live.west", "", dataMessage(7));
  site.put(2, dataMessage(7) + ' ');
  EXPECT_TRUE(site.comesTo(Counter::linkLiveRefused, 3));
  EXPECT_TRUE(site.comesTo(Counter::linkLivePushed, 0));
}

void linkSubscriptionsRefused() {
  LiveChannel site;
  site.server.thread->call([&] {
    for (std::size_t group = 0; group < LiveTopics::mostAsked + 3; ++group)
      site.rows->topicChanged(topicOf("HOSTMON", std::to_string(group)), true);
  });
  EXPECT_TRUE(site.comesTo(Counter::linkSubscriptionsRefused, 3));
}

// The store gives no handle.
void linkHandlesRefused() {
  LiveChannel site(std::make_unique<SlowStore>());
  auto& store = static_cast<SlowStore&>(*site.server.store);
  site.subscribe();
  site.put(1);
  site.put(2);
  const auto isAsked = [&] { return store.entries.size() == 1; };
  EXPECT_TRUE(waitUntil([&] { return site.server.thread->call(isAsked); }));
  site.server.thread->call([&] { store.concludeAll(); });
  EXPECT_TRUE(site.comesTo(Counter::linkHandlesRefused, 2));
}

}  // namespace dch::testkit::counter_cases
