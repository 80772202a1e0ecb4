#include "dch/core/remote_rows_in.h"

#include "dch/core/handles.h"
#include "dch/testkit/core_test.h"

namespace dch {
namespace {

using testkit::dataMessage;

// As its site has it: under another handle.
LiveRow liveRow(const std::string& source, const std::string& value, const std::string& site = "s",
                const std::string& group = "load") {
  return {site, "HOSTMON", group, source, dataMessage(7, {{"load1", 'D', value}})};
}

// The same as a subscriber gets it.
std::string pushedRow(ZORA_Long handle, const std::string& value) {
  return dataMessage(handle, {{"load1", 'D', value}});
}

using Messages = std::vector<std::string>;

class RemoteRowsInTest : public CoreTest {
 protected:
  RemoteRowsInTest() { receive(testkit::subscribeMessage("HOSTMON", "load")); }

  RemoteRowsIn _atOnce{_core, *_store};
  testkit::SlowStore _slow;
  RemoteRowsIn _later{_core, _slow};
};

TEST_F(RemoteRowsInTest, PushesThemUnderHandlesOfThisServer) {
  for (int round = 0; round < 2; ++round) {
    for (const auto& [site, source] :
         {std::pair("s", "host1"), std::pair("s", "host2"), std::pair("t", "host1")})
      _atOnce.take(liveRow(source, "1", site));
    EXPECT_EQ(takePushed(),
              (Messages{pushedRow(firstRemoteHandle, "1"), pushedRow(firstRemoteHandle + 1, "1"),
                        pushedRow(firstRemoteHandle + 2, "1")}));
  }
  EXPECT_EQ(_atOnce.figures().pushed, 6u);
  EXPECT_EQ(_core.registry().figures().sources, 0u) << "they are none of its own";
}

TEST_F(RemoteRowsInTest, PushesNothingThatNobodyWants) {
  _atOnce.take(liveRow("host1", "1", "s", "disk"));
  EXPECT_EQ(_atOnce.figures().pushed, 0u);
  _later.take(liveRow("host1", "1"));
  receive(testkit::withdrawMessage("HOSTMON", "load"));
  _slow.concludeAll();
  EXPECT_TRUE(takePushed().empty());
  _later.take(liveRow("host2", "1"));
  EXPECT_EQ(_slow.waiting(), 0u) << "no handle is wanted for it";
  EXPECT_EQ(_later.figures().pushed + _later.figures().lost, 0u);
}

TEST_F(RemoteRowsInTest, RefusesWhatIsNoRow) {
  LiveRow row = liveRow("host1", "1");
  for (const std::string& message :
       {std::string(), row.message + "x", testkit::registerMessage(), row.message.substr(1)}) {
    row.message = message;
    _atOnce.take(LiveRow(row));
  }
  EXPECT_EQ(_atOnce.figures().refused, 4u);
  EXPECT_TRUE(takePushed().empty());
}

TEST_F(RemoteRowsInTest, RowsStayInTheirOrderWhileTheyWait) {
  _later.take(liveRow("host1", "1"));
  _later.take(liveRow("host2", "2"));
  _later.take(liveRow("host1", "3"));
  ASSERT_EQ(_slow.waiting(), 2u);
  EXPECT_TRUE(takePushed().empty());
  const auto conclude = [&](ZORA_Long handle) {
    std::get<RemoteSourceSeen>(_slow.entries.front().first.change).handle = handle;
    _slow.conclude();
  };
  conclude(17);
  EXPECT_EQ(takePushed(), (Messages{pushedRow(17, "1"), pushedRow(17, "3")}));
  _later.take(liveRow("host1", "4"));
  _later.take(liveRow("host2", "5"));
  EXPECT_EQ(takePushed(), Messages{pushedRow(17, "4")});
  conclude(18);
  EXPECT_EQ(takePushed(), (Messages{pushedRow(18, "2"), pushedRow(18, "5")}));
}

TEST_F(RemoteRowsInTest, CountsRowsWithoutHandles) {
  _later.take(liveRow("host1", "1"));
  _slow.conclude(false);
  EXPECT_EQ(_later.figures().lost, 1u);
  _later.take(liveRow("host1", "2"));
  _slow.conclude();  // it has no room
  EXPECT_EQ(_later.figures().withoutHandle, 1u);
  _later.take(liveRow("host1", "3"));
  EXPECT_EQ(_later.figures().withoutHandle, 2u);
  EXPECT_EQ(_slow.waiting(), 0u);
  EXPECT_TRUE(takePushed().empty());
}

TEST_F(RemoteRowsInTest, AsksForMoreSourcesAsOthersAreKnown) {
  for (int source = 0; source < 40; ++source) _later.take(liveRow(std::to_string(source), "1"));
  EXPECT_EQ(_slow.waiting(), 16u) << "those of one site at a time";
  _slow.conclude(false);
  EXPECT_EQ(_slow.waiting(), 16u);
  _slow.concludeAll(false);
  EXPECT_EQ(_later.figures().lost, 40u);
}

}  // namespace
}  // namespace dch
