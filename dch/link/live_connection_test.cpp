#include "dch/link/live_connection.h"

#include <gmock/gmock.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "dch/testkit/flood.h"
#include "dch/testkit/link_test.h"
#include "dch/testkit/nats_server.h"
#include "tests/support/sockets.h"
#include "tests/support/wait_until.h"

// The library does not free what it has of a message whose rest has not come when its connection
// is closed. There only for a program that is built to look for leaks.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
  return "leak:natsBuf_Create\n";
}

namespace dch::testkit {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr char liveSubject[] = "live.much";

// Keeps what has come as lines.
class LinesInbox final : public LiveInbox {
 public:
  void put(const LiveMessage& message) noexcept override {
    const std::lock_guard lock(_mutex);
    _lines.push_back(message.saysNobody() ? "nobody: " + std::string(message.subject())
                                          : std::string(message.subject()) + ' ' +
                                                std::string(message.header("Test")) + ' ' +
                                                std::string(message.body()));
  }
  std::vector<std::string> lines() const {
    const std::lock_guard lock(_mutex);
    return _lines;
  }

 private:
  mutable std::mutex _mutex;
  std::vector<std::string> _lines;
};

// Counts what has come.
class CountingInbox final : public LiveInbox {
 public:
  void put(const LiveMessage& message) noexcept override {
    if (message.body().size() == Flood<LiveConnection>::bodySize) ++count;
  }
  std::atomic<int> count = 0;
};

// Tries again while the server starts or is slow.
std::unique_ptr<LiveConnection> connectLive(const std::string& url) {
  std::unique_ptr<LiveConnection> connection;
  const auto connects = [&] {
    try {
      connection = std::make_unique<LiveConnection>(settingsFor(), url);
      return true;
    } catch (const LinkError&) {
      return false;
    }
  };
  if (!waitUntil(connects, linkPatience)) throw std::runtime_error("cannot connect");
  return connection;
}

// Again when the machine stood still for so long that a connection was lost.
template <class Part>
void withoutStandstill(Part part) {
  for (int tries = 0; tries < 20; ++tries) {
    try {
      return part();
    } catch (const LinkError&) {
    }
  }
  FAIL() << "connections are lost again and again";
}

// What the connection is said to have come to, once it is lost.
std::string lossOfLive(const LiveConnection& connection) {
  std::string loss;
  const auto isLost = [&] {
    try {
      connection.check();
      return false;
    } catch (const LinkError& error) {
      loss = error.what();
      return true;
    }
  };
  return waitUntil(isLost, linkPatience) ? loss : "it is not lost";
}

// Lets in all who connect, and then tells each of them the same.
class TellingServer {
 public:
  explicit TellingServer(const std::string& what) : _what(what), _thread([this] { tellAll(); }) {}
  ~TellingServer() {
    _isEnding = true;
    const StreamSocket last(_listener.port());
    _thread.join();
  }

  std::string url() const { return "nats://127.0.0.1:" + std::to_string(_listener.port()); }

 private:
  void tellAll() {
    while (true) {
      const StreamSocket client(_listener);
      if (_isEnding) return;
      client.send(
          "INFO {\"server_id\":\"X\",\"version\":\"2.9.10\",\"headers\":true,\"proto\":1}\r\n");
      std::string said;
      if (!waitUntil([&] { return isAsking(client, &said); }, linkPatience)) continue;
      client.send("PONG\r\n-ERR '" + _what + "'\r\n");
      waitUntil([&] { return isGone(client); }, linkPatience);
    }
  }
  // What it says ends with a PING.
  bool isAsking(const StreamSocket& client, std::string* said) const {
    const auto bytes = client.tryReceive(1);
    if (bytes) *said += *bytes;
    return _isEnding || (bytes && bytes->empty()) || said->ends_with("PING\r\n");
  }
  bool isGone(const StreamSocket& client) const {
    const auto bytes = client.tryReceive(1);
    return _isEnding || (bytes && bytes->empty());
  }

  const std::string _what;
  const StreamListener _listener;
  std::atomic<bool> _isEnding = false;
  std::thread _thread;
};

class LiveConnectionTest : public ::testing::Test {
 protected:
  NatsServer _nats{{.hasJetStream = false}};
};

// The subscriber is heard of by the server before what is sent behind it on the same connection.
TEST_F(LiveConnectionTest, PutsByWhatOthersSendInItsOrder) {
  withoutStandstill([&] {
    const auto sender = connectLive(_nats.url());
    const auto receiver = connectLive(_nats.url());
    const auto inbox = std::make_shared<LinesInbox>();
    const auto subscription = receiver->subscribe("test.*", inbox);
    const std::string place = sender->newInbox();
    const auto answers = sender->subscribe(place + ".*", inbox);
    receiver->send("test.own", {}, {}, "is not heard");
    // Whoever is not heard of yet is nobody.
    const auto isThere = [&] {
      sender->send("test.first", {}, {{"Test", "a"}}, "1");
      return !inbox->lines().empty();
    };
    ASSERT_TRUE(waitUntil(isThere, linkPatience));
    sender->send("test.second", {}, {}, "2");
    sender->send("nobody.there", place + ".17", {}, "3");
    const auto has = [&](const std::string& line) {
      for (const std::string& each : inbox->lines())
        if (each == line) return true;
      return false;
    };
    EXPECT_TRUE(waitUntil([&] { return has("test.second  2"); }, linkPatience));
    EXPECT_TRUE(waitUntil([&] { return has("nobody: " + place + ".17"); }, linkPatience));
    EXPECT_EQ(inbox->lines().front(), "test.first a 1");
    EXPECT_FALSE(has("test.own  is not heard"));
  });
}

TEST_F(LiveConnectionTest, WhatIsTooLargeIsNotSent) {
  withoutStandstill([&] {
    const NatsServer small({.hasJetStream = false, .more = "max_payload: 4096"});
    const auto connection = connectLive(small.url());
    EXPECT_FALSE(connection->send("test", {}, {}, std::string(5'000, 'x')));
    EXPECT_TRUE(connection->send("test", {}, {}, std::string(4'000, 'x')));
  });
}

// Of each subscription nothing is left in the end, though the library may have been at a message.
TEST_F(LiveConnectionTest, SubscriptionsEndWhileMessagesCome) {
  const Flood<LiveConnection> flood(_nats.url(), liveSubject);
  std::vector<std::weak_ptr<CountingInbox>> inboxes;
  while (inboxes.size() < 200) {
    const auto connection = connectLive(_nats.url());
    try {
      for (int count = 0; count < 100; ++count) {
        const auto inbox = std::make_shared<CountingInbox>();
        const auto subscription = connection->subscribe(liveSubject, inbox);
        const auto hasCome = [&] {
          connection->check();
          return inbox->count > 0;
        };
        ASSERT_TRUE(waitUntil(hasCome, linkPatience));
        inboxes.push_back(inbox);
      }
    } catch (const LinkError&) {
    }
  }
  for (const auto& each : inboxes)
    ASSERT_TRUE(waitUntil([&] { return each.expired(); }, linkPatience));
}

TEST_F(LiveConnectionTest, EndsWhileMessagesCome) {
  const Flood<LiveConnection> flood(_nats.url(), liveSubject);
  for (int ended = 0; ended < 50;) {
    auto connection = connectLive(_nats.url());
    auto inbox = std::make_shared<CountingInbox>();
    const std::weak_ptr<CountingInbox> rest = inbox;
    try {
      auto subscription = connection->subscribe(liveSubject, inbox);
      const auto hasCome = [&] {
        connection->check();
        return inbox->count > 0;
      };
      if (waitUntil(hasCome, linkPatience)) ++ended;
    } catch (const LinkError&) {
    }
    connection.reset();
    inbox.reset();
    ASSERT_TRUE(waitUntil([&] { return rest.expired(); }, linkPatience));
  }
}

TEST_F(LiveConnectionTest, AServerThatIsKilledIsNoticedAndNothingIsLeft) {
  std::unique_ptr<LiveConnection> connection;
  std::optional<LiveConnection::Subscription> subscription;
  std::weak_ptr<CountingInbox> rest;
  withoutStandstill([&] {
    subscription.reset();
    connection = connectLive(_nats.url());
    auto inbox = std::make_shared<CountingInbox>();
    rest = inbox;
    subscription = connection->subscribe(liveSubject, std::move(inbox));
  });
  _nats.kill();
  EXPECT_THAT(lossOfLive(*connection), StartsWith(_nats.url() + ": the connection was lost: "));
  EXPECT_THROW(connection->send("test", {}, {}, ""), LinkError);
  subscription.reset();
  connection.reset();
  EXPECT_TRUE(waitUntil([&] { return rest.expired(); }, linkPatience));
}

TEST_F(LiveConnectionTest, AServerThatStandsStillIsNoticed) {
  const auto connection = connectLive(_nats.url());
  _nats.stop();
  EXPECT_EQ(lossOfLive(*connection), _nats.url() + ": the connection was lost: Stale Connection");
  _nats.resume();
}

TEST_F(LiveConnectionTest, ARightThatIsMissingIsSaid) {
  withoutStandstill([&] {
    const NatsServer nats(
        {.hasJetStream = false,
         .more = "authorization { users: [{user: west, password: right, "
                 "permissions: {publish: [\"zord.alive.west\"], subscribe: [\"_INBOX.>\"]}}] }"});
    std::unique_ptr<LiveConnection> connection;
    const auto connects = [&] {
      try {
        connection =
            std::make_unique<LiveConnection>(settingsFor(LinkUser{"west", "right"}), nats.url());
        return true;
      } catch (const LinkError&) {
        return false;
      }
    };
    ASSERT_TRUE(waitUntil(connects, linkPatience));
    connection->send("zord.alive.west", {}, {}, "may be sent");
    const auto subscription =
        connection->subscribe("zord.alive.*", std::make_shared<CountingInbox>());
    EXPECT_THAT(lossOfLive(*connection),
                AllOf(StartsWith(nats.url() + ": this user may not do what is needed: "),
                      HasSubstr("zord.alive.*")));
  });
}

// As no server of NATS would say it, too.
TEST_F(LiveConnectionTest, WhateverIsSaidToBeMissingIsSaid) {
  const std::string missing = ": this user may not do what is needed: ";
  const std::string subjects[][2] = {{"_INBOX.west.ABC.7", "_INBOX.west.>"},
                                     {"_INBOX.west.ABC", "_INBOX.west.>"},
                                     {"_INBOX.west", "_INBOX.west"},
                                     {"_INBOX.", "_INBOX."},
                                     {"_INBOX", "_INBOX"},
                                     {"", ""}};
  for (const auto& [said, told] : subjects) {
    const TellingServer server("Permissions Violation for Subscription to \"" + said + '"');
    withoutStandstill([&] {
      EXPECT_EQ(
          lossOfLive(LiveConnection(settingsFor(), server.url())),
          server.url() + missing + "Permissions Violation for Subscription to \"" + told + '"');
    });
  }
}

}  // namespace
}  // namespace dch::testkit
