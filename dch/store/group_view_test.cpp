#include "dch/store/group_view.h"

#include <gmock/gmock.h>

#include "dch/testkit/store_test.h"

namespace dch {
namespace {

using testing::HasSubstr;
using testing::Not;
using testkit::bytesOf;
using testkit::dataMessage;
using testkit::registered;
using testkit::Value;

class GroupView : public testkit::StoreTest {
 protected:
  // A group APPL.g with a source of handle 1.
  void begin(const std::string& attributes) {
    start();
    registerGroup(attributes);
    ASSERT_TRUE(keep(WentOnline{"APPL", "g", "host1", 1}));
  }
  void registerGroup(const std::string& attributes) {
    ASSERT_TRUE(keep(registered("appl:APPL,KEY;group:g;" + attributes)));
  }
  void keepRow(const std::vector<Value>& values, Time time = 1) {
    ASSERT_TRUE(keep(Row{1, time, dataMessage(1, values)}));
  }
  std::string columns(const std::string& view) {
    return read("SELECT group_concat(name) FROM pragma_table_info('" + view + "')");
  }
};

TEST(SqlNamesTest, AreAsLongAsTheyMayBe) {
  SqlNames names({"long"}, 6);
  EXPECT_EQ(names.take("long"), "long_");
  EXPECT_EQ(names.take("longer name"), "longer");
  EXPECT_EQ(names.take("LONGER still"), "LONGE_");
  EXPECT_EQ(names.take("longer again"), "long__");
  EXPECT_EQ(names.take("five \xC3\xA4"), "five ") << "no half of a character";
  EXPECT_EQ(names.take("\xC3\xA4\xC3\xA4\xC3\xA4"), "\xC3\xA4\xC3\xA4\xC3\xA4");
  EXPECT_EQ(names.take("\xC3\xA4\xC3\xA4\xC3\xA4"), "\xC3\xA4\xC3\xA4_");
}

TEST_F(GroupView, IsThereFromTheRegistrationOn) {
  start();
  registerGroup("attr:load1,N,4;attr:text,D,16;");
  EXPECT_EQ(columns("APPL.g"), "time,time_us,source,handle,code,load1,text\n");
  EXPECT_EQ(read("SELECT count(*) FROM \"APPL.g\""), "0\n");
}

TEST_F(GroupView, ShowsARow) {
  begin("attr:load1,N,4;attr:text,D,16;attr:missing,N,4;");
  keepRow({{"load1", 'N', bytesOf<std::int32_t>(-42)}, {"text", 'D', std::string("word\0", 5)}},
          1'769'903'999'123'456);
  EXPECT_EQ(read("SELECT * FROM \"APPL.g\""),
            "2026-01-31T23:59:59.123456Z|1769903999123456|host1|1|7|-42|word|null\n");
  EXPECT_EQ(read("SELECT typeof(load1), typeof(text) FROM \"APPL.g\""), "integer|text\n");
}

TEST_F(GroupView, ShowsTheCodeOfTheRow) {
  begin("attr:a,N,4;");
  std::string message = dataMessage(1);
  message[28] = '\xFF';
  message[29] = '\xFE';
  ASSERT_TRUE(keep(Row{1, 1, message}));
  EXPECT_EQ(read("SELECT code FROM \"APPL.g\""), "-2\n");
}

TEST_F(GroupView, ShowsNumbersOfAllWidthsExactly) {
  begin("attr:a,A,1;attr:c,I,2;attr:g,N,4;attr:l,L,8;attr:three,N,3;attr:none,N,4;");
  keepRow({{"a", 'A', bytesOf<std::int8_t>(-1)},
           {"c", 'I', bytesOf<std::int16_t>(-32768)},
           {"g", 'N', bytesOf<std::int32_t>(2147483647)},
           {"l", 'L', bytesOf<std::int64_t>(9007199254740993)},
           {"three", 'N', "abc"},
           {"none", 'N', ""}});
  EXPECT_EQ(read("SELECT a, c, g, l, hex(three), typeof(three), hex(none), typeof(none) FROM "
                 "\"APPL.g\""),
            "-1|-32768|2147483647|9007199254740993|616263|blob||blob\n");
}

TEST_F(GroupView, ShowsTextToItsEndAndWhatIsNoUtf8AsBytes) {
  begin("attr:d,D,16;attr:r,R,16;attr:t,T,16;attr:bad,D,16;attr:overlong,D,16;");
  keepRow({{"d", 'D', std::string("ab\0cd", 5)},
           {"r", 'R', "no end"},
           {"t", 'T', "\xC3\xA4\xF0\x9F\x98\x80"},
           {"bad", 'D', std::string("\xE4xx\0", 4)},
           {"overlong", 'D', "\xC0\xAF"}});
  EXPECT_EQ(read("SELECT d, r, t, typeof(t), typeof(bad), hex(bad), typeof(overlong) FROM "
                 "\"APPL.g\""),
            "ab|no end|\xC3\xA4\xF0\x9F\x98\x80|text|blob|E47878|blob\n");
}

TEST_F(GroupView, ShowsTheLastValueOfAnAttributeThatIsNamedTwice) {
  begin("attr:a,N,4;");
  keepRow({{"a", 'N', bytesOf<std::int32_t>(1)}, {"a", 'N', bytesOf<std::int32_t>(2)}});
  EXPECT_EQ(read("SELECT a FROM \"APPL.g\""), "2\n");
}

TEST_F(GroupView, HasTheAttributesOfTheLastRegistrationFirst) {
  begin("attr:a,N,4;attr:b,N,4;");
  keepRow({{"a", 'N', bytesOf<std::int32_t>(1)}, {"b", 'N', bytesOf<std::int32_t>(2)}});
  registerGroup("attr:c,N,4;attr:b,N,4;");
  EXPECT_EQ(columns("APPL.g"), "time,time_us,source,handle,code,c,b,a\n");
  keepRow({{"c", 'N', bytesOf<std::int32_t>(3)}}, 2);
  EXPECT_EQ(read("SELECT a, b, c FROM \"APPL.g\" ORDER BY time"), "1|2|null\nnull|null|3\n");
  stop();
  start();
  registerGroup("attr:d,N,4;");
  EXPECT_EQ(columns("APPL.g"), "time,time_us,source,handle,code,d,c,b,a\n");
  keepRow({{"d", 'N', bytesOf<std::int32_t>(4)}}, 3);
  EXPECT_EQ(read("SELECT a, b, c, d FROM \"APPL.g\" ORDER BY time"),
            "1|2|null|null\nnull|null|3|null\nnull|null|null|4\n");
  EXPECT_EQ(read("PRAGMA integrity_check"), "ok\n");
}

TEST_F(GroupView, StaysWhenItsGroupIsNotRegisteredAnyMore) {
  begin("attr:a,N,4;");
  keepRow({{"a", 'N', bytesOf<std::int32_t>(1)}});
  ASSERT_TRUE(keep(Unregistered{"APPL"}));
  knownAfterRestart();
  EXPECT_EQ(read("SELECT source, a FROM \"APPL.g\""), "host1|1\n");
  EXPECT_EQ(read("SELECT * FROM applications"), "");
}

TEST_F(GroupView, AttributesWhoseNameIsTakenGetAnotherOne) {
  begin("attr:TIME,N,4;attr:a,N,4;attr:A,N,4;attr:a_,N,4;attr:x y,N,4;");
  EXPECT_EQ(columns("APPL.g"), "time,time_us,source,handle,code,TIME_,a,A_,a__,x y\n");
}

TEST_F(GroupView, ViewsWhoseNameIsTakenGetAnotherOne) {
  start();
  ASSERT_TRUE(keep(registered("appl:A.B,KEY;group:C;attr:a,N,4;")));
  ASSERT_TRUE(keep(registered("appl:A,KEY;group:B.C;attr:b,N,4;group:b.c;attr:c,N,4;")));
  ASSERT_TRUE(keep(registered("appl:sqlite_x,KEY;group:g;attr:d,N,4;")));
  for (int round = 0; round < 2; ++round) {
    EXPECT_THAT(columns("A.B.C"), HasSubstr("code,a"));
    EXPECT_THAT(columns("A.B.C_"), HasSubstr("code,b"));
    EXPECT_THAT(columns("A.b.c__"), HasSubstr("code,c"));
    EXPECT_THAT(columns("_sqlite_x.g"), HasSubstr("code,d"));
    stop();
    start();
    ASSERT_TRUE(keep(registered("appl:a.b,KEY;group:c;attr:e,N,4;")));
  }
  EXPECT_THAT(columns("a.b.c___"), HasSubstr("code,e"));
}

TEST_F(GroupView, NamesThatAreNoUtf8BecomeText) {
  start();
  ASSERT_TRUE(keep(registered("appl:A\xFF,KEY;group:g;attr:b\xE4,N,4;")));
  EXPECT_THAT(columns("A\xEF\xBF\xBD.g"), HasSubstr("code,b\xEF\xBF\xBD"));
  EXPECT_EQ(read("SELECT hex(name), typeof(name) FROM applications"), "41FF|blob\n");
  knownAfterRestart();
  EXPECT_NE(_known->registry().findApplication("A\xFF"), nullptr);
}

TEST_F(GroupView, AttributesWithoutRoomForThemAreOnlyInTheMessages) {
  start();
  constexpr int registrations = 7;
  for (int registration = 0; registration < registrations; ++registration) {
    std::string text;
    for (int attribute = 0; attribute < 300; ++attribute)
      text += "attr:x" + std::to_string(registration * 300 + attribute) + ",N,4;";
    registerGroup(text);
  }
  EXPECT_EQ(read("SELECT count(*) FROM pragma_table_info('APPL.g')"), "2000\n");
  ASSERT_TRUE(keep(WentOnline{"APPL", "g", "host1", 1}));
  keepRow({{"x1994", 'N', bytesOf<std::int32_t>(1)}, {"x2099", 'N', bytesOf<std::int32_t>(2)}});
  EXPECT_EQ(read("SELECT x1994 FROM \"APPL.g\""), "1\n");
  EXPECT_THAT(read("SELECT x2099 FROM \"APPL.g\""), HasSubstr("error: no such column"));
}

TEST_F(GroupView, OtherViewsTellOfProvidersAndConsumers) {
  start();
  goOnline();
  keep(WentOnline{"HOSTMON", "load", "host2", 2});
  keep(WentOffline{2});
  keep(ActionStarted{7, "restart", "operator", 1'769'903'999'123'456});
  keep(ActionEnded{7, 1'769'904'000'000'000, 3});
  keep(testkit::deferred(7));
  EXPECT_EQ(read("SELECT * FROM applications"), "HOSTMON|HMN|SOCK||load disk|1\n");
  EXPECT_EQ(read("SELECT * FROM sources"), "HOSTMON|load|host1|1|1\nHOSTMON|load|host2|2|0\n");
  EXPECT_EQ(read("SELECT id, name, owner, started, ended, result FROM actions"),
            "7|restart|operator|2026-01-31T23:59:59.123456Z|2026-02-01T00:00:00.000000Z|3\n");
  EXPECT_EQ(read("SELECT * FROM deferrals"), "7|4660|99|HMN|TABLE|host1\n");
}

}  // namespace
}  // namespace dch
