#include "dch/link/site_link.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "dch/testkit/link_test.h"
#include "dch/testkit/nats_client.h"
#include "dch/testkit/nats_server.h"
#include "dch/testkit/row_names.h"
#include "dch/testkit/tcp_gate.h"
#include "tests/support/wait_until.h"

namespace dch::testkit {
namespace {

// A server as far as others see it: its link, and a channel that ticks on a thread of its own.
class TickingSite {
 public:
  // A higher number is a higher run.
  TickingSite(const std::string& url, const std::string& name, int run,
              const std::optional<LinkUser>& user = {})
      : _run(testkit::name(1, run).epoch),
        _link({.servers = {url}, .site = name, .user = user}, _run, "1.2.3",
              std::make_shared<LiveRows>(name, _run), std::make_shared<SiteProviders>(), _log),
        _thread([this] { tick(); }) {}
  ~TickingSite() {
    _isEnding = true;
    _thread.join();
  }

  // The channel's thread does nothing any more, or again.
  void standStill() { _isStanding = true; }
  void goOn() { _isStanding = false; }

  std::optional<SiteState> seen(const std::string& site) const {
    const auto sites = _link.figures().sites;
    const auto found = std::find_if(sites->begin(), sites->end(),
                                    [&](const SiteState& each) { return each.name == site; });
    return found != sites->end() ? std::optional(*found) : std::nullopt;
  }
  bool comesToSee(const std::string& site) const {
    return waitUntil([&] { return sees(site); }, linkPatience);
  }
  bool comesToMiss(const std::string& site) const {
    return waitUntil([&] { return !sees(site); }, linkPatience);
  }
  bool sees(const std::string& site) const {
    const auto state = seen(site);
    return state && state->isReachable;
  }
  const Epoch& run() const { return _run; }
  SiteFigures figures() const { return _link.figures(); }
  bool isAside() const { return figures().isAside; }

  // What the operator was told of that, so far.
  std::size_t timesTold(const std::string& what) {
    for (std::string& each : _log.takeLines()) _told.push_back(std::move(each));
    return static_cast<std::size_t>(std::count_if(
        _told.begin(), _told.end(),
        [&](const std::string& each) { return each.find(what) != std::string::npos; }));
  }

  void stop() { _link.stop(); }
  bool waitForEnd() { return _link.waitForEnd(linkPatience); }

 private:
  void tick() {
    while (!_isEnding) {
      if (!_isStanding) _link.tick({.newest = 30, .published = 20});
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
  }

  const Epoch _run;
  LinkLog _log;
  std::vector<std::string> _told;
  std::atomic<bool> _isEnding = false;
  std::atomic<bool> _isStanding = false;
  SiteLink _link;
  std::thread _thread;
};

class SiteLinkTest : public ::testing::Test {
 protected:
  // Another server says so of itself, once.
  void say(const std::string& place, const std::string& text) const {
    const NatsClient client(_nats.url());
    requireDone(natsConnection_PublishString(client.get(), place.c_str(), text.c_str()));
    requireDone(natsConnection_Flush(client.get()));
  }

  // Until the site, which is alone, says that it is in that state.
  void waitUntilSays(const std::string& site, const std::string& state) const {
    const NatsClient client(_nats.url());
    natsSubscription* made = nullptr;
    requireDone(natsConnection_SubscribeSync(&made, client.get(), ("zord.alive." + site).c_str()));
    const NatsSubscription subscription(made);
    const auto hasSaid = [&] {
      natsMsg* message = nullptr;
      natsSubscription_NextMsg(&message, made, 1'000);
      const NatsMessage owned(message);
      return message != nullptr &&
             std::string(natsMsg_GetData(message)).find(' ' + state + ' ') != std::string::npos;
    };
    EXPECT_TRUE(waitUntil(hasSaid, linkPatience));
    client.close();
  }

  void expectYoungerAside(int elderRun, int youngerRun) const {
    std::optional<TickingSite> elder(std::in_place, _nats.url(), "west", elderRun);
    waitUntilSays("west", "here");
    TickingSite younger(_nats.url(), "west", youngerRun);
    ASSERT_TRUE(waitUntil([&] { return younger.isAside(); }, linkPatience));
    EXPECT_FALSE(elder->isAside());
    const auto areTold = [&] {
      return elder->figures().nameRefused == 1 && younger.figures().nameRefused == 1;
    };
    EXPECT_TRUE(waitUntil(areTold, linkPatience));
    EXPECT_EQ(elder->timesTold("another server says that it is site west, too"), 1u);
    EXPECT_EQ(elder->timesTold("That one stands aside"), 1u);
    EXPECT_EQ(younger.timesTold("This one stands aside"), 1u);
    elder.reset();
    ASSERT_TRUE(waitUntil([&] { return !younger.isAside(); }, linkPatience));
    EXPECT_EQ(younger.timesTold("no other server says any more that it is site west"), 1u);
  }

  // Of two servers of one name.
  static bool exactlyOneStandsAside(const TickingSite& one, const TickingSite& other) {
    const auto isSo = [&] { return one.isAside() != other.isAside(); };
    return waitUntil(isSo, linkPatience);
  }

  NatsServer _nats{{.hasJetStream = false}};
};

TEST_F(SiteLinkTest, SitesSeeEachOther) {
  const TickingSite west(_nats.url(), "west", 1);
  TickingSite east(_nats.url(), "east.2", 2);
  ASSERT_TRUE(west.comesToSee("east.2"));
  ASSERT_TRUE(east.comesToSee("west"));
  const SiteState seen = *west.seen("east.2");
  EXPECT_EQ(seen.run, east.run());
  EXPECT_EQ(seen.version, "1.2.3");
  EXPECT_EQ(seen.newest, 30);
  EXPECT_EQ(seen.published, 20);
  EXPECT_EQ(seen.behind, 10);
  EXPECT_FALSE(west.seen("west"));
  EXPECT_FALSE(west.isAside());
  east.stop();
  EXPECT_TRUE(waitUntil([&] { return west.seen("east.2")->isStopping; }, linkPatience));
}

TEST_F(SiteLinkTest, AServerWhoseChannelStandsStillIsSilent) {
  const TickingSite west(_nats.url(), "west", 1);
  TickingSite east(_nats.url(), "east", 2);
  ASSERT_TRUE(west.comesToSee("east"));
  east.standStill();
  EXPECT_TRUE(west.comesToMiss("east"));
  EXPECT_TRUE(east.sees("west")) << "its link goes on";
  east.goOn();
  EXPECT_TRUE(west.comesToSee("east"));
}

TEST_F(SiteLinkTest, SitesSeeEachOtherAgainWhenTheServerIsBack) {
  TcpGate gate(_nats.port());
  const TickingSite west(gate.natsUrl(), "west", 1);
  const TickingSite east(gate.natsUrl(), "east", 2);
  ASSERT_TRUE(west.comesToSee("east"));
  _nats.kill();
  EXPECT_TRUE(west.comesToMiss("east"));
  _nats.restart();
  gate.leadTo(_nats.port());
  EXPECT_TRUE(west.comesToSee("east"));
  EXPECT_TRUE(east.comesToSee("west"));
}

TEST_F(SiteLinkTest, WhatIsNoMessageOfASiteIsCounted) {
  const TickingSite west(_nats.url(), "west", 1);
  const TickingSite east(_nats.url(), "east", 2);
  ASSERT_TRUE(west.comesToSee("east"));
  say("zord.alive.north", "");
  say("zord.alive.north", "2 of another version");
  say("zord.alive.%zz", "1");
  EXPECT_TRUE(waitUntil([&] { return west.figures().messagesRefused == 3; }, linkPatience));
  EXPECT_FALSE(west.seen("north"));
}

TEST_F(SiteLinkTest, WhoComesToANameThatIsTakenStandsAside) {
  expectYoungerAside(1, 9);
}

TEST_F(SiteLinkTest, WhoComesToANameThatIsTakenStandsAsideWithALowerRunToo) {
  expectYoungerAside(9, 1);
}

TEST_F(SiteLinkTest, OfTwoThatCouldNotHearEachOtherOneStandsAside) {
  TcpGate gate(_nats.port());
  std::optional<TickingSite> one(std::in_place, gate.natsUrl(), "west", 1);
  const TickingSite witness(_nats.url(), "witness", 5);
  ASSERT_TRUE(witness.comesToSee("west"));
  gate.cut();
  std::optional<TickingSite> other(std::in_place, _nats.url(), "west", 2);
  const auto isSeen = [&] {
    const auto seen = witness.seen("west");
    return seen && seen->run == other->run();
  };
  ASSERT_TRUE(waitUntil(isSeen, linkPatience));
  EXPECT_FALSE(one->isAside());
  EXPECT_FALSE(other->isAside());
  gate.pass();
  ASSERT_TRUE(exactlyOneStandsAside(*one, *other));
  std::optional<TickingSite>& aside = one->isAside() ? one : other;
  (one->isAside() ? other : one).reset();
  EXPECT_TRUE(waitUntil([&] { return !aside->isAside(); }, linkPatience));
}

TEST_F(SiteLinkTest, EndsWhileTheServerStandsStill) {
  TickingSite west(_nats.url(), "west", 1);
  const TickingSite east(_nats.url(), "east", 2);
  ASSERT_TRUE(west.comesToSee("east"));
  _nats.stop();
  west.stop();
  EXPECT_TRUE(west.waitForEnd());
  _nats.resume();
}

class SiteLinkRightsTest : public ::testing::Test {
 protected:
  // A server on which the user of west may do that, and another one everything.
  static NatsServer::Settings allowing(const std::string& publish, const std::string& subscribe) {
    return {.hasJetStream = false,
            .more =
                "authorization { users: [{user: all, password: all}, {user: west, password: "
                "right, permissions: {publish: [\"" +
                publish + "\"], subscribe: [\"_INBOX.>\", \"" + subscribe + "\"]}}] }"};
  }

  // West is told so once, and is there for nobody, nor is anybody for it.
  static void expectTold(const NatsServer& nats, const std::string& right) {
    const TickingSite east(nats.url(), "east", 2, LinkUser{"all", "all"});
    const TickingSite witness(nats.url(), "witness", 3, LinkUser{"all", "all"});
    ASSERT_TRUE(witness.comesToSee("east"));
    TickingSite west(nats.url(), "west", 1, LinkUser{"west", "right"});
    const auto isTold = [&] { return west.timesTold("this user may not do what is needed") > 0; };
    ASSERT_TRUE(waitUntil(isTold, linkPatience));
    EXPECT_EQ(west.timesTold(right), 1u);
    EXPECT_EQ(west.timesTold("the rows go on all the same"), 1u);
    EXPECT_FALSE(west.seen("east"));
    EXPECT_FALSE(east.seen("west"));
  }
};

TEST_F(SiteLinkRightsTest, WhoMayNotHearIsToldSo) {
  expectTold(NatsServer(allowing("zord.alive.west", "zord.fetch.west")), "zord.alive.*");
}

TEST_F(SiteLinkRightsTest, WhoMayNotSpeakIsToldSo) {
  expectTold(NatsServer(allowing("zord.rows.west.>", "zord.alive.*")), "zord.alive.west");
}

}  // namespace
}  // namespace dch::testkit
