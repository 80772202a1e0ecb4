#include "dch/link/row_publisher.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <set>

#include "dch/link/row_header.h"
#include "dch/testkit/jet_stream.h"
#include "dch/testkit/link_test.h"
#include "dch/testkit/nats_server.h"
#include "dch/testkit/row_asker.h"
#include "dch/testkit/store_test.h"
#include "dch/testkit/stream_reader.h"
#include "dch/testkit/tcp_gate.h"
#include "tests/support/wait_until.h"

namespace dch::testkit {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::SizeIs;

class RowPublisherTest : public StoreTest {
 protected:
  RowPublisherTest() {
    start();
    goOnline();
  }
  ~RowPublisherTest() override { _publisher.reset(); }

  void publish(const std::vector<std::string>& servers, LinkSettings settings = {}) {
    settings.servers = servers;
    settings.site = "west";
    _publisher.reset();
    _linkLog.emplace();
    _publisher.emplace(settings, source(), *_linkLog);
  }
  // A new run, that publishes nothing yet.
  void restart() {
    _publisher.reset();
    stop();
    start();
  }
  KeptRowsSource source() const {
    return {[this] { return _store->places(); }, [this] { return _store->figures().position; }};
  }

  bool areAllPublished() const {
    return _publisher->figures().published == _store->figures().position;
  }
  bool waitUntilAllArePublished() const {
    return waitUntil([this] { return areAllPublished(); }, linkPatience);
  }
  void standAside() {
    ASSERT_TRUE(waitUntilConnected());
    _publisher->setAside(true);
    ASSERT_TRUE(waitUntil([this] { return !_publisher->figures().isConnected; }, linkPatience));
  }
  bool waitUntilConnected() const {
    return waitUntil([this] { return _publisher->figures().isConnected; }, linkPatience);
  }
  // Ends it. False when it has taken the second that it gives to what is left, as it may when the
  // machine stands still.
  bool stopsInTime() {
    const auto start = std::chrono::steady_clock::now();
    _publisher->stop();
    EXPECT_TRUE(_publisher->waitForEnd(linkPatience));
    return std::chrono::steady_clock::now() - start < std::chrono::seconds(1);
  }
  bool waitUntilFailures(std::uint64_t count) const {
    return waitUntil([&] { return _publisher->figures().failures >= count; }, linkPatience);
  }
  // As the server does every second.
  void keepPosition() { keep(RowsPublished{_publisher->figures().published.value()}); }

  bool isTold(const std::string& text) {
    for (std::string& each : _linkLog->takeLines()) _events.push_back(std::move(each));
    return std::any_of(_events.begin(), _events.end(), [&](const std::string& each) {
      return each.find(text) != std::string::npos;
    });
  }

  // Each line so far is another one, and that is among them. A slow machine may bring others.
  void expectEachToldOnce(const std::string& text) {
    EXPECT_TRUE(isTold(text)) << ::testing::PrintToString(_events);
    const std::set<std::string> different(_events.begin(), _events.end());
    EXPECT_EQ(different.size(), _events.size()) << ::testing::PrintToString(_events);
  }

  std::vector<std::string> _events;
  std::optional<LinkLog> _linkLog;
  std::optional<RowPublisher> _publisher;
};

std::vector<RowHeader> headersOf(const std::vector<StreamedRow>& rows) {
  std::vector<RowHeader> headers;
  for (const StreamedRow& each : rows) headers.push_back(parseRowHeader(each.header).value());
  return headers;
}

TEST_F(RowPublisherTest, PublishesWhatIsKeptInItsOrderEachRowNamingTheOneBefore) {
  const NatsServer nats;
  const std::string first = dataMessage(1, {{"load1", 'D', "0.5"}});
  ASSERT_TRUE(keep(Row{1, 1'000, first}));
  publish({nats.url()});
  ASSERT_TRUE(keep(Row{1, 2'000, dataMessage(1)}));
  const std::vector<StreamedRow> rows = readStream(nats.url(), 2);
  ASSERT_EQ(rows.size(), 2u);
  const std::vector<RowHeader> headers = headersOf(rows);
  EXPECT_EQ(rows[0].subject, "zord.rows.west.HOSTMON.load");
  EXPECT_THAT(rows[0].id,
              MatchesRegex("west:" + std::to_string(headers[0].name.number) + "[0-9]{9}"));
  EXPECT_EQ(rows[0].message, first);
  EXPECT_EQ(headers[0].name.epoch, _store->epoch());
  EXPECT_EQ(headers[0].time, 1'000);
  EXPECT_EQ(headers[0].handle, 1);
  EXPECT_EQ(headers[0].source, "host1");
  EXPECT_EQ(headers[1].previous.number, headers[0].name.number);
  EXPECT_EQ(headers[1].previous.epoch, headers[0].name.epoch);
  EXPECT_TRUE(waitUntilAllArePublished());
}

TEST_F(RowPublisherTest, GoesOnBehindWhatWasKeptAsPublished) {
  const NatsServer nats;
  keepRows(1, 3, 1'000);
  publish({nats.url()});
  ASSERT_TRUE(waitUntilAllArePublished());
  keepPosition();
  restart();
  keepRows(1, 2, 2'000);
  publish({nats.url()});
  ASSERT_TRUE(waitUntilAllArePublished());
  EXPECT_EQ(_publisher->figures().rowsPublished, 2u);
  const std::vector<RowHeader> headers = headersOf(readStream(nats.url(), 5));
  ASSERT_EQ(headers.size(), 5u);
  EXPECT_NE(headers[3].name.epoch, headers[2].name.epoch);
  for (std::size_t row = 1; row < headers.size(); ++row)
    EXPECT_EQ(headers[row].previous, headers[row - 1].name) << row;
}

TEST_F(RowPublisherTest, PublishesNothingAndAnswersNobodyWhileItStandsAside) {
  const NatsServer nats;
  publish({nats.url()});
  standAside();
  keepRows(1, 2, 1'000);
  RowAsker asker(nats.url());
  asker.ask("west", "");
  const FetchedRows none = asker.answer();
  EXPECT_FALSE(none.end);
  EXPECT_EQ(none.error, "");
  EXPECT_EQ(_publisher->figures().rowsPublished, 0u);
  _publisher->setAside(false);
  EXPECT_TRUE(waitUntilAllArePublished());
  EXPECT_THAT(asker.fetch("west", "").rows, SizeIs(2));
}

TEST_F(RowPublisherTest, EndsWhileItStandsAside) {
  const NatsServer nats;
  publish({nats.url()});
  standAside();
  keepRows(1, 2, 1'000);
  _publisher->stop();
  EXPECT_TRUE(_publisher->waitForEnd(linkPatience));
  EXPECT_EQ(_publisher->figures().rowsPublished, 0u);
}

TEST_F(RowPublisherTest, WhatItPublishedAndNobodyKeptIsPublishedAgainWithoutBeingDoubled) {
  const NatsServer nats;
  askJetStream(nats.url(), "CREATE", R"({"duplicate_window": 3600000000000})");
  keepRows(1, 10, 1'000);
  publish({nats.url()});
  ASSERT_TRUE(waitUntilAllArePublished());
  restart();
  publish({nats.url()});
  ASSERT_TRUE(waitUntilAllArePublished());
  EXPECT_EQ(readStream(nats.url(), 10).size(), 10u);
}

// Such as after a loss of power: the file has an earlier state, and numbers come again.
TEST_F(RowPublisherTest, AnotherRowOfTheSameNumberIsPublishedToo) {
  const NatsServer nats;
  stop();
  copyTo(path() + "-copy");
  start();
  ASSERT_TRUE(keep(Row{1, 1'000, dataMessage(1, {{"load1", 'D', "lost"}})}));
  publish({nats.url()});
  ASSERT_TRUE(waitUntilAllArePublished());
  _publisher.reset();
  stop();
  putInPlace(path() + "-copy");
  start();
  ASSERT_TRUE(keep(Row{1, 1'000, dataMessage(1, {{"load1", 'D', "new"}})}));
  publish({nats.url()});
  ASSERT_TRUE(waitUntilAllArePublished());
  const std::vector<StreamedRow> rows = readStream(nats.url(), 2);
  ASSERT_EQ(rows.size(), 2u);
  const std::vector<RowHeader> headers = headersOf(rows);
  EXPECT_EQ(headers[0].name.number, headers[1].name.number);
  EXPECT_NE(headers[0].name.epoch, headers[1].name.epoch);
  EXPECT_THAT(rows[1].message, HasSubstr("new"));
}

// The run that has kept it ends before it is published, and another one publishes it.
TEST_F(RowPublisherTest, ARowOfARunBeforeIsNotTakenForAnotherOfItsNumber) {
  const NatsServer nats;
  stop();
  copyTo(path() + "-copy");
  start();
  keepRows(1, 1, 1'000);
  publish({nats.url()});
  ASSERT_TRUE(waitUntilAllArePublished());
  _publisher.reset();
  stop();
  putInPlace(path() + "-copy");
  start();
  keepRows(1, 1, 2'000);
  restart();
  publish({nats.url()});
  ASSERT_TRUE(waitUntilAllArePublished());
  const std::vector<RowHeader> headers = headersOf(readStream(nats.url(), 2));
  ASSERT_THAT(headers, SizeIs(2));
  EXPECT_EQ(headers[0].name.number, headers[1].name.number);
  EXPECT_EQ(headers[1].time, 2'000);
}

TEST_F(RowPublisherTest, ANewRunNamesTheRowBeforeNotWhatElseWasKept) {
  const NatsServer nats;
  keepRows(1, 2, 1'000);
  ASSERT_TRUE(keep(WentOffline{1}));
  publish({nats.url()});
  ASSERT_TRUE(waitUntilAllArePublished());
  keepPosition();
  restart();
  ASSERT_TRUE(keep(WentOnline{"HOSTMON", "load", "host1", 1}));
  keepRows(1, 1, 2'000);
  publish({nats.url()});
  const std::vector<RowHeader> headers = headersOf(readStream(nats.url(), 3));
  ASSERT_THAT(headers, SizeIs(3));
  EXPECT_EQ(headers[2].previous, headers[1].name);
}

// Else a reader would believe that it has them all.
TEST_F(RowPublisherTest, ARowBehindThoseThatWereRemovedUnpublishedShowsAGap) {
  const NatsServer nats;
  stop();
  start({.path = {}, .isPublished = true});
  keepRows(1, 3, day);
  publish({nats.url()});
  ASSERT_TRUE(waitUntilAllArePublished());
  keepPosition();
  _publisher.reset();
  keepRows(1, 4, day);
  keepRows(1, 2, 40 * day);
  _now = 41 * day;
  _store->setRetention({.days = 30, .megabytes = 999});
  ASSERT_TRUE(waitUntil([&] { return _store->figures().rowsRemoved == 7; }, linkPatience));
  ASSERT_EQ(_store->figures().rowsRemovedUnpublished, 4u);
  publish({nats.url()});
  const std::vector<RowHeader> headers = headersOf(readStream(nats.url(), 5));
  ASSERT_THAT(headers, SizeIs(5));
  EXPECT_GE(headers[3].previous.number, headers[2].name.number + 4);
  EXPECT_LT(headers[3].previous.number, headers[3].name.number);
  EXPECT_EQ(headers[4].previous, headers[3].name);
}

TEST_F(RowPublisherTest, PublishesWhatWasKeptWhileThereWasNoServerOnceThereIsOne) {
  const NatsServer nats;
  TcpGate gate(nats.port());
  gate.cut();
  publish({gate.natsUrl()});
  keepRows(1, 20, 1'000);
  EXPECT_TRUE(waitUntilFailures(1));
  EXPECT_FALSE(_publisher->figures().isConnected);
  gate.pass();
  EXPECT_TRUE(waitUntilAllArePublished());
  EXPECT_EQ(readStream(nats.url(), 20).size(), 20u);
}

TEST_F(RowPublisherTest, GoesOnWithAnotherServerWhenOneIsLost) {
  NatsServer lost;
  const NatsServer other;
  TcpGate gate(other.port());
  gate.cut();
  publish({lost.url(), gate.natsUrl()});
  keepRows(1, 5, 1'000);
  ASSERT_TRUE(waitUntilAllArePublished());
  gate.pass();
  lost.kill();
  keepRows(1, 5, 2'000);
  ASSERT_TRUE(waitUntilAllArePublished());
  EXPECT_EQ(readStream(other.url(), 5).size(), 5u);
  EXPECT_TRUE(isTold("linked with " + gate.natsUrl() + " as site west"));
}

// Of a fault that is the same however slow the machine is.
TEST_F(RowPublisherTest, ASentenceIsToldOnceHoweverOftenItIsTried) {
  publish({"tls://127.0.0.1:1"}, {.tlsCa = "/no/such/authority.pem"});
  EXPECT_TRUE(waitUntilFailures(3));
  _publisher->stop();
  EXPECT_THAT(_linkLog->takeLines(),
              ElementsAre("link: tls://127.0.0.1:1: no CA certificates can be read from "
                          "'/no/such/authority.pem'"));
}

TEST_F(RowPublisherTest, AUserWhoMayNotPublishIsToldOnce) {
  const NatsServer nats(
      {.more = "authorization { users: [{user: west, password: west, permissions: {publish: "
               "['$JS.API.>'], subscribe: ['_INBOX.>', 'zord.fetch.>']}}] }"});
  keepRows(1, 2, 1'000);
  publish({nats.url()}, {.user = LinkUser{"west", "west"}});
  EXPECT_TRUE(waitUntilFailures(4));
  expectEachToldOnce("this user may not do what is needed");
}

TEST_F(RowPublisherTest, AUserWhoMayNotHearAnswersIsToldOnce) {
  const NatsServer nats(
      {.more = "authorization { users: [{user: west, password: west, permissions: {subscribe: "
               "'nothing'}}] }"});
  publish({nats.url()}, {.user = LinkUser{"west", "west"}});
  EXPECT_TRUE(waitUntilFailures(4));
  expectEachToldOnce("Subscription to \"_INBOX.west.>\"");
}

TEST_F(RowPublisherTest, ARowThatIsTooLargeIsLeftOutAndTheOthersAreNot) {
  const NatsServer nats({.more = "max_payload: 4096"});
  keepRows(1, 1, 1'000);
  keepRows(1, 1, 2'000, 8'000);
  keepRows(1, 1, 3'000);
  publish({nats.url()});
  ASSERT_TRUE(waitUntilAllArePublished());
  const std::vector<RowHeader> headers = headersOf(readStream(nats.url(), 2));
  ASSERT_EQ(headers.size(), 2u);
  EXPECT_EQ(headers[0].time, 1'000);
  EXPECT_EQ(headers[1].time, 3'000);
  EXPECT_EQ(_publisher->figures().rowsTooLarge, 1u);
  EXPECT_TRUE(isTold("is too large for the stream"));
}

TEST_F(RowPublisherTest, AtItsEndItPublishesWhatIsLeft) {
  const NatsServer nats;
  const auto endsInTime = [&] {
    restart();
    publish({nats.url()});
    EXPECT_TRUE(waitUntilConnected());
    keepRows(1, 50, 1'000);
    return stopsInTime();
  };
  ASSERT_TRUE(waitUntil(endsInTime, linkPatience));
  EXPECT_TRUE(areAllPublished());
}

// Else it would take two seconds until they are.
TEST_F(RowPublisherTest, RowsWithoutAnAnswerAreSentAgainAtOnceWhenTheLinkIsMadeAgain) {
  const NatsServer nats;
  askJetStream(nats.url(), "CREATE", R"({"duplicate_window": 3600000000000})");
  const std::string linked = "linked with " + nats.url() + " as site west";
  std::size_t kept = 0;
  const auto endsInTime = [&] {
    TcpGate gate(nats.port());
    restart();
    _events.clear();
    publish({gate.natsUrl(), nats.url()});
    EXPECT_TRUE(waitUntilAllArePublished());
    gate.holdAnswers();
    keepRows(1, 5, 1'000);
    EXPECT_EQ(readStream(nats.url(), kept += 5).size(), kept);
    gate.cut();
    EXPECT_TRUE(waitUntil([&] { return isTold(linked); }, linkPatience));
    return stopsInTime();
  };
  ASSERT_TRUE(waitUntil(endsInTime, linkPatience));
  EXPECT_TRUE(areAllPublished());
  EXPECT_EQ(readStream(nats.url(), kept).size(), kept);
}

TEST_F(RowPublisherTest, AServerThatStandsStillDoesNotKeepItFromEnding) {
  const NatsServer nats;
  publish({nats.url()});
  ASSERT_TRUE(waitUntilConnected());
  nats.stop();
  keepRows(1, 5'000, 1'000, 1'000);
  _publisher->stop();
  EXPECT_TRUE(_publisher->waitForEnd(linkPatience));
  EXPECT_FALSE(areAllPublished());
  nats.resume();
}

// It is not to keep the file open: a store whose log was taken away waits for that.
TEST_F(RowPublisherTest, AStoreMendsALostLogWhileTheLinkIsAway) {
  NatsServer nats;
  publish({nats.url()});
  keepRows(1, 1, 1'000);
  ASSERT_TRUE(waitUntilAllArePublished());
  nats.stop();
  keepRows(1, 1, 2'000);
  ASSERT_TRUE(waitUntilFailures(1));
  std::filesystem::rename(path() + "-wal", path() + "-wal.away");
  waitUntil([&] { return !keep(Row{1, 3'000, dataMessage(1)}); }, std::chrono::seconds(1));
  EXPECT_TRUE(waitUntil([&] { return keep(Row{1, 4'000, dataMessage(1)}); }, linkPatience));
  nats.resume();
}

TEST_F(RowPublisherTest, AFileThatIsAwayIsToldAndReadWhenItIsBack) {
  const NatsServer nats;
  publish({nats.url()});
  keepRows(1, 5, 1'000);
  ASSERT_TRUE(waitUntilAllArePublished());
  std::filesystem::rename(path(), path() + ".away");
  const auto isFailing = [&] {
    keep(Row{1, 2'000, dataMessage(1)});
    return _store->figures().isFailing;
  };
  EXPECT_TRUE(waitUntil(isFailing, linkPatience));
  publish({nats.url()});  // another one, which is to find out where to begin
  EXPECT_TRUE(waitUntil([&] { return isTold("cannot be read now"); }, linkPatience));
  std::filesystem::rename(path() + ".away", path());
  EXPECT_TRUE(waitUntil([&] { return keep(Row{1, 3'000, dataMessage(1)}); }, linkPatience));
  EXPECT_TRUE(waitUntilAllArePublished());
}

}  // namespace
}  // namespace dch::testkit
