// A site that means harm, with the rights that docs/nats.md gives it: what it tries with its own
// password is refused, or does not matter.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "dch/core/epoch.h"
#include "dch/link/alive_message.h"
#include "dch/link/known_message.h"
#include "dch/link/outgoing_row.h"
#include "dch/store/rows_in_order.h"
#include "dch/testkit/clients.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/reported_counters.h"
#include "dch/testkit/rights_test.h"
#include "zordchcl/messages.h"

namespace dch::testkit {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;

// What is another's, or an administrator's.
const std::vector<std::string> foreign{
    "zord.rows.east.HOSTMON.load",
    "zord.rows.hub.HOSTMON.load",
    "zord.rows.west2.HOSTMON.load",
    "zord.alive.east",
    "zord.alive.hub",
    "zord.live.east.HOSTMON.load",
    "zord.fetch.east",
    "zord.fetch.hub",
    "_INBOX.east.word.17",
    "_INBOX.hub.word.17",
    "_INBOX.hub.word.east.17",
    "$JS.API.STREAM.CREATE.ZORD_ROWS",
    "$JS.API.STREAM.CREATE.OTHER",
    "$JS.API.STREAM.UPDATE.ZORD_ROWS",
    "$JS.API.STREAM.DELETE.ZORD_ROWS",
    "$JS.API.STREAM.PURGE.ZORD_ROWS",
    "$JS.API.STREAM.MSG.GET.ZORD_ROWS",
    "$JS.API.STREAM.MSG.DELETE.ZORD_ROWS",
    "$JS.API.STREAM.SNAPSHOT.ZORD_ROWS",
    "$JS.API.STREAM.RESTORE.ZORD_ROWS",
    "$JS.API.STREAM.PEER.REMOVE.ZORD_ROWS",
    "$JS.API.STREAM.LEADER.STEPDOWN.ZORD_ROWS",
    "$JS.API.STREAM.NAMES",
    "$JS.API.STREAM.LIST",
    "$JS.API.STREAM.INFO.OTHER",
    "$JS.API.CONSUMER.CREATE.ZORD_ROWS",
    "$JS.API.CONSUMER.CREATE.ZORD_ROWS.reader",
    "$JS.API.CONSUMER.DURABLE.CREATE.ZORD_ROWS.reader",
    "$JS.API.CONSUMER.MSG.NEXT.ZORD_ROWS.reader",
    "$JS.API.CONSUMER.DELETE.ZORD_ROWS.reader",
    "$JS.API.CONSUMER.INFO.ZORD_ROWS.reader",
    "$JS.API.CONSUMER.NAMES.ZORD_ROWS",
    "$JS.API.CONSUMER.LIST.ZORD_ROWS",
    "$JS.API.DIRECT.GET.ZORD_ROWS",
    "$JS.API.META.LEADER.STEPDOWN",
    "$JS.API.SERVER.REMOVE",
    "$JS.ACK.ZORD_ROWS.reader.1.1.1.1.0",
    "$JS.FC.ZORD_ROWS.reader.word",
    "$SYS.REQ.SERVER.PING",
    "something.else",
};

class HostileUserTest : public RightsTest {
 protected:
  HostileUserTest() : RightsTest(documented("file: users.conf")) {}
  NatsUser _hostile{_nats, "west"};
};

TEST_F(HostileUserTest, MaySendNothingThatIsAnothers) {
  for (const std::string& subject : foreign) EXPECT_TRUE(_hostile.isRefused(subject)) << subject;
  EXPECT_TRUE(_hostile.isRefused("$JS.API.INFO"));
  EXPECT_FALSE(_hostile.isRefused("zord.alive.west"));
}

TEST_F(HostileUserTest, MayListenToNothingThatIsAnothers) {
  for (const char* const subject :
       {">", "zord.>", "zord.*.*", "zord.rows.>", "zord.rows.east.>", "zord.fetch.*",
        "zord.fetch.east", "zord.known.*", "zord.known.east", "_INBOX.>", "_INBOX.*.>",
        "_INBOX.east.>", "_INBOX.hub.>", "_INBOX.hub.*.east.*", "$JS.>", "$JS.API.>", "$JS.ACK.>",
        "$JS.EVENT.>", "$SYS.>"}) {
    EXPECT_TRUE(_hostile.isListeningRefused(subject)) << subject;
    EXPECT_TRUE(_hostile.isListeningRefused(subject, "zordchd")) << subject;
  }
  EXPECT_FALSE(_hostile.isListeningRefused("zord.fetch.west"));
}

// As it would with allow_responses.
TEST_F(HostileUserTest, GetsNoRightBySendingItselfAnAnswersSubject) {
  ASSERT_FALSE(_hostile.isListeningRefused("zord.alive.*"));
  for (const std::string& subject : foreign) {
    ASSERT_FALSE(_hostile.isRefused("zord.alive.west", "", subject));
    EXPECT_TRUE(_hostile.isRefused(subject)) << subject;
  }
  EXPECT_EQ(_hostile.heard().size(), foreign.size() - 1);  // $JS.ACK.> can be named by nobody
}

class HostileAccountTest : public RightsTest {
 protected:
  HostileAccountTest() : RightsTest(documented("file: accounts.conf")) {}
};

TEST_F(HostileAccountTest, WhatItSendsReachesNobodyElse) {
  _hub.begin();
  _east.begin();
  _east.send(1);
  ASSERT_TRUE(hubComesToHave("east|1|1\n"));
  NatsUser hostile(_nats, "west");
  for (const std::string& subject : foreign)
    EXPECT_EQ(hostile.answer(subject), std::nullopt) << subject;
  EXPECT_NE(hostile.answer("zord.rows.west.HOSTMON.load"), std::nullopt);
}

TEST_F(HostileAccountTest, HearsNothingOfOthers) {
  _hub.begin();
  ASSERT_TRUE(_hub.process().waitForError("link: linked with"));  // so the stream is there
  NatsUser hostile(_nats, "west"), east(_nats, "east"), hub(_nats, "hub");
  ASSERT_FALSE(hostile.isListeningRefused(">"));
  ASSERT_FALSE(hostile.isListeningRefused("zord.fetch.east", "zordchd"));
  ASSERT_FALSE(hub.isListeningRefused("zord.alive.*"));
  EXPECT_NE(east.answer("zord.rows.east.HOSTMON.load", "row"), std::nullopt);
  EXPECT_FALSE(east.isRefused("zord.alive.east", "here"));
  EXPECT_FALSE(east.isRefused("zord.live.east.HOSTMON.load", "row"));
  EXPECT_FALSE(hub.isRefused("zord.fetch.east", "", "_INBOX.hub.word.east.1"));
  const auto heard = hub.heard();
  EXPECT_TRUE(std::any_of(heard.begin(), heard.end(),
                          [](const auto& each) { return each.subject == "zord.alive.east"; }));
  EXPECT_THAT(hostile.heard(), IsEmpty());
}

class HostileSiteTest : public EachFileOfUsersTest {};

// They are sent as JetStream itself, to whatever subject a row names for them; some can be read as
// requests to remove others' rows.
TEST_P(HostileSiteTest, AnswersToItsRowsRemoveNothing) {
  _hub.begin();
  _east.begin();
  _east.send(20);
  ASSERT_TRUE(hubComesToHave("east|20|20\n"));
  NatsUser hostile(_nats, "west");
  std::vector<std::string> answeredTo = foreign;
  for (const char* const question :
       {"STREAM.PURGE", "STREAM.MSG.DELETE", "STREAM.DELETE", "STREAM.UPDATE", "CONSUMER.CREATE"})
    answeredTo.push_back("$JS.API." + std::string(question) + ".ZORD_ROWS");
  for (const std::string& subject : answeredTo) {
    EXPECT_FALSE(hostile.isRefused("zord.rows.west.HOSTMON.load", "x", subject));
    EXPECT_FALSE(hostile.isRefused("$JS.API.STREAM.INFO.ZORD_ROWS", "", subject));
  }
  EXPECT_NE(hostile.answer("zord.rows.west.HOSTMON.load"), std::nullopt);  // behind all those
  NatsUser hub(_nats, "hub");
  const auto stream =
      nlohmann::json::parse(hub.answer("$JS.API.STREAM.INFO.ZORD_ROWS").value_or(""));
  EXPECT_EQ(stream.at("state").at("first_seq"), 1) << stream;
  EXPECT_FALSE(stream.at("state").contains("num_deleted")) << stream;
  _east.send(20);
  EXPECT_TRUE(hubComesToHave("east|40|40\n"));
  EXPECT_TRUE(comesTo(_hub.process(), "link_rows_refused", 1));
}

TEST_P(HostileSiteTest, HeadersOfItsRowsRemoveNothing) {
  _hub.begin();
  _east.begin();
  _east.send(20);
  ASSERT_TRUE(hubComesToHave("east|20|20\n"));
  NatsUser hostile(_nats, "west");
  for (const char* const which : {"sub", "all"})
    EXPECT_THAT(hostile.answer("zord.rows.west.HOSTMON.load", "x", {{"Nats-Rollup", which}})
                    .value_or("nobody"),
                HasSubstr("rollup not permitted"));
}

// JetStream drops rows of the other then, and the hub asks for them. The run, which is in the IDs,
// each site tells those who hear it.
TEST_P(HostileSiteTest, TheIdsOfOthersCostNoRow) {
  _hub.begin();
  _east.begin();
  ASSERT_TRUE(_hub.process().waitForError("link: linked with"));  // so the stream is there
  NatsUser hub(_nats, "hub"), hostile(_nats, "west");
  ASSERT_FALSE(hub.isListeningRefused("zord.alive.east"));
  std::optional<AliveMessage> alive;
  ASSERT_TRUE(waitUntil(
      [&] {
        for (const auto& each : hub.heard()) alive = parseAlive(each.body);
        return alive.has_value();
      },
      linkPatience));
  for (int number = 0; number < 200; ++number) {
    OrderedRow row;
    row.name = {alive->run, number};
    ASSERT_FALSE(hostile.isRefused("zord.rows.west.HOSTMON.load", "x", "",
                                   {{"Nats-Msg-Id", outgoingRow("east", row, {}).id}}));
  }
  _east.send(20);
  EXPECT_TRUE(hubComesToHave("east|20|20\n"));
  EXPECT_TRUE(comesTo(_hub.process(), "link_rows_fetched", 20));
}

// East tells the other where the answer goes; each answers at the place that it may send to.
TEST_F(HostileUserTest, AnswersForNoOtherSite) {
  _hub.begin();
  NatsUser east(_nats, "east");
  ASSERT_FALSE(east.isListeningRefused("zord.known.east"));
  AliveMessage alive{.run = newEpoch(), .period = std::chrono::seconds(1), .from = 1, .to = 1};
  const std::string header = knownHeaderText({alive.run, 1, true});
  const TcpClient consumer(_hub.process().port());
  const auto isAnswered = [&] {
    ++alive.count;
    EXPECT_FALSE(east.isRefused("zord.alive.east", aliveText(alive)));
    for (const auto& question : east.heard()) {
      const std::string place = replaced(question.answerTo, ".east.", ".west.");
      const std::string right = "A RIGHT appl:RIGHT,KEY;group:g;attr:a,C,1;\n";
      EXPECT_FALSE(_hostile.isRefused(place, replaced(right, "RIGHT", "FALSE"), "",
                                      {{knownHeaderName, header}}));
      EXPECT_FALSE(east.isRefused(question.answerTo, right, "", {{knownHeaderName, header}}));
    }
    return textOf(consumer.ask(catalogueMessage(DCH_REQUEST_APPLICATIONS))) ==
           "RIGHT,KEY,NODP,g,0\n";
  };
  EXPECT_TRUE(waitUntil(isAnswered, linkPatience));
}

INSTANTIATE_TEST_SUITE_P(Page, HostileSiteTest, ::testing::Values("users.conf", "accounts.conf"),
                         fileOfUsers);

}  // namespace
}  // namespace dch::testkit
