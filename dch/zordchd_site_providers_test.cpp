// Real programs of two sites: consumers at each see the applications of both.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "dch/testkit/clients.h"
#include "dch/testkit/link_test.h"
#include "dch/testkit/linked_server.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/nats_server.h"
#include "tests/support/wait_until.h"
#include "zordchcl/messages.h"
#include "zordchcl/status.h"

namespace dch::testkit {
namespace {

const std::string hostmon = "appl:HOSTMON,HMN;type:SOCK;group:load;attr:load1,D,16;";

// Of one site, over a connection of its own.
class Programs {
 public:
  explicit Programs(const LinkedServer& server) : _client(server.port()) {}

  void registerText(const std::string& text, const std::string& name,
                    const std::string& key) const {
    EXPECT_EQ(statusOf(_client.ask(registerMessage(text, name, key))), DCH_STATUS_OK);
  }
  void registerHostmon(const std::string& text = hostmon) const {
    registerText(text, "HOSTMON", "HMN");
  }
  void unregister(const std::string& name) const {
    EXPECT_EQ(statusOf(_client.ask(unregisterMessage(name))), DCH_STATUS_OK);
  }
  ZORA_Long online(const std::string& source) const {
    const ZORA_Long handle = handleOf(_client.ask(onlineMessage("HOSTMON", "load", source)));
    EXPECT_NE(handle, 0);
    return handle;
  }
  void offline(ZORA_Long handle) const {
    EXPECT_EQ(statusOf(_client.ask(offlineMessage(handle))), DCH_STATUS_OK);
  }

  std::string text(short request, const char* application = nullptr) const {
    return textOf(_client.ask(catalogueMessage(request, application))).value_or("no answer");
  }
  std::string applications() const { return text(DCH_REQUEST_APPLICATIONS); }

  ::testing::AssertionResult comeToSee(const std::string& expected) const {
    if (waitUntil([&] { return applications() == expected; }, linkPatience))
      return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "it is\n" << applications();
  }

 private:
  const TcpClient _client;
};

// Is told of provider status.
class Watcher {
 public:
  explicit Watcher(const LinkedServer& server) : _client(server.port()) {
    _client.send(statusSubscribeMessage());
  }
  // "APPLICATION,GROUP,SOURCE,CODE" of the next event; nothing when none comes in that time.
  std::optional<std::string> next(int milliseconds = longestWaitMilliseconds) const {
    const std::optional<std::string> message = _client.receive(milliseconds);
    return message ? std::optional(eventText(*message)) : std::nullopt;
  }

 private:
  const UdpClient _client;
};

class SiteProvidersTest : public ::testing::Test {
 protected:
  SiteProvidersTest() {
    _west.begin();
    _east.begin();
  }
  ~SiteProvidersTest() override {
    for (LinkedServer* const each : {&_west, &_east})
      if (each->isRunning()) {
        EXPECT_EQ(each->end(), 0);
      }
  }

  NatsServer _nats;
  LinkedServer _west{"west", _nats.port()};
  LinkedServer _east{"east", _nats.port()};
};

TEST_F(SiteProvidersTest, AnApplicationOfTwoSitesCountsOnceWithItsSourcesAddedUp) {
  const Programs west(_west), east(_east);
  west.registerHostmon();
  west.online("host1");
  west.online("host2");
  east.registerHostmon();
  east.online("host1");
  east.registerText("appl:APPMON,APM;group:g;attr:a,C,1;", "APPMON", "APM");
  const std::string all = "APPMON,APM,NODP,g,0\nHOSTMON,HMN,SOCK,load,3\n";
  EXPECT_TRUE(west.comeToSee(all));
  EXPECT_TRUE(east.comeToSee(all));
  EXPECT_EQ(west.text(DCH_REQUEST_APPLICATIONS, "HOSTMON"), "HOSTMON,HMN,SOCK,load,3\n");
  EXPECT_EQ(west.text(DCH_REQUEST_APPLICATIONS, "APPMON"), "APPMON,APM,NODP,g,0\n");
}

TEST_F(SiteProvidersTest, AttributesAndHelpComeFromWhereverTheyAre) {
  const Programs west(_west), east(_east);
  east.registerText(
      "appl:APPMON,APM;help:Watches programs;group:g;attr:a,C,1,one letter;group:h;attr:b,N,4;",
      "APPMON", "APM");
  EXPECT_TRUE(west.comeToSee("APPMON,APM,NODP,g h,0\n"));
  EXPECT_EQ(west.text(DCH_REQUEST_ATTRIBUTES, "APPMON"), "g,a,C,1,one letter\nh,b,N,4,\n");
  EXPECT_EQ(west.text(DCH_REQUEST_HELP, "APPMON"), "Watches programs");
  EXPECT_EQ(west.text(DCH_REQUEST_HELP, "NONE"), "");
}

TEST_F(SiteProvidersTest, WhatDiffersIsPutTogetherWithTheSitesOwnFirst) {
  const Programs west(_west), east(_east);
  west.registerHostmon();
  east.registerHostmon("appl:HOSTMON,HMN;group:disk;attr:name,T,32;group:load;attr:load5,D,16;");
  EXPECT_TRUE(west.comeToSee("HOSTMON,HMN,SOCK,load disk,0\n"));
  EXPECT_TRUE(east.comeToSee("HOSTMON,HMN,NODP,disk load,0\n"));
  EXPECT_EQ(west.text(DCH_REQUEST_ATTRIBUTES, "HOSTMON"),
            "load,load1,D,16,\nload,load5,D,16,\ndisk,name,T,32,\n");
}

TEST_F(SiteProvidersTest, WhatGoesIsGoneElsewhere) {
  const Programs west(_west), east(_east);
  west.registerHostmon();
  const ZORA_Long first = west.online("host1");
  west.online("host2");
  EXPECT_TRUE(east.comeToSee("HOSTMON,HMN,SOCK,load,2\n"));
  west.offline(first);
  EXPECT_TRUE(east.comeToSee("HOSTMON,HMN,SOCK,load,1\n"));
  west.online("host1");
  EXPECT_TRUE(east.comeToSee("HOSTMON,HMN,SOCK,load,2\n"));
  west.unregister("HOSTMON");
  EXPECT_TRUE(east.comeToSee(""));
}

TEST_F(SiteProvidersTest, SubscribersOfStatusAreToldOfAllSites) {
  const Programs west(_west), east(_east);
  const Watcher there(_east);
  west.registerHostmon();
  EXPECT_EQ(there.next(), "HOSTMON,,,1010");
  const ZORA_Long handle = west.online("host1");
  EXPECT_EQ(there.next(), "HOSTMON,load,host1,1015");
  const Watcher later(_east);
  EXPECT_EQ(later.next(), "HOSTMON,load,host1,1015");
  west.offline(handle);
  EXPECT_EQ(there.next(), "HOSTMON,load,host1,1025");
  west.unregister("HOSTMON");
  EXPECT_EQ(there.next(), "HOSTMON,,,1020");
  EXPECT_EQ(later.next(), "HOSTMON,load,host1,1025");
  EXPECT_EQ(later.next(), "HOSTMON,,,1020");
}

// As many as do not go with one message, nor with one answer.
TEST_F(SiteProvidersTest, ManySourcesComePieceByPiece) {
  const Programs west(_west), east(_east);
  west.registerHostmon();
  for (int source = 0; source < 5'000; ++source)
    west.online("source" + std::to_string(source) + std::string(20, 'x'));
  EXPECT_TRUE(east.comeToSee("HOSTMON,HMN,SOCK,load,5000\n"));
  EXPECT_EQ(_east.end(), 0);
  _east.begin();
  EXPECT_TRUE(Programs(_east).comeToSee("HOSTMON,HMN,SOCK,load,5000\n"));
}

// Its sources are on line again when it is back, as nobody has taken them off line.
TEST_F(SiteProvidersTest, ASilentSiteHasNoSourceOnLine) {
  const Programs east(_east);
  {
    const Programs west(_west);
    west.registerHostmon();
    west.online("host1");
    EXPECT_TRUE(east.comeToSee("HOSTMON,HMN,SOCK,load,1\n"));
  }
  const Watcher there(_east);
  EXPECT_EQ(there.next(), "HOSTMON,load,host1,1015");
  _west.standStill();
  EXPECT_TRUE(east.comeToSee("HOSTMON,HMN,SOCK,load,0\n"));
  EXPECT_EQ(there.next(), "HOSTMON,load,host1,1025");
  _west.goOn();
  EXPECT_TRUE(east.comeToSee("HOSTMON,HMN,SOCK,load,1\n"));
  EXPECT_EQ(there.next(), "HOSTMON,load,host1,1015");
}

TEST_F(SiteProvidersTest, ARestartedSiteIsSeenAsItIsNow) {
  const Programs east(_east);
  {
    const Programs west(_west);
    west.registerHostmon();
    west.online("host1");
    west.registerText("appl:APPMON,APM;group:g;attr:a,C,1;", "APPMON", "APM");
    EXPECT_TRUE(east.comeToSee("APPMON,APM,NODP,g,0\nHOSTMON,HMN,SOCK,load,1\n"));
  }
  _west.die();
  _west.begin();
  const Programs again(_west);
  again.unregister("APPMON");
  again.online("host2");
  EXPECT_TRUE(east.comeToSee("HOSTMON,HMN,SOCK,load,2\n"));
}

TEST_F(SiteProvidersTest, WhatChangedWhileThereWasNoLinkIsSeenWhenItIsBack) {
  const Programs west(_west), east(_east);
  west.registerHostmon();
  west.online("host1");
  EXPECT_TRUE(east.comeToSee("HOSTMON,HMN,SOCK,load,1\n"));
  _nats.kill();
  west.online("host2");
  east.registerText("appl:APPMON,APM;group:g;attr:a,C,1;", "APPMON", "APM");
  EXPECT_EQ(west.text(DCH_REQUEST_APPLICATIONS, "HOSTMON"), "HOSTMON,HMN,SOCK,load,2\n");
  _nats.restart();
  _west.gate().leadTo(_nats.port());
  _east.gate().leadTo(_nats.port());
  EXPECT_TRUE(east.comeToSee("APPMON,APM,NODP,g,0\nHOSTMON,HMN,SOCK,load,2\n"));
  EXPECT_TRUE(west.comeToSee("APPMON,APM,NODP,g,0\nHOSTMON,HMN,SOCK,load,2\n"));
}

}  // namespace
}  // namespace dch::testkit
