// What a consumer sees of a network that loses, repeats and reorders what the DCH pushes to it.
#include <gmock/gmock.h>

#include "dch/testkit/clients.h"
#include "dch/testkit/messages.h"
#include "tests/network/network_test.h"
#include "tests/support/trace_capture.h"

namespace network {
namespace {

using dch::testkit::UdpClient;
using ::testing::ElementsAre;

class RowsTest : public NetworkTest {
 protected:
  RowsTest() {
    DCH_api_init();
    const std::string name = "NET";
    EXPECT_EQ(
        dch::testkit::statusOf(_provider.ask(dch::testkit::registerMessage(
            "appl:NET,NET;group:rows;attr:text,D,16;group:other;attr:name,D,16;", name, name))),
        0);
    _handle = bringOnline("rows");
  }
  ~RowsTest() override { DCH_api_destroy(); }

  ZORA_Long bringOnline(const std::string& group) {
    const auto answer = dch::testkit::onlineAnswerOf(
        _provider.ask(dch::testkit::onlineMessage("NET", group, "host1")));
    EXPECT_TRUE(answer);
    return answer ? answer->handle : noHandle;
  }

  // Every row is acknowledged: the provider's way is a good one.
  void send(const std::string& text) {
    EXPECT_EQ(dch::testkit::statusOf(
                  _provider.ask(dch::testkit::dataMessage(_handle, {{"text", 'D', text}}))),
              0);
  }

  // What reached the DCH before this question is done when it is answered.
  void waitUntilServed() {
    EXPECT_EQ(dch::testkit::statusOf(_provider.ask(dch::testkit::offlineMessage(unknownHandle))),
              104);
  }

  void* subscribe(const char* group = "rows") {
    void* const rows = dc_waitOnDataInitialize("NET", group);
    EXPECT_TRUE(_server.waitForError(std::string("to NET ") + group + "\n"));
    return rows;
  }

  // The last value of the next row; nothing when the wait failed.
  static std::string next(void* rows) {
    char row[4096] = "";
    if (dc_waitOnData(rows, row, sizeof row) != 0) return "";
    const std::string bytes(row, sizeof row);
    const std::size_t end = bytes.find_last_not_of('\0') + 1;
    return bytes.substr(bytes.rfind('D', end - 1) + 1, end - bytes.rfind('D', end - 1) - 1);
  }

  static std::vector<std::string> next(void* rows, int count) {
    std::vector<std::string> texts;
    while (count-- > 0) texts.push_back(next(rows));
    return texts;
  }

  UdpClient _provider{_server.port()};
  ZORA_Long _handle = noHandle;
};

TEST_F(RowsTest, ALostRowIsMissedByItsSubscriberAndByNobodyElse) {
  void* const rows = subscribe();
  UdpClient lucky(_server.port());
  lucky.send(dch::testkit::subscribeMessage("NET", "rows"));
  waitUntilServed();
  nextAnswer(lost);
  for (const char* text : {"one", "two"}) send(text);
  EXPECT_EQ(next(rows), "two");
  for (int i = 0; i < 2; ++i) EXPECT_TRUE(lucky.receive());
  EXPECT_EQ(dc_waitOnDataDestroy(rows), 0);
}

TEST_F(RowsTest, ARepeatedRowComesTwice) {
  void* const rows = subscribe();
  nextAnswer(twice);
  for (const char* text : {"one", "two"}) send(text);
  EXPECT_THAT(next(rows, 3), ElementsAre("one", "one", "two"));
  EXPECT_EQ(dc_waitOnDataDestroy(rows), 0);
}

TEST_F(RowsTest, RowsThatOvertakeComeOutOfOrder) {
  void* const rows = subscribe();
  nextAnswer(late);
  for (const char* text : {"one", "two"}) send(text);
  EXPECT_EQ(next(rows), "two");
  _network.release();
  EXPECT_EQ(next(rows), "one");
  EXPECT_EQ(dc_waitOnDataDestroy(rows), 0);
}

TEST_F(RowsTest, ASubscriptionThatIsRepeatedGivesEachRowOnce) {
  nextRequest(twice);
  void* const rows = subscribe();
  waitUntilServed();
  for (const char* text : {"one", "two"}) send(text);
  EXPECT_THAT(next(rows, 2), ElementsAre("one", "two"));
  EXPECT_EQ(dc_waitOnDataDestroy(rows), 0);
}

// Subscribing has no answer: that nothing comes is all that a consumer sees of it.
TEST_F(RowsTest, ALostSubscriptionIsNoError) {
  nextRequest(lost);
  void* const rows = dc_waitOnDataInitialize("NET", "rows");
  ASSERT_NE(rows, nullptr);
  EXPECT_TRUE(_network.waitFor(Direction::toDch, 1));
  send("missed");
  EXPECT_EQ(dc_waitOnDataCancel(rows), 0);
  char row[4096];
  EXPECT_EQ(dc_waitOnData(rows, row, sizeof row), -1) << "no row, only the cancel";
  dc_waitOnDataDestroy(rows);
}

// A row carries a handle and the names of its attributes, but not that of its group.
TEST_F(RowsTest, ARowForAnotherSubscriberIsTaken) {
  UdpClient other(_network.port());
  void* const rows = subscribe();  // client 0
  other.send(dch::testkit::subscribeMessage("NET", "other"));
  EXPECT_TRUE(_server.waitForError("to NET other\n"));
  _network.setFaults(faultOfAll(Direction::toClient, {Arrival{.client = 0}}));
  const std::string stray =
      dch::testkit::dataMessage(bringOnline("other"), {{"name", 'D', "stray"}});
  EXPECT_EQ(dch::testkit::statusOf(_provider.ask(stray)), 0);
  EXPECT_EQ(next(rows), "stray");
  EXPECT_EQ(dc_waitOnDataDestroy(rows), 0);
}

// The wait hands over any whole message: whether it is a row is for the consumer to see.
TEST_F(RowsTest, AnAnswerToAnotherClientIsHandedOverAsItIs) {
  void* const rows = subscribe();  // client 0
  UdpClient other(_network.port());
  _network.setFaults(faultOfAll(Direction::toClient, {Arrival{.client = 0}}));
  other.send(dch::testkit::offlineMessage(unknownHandle));
  char message[4096] = "";
  EXPECT_EQ(dc_waitOnData(rows, message, sizeof message), 0);
  constexpr std::size_t statusBytes = 14;
  EXPECT_EQ(dch::testkit::statusOf(std::string(message, statusBytes)), 104);
  EXPECT_EQ(dc_waitOnDataDestroy(rows), 0);
}

class StatusTest : public RowsTest {
 protected:
  void* follow() {
    void* const handle = dc_waitForDPStatusInitialize();
    EXPECT_STREQ(dc_waitForDPStatus(handle), "NET,rows,host1,4117") << "what is on line already";
    return handle;
  }
  void goOnAndOff(const std::string& source) {
    const auto online = dch::testkit::onlineAnswerOf(
        _provider.ask(dch::testkit::onlineMessage("NET", "rows", source)));
    ASSERT_TRUE(online);
    EXPECT_EQ(dch::testkit::statusOf(_provider.ask(dch::testkit::offlineMessage(online->handle))),
              0);
  }
};

TEST_F(StatusTest, ALostChangeIsMissed) {
  void* const changes = follow();
  nextAnswer(lost);
  goOnAndOff("host2");
  EXPECT_STREQ(dc_waitForDPStatus(changes), "NET,rows,host2,4133");
  EXPECT_EQ(dc_waitForDPStatusDestroy(changes), 0);
}

TEST_F(StatusTest, ARepeatedChangeComesTwice) {
  void* const changes = follow();
  nextAnswer(twice);
  goOnAndOff("host2");
  for (const char* change : {"4117", "4117", "4133"})
    EXPECT_STREQ(dc_waitForDPStatus(changes), (std::string("NET,rows,host2,") + change).c_str());
  EXPECT_EQ(dc_waitForDPStatusDestroy(changes), 0);
}

TEST_F(StatusTest, ChangesThatOvertakeComeOutOfOrder) {
  void* const changes = follow();
  nextAnswer(late);
  goOnAndOff("host2");
  EXPECT_STREQ(dc_waitForDPStatus(changes), "NET,rows,host2,4133");
  _network.release();
  EXPECT_STREQ(dc_waitForDPStatus(changes), "NET,rows,host2,4117");
  EXPECT_EQ(dc_waitForDPStatusDestroy(changes), 0);
}

// A change is told by its fields: what has others fails the wait, and the handle is of no more use.
TEST_F(StatusTest, AnAnswerToAnotherClientIsNotTakenForAChange) {
  void* const changes = follow();  // client 0
  UdpClient other(_network.port());
  _network.setFaults(faultOfAll(Direction::toClient, {Arrival{.client = 0}}));
  const TraceCapture trace("0x80");
  other.send(dch::testkit::offlineMessage(unknownHandle));
  EXPECT_EQ(dc_waitForDPStatus(changes), nullptr);
  EXPECT_TRUE(trace.has("Error: dataType of DCH_applName missing: 17\n"));
  EXPECT_EQ(dc_waitForDPStatus(changes), nullptr);
  EXPECT_EQ(dc_waitForDPStatusDestroy(changes), 1);
}

}  // namespace
}  // namespace network
