// What clients see of the real program.
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include "dch/testkit/clients.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/server_process.h"
#include "zordchcl/status.h"

namespace dch::testkit {
namespace {

using ::testing::HasSubstr;

class ZordchdTest : public ::testing::Test {
 protected:
  // A server that leaks, races or does what is undefined does not end with 0 under a sanitizer.
  ~ZordchdTest() override { EXPECT_EQ(_server.stop(SIGTERM), 0) << _server.standardError(); }

  void registerHostmon() { EXPECT_EQ(statusOf(_provider.ask(registerMessage())), DCH_STATUS_OK); }

  ZORA_Long goOnline(const std::string& group, const std::string& source = "host1") {
    const auto answer = onlineAnswerOf(_provider.ask(onlineMessage("HOSTMON", group, source)));
    EXPECT_TRUE(answer && answer->status == DCH_STATUS_OK && answer->handle > 0);
    return answer ? answer->handle : 0;
  }

  // Subscriptions have no answer; the server tells when it has one.
  void subscribe(UdpClient* consumer, const std::string& group) {
    consumer->send(subscribeMessage("HOSTMON", group));
    EXPECT_TRUE(_server.waitForError(std::string("subscribed ") +
                                     consumer->address().text().data() + " to HOSTMON " + group +
                                     "\n"));
  }

  void sendRow(const std::string& row) { EXPECT_EQ(statusOf(_provider.ask(row)), DCH_STATUS_OK); }

  static std::string loadRow(ZORA_Long handle, const std::string& value) {
    return dataMessage(handle, {{"load1", 'D', value}, {"processes", 'N', "1234"}});
  }

  ServerProcess _server{{"--verbose"}};
  UdpClient _provider{_server.port()};
};

TEST_F(ZordchdTest, AnswersEachRequestOfAProvidersLife) {
  registerHostmon();
  const ZORA_Long handle = goOnline("load");
  EXPECT_EQ(goOnline("load"), handle);
  EXPECT_NE(goOnline("disk"), handle);
  sendRow(loadRow(handle, "0.42"));
  EXPECT_EQ(statusOf(_provider.ask(offlineMessage(handle))), DCH_STATUS_OK);
  EXPECT_EQ(statusOf(_provider.ask(loadRow(handle, "0.42"))), DCH_STATUS_UNKNOWN_HANDLE);
  EXPECT_EQ(goOnline("load"), handle);
  EXPECT_EQ(statusOf(_provider.ask(unregisterMessage("HOSTMON"))), DCH_STATUS_OK);
  EXPECT_EQ(statusOf(_provider.ask(offlineMessage(handle))), DCH_STATUS_UNKNOWN_HANDLE);
}

TEST_F(ZordchdTest, TellsWhatIsWrongWithARequestAndTellsTheOperatorToo) {
  registerHostmon();
  const ZORA_Long handle = goOnline("load");
  EXPECT_EQ(statusOf(_provider.ask(unregisterMessage("NONE"))), DCH_STATUS_UNKNOWN_APPLICATION);
  EXPECT_EQ(onlineAnswerOf(_provider.ask(onlineMessage("NONE", "load", "s"))),
            (OnlineAnswer{DCH_STATUS_UNKNOWN_APPLICATION, 0}));
  EXPECT_EQ(onlineAnswerOf(_provider.ask(onlineMessage("HOSTMON", "none", "s"))),
            (OnlineAnswer{DCH_STATUS_UNKNOWN_GROUP, 0}));
  EXPECT_EQ(statusOf(_provider.ask(dataMessage(handle, {{"none", 'D', "x"}}))),
            DCH_STATUS_UNKNOWN_ATTRIBUTE);
  EXPECT_EQ(statusOf(_provider.ask(offlineMessage(4711))), DCH_STATUS_UNKNOWN_HANDLE);
  EXPECT_EQ(statusOf(_provider.ask(registerMessage("appl:HOSTMON,HMN;"))), DCH_STATUS_MALFORMED);
  for (const char* told :
       {"refused unregister (0x1020)", "status 101, unknown application\n",
        "status 102, unknown attribute group\n", "status 103, unknown attribute\n",
        "status 104, unknown handle\n", "status 100, malformed message: "})
    EXPECT_TRUE(_server.waitForError(told)) << told;
}

TEST_F(ZordchdTest, EscapesInItsLogWhatARegistrationCouldDriveATerminalWith) {
  const std::string name = "\x9bmon";
  const std::string text = "appl:" + name + ",K\xffY;group:g;attr:a,T,4;";
  EXPECT_EQ(statusOf(_provider.ask(registerMessage(text, name, "K\xffY"))), DCH_STATUS_OK);
  EXPECT_TRUE(_server.waitForError("registered \\x9bmon (key K\\xffY, "));
  EXPECT_EQ(statusOf(_provider.ask(registerMessage("appl:\x9b;"))), DCH_STATUS_MALFORMED);
  EXPECT_TRUE(_server.waitForError("clause 1 <appl:\\x9b>: "));
}

TEST_F(ZordchdTest, AnswersRequestsOnAConnection) {
  TcpClient client(_server.port());
  EXPECT_EQ(statusOf(client.ask(registerMessage())), DCH_STATUS_OK);
  const auto answer = onlineAnswerOf(client.ask(onlineMessage("HOSTMON", "load", "host1")));
  ASSERT_TRUE(answer);
  EXPECT_EQ(statusOf(client.ask(loadRow(answer->handle, "0.42"))), DCH_STATUS_OK);
  EXPECT_EQ(statusOf(client.ask(subscribeMessage("HOSTMON", "load"))), DCH_STATUS_MALFORMED);
}

TEST_F(ZordchdTest, PushesRowsUnchangedToTheSubscribersOfTheirGroup) {
  registerHostmon();
  UdpClient first(_server.port()), second(_server.port()), other(_server.port());
  subscribe(&first, "load");
  subscribe(&second, "load");
  subscribe(&other, "disk");
  const std::string load = loadRow(goOnline("load"), "0.42");
  const std::string disk = dataMessage(goOnline("disk"), {{"name", 'T', "sda"}});
  sendRow(load);
  sendRow(disk);
  EXPECT_EQ(first.receive(), load);
  EXPECT_EQ(second.receive(), load);
  EXPECT_EQ(other.receive(), disk);
}

TEST_F(ZordchdTest, PushesEveryAcceptedRowInOrderAndNoRefusedOne) {
  registerHostmon();
  UdpClient consumer(_server.port());
  subscribe(&consumer, "load");
  const ZORA_Long handle = goOnline("load");
  EXPECT_EQ(statusOf(_provider.ask(dataMessage(handle, {{"load1", 'N', "x"}}))),
            DCH_STATUS_MALFORMED);
  for (int i = 0; i < 100; ++i) sendRow(loadRow(handle, std::to_string(i)));
  for (int i = 0; i < 100; ++i) EXPECT_EQ(consumer.receive(), loadRow(handle, std::to_string(i)));
}

TEST_F(ZordchdTest, PushesARowFromAConnectionThatNoDatagramRequestCouldCarry) {
  const std::string text = "appl:BIG,BIG;group:g;attr:a,T,4096;";
  TcpClient provider(_server.port());
  EXPECT_EQ(statusOf(provider.ask(registerMessage(text, "BIG", "BIG"))), DCH_STATUS_OK);
  const auto online = onlineAnswerOf(provider.ask(onlineMessage("BIG", "g", "s")));
  ASSERT_TRUE(online);
  UdpClient consumer(_server.port());
  consumer.send(subscribeMessage("BIG", "g"));
  EXPECT_TRUE(_server.waitForError("to BIG g\n"));
  const std::string half(4066, 'x');
  const std::string row = dataMessage(online->handle, {{"a", 'T', half}, {"a", 'T', half}});
  ASSERT_EQ(row.size(), 8192u);
  EXPECT_EQ(statusOf(provider.ask(row)), DCH_STATUS_OK);
  EXPECT_EQ(consumer.receive(), row);
}

TEST_F(ZordchdTest, PushesNothingAfterASubscriptionIsWithdrawn) {
  registerHostmon();
  UdpClient consumer(_server.port());
  subscribe(&consumer, "load");
  subscribe(&consumer, "disk");
  consumer.send(withdrawMessage("HOSTMON", "load"));
  EXPECT_TRUE(_server.waitForError("withdrew "));
  sendRow(loadRow(goOnline("load"), "0.42"));
  const std::string later = dataMessage(goOnline("disk"));
  sendRow(later);
  EXPECT_EQ(consumer.receive(), later);
}

TEST_F(ZordchdTest, DropsASubscriberThatIsGoneAndServesTheOthers) {
  registerHostmon();
  UdpClient living(_server.port());
  PeerAddress address;
  {
    UdpClient leaving(_server.port(), portToLeave());
    address = leaving.address();
    subscribe(&leaving, "load");
  }
  subscribe(&living, "load");
  const ZORA_Long handle = goOnline("load");
  // The system tells the server who is gone at once, or by the next row.
  for (const char* row : {"1", "2"}) sendRow(loadRow(handle, row));
  EXPECT_TRUE(_server.waitForError(std::string("subscriber ") + address.text().data() +
                                   " is gone: 1 subscription(s) dropped\n"));
  // Whoever has the port now gets nothing of it: what it is sent later comes first.
  UdpClient successor(_server.port(), ntohs(address.port));
  sendRow(loadRow(handle, "3"));
  EXPECT_EQ(statusOf(successor.ask(unregisterMessage("NONE"))), DCH_STATUS_UNKNOWN_APPLICATION);
  for (const char* row : {"1", "2", "3"}) EXPECT_EQ(living.receive(), loadRow(handle, row));
}

TEST_F(ZordchdTest, DropsASubscriberOfASilentGroupThatIsGone) {
  registerHostmon();
  PeerAddress address;
  {
    UdpClient leaving(_server.port(), portToLeave());
    address = leaving.address();
    subscribe(&leaving, "load");
  }
  EXPECT_TRUE(_server.waitForError(std::string("subscriber ") + address.text().data() +
                                   " is gone: 1 subscription(s) dropped\n"));
}

TEST_F(ZordchdTest, ReplacingARegistrationTakesOnlySourcesOfMissingGroupsOffLine) {
  registerHostmon();
  const ZORA_Long load = goOnline("load");
  const ZORA_Long disk = goOnline("disk");
  const std::string text = "appl:HOSTMON,HMN;group:load;attr:load1,D,4;";
  EXPECT_EQ(statusOf(_provider.ask(registerMessage(text))), DCH_STATUS_OK);
  EXPECT_EQ(statusOf(_provider.ask(dataMessage(load, {{"load1", 'D', "0.42"}}))), DCH_STATUS_OK);
  EXPECT_EQ(statusOf(_provider.ask(dataMessage(load, {{"load1", 'D', "10.42"}}))),
            DCH_STATUS_MALFORMED);
  EXPECT_EQ(statusOf(_provider.ask(dataMessage(disk))), DCH_STATUS_UNKNOWN_HANDLE);
}

}  // namespace
}  // namespace dch::testkit
