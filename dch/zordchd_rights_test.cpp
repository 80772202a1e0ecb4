// Real programs with the rights that docs/nats.md gives them: these are enough, and each is needed.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <regex>
#include <string>
#include <tuple>
#include <vector>

#include "dch/testkit/clients.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/reported_counters.h"
#include "dch/testkit/rights_test.h"
#include "zordchcl/messages.h"

namespace dch::testkit {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::UnorderedElementsAreArray;

// One that has lost its stream is among what has to be done with them.
TEST_P(EachFileOfUsersTest, RowsReachTheHubOnce) {
  _hub.begin();
  _west.begin();
  _east.begin();
  for (DocumentedSite* const site : {&_west, &_east, &_hub}) site->send(20);
  EXPECT_TRUE(hubComesToHave("null|20|20\neast|20|20\nwest|20|20\n"));
  EXPECT_EQ(_hub.end(), 0);
  for (DocumentedSite* const site : {&_west, &_east}) {
    site->send(20);
    EXPECT_TRUE(comesTo(site->process(), "link_rows_published", 40));
  }
  EXPECT_THAT(violations(), IsEmpty());
  _nats.loseStream();
  _gate.leadTo(_nats.server().port());
  _hub.begin();
  EXPECT_TRUE(hubComesToHave("null|20|20\neast|40|40\nwest|40|40\n"));
  EXPECT_TRUE(comesTo(_hub.process(), "link_rows_fetched", 40));
  for (DocumentedSite* const site : {&_west, &_east, &_hub}) {
    EXPECT_THAT(site->process().standardError(), Not(HasSubstr("may not do")));
    EXPECT_EQ(site->end(), 0);
  }
  EXPECT_THAT(violations(), IsEmpty());
}

TEST_P(EachFileOfUsersTest, TwoOfOneNameHearEachOther) {
  DocumentedSite other(_nats, _gate.port(), "west");
  _hub.begin();
  _west.begin();
  other.begin();
  EXPECT_TRUE(_west.process().waitForError("another server says that it is site west, too"));
  EXPECT_TRUE(other.process().waitForError("another server says that it is site west, too"));
}

TEST_P(EachFileOfUsersTest, OnlyUsersAreLetIn) {
  DocumentedSite wrong(_nats, _gate.port(), "west", "west:password-of-east");
  DocumentedSite nobody(_nats, _gate.port(), "west", "");
  wrong.begin();
  nobody.begin();
  EXPECT_TRUE(wrong.process().waitForError("it refuses the user 'west' or the password"));
  EXPECT_TRUE(nobody.process().waitForError("it wants a user and a password"));
}

TEST_P(EachFileOfUsersTest, SubscribersAtTheHubGetRowsAsTheyCome) {
  _hub.begin();
  _west.begin();
  const UdpClient subscriber(_hub.process().port());
  subscriber.send(subscribeMessage("HOSTMON", "load"));
  const auto isPushed = [&] {
    _west.send(1);
    return subscriber.receive(200).has_value();
  };
  EXPECT_TRUE(waitUntil(isPushed, linkPatience)) << _nats.server().log();
  EXPECT_THAT(violations(), IsEmpty());
}

TEST_P(EachFileOfUsersTest, ConsumersAtTheHubSeeTheApplicationsOfSites) {
  _hub.begin();
  _west.begin();
  _west.send(1);
  const TcpClient consumer(_hub.process().port());
  const auto isSeen = [&] {
    const auto lines = textOf(consumer.ask(catalogueMessage(DCH_REQUEST_APPLICATIONS)));
    return lines.value_or("").starts_with("HOSTMON,");
  };
  EXPECT_TRUE(waitUntil(isSeen, linkPatience)) << _nats.server().log();
  EXPECT_THAT(violations(), IsEmpty());
}

TEST_P(EachFileOfUsersTest, RowsAreHeardAsTheyComeByThoseWhoMay) {
  NatsUser west(_nats, "west"), east(_nats, "east"), hub(_nats, "hub");
  const std::string all = "zord.live.*.HOSTMON.load";
  for (NatsUser* const user : {&west, &east, &hub}) ASSERT_FALSE(user->isListeningRefused(all));
  ASSERT_FALSE(west.isRefused("zord.live.west.HOSTMON.load", "row", "_INBOX.west.1"));
  EXPECT_EQ(hub.heard().size(), 1u);
  EXPECT_EQ(east.heard().size(), 1u);
  EXPECT_EQ(west.heard().size(), 1u);
  ASSERT_FALSE(east.isRefused("zord.live.east.HOSTMON.load", "row", "_INBOX.east.1"));
  EXPECT_EQ(hub.heard().size(), 1u);
  EXPECT_EQ(west.heard().size(), hasAccounts() ? 0u : 1u);
  EXPECT_EQ(west.answer("zord.live.west.HOSTMON.other"), std::nullopt);  // nobody wants it
}

INSTANTIATE_TEST_SUITE_P(Page, EachFileOfUsersTest,
                         ::testing::Values("users.conf", "accounts.conf"), fileOfUsers);

// All over the three servers of a cluster, which know one another by their certificates.
TEST(RightsInAClusterTest, RowsReachTheHubOnce) {
  DocumentedNats nats(documented("file: users.conf"), 3);
  DocumentedSite hub(nats, nats.server(0).port(), "hub", DocumentedSite::Keeps::rowsOfAllSites);
  DocumentedSite west(nats, nats.server(1).port(), "west");
  DocumentedSite east(nats, nats.server(2).port(), "east");
  for (DocumentedSite* const site : {&hub, &west, &east}) site->begin();
  west.send(20);
  east.send(20);
  EXPECT_TRUE(waitUntil([&] { return hub.kept() == "east|20|20\nwest|20|20\n"; }, 2 * linkPatience))
      << hub.kept() << hub.process().standardError() << nats.server().log();
}

// What of the page's rights a user has not.
struct Without {
  const char* user;
  const char* right;
};
void PrintTo(const Without& without, std::ostream* out) {
  *out << without.user << " without " << without.right;
}

std::string usersButFor(const Without& without) {
  std::string users = documented("file: users.conf");
  const std::string right = '"' + std::string(without.right) + '"';
  const std::size_t user = users.find(std::string("{user: ") + without.user);
  const std::size_t at = users.find(right, user);
  if (user == std::string::npos || at == std::string::npos) throw std::runtime_error(right);
  return users.replace(at, right.size(), "\"nothing\"");
}

class EachRightTest : public RightsTest, public ::testing::WithParamInterface<Without> {
 protected:
  EachRightTest() : RightsTest(usersButFor(GetParam())) {}

  // The server says of that user that it refuses what the right is for.
  bool isMissed() const {
    const std::string right(GetParam().right);
    return _nats.server().log().find(
               std::string("Violation - User \"") + GetParam().user + "\", Subject \"" +
               right.substr(0, right.find_first_of("*>"))) != std::string::npos;
  }
};

// So much comes that the hub is told to go on reading; then it is quiet, so that it asks. Somebody
// at east has subscribed.
TEST_P(EachRightTest, IsMissed) {
  _hub.begin();
  _east.begin();
  const UdpClient subscriber(_east.process().port());
  subscriber.send(subscribeMessage("HOSTMON", "load"));
  _east.send(5);
  waitUntil([&] { return isMissed() || _hub.kept() == "east|5|5\n"; }, linkPatience);
  NatsUser west(_nats, "west");
  for (int row = 0; row < 500; ++row)
    west.isRefused("zord.rows.west.HOSTMON.load", std::string(10'000, 'x'));
  if (std::string(GetParam().right).find("CONSUMER.DELETE") != std::string::npos) _hub.end();
  const bool isForLiveRows = std::string(GetParam().right).starts_with("zord.live.");
  const auto isMissedNow = [&] {
    if (isForLiveRows) _east.send(1);  // one that comes before the link goes out to nobody
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    return isMissed();
  };
  EXPECT_TRUE(waitUntil(isMissedNow, linkPatience));
}

constexpr Without programsMiss[] = {
    {"east", "zord.rows.east.>"},
    {"east", "zord.alive.east"},
    {"east", "_INBOX.*.*.east.*"},
    {"east", "$JS.API.STREAM.INFO.ZORD_ROWS"},
    {"east", "_INBOX.east.>"},
    {"east", "zord.fetch.east"},
    {"east", "zord.alive.*"},
    {"east", "zord.live.east.>"},
    {"east", "zord.live.>"},
    {"east", "zord.known.east"},
    {"east", "zord.known.*"},
    {"hub", "$JS.API.STREAM.CREATE.ZORD_ROWS"},
    {"hub", "zord.fetch.*"},
    {"hub", "$JS.API.CONSUMER.CREATE.ZORD_ROWS"},
    {"hub", "$JS.API.CONSUMER.INFO.ZORD_ROWS.*"},
    {"hub", "$JS.API.CONSUMER.DELETE.ZORD_ROWS.*"},
    {"hub", "$JS.FC.ZORD_ROWS.>"},
};
INSTANTIATE_TEST_SUITE_P(Users, EachRightTest, ::testing::ValuesIn(programsMiss));

std::vector<std::string> rightsOf(const std::string& user) {
  const std::string users = documented("file: users.conf");
  const std::size_t at = users.find("permissions", users.find("{user: " + user));
  const std::string block = users.substr(at, users.find("}}", at) - at);
  static const std::regex quoted("\"([^\"]+)\"");
  std::vector<std::string> rights;
  for (std::sregex_iterator match(block.begin(), block.end(), quoted), end; match != end; ++match)
    rights.push_back((*match)[1]);
  return rights;
}

TEST(DocumentedRightsTest, AreThoseThatAreTried) {
  std::vector<std::string> ofEast, ofHubAlone;
  for (const Without& each : programsMiss)
    (each.user == std::string("east") ? ofEast : ofHubAlone).emplace_back(each.right);
  EXPECT_THAT(rightsOf("east"), UnorderedElementsAreArray(ofEast));
  const auto named = [&](const std::string& site) {
    std::vector<std::string> rights = ofEast;
    for (std::string& each : rights)
      if (const std::size_t at = each.find("east"); at != std::string::npos)
        each.replace(at, 4, site);
    return rights;
  };
  EXPECT_THAT(rightsOf("west"), UnorderedElementsAreArray(named("west")));
  std::vector<std::string> ofHub = named("hub");
  ofHub.insert(ofHub.end(), ofHubAlone.begin(), ofHubAlone.end());
  EXPECT_THAT(rightsOf("hub"), UnorderedElementsAreArray(ofHub));
}

}  // namespace
}  // namespace dch::testkit
