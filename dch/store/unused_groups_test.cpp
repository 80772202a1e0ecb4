// Groups that are not needed any more give back what they take.
#include <gmock/gmock.h>

#include "dch/testkit/store_test.h"
#include "tests/support/wait_until.h"

namespace dch {
namespace {

using testkit::registered;

class UnusedGroups : public testkit::StoreTest {
 protected:
  // What the file has of an application in tables of its own and of all.
  std::string left(const std::string& application) {
    return read("SELECT count(*) FROM sqlite_schema WHERE name GLOB '" + application + ".*'") +
           read("SELECT count(*) FROM known_applications WHERE name = '" + application + "'");
  }
  std::string groupCount() {
    return read("SELECT count(*) FROM known_groups") +
           read("SELECT count(DISTINCT \"group\") FROM known_attributes") +
           std::to_string(testkit::rowTables(path()).size());
  }
  // Lets it be looked for them now.
  void look() { _store->setRetention({.days = ++_days, .megabytes = 1'000}); }

 private:
  int _days = 30;
};

TEST_F(UnusedGroups, AreRemoved) {
  start();
  goOnline();
  ASSERT_TRUE(keep(registered("appl:A,KEY;group:g;attr:a,N,4;group:h;attr:a,N,4;attr:b,N,4;")));
  EXPECT_EQ(left("A"), "2\n1\n");
  EXPECT_EQ(groupCount(), "4\n4\n4");
  ASSERT_TRUE(keep(Unregistered{"A"}));
  look();
  EXPECT_TRUE(waitUntil([&] { return left("A") == "0\n0\n"; }));
  EXPECT_EQ(groupCount(), "2\n2\n2") << "those that are registered stay";
  EXPECT_EQ(read("PRAGMA integrity_check"), "ok\n");
  // What comes then has the places, in this life and in the next one.
  for (int round = 0; round < 2; ++round) {
    ASSERT_TRUE(keep(registered("appl:A,KEY;group:h;attr:c,D,4;")));
    ASSERT_TRUE(keep(WentOnline{"A", "h", "host", 2}));
    ASSERT_TRUE(keep(Row{2, 1, testkit::dataMessage(2, {{"c", 'D', "1"}})}));
    knownAfterRestart();
  }
  EXPECT_EQ(read("SELECT source, c FROM \"A.h\""), "host|1\nhost|1\n");
}

TEST_F(UnusedGroups, OfAReplacedRegistrationAreRemoved) {
  start();
  ASSERT_TRUE(keep(registered("appl:A,KEY;group:g;attr:a,N,4;group:h;attr:a,N,4;")));
  ASSERT_TRUE(keep(registered("appl:A,KEY;group:h;attr:a,N,4;")));
  look();
  EXPECT_TRUE(waitUntil([&] { return left("A") == "1\n1\n"; }));
  EXPECT_EQ(read("SELECT \"groups\" FROM applications"), "h\n");
  const std::string known = _known->text();
  EXPECT_NE(knownAfterRestart(), known) << "it is registered";
}

TEST_F(UnusedGroups, ThatHaveSourcesStay) {
  start();
  goOnline();
  ASSERT_TRUE(keep(Row{1, 1, testkit::dataMessage(1)}));
  ASSERT_TRUE(keep(registered("appl:A,KEY;group:g;attr:a,N,4;")));
  ASSERT_TRUE(keep(Unregistered{"HOSTMON"}));
  ASSERT_TRUE(keep(Unregistered{"A"}));
  look();
  EXPECT_TRUE(waitUntil([&] { return left("A") == "0\n0\n"; }));
  EXPECT_TRUE(waitUntil([&] { return left("HOSTMON") == "1\n1\n"; }));
  EXPECT_EQ(read("SELECT count(*) FROM \"HOSTMON.load\""), "1\n");
  knownAfterRestart();
  EXPECT_NE(_known->registry().findSource(1), nullptr) << "the handle stays its source's";
}

TEST_F(UnusedGroups, GiveTheNamesOfTheirViewsBack) {
  start();
  ASSERT_TRUE(keep(registered("appl:A.B,KEY;group:C;attr:a,N,4;")));
  ASSERT_TRUE(keep(Unregistered{"A.B"}));
  look();
  ASSERT_TRUE(waitUntil([&] { return left("A.B") == "0\n0\n"; }));
  ASSERT_TRUE(keep(registered("appl:A,KEY;group:B.C;attr:b,N,4;")));
  EXPECT_EQ(read("SELECT name FROM sqlite_schema WHERE name GLOB 'A.*'"), "A.B.C\n");
  EXPECT_EQ(read("SELECT b FROM \"A.B.C\""), "");
}

TEST_F(UnusedGroups, OfAnApplicationThatIsRegisteredAgainMakeNoRoomForItsOthers) {
  start();
  std::string text;
  for (std::size_t group = 0; group < Providers::maxGroups - 1; ++group)
    text += "group:g" + std::to_string(group) + ";attr:a,N,4;";
  ASSERT_TRUE(keep(registered("appl:A,KEY;" + text)));
  ASSERT_TRUE(keep(registered("appl:B,KEY;group:g;attr:a,N,4;")));
  append(Unregistered{"A"});
  append(registered("appl:A,KEY;" + text + "group:more;attr:a,N,4;"));
  append(registered("appl:B,KEY;group:h;attr:a,N,4;"));
  _store->finish();
  EXPECT_FALSE(_client.concluded[3].second) << "there is one too many";
  EXPECT_TRUE(_client.concluded[4].second);
  stop();  // else the groups of A go while the file is read, one transaction after the other
  EXPECT_EQ(read("PRAGMA integrity_check"), "ok\n");
}

}  // namespace
}  // namespace dch
