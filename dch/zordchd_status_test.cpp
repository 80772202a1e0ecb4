// What subscribers of provider status see of the real program.
#include <gtest/gtest.h>
#include <signal.h>

#include <cstdlib>
#include <set>

#include "dch/testkit/clients.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/server_process.h"
#include "zordchcl/status.h"
#include "zordchcl/zordchcl.h"

namespace dch::testkit {
namespace {

class ZordchdStatusTest : public ::testing::Test {
 protected:
  ZordchdStatusTest() { registerHostmon(); }
  ~ZordchdStatusTest() override { EXPECT_EQ(_server.stop(SIGTERM), 0) << _server.standardError(); }

  void registerHostmon() { EXPECT_EQ(statusOf(_provider.ask(registerMessage())), DCH_STATUS_OK); }

  ZORA_Long goOnline(const std::string& group, const std::string& source = "host1") {
    const auto answer = onlineAnswerOf(_provider.ask(onlineMessage("HOSTMON", group, source)));
    EXPECT_TRUE(answer && answer->status == DCH_STATUS_OK);
    return answer ? answer->handle : 0;
  }

  void subscribe(UdpClient* consumer) {
    consumer->send(statusSubscribeMessage());
    EXPECT_TRUE(_server.waitForError(std::string("subscribed ") +
                                     consumer->address().text().data() + " to provider status\n"));
  }

  static std::string nextEvent(UdpClient* consumer) {
    return eventText(consumer->receive().value_or(""));
  }

  ServerProcess _server{{"--verbose"}};
  UdpClient _provider{_server.port()};
};

TEST_F(ZordchdStatusTest, TellsEveryChangeOfAProvidersLifeInOrder) {
  UdpClient consumer(_server.port());
  subscribe(&consumer);
  const ZORA_Long handle = goOnline("load");
  goOnline("load");
  _provider.ask(offlineMessage(handle));
  goOnline("disk");
  _provider.ask(registerMessage("appl:HOSTMON,HMN;group:load;attr:load1,D,16;"));
  goOnline("load");
  _provider.ask(unregisterMessage("HOSTMON"));
  for (const char* event : {"HOSTMON,load,host1,1015", "HOSTMON,load,host1,1025",
                            "HOSTMON,disk,host1,1015", "HOSTMON,disk,host1,1010", "HOSTMON,,,1010",
                            "HOSTMON,load,host1,1015", "HOSTMON,load,host1,1020", "HOSTMON,,,1020"})
    EXPECT_EQ(nextEvent(&consumer), event);
}

TEST_F(ZordchdStatusTest, TellsANewSubscriberFirstWhatIsOnLine) {
  const ZORA_Long load = goOnline("load");
  goOnline("disk", "host2");
  const ZORA_Long gone = goOnline("disk", "host3");
  _provider.ask(offlineMessage(gone));
  UdpClient consumer(_server.port());
  subscribe(&consumer);
  _provider.ask(offlineMessage(load));
  const std::set<std::string> first{nextEvent(&consumer), nextEvent(&consumer)};
  EXPECT_EQ(first, (std::set<std::string>{"HOSTMON,load,host1,1015", "HOSTMON,disk,host2,1015"}));
  EXPECT_EQ(nextEvent(&consumer), "HOSTMON,load,host1,1025");
}

TEST_F(ZordchdStatusTest, TellsANewSubscriberOfMoreThanItsSystemKeepsUnread) {
  constexpr std::size_t count = 1000;
  std::set<std::string> expected, told;
  for (std::size_t i = 0; i < count; ++i) {
    const std::string source = "source" + std::to_string(i);
    goOnline("load", source);
    expected.insert("HOSTMON,load," + source + ",1015");
  }
  UdpClient consumer(_server.port());
  // It asks again when it was too slow. Whoever is sent everything at once never gets the last
  // ones.
  constexpr int longestGapMilliseconds = 2000, mostAttempts = 10;
  for (int attempt = 0; attempt < mostAttempts && told.size() < count; ++attempt) {
    consumer.send(statusSubscribeMessage());
    while (told.size() < count) {
      const auto event = consumer.receive(longestGapMilliseconds);
      if (!event) break;
      told.insert(eventText(*event));
    }
  }
  EXPECT_TRUE(told == expected) << told.size();
}

TEST_F(ZordchdStatusTest, TellsNothingAfterASubscriptionIsWithdrawn) {
  UdpClient leaving(_server.port()), staying(_server.port());
  subscribe(&leaving);
  subscribe(&staying);
  leaving.send(statusSubscribeMessage(0));
  EXPECT_TRUE(_server.waitForError("withdrew "));
  registerHostmon();
  EXPECT_EQ(nextEvent(&staying), "HOSTMON,,,1010");
  // An answer sent after the event would be the second thing to come.
  EXPECT_EQ(statusOf(leaving.ask(unregisterMessage("NONE"))), DCH_STATUS_UNKNOWN_APPLICATION);
}

TEST_F(ZordchdStatusTest, DropsASubscriberThatIsGoneAndServesTheOthers) {
  UdpClient living(_server.port());
  PeerAddress address;
  {
    UdpClient leaving(_server.port(), portToLeave());
    address = leaving.address();
    subscribe(&leaving);
  }
  subscribe(&living);
  // The system tells the server who is gone at once, or by the next event.
  for (int i = 0; i < 2; ++i) registerHostmon();
  EXPECT_TRUE(_server.waitForError(std::string("subscriber ") + address.text().data() +
                                   " is gone: 1 subscription(s) dropped\n"));
  registerHostmon();
  for (int i = 0; i < 3; ++i) EXPECT_EQ(nextEvent(&living), "HOSTMON,,,1010");
}

TEST_F(ZordchdStatusTest, TellsTheLibrary) {
  setenv("ZORA_DCH_ADDR", "127.0.0.1", 1);
  setenv("ZORA_DCH_PORT", std::to_string(_server.port()).c_str(), 1);
  DCH_api_init();
  const ZORA_Long handle = goOnline("load");
  void* const subscription = dc_waitForDPStatusInitialize();
  ASSERT_NE(subscription, nullptr);
  EXPECT_STREQ(dc_waitForDPStatus(subscription), "HOSTMON,load,host1,4117");
  _provider.ask(offlineMessage(handle));
  EXPECT_STREQ(dc_waitForDPStatus(subscription), "HOSTMON,load,host1,4133");
  _provider.ask(unregisterMessage("HOSTMON"));
  EXPECT_STREQ(dc_waitForDPStatus(subscription), "HOSTMON,,,4128");
  EXPECT_EQ(dc_waitForDPStatusDestroy(subscription), 0);
  EXPECT_TRUE(_server.waitForError("withdrew "));
  DCH_api_destroy();
}

TEST_F(ZordchdStatusTest, ASubscriberThatDoesNotReadHoldsUpNobody) {
  UdpClient lazy(_server.port()), diligent(_server.port());
  subscribe(&lazy);
  subscribe(&diligent);
  for (int i = 0; i < 1000; ++i) {
    registerHostmon();
    ASSERT_EQ(nextEvent(&diligent), "HOSTMON,,,1010");
  }
}

}  // namespace
}  // namespace dch::testkit
