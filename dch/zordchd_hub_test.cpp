// The real programs of two sites and of a hub, with a real NATS server: whatever becomes of them,
// the hub has each row of each site once, and those of a source in their order.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "dch/testkit/clients.h"
#include "dch/testkit/false_site.h"
#include "dch/testkit/jet_stream.h"
#include "dch/testkit/link_test.h"
#include "dch/testkit/linked_server.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/nats_server.h"
#include "dch/testkit/store_test.h"
#include "dch/testkit/stream_reader.h"
#include "tests/support/text_count.h"
#include "tests/support/wait_until.h"
#include "zordchcl/status.h"

namespace dch::testkit {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

class ZordchdHubTest : public ::testing::Test {
 protected:
  // Of each site and source, in the order of the view. Those of the hub itself are of site "null".
  using Rows = std::map<std::pair<std::string, std::string>, std::vector<int>>;

  void TearDown() override {
    if (HasFailure() && _hub.isRunning()) std::cout << _hub.process().standardError();
  }

  void beginSites() {
    _west.begin();
    _east.begin();
  }

  // Rows of two sources of the site, with the numbers that follow.
  void send(LinkedServer* site, int count) {
    const TcpClient client(site->port());
    ASSERT_EQ(statusOf(client.ask(registerMessage())), DCH_STATUS_OK);
    const std::string sources[] = {"host1", "host2"};
    ZORA_Long handles[2];
    for (int each = 0; each < 2; ++each)
      handles[each] = handleOf(client.ask(onlineMessage("HOSTMON", "load", sources[each])));
    int& sent = _sent[site];
    for (const int end = sent + count; sent < end; ++sent) {
      const std::string number = std::to_string(sent);
      ASSERT_EQ(statusOf(client.ask(dataMessage(handles[sent % 2], {{"load1", 'D', number}}))),
                DCH_STATUS_OK);
      _acknowledged[{site == &_hub ? "null" : site->site(), sources[sent % 2]}].push_back(sent);
    }
  }
  void sendFromSites(int count) {
    send(&_west, count);
    send(&_east, count);
  }

  // A server makes it anew by itself, after some seconds.
  void replaceStream() const {
    askJetStream(_nats.url(), "DELETE");
    askJetStream(_nats.url(), "CREATE");
  }

  Rows rowsOfHub() const {
    std::istringstream lines(
        query(_hub.path(), "SELECT site, source, load1 FROM \"HOSTMON.load\""));
    Rows rows;
    std::string site, source, number;
    while (std::getline(lines, site, '|') && std::getline(lines, source, '|') &&
           std::getline(lines, number))
      rows[{site, source}].push_back(std::stoi(number));
    return rows;
  }
  std::size_t countOfHub() const {
    std::size_t count = 0;
    for (const auto& [source, rows] : rowsOfHub()) count += rows.size();
    return count;
  }
  // A look costs the hub some time, too.
  template <class Condition>
  static bool comesTrue(Condition condition) {
    return waitUntil(
        [&] {
          std::this_thread::sleep_for(std::chrono::milliseconds(20));
          return condition();
        },
        linkPatience);
  }
  bool hubHasAll() const {
    return comesTrue([this] { return rowsOfHub() == _acknowledged; });
  }
  void expectHubHasAll() {
    hubHasAll();
    EXPECT_EQ(rowsOfHub(), _acknowledged);
    EXPECT_EQ(_hub.end(), 0);  // nothing that was on its way comes a second time
    EXPECT_EQ(rowsOfHub(), _acknowledged);
  }

  NatsServer _nats;
  LinkedServer _west{"west", _nats.port()};
  LinkedServer _east{"east", _nats.port()};
  LinkedServer _hub{"hub", _nats.port(), LinkedServer::Keeps::rowsOfAllSites};
  std::map<const LinkedServer*, int> _sent;
  Rows _acknowledged;
};

TEST_F(ZordchdHubTest, HasTheRowsOfEachSiteAndItsOwnOnce) {
  beginSites();
  _hub.begin();
  for (int round = 0; round < 3; ++round) {
    send(&_west, 20);
    send(&_hub, 10);
    send(&_east, 30);
  }
  expectHubHasAll();
  EXPECT_EQ(query(_hub.path(), "SELECT site, count(*) FROM \"HOSTMON.load\" GROUP BY site"),
            "null|30\neast|90\nwest|60\n");
  // Rows of others are published by nobody but them.
  EXPECT_EQ(readStream(_nats.url(), 180).size(), 180u);
}

TEST_F(ZordchdHubTest, ThatStartsLaterGetsWhatTheSitesHavePublished) {
  beginSites();
  sendFromSites(50);
  readStream(_nats.url(), 100);
  _hub.begin();
  expectHubHasAll();
}

// It hears that they are there.
TEST_F(ZordchdHubTest, AsksSitesOfWhichTheStreamHasNothing) {
  beginSites();
  sendFromSites(20);
  readStream(_nats.url(), 40);
  replaceStream();
  _hub.begin();
  expectHubHasAll();
}

TEST_F(ZordchdHubTest, ThatStartsLaterGetsFromTheSitesWhatWasDeletedFromTheStream) {
  beginSites();
  sendFromSites(50);
  readStream(_nats.url(), 100);
  replaceStream();
  // It hears of a site by its rows.
  sendFromSites(1);
  _hub.begin();
  expectHubHasAll();
}

TEST_F(ZordchdHubTest, MissesNothingWhenTheStreamIsDeletedThatItReads) {
  beginSites();
  _hub.begin();
  sendFromSites(50);
  EXPECT_TRUE(hubHasAll());
  askJetStream(_nats.url(), "DELETE");
  sendFromSites(10);
  EXPECT_TRUE(hubHasAll());
  replaceStream();
  sendFromSites(10);
  EXPECT_TRUE(hubHasAll());
  sendFromSites(100);
  expectHubHasAll();
}

TEST_F(ZordchdHubTest, ReadsTheStreamThatReplacesTheOneThatItReadWhenNoSiteAnswers) {
  beginSites();
  _hub.begin();
  sendFromSites(50);
  EXPECT_TRUE(hubHasAll());
  _hub.standStill();
  replaceStream();
  sendFromSites(10);
  readStream(_nats.url(), 20);
  _west.die();
  _east.die();
  _hub.goOn();
  expectHubHasAll();
}

TEST_F(ZordchdHubTest, GoesOnWhereItWasWhenItWasKilled) {
  beginSites();
  _hub.begin();
  for (int round = 0; round < 3; ++round) {
    sendFromSites(30);
    _hub.die();  // while some of them are on their way
    sendFromSites(30);
    _hub.begin();
    EXPECT_TRUE(hubHasAll());
  }
  expectHubHasAll();
}

TEST_F(ZordchdHubTest, HasTheRowsOfASiteInAllItsLives) {
  beginSites();
  _hub.begin();
  for (int life = 0; life < 4; ++life) {
    sendFromSites(20);
    _west.die();
    _west.begin();
  }
  sendFromSites(20);
  expectHubHasAll();
}

TEST_F(ZordchdHubTest, MissesNothingWhenNatsIsKilledAndWhenItsStoreIsLost) {
  beginSites();
  _hub.begin();
  sendFromSites(20);
  const auto lead = [&](LinkedServer* each) {
    each->gate().leadTo(_nats.port());
    each->gate().pass();
  };
  const auto cut = [&] {
    for (LinkedServer* const each : {&_west, &_east, &_hub}) each->gate().cut();
  };
  cut();
  _nats.kill();
  sendFromSites(20);
  _nats.restart();
  for (LinkedServer* const each : {&_west, &_east, &_hub}) lead(each);
  EXPECT_TRUE(hubHasAll());

  _hub.gate().cut();
  sendFromSites(20);
  readStream(_nats.url(), 120);
  cut();
  _nats.restartEmpty();  // with rows that the hub does not have
  sendFromSites(20);
  for (LinkedServer* const each : {&_west, &_east, &_hub}) lead(each);
  expectHubHasAll();
}

TEST_F(ZordchdHubTest, GoesOnWhenItIsCutOffInTheMidstOfAnAnswer) {
  askJetStream(_nats.url(), "CREATE");
  const FalseSite north(_nats.url(), "north");
  north.sendRow(2'000, north.subject());
  north.flush();
  _hub.begin();
  const std::string asker = north.nextAsker();
  ASSERT_NE(asker, "");
  // So that it has nothing to give to its store but these rows.
  EXPECT_TRUE(
      waitUntil([this] { return query(_hub.path(), "SELECT sequence FROM stream_read") == "1\n"; },
                linkPatience));
  constexpr int rows = 1'024;  // as many as the hub has without having given them to its store
  for (int number = 1; number <= rows; ++number) north.sendRow(number, asker);
  north.flush();
  std::this_thread::sleep_for(std::chrono::milliseconds(300));  // they are on their way
  _hub.gate().cut();
  _hub.gate().pass();
  EXPECT_NE(north.nextAsker(), "");
  EXPECT_LE(countOfHub(), static_cast<std::size_t>(rows));
}

TEST_F(ZordchdHubTest, SaysOnceThatASiteIsAwayOfWhichItMissesRowsAndWaitsForIt) {
  const std::string missing = "site west does not answer, and rows of it are missing here";
  beginSites();
  sendFromSites(20);
  readStream(_nats.url(), 40);
  replaceStream();
  sendFromSites(5);
  readStream(_nats.url(), 10);
  _west.die();
  _hub.begin();
  EXPECT_TRUE(_hub.process().waitForError(missing));
  {
    const FalseSite west(_nats.url(), "west");
    for (int question = 0; question < 3; ++question) EXPECT_NE(west.nextAsker(), "");
  }
  send(&_east, 5);
  EXPECT_TRUE(comesTrue([this] { return countOfHub() == 30; }));  // all of the other site
  EXPECT_EQ(rowsOfHub().count({"west", "host1"}), 0u);
  EXPECT_EQ(countOf(missing, _hub.process().standardError()), 1);
  EXPECT_THAT(_hub.process().standardError(), Not(HasSubstr("site west answers again")));
  _west.begin();
  EXPECT_TRUE(_hub.process().waitForError("site west answers again"));
  expectHubHasAll();
}

}  // namespace
}  // namespace dch::testkit
