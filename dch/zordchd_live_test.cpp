// Real programs of two sites, at each of which subscribers get the rows of both.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <optional>
#include <string>
#include <vector>

#include "dch/core/epoch.h"
#include "dch/core/handles.h"
#include "dch/core/row_message.h"
#include "dch/link/live_header.h"
#include "dch/link/subject.h"
#include "dch/testkit/clients.h"
#include "dch/testkit/link_test.h"
#include "dch/testkit/linked_server.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/nats_client.h"
#include "dch/testkit/nats_server.h"
#include "dch/testkit/reported_counters.h"
#include "tests/support/wait_until.h"
#include "zordchcl/status.h"

namespace dch::testkit {
namespace {

std::string rowOf(ZORA_Long handle, int number) {
  return dataMessage(handle, {{"load1", 'D', std::to_string(number)}});
}

// Sends rows of HOSTMON with ever higher numbers.
class Provider {
 public:
  explicit Provider(const LinkedServer& server, const std::string& source = "host1",
                    const std::string& group = "load")
      : _client(server.port()) {
    const std::string groups = "group:load;attr:load1,D,16;group:more;attr:load1,D,16;";
    EXPECT_EQ(statusOf(_client.ask(registerMessage("appl:HOSTMON,HMN;type:SOCK;" + groups))),
              DCH_STATUS_OK);
    handle = handleOf(_client.ask(onlineMessage("HOSTMON", group, source)));
    EXPECT_NE(handle, 0);
  }
  void send(int number) const {
    EXPECT_EQ(statusOf(_client.ask(rowOf(handle, number))), DCH_STATUS_OK);
  }

  ZORA_Long handle = 0;

 private:
  const TcpClient _client;
};

struct Got {
  int number;
  ZORA_Long handle;
};

class Subscriber {
 public:
  explicit Subscriber(const LinkedServer& server) : _client(server.port()) { subscribe(); }
  void subscribe() const { _client.send(subscribeMessage("HOSTMON", "load")); }

  // The next row; nothing when there is none in that time. All rows have to be whole.
  std::optional<Got> next(int milliseconds = longestWaitMilliseconds) {
    std::optional<std::string> message = _client.receive(milliseconds);
    if (!message) return std::nullopt;
    // Behind its length word, the code of its request and the head of its own field.
    constexpr std::size_t place = 18;
    EXPECT_GT(message->size(), place + 4);
    ZORA_Long handle = 0;
    for (std::size_t i = place; i < place + 4; ++i)
      handle = handle << 8 | static_cast<unsigned char>((*message)[i]);
    std::size_t digits = message->size();
    while (digits > 0 && std::isdigit(static_cast<unsigned char>((*message)[digits - 1]))) --digits;
    const int number = std::stoi(message->substr(digits));
    EXPECT_EQ(*message, rowOf(handle, number)) << "all but the handle is as it was sent";
    return Got{number, handle};
  }

 private:
  const UdpClient _client;
};

// As a report says that is written now.
long counterOf(const ServerProcess& server, const std::string& name) {
  const auto reports = [&] {
    const std::string lines = server.standardError();
    std::size_t count = 0;
    for (std::size_t at = 0; (at = lines.find("\n  link_aside ", at)) != std::string::npos; ++at)
      ++count;
    return count;
  };
  const std::size_t former = reports();
  kill(server.processId(), SIGUSR1);
  EXPECT_TRUE(waitUntil([&] { return reports() > former; }, linkPatience));
  return reported(server, name).value_or(-1);
}

class LiveSitesTest : public ::testing::Test {
 protected:
  LiveSitesTest() {
    _west.begin();
    _east.begin();
  }
  ~LiveSitesTest() override {
    for (LinkedServer* const each : {&_west, &_east})
      if (each->isRunning()) {
        EXPECT_EQ(each->end(), 0);
      }
  }

  // Sends rows until one comes through, and then lets those come that are on their way. Returns its
  // handle there.
  ZORA_Long comesThrough(const Provider& provider, Subscriber& subscriber) {
    ZORA_Long handle = 0;
    const int former = _number;
    const auto comes = [&] {
      provider.send(++_number);
      std::optional<Got> got;
      while (handle == 0 && (got = subscriber.next(50)))
        if (got->number > former && got->handle >= firstRemoteHandle) handle = got->handle;
      return handle != 0;
    };
    EXPECT_TRUE(waitUntil(comes, linkPatience));
    EXPECT_TRUE(catchesUp(provider, subscriber));
    return handle;
  }
  // A row that is sent now comes, and what comes before it is older.
  bool catchesUp(const Provider& provider, Subscriber& subscriber) {
    const auto comes = [&] {
      provider.send(++_number);
      std::optional<Got> got = subscriber.next(1'000);
      while (got && got->number != _number) got = subscriber.next(1'000);
      return got.has_value();
    };
    if (!waitUntil(comes, linkPatience)) return false;
    _seen = _number;
    return true;
  }

  // Whether so many rows come, each once, in their order; a connection that is lost meanwhile, as
  // the machine stands still, loses some.
  bool allCome(const Provider& provider, Subscriber& subscriber, ZORA_Long handle, int count) {
    const int first = _number + 1;
    for (int row = 0; row < count; ++row) provider.send(++_number);
    bool isWhole = true;
    while (_seen < _number) {
      const std::optional<Got> got = subscriber.next(2'000);
      if (!got) return false;  // or it comes later
      EXPECT_EQ(got->handle, handle);
      EXPECT_GT(got->number, _seen) << "each comes once, in its order";
      if (got->number >= first) isWhole = isWhole && got->number == std::max(_seen + 1, first);
      _seen = got->number;
    }
    return isWhole;
  }

  NatsServer _nats;
  LinkedServer _west{"west", _nats.port()};
  LinkedServer _east{"east", _nats.port()};
  int _number = 0;
  int _seen = 0;  // by the subscriber who got one last
};

TEST_F(LiveSitesTest, EachRowComesOnceToASubscriberOfTheOtherSite) {
  const Provider provider(_west);
  Subscriber there(_east);
  const ZORA_Long handle = comesThrough(provider, there);
  EXPECT_GE(handle, firstRemoteHandle);
  const auto isWhole = [&] { return allCome(provider, there, handle, 100); };
  EXPECT_TRUE(waitUntil(isWhole, linkPatience));
}

TEST_F(LiveSitesTest, SourcesOfOneNameHaveHandlesOfTheirOwn) {
  const Provider west(_west), east(_east);
  Subscriber inWest(_west), inEast(_east);
  const ZORA_Long westInEast = comesThrough(west, inEast);
  const ZORA_Long eastInWest = comesThrough(east, inWest);
  EXPECT_GE(westInEast, firstRemoteHandle);
  EXPECT_GE(eastInWest, firstRemoteHandle);
  EXPECT_LT(west.handle, firstRemoteHandle);
  // Its own rows come as if there were no others.
  west.send(++_number);
  std::optional<Got> got = inWest.next();
  while (got && got->number != _number) got = inWest.next();
  ASSERT_TRUE(got);
  EXPECT_EQ(got->handle, west.handle);
}

TEST_F(LiveSitesTest, AHandleFromElsewhereIsNobodysHere) {
  const Provider provider(_west);
  Subscriber there(_east);
  const ZORA_Long handle = comesThrough(provider, there);
  const TcpClient client(_east.port());
  EXPECT_EQ(statusOf(client.ask(rowOf(handle, 1))), DCH_STATUS_UNKNOWN_HANDLE);
  EXPECT_EQ(statusOf(client.ask(offlineMessage(handle))), DCH_STATUS_UNKNOWN_HANDLE);
}

TEST_F(LiveSitesTest, ARestartedReceiverHasTheSameHandle) {
  const Provider provider(_west);
  ZORA_Long handle = 0;
  {
    Subscriber there(_east);
    handle = comesThrough(provider, there);
  }
  EXPECT_EQ(_east.end(), 0);
  _east.begin();
  Subscriber again(_east);
  EXPECT_EQ(comesThrough(provider, again), handle);
  _east.die();
  _east.begin();
  Subscriber third(_east);
  EXPECT_EQ(comesThrough(provider, third), handle);
}

TEST_F(LiveSitesTest, RowsGoOnWhenTheSenderIsBack) {
  Subscriber there(_east);
  ZORA_Long handle = 0;
  {
    const Provider provider(_west);
    handle = comesThrough(provider, there);
  }
  _west.die();
  _west.begin();
  const Provider again(_west);
  EXPECT_EQ(comesThrough(again, there), handle);
  const auto isWhole = [&] { return allCome(again, there, handle, 20); };
  EXPECT_TRUE(waitUntil(isWhole, linkPatience));
}

TEST_F(LiveSitesTest, RowsGoOnWhenTheNatsServerIsBack) {
  const Provider provider(_west);
  Subscriber there(_east), here(_west);
  const ZORA_Long handle = comesThrough(provider, there);
  _nats.kill();
  // The programs of the machine notice nothing.
  ASSERT_TRUE(catchesUp(provider, here));
  _nats.restart();
  _west.gate().leadTo(_nats.port());
  _east.gate().leadTo(_nats.port());
  EXPECT_EQ(comesThrough(provider, there), handle);
}

// A row that goes out behind others tells that these have gone, too, or never will.
class RowsBehind {
 public:
  RowsBehind(const LinkedServer& server, const NatsServer& nats)
      : _provider(server, "host1", "more"), _client(nats.url()) {
    natsSubscription* made = nullptr;
    const std::string subject = liveSubject(server.site(), "HOSTMON", "more");
    requireDone(natsConnection_SubscribeSync(&made, _client.get(), subject.c_str()));
    _subscription.reset(made);
    requireDone(natsConnection_Flush(_client.get()));
  }
  ~RowsBehind() { _client.close(); }

  bool haveCome() {
    const auto comes = [&] {
      _provider.send(++_number);
      const std::string expected = rowOf(_provider.handle, _number);
      natsMsg* message = nullptr;
      while (natsSubscription_NextMsg(&message, _subscription.get(), 1'000) == NATS_OK) {
        const NatsMessage owned(message);
        if (std::string_view(natsMsg_GetData(message),
                             static_cast<std::size_t>(natsMsg_GetDataLength(message))) == expected)
          return true;
      }
      return false;
    };
    return waitUntil(comes, linkPatience);
  }

 private:
  const Provider _provider;
  const NatsClient _client;
  NatsSubscription _subscription;
  int _number = 0;
};

// The group is let go some seconds after its last subscriber was found gone; then one row in a
// second goes out, and asks.
TEST_F(LiveSitesTest, NothingGoesOutThatNobodyWants) {
  const Provider provider(_west);
  RowsBehind behind(_west, _nats);
  {
    Subscriber there(_east);
    comesThrough(provider, there);
  }
  const auto isQuiet = [&] {
    const long before = counterOf(_west.process(), "link_live_sent");
    for (int row = 0; row < 200; ++row) provider.send(++_number);
    return behind.haveCome() && counterOf(_west.process(), "link_live_sent") < before + 100;
  };
  EXPECT_TRUE(waitUntil(isQuiet, linkPatience));
  Subscriber again(_east);
  comesThrough(provider, again);
}

// It sends valid rows of ever other sources, as a site of its own, as fast as it can.
TEST_F(LiveSitesTest, AFloodOfRowsHoldsUpNobody) {
  const Provider provider(_west), local(_east, "local");
  Subscriber there(_east);
  const ZORA_Long handle = comesThrough(provider, there);
  const NatsClient flooding(_nats.url());
  const std::string subject = liveSubject("flood", "HOSTMON", "load");
  const Epoch run = newEpoch();
  const std::string row = rowOf(1, 1);
  for (std::uint64_t count = 1; count <= 50'000; ++count) {
    natsMsg* made = nullptr;
    requireDone(
        natsMsg_Create(&made, subject.c_str(), nullptr, row.data(), static_cast<int>(row.size())));
    const NatsMessage message(made);
    const std::string header =
        liveHeaderText({run, count, 5, "source" + std::to_string(count % 500)});
    requireDone(natsMsgHeader_Set(made, "Zord-Live", header.c_str()));
    requireDone(natsConnection_PublishMsg(flooding.get(), made));
    if (count % 1'000 == 0) local.send(++_number);  // is acknowledged
  }
  requireDone(natsConnection_Flush(flooding.get()));
  EXPECT_TRUE(comesTo(_east.process(), "link_live_pushed", 1));
  EXPECT_TRUE(catchesUp(local, there));
  EXPECT_EQ(comesThrough(provider, there), handle);
}

TEST(LiveNamesakesTest, WhoStandsAsideNeitherSendsNorGetsRows) {
  const NatsServer nats;
  LinkedServer one("west", nats.port()), other("west", nats.port()), east("east", nats.port());
  for (LinkedServer* const each : {&one, &other, &east}) each->begin();
  const auto isAside = [](LinkedServer& server) {
    return counterOf(server.process(), "link_aside") == 1;
  };
  ASSERT_TRUE(waitUntil([&] { return isAside(one) != isAside(other); }, linkPatience));
  const Provider inOne(one, "one"), inOther(other, "other"), inEast(east, "east");
  const bool isOneAside = isAside(one);
  const Provider& aside = isOneAside ? inOne : inOther;
  const Provider& speaking = isOneAside ? inOther : inOne;
  Subscriber inAside(isOneAside ? one : other), there(east);
  // All of its rows are kept before the others', and none comes before them.
  for (int row = 1; row <= 20; ++row) aside.send(row);
  int number = 20;
  std::optional<Got> got;
  const auto comes = [&] {
    speaking.send(++number);
    inEast.send(number);
    while ((got = there.next(50)) && got->handle == inEast.handle) {
    }
    return got.has_value();
  };
  ASSERT_TRUE(waitUntil(comes, linkPatience));
  EXPECT_GT(got->number, 20);
  // A row of its own comes to its subscriber, and none before that.
  const int last = ++number;
  aside.send(last);
  for (got = inAside.next(); got && got->number != last; got = inAside.next())
    EXPECT_EQ(got->handle, aside.handle);
  ASSERT_TRUE(got);
  EXPECT_EQ(got->handle, aside.handle);
  for (LinkedServer* const each : {&one, &other, &east}) EXPECT_EQ(each->end(), 0);
}

}  // namespace
}  // namespace dch::testkit
