#include "dch/core/registry.h"

#include <gtest/gtest.h>

#include "dch/testkit/registry_changes.h"

namespace dch {
namespace {

using testkit::registerText;
using testkit::registrationOf;
using testkit::unregister;

const SourceNames loadOfHost1{"HOSTMON", "load", "host1"};
const SourceNames diskOfHost1{"HOSTMON", "disk", "host1"};

class RegistryTest : public testing::Test {
 protected:
  RegistryTest() {
    registerText(
        "appl:HOSTMON,HMN;group:load;attr:load1,D,16;"
        "group:disk;attr:name,T,32;");
  }

  DCH_Status registerText(const std::string& text) {
    return testkit::registerText(_registry, text);
  }

  ZORA_Long goOnline(const SourceNames& names) {
    const testkit::Online online = testkit::goOnline(_registry, names);
    EXPECT_EQ(online.status, DCH_STATUS_OK);
    return online.handle;
  }

  std::vector<ZORA_Long> online() const {
    std::vector<ZORA_Long> handles;
    const Source* source = nullptr;
    while ((source = _registry.nextOnline(handles.empty() ? 0 : handles.back())) != nullptr)
      handles.push_back(source->handle);
    return handles;
  }

  // Returns what is left of the message.
  std::string takeRow(Row row) {
    EXPECT_EQ(_registry.apply(&row).status, DCH_STATUS_OK);
    return row.message;
  }

  bool isOnline(ZORA_Long handle) const { return _registry.findOnline(handle) != nullptr; }

  Registry _registry;
};

TEST_F(RegistryTest, TellsTheNamesTopicAndAttributesOfAnOnlineSource) {
  const Source* const source = _registry.findOnline(goOnline(loadOfHost1));
  ASSERT_NE(source, nullptr);
  EXPECT_EQ(source->names().application, "HOSTMON");
  EXPECT_EQ(source->names().group, "load");
  EXPECT_EQ(source->names().source, "host1");
  EXPECT_EQ(source->group->topic, topicOf("HOSTMON", "load"));
  ASSERT_TRUE(source->group->attributes.contains("load1"));
  EXPECT_EQ(source->group->attributes.at("load1").letter, 'D');
  EXPECT_EQ(source->group->attributes.at("load1").size, 16);
}

TEST_F(RegistryTest, GivesTheSameHandleForTheSameNamesOnLineOrOff) {
  const ZORA_Long handle = goOnline(loadOfHost1);
  EXPECT_GT(handle, 0);
  EXPECT_EQ(goOnline(loadOfHost1), handle);
  EXPECT_EQ(testkit::goOffline(_registry, handle), DCH_STATUS_OK);
  EXPECT_EQ(goOnline(loadOfHost1), handle);
}

TEST_F(RegistryTest, GivesOtherNamesOtherHandlesAlsoAfterUnregistering) {
  const ZORA_Long load = goOnline(loadOfHost1);
  const ZORA_Long disk = goOnline(diskOfHost1);
  EXPECT_NE(load, disk);
  testkit::goOffline(_registry, load);
  unregister(_registry, "HOSTMON");
  registerText("appl:OTHER,OTH;group:load;attr:a,N,4;");
  const ZORA_Long other = goOnline({"OTHER", "load", "host1"});
  EXPECT_NE(other, load);
  EXPECT_NE(other, disk);
}

TEST_F(RegistryTest, KeepsAHandleForItsNamesAcrossUnregistering) {
  const ZORA_Long handle = goOnline(loadOfHost1);
  unregister(_registry, "HOSTMON");
  registerText("appl:HOSTMON,HMN;group:load;attr:load1,D,16;");
  EXPECT_EQ(goOnline(loadOfHost1), handle);
}

TEST_F(RegistryTest, DoesNotMixUpNamesThatJoinToTheSameText) {
  registerText("appl:A,AAA;group:BC;attr:x,N,4;");
  registerText("appl:AB,AAA;group:C;attr:x,N,4;");
  EXPECT_NE(goOnline({"A", "BC", "s"}), goOnline({"AB", "C", "s"}));
}

TEST_F(RegistryTest, RefusesUnknownApplicationsGroupsAndHandles) {
  EXPECT_EQ(testkit::goOnline(_registry, {"NONE", "load", "host1"}).status,
            DCH_STATUS_UNKNOWN_APPLICATION);
  EXPECT_EQ(testkit::goOnline(_registry, {"HOSTMON", "none", "host1"}).status,
            DCH_STATUS_UNKNOWN_GROUP);
  for (const ZORA_Long unknown : {0, -1, 1, 1'000'000, INT32_MAX, INT32_MIN}) {
    EXPECT_EQ(testkit::goOffline(_registry, unknown), DCH_STATUS_UNKNOWN_HANDLE) << unknown;
    EXPECT_FALSE(isOnline(unknown)) << unknown;
  }
}

TEST_F(RegistryTest, RefusesToTakeASourceOffLineTwice) {
  const ZORA_Long handle = goOnline(loadOfHost1);
  EXPECT_EQ(testkit::goOffline(_registry, handle), DCH_STATUS_OK);
  EXPECT_FALSE(isOnline(handle));
  EXPECT_EQ(testkit::goOffline(_registry, handle), DCH_STATUS_UNKNOWN_HANDLE);
}

TEST_F(RegistryTest, ReplacingARegistrationKeepsSourcesOfItsGroupsOnLine) {
  const ZORA_Long load = goOnline(loadOfHost1);
  const ZORA_Long disk = goOnline(diskOfHost1);
  registerText("appl:HOSTMON,HMN;group:load;attr:load5,N,4;");
  ASSERT_TRUE(isOnline(load));
  EXPECT_TRUE(_registry.findOnline(load)->group->attributes.contains("load5"));
  EXPECT_FALSE(_registry.findOnline(load)->group->attributes.contains("load1"));
  EXPECT_FALSE(isOnline(disk));
}

TEST_F(RegistryTest, ReplacingARegistrationLeavesOfflineSourcesOffLine) {
  const ZORA_Long handle = goOnline(loadOfHost1);
  testkit::goOffline(_registry, handle);
  registerText("appl:HOSTMON,HMN;group:load;attr:load1,D,16;");
  EXPECT_FALSE(isOnline(handle));
}

TEST_F(RegistryTest, UnregisteringTakesItsSourcesOffLineAndForgetsTheApplication) {
  const ZORA_Long handle = goOnline(loadOfHost1);
  EXPECT_EQ(unregister(_registry, "HOSTMON"), DCH_STATUS_OK);
  EXPECT_FALSE(isOnline(handle));
  EXPECT_EQ(unregister(_registry, "HOSTMON"), DCH_STATUS_UNKNOWN_APPLICATION);
  EXPECT_EQ(testkit::goOnline(_registry, loadOfHost1).status, DCH_STATUS_UNKNOWN_APPLICATION);
}

TEST_F(RegistryTest, LeadsThroughTheSourcesThatAreOnLine) {
  registerText("appl:OTHER,OTH;group:g;attr:a,N,4;");
  const ZORA_Long load = goOnline(loadOfHost1);
  const ZORA_Long disk = goOnline(diskOfHost1);
  const ZORA_Long other = goOnline({"OTHER", "g", "s"});
  EXPECT_EQ(online(), (std::vector{load, disk, other}));
  EXPECT_EQ(_registry.findApplication("HOSTMON")->sourcesOnline, 2u);
  EXPECT_EQ(_registry.findApplication("NONE"), nullptr);
  testkit::goOffline(_registry, load);
  EXPECT_EQ(online(), (std::vector{disk, other}));
  EXPECT_EQ(_registry.findApplication("HOSTMON")->sourcesOnline, 1u);
}

TEST_F(RegistryTest, TellsTheSourcesThatAChangeTakesOnLineOrOffLineInTheOrderOfTheirHandles) {
  std::vector<const Source*> sources;
  for (const char* name : {"h9", "h2", "h7", "h1", "h5"})
    sources.push_back(_registry.findSource(goOnline({"HOSTMON", "load", name})));
  goOnline(diskOfHost1);
  Registered change{registrationOf("appl:HOSTMON,HMN;group:disk;attr:name,T,32;")};
  Prepared prepared = _registry.prepare(change);
  EXPECT_EQ(_registry.apply(std::move(change), std::move(prepared)).moved, sources);
}

TEST_F(RegistryTest, GivesAHandleToNamesWhoseChangeWasNotKept) {
  const WentOnline change{"HOSTMON", "load", "host1", _registry.handleFor(loadOfHost1)};
  _registry.prepare(change);
  EXPECT_FALSE(isOnline(change.handle));
  EXPECT_NE(_registry.handleFor(diskOfHost1), change.handle);
  EXPECT_EQ(goOnline(loadOfHost1), change.handle);
}

TEST_F(RegistryTest, ShowsNothingOfARegistrationThatWasNotKept) {
  const ZORA_Long handle = goOnline(loadOfHost1);
  for (const char* text :
       {"appl:HOSTMON,HMN;group:new;attr:a,N,4;", "appl:N,NEW;group:g;attr:a,N,4;"}) {
    const Registered change{registrationOf(text)};
    _registry.prepare(change);
    _registry.abandon(change);
  }
  EXPECT_TRUE(isOnline(handle));
  EXPECT_EQ(_registry.applications().size(), 1u);
  EXPECT_EQ(_registry.check(SourceNames{"HOSTMON", "new", "s"}), DCH_STATUS_UNKNOWN_GROUP);
}

TEST_F(RegistryTest, KnowsTheHandleOfASourceWhoseApplicationIsNotRegistered) {
  const WentOnline change{"GONE", "group", "source", 7};
  EXPECT_EQ(_registry.apply(change, _registry.prepare(change)).status,
            DCH_STATUS_UNKNOWN_APPLICATION);
  EXPECT_EQ(_registry.handleFor({"GONE", "group", "source"}), 7);
  EXPECT_EQ(_registry.handleFor(loadOfHost1), 8);
  EXPECT_FALSE(isOnline(7));
}

TEST_F(RegistryTest, HasTheNewestRowOfASourceThatIsOnLine) {
  const ZORA_Long handle = goOnline(loadOfHost1);
  const Source* const source = _registry.findOnline(handle);
  EXPECT_FALSE(source->row.has_value());
  takeRow({handle, 1, "first"});
  takeRow({handle, 2, "second"});
  EXPECT_EQ(source->row->message, "second");
  EXPECT_EQ(source->row->time, 2);
  goOnline(loadOfHost1);
  EXPECT_TRUE(source->row.has_value());
}

TEST_F(RegistryTest, StillHasTheNewestRowOfASourceThatHasGoneOffLine) {
  const ZORA_Long handle = goOnline(loadOfHost1);
  const Source* const source = _registry.findSource(handle);
  takeRow({handle, 1, "first"});
  EXPECT_TRUE(source->row->isCurrent);
  testkit::goOffline(_registry, handle);
  EXPECT_EQ(source->row->message, "first");
  takeRow({handle, 2, "second"});
  EXPECT_EQ(source->row->message, "second") << "it was good when it came";
  goOnline(loadOfHost1);
  EXPECT_EQ(source->row->message, "second");
  EXPECT_FALSE(source->row->isCurrent) << "it came before";
  takeRow({handle, 3, "third"});
  EXPECT_EQ(source->row->message, "third");
  EXPECT_TRUE(source->row->isCurrent);
}

TEST(RegistryLimitsTest, DoesNotStoreMoreThanItsLimitsAndStillServesWhatItHas) {
  Registry registry({.applications = 1, .sources = 1});
  const char first[] = "appl:ONE,ONE;group:g;attr:a,N,4;";
  EXPECT_EQ(registerText(registry, first), DCH_STATUS_OK);
  EXPECT_EQ(registerText(registry, "appl:TWO,TWO;group:g;attr:a,N,4;"), DCH_STATUS_NOT_STORED);
  EXPECT_EQ(registerText(registry, first), DCH_STATUS_OK);
  EXPECT_EQ(testkit::goOnline(registry, {"ONE", "g", "s1"}).status, DCH_STATUS_OK);
  EXPECT_EQ(testkit::goOnline(registry, {"ONE", "g", "s2"}).status, DCH_STATUS_NOT_STORED);
  EXPECT_EQ(testkit::goOnline(registry, {"ONE", "g", "s1"}).status, DCH_STATUS_OK);
}

TEST(RegistryLimitsTest, MakesRoomWhenAnApplicationWithoutSourcesIsUnregistered) {
  Registry registry({.applications = 1, .sources = 1});
  registerText(registry, "appl:ONE,ONE;group:g;attr:a,N,4;");
  unregister(registry, "ONE");
  EXPECT_EQ(registerText(registry, "appl:TWO,TWO;group:g;attr:a,N,4;"), DCH_STATUS_OK);
}

// Three sources on line, each of which has sent a row of so many bytes.
class OfflineRowsTest : public testing::Test {
 protected:
  static constexpr std::size_t rowBytes = 1'000;

  OfflineRowsTest() {
    registerText(_registry, "appl:ONE,ONE;group:g;attr:a,N,4;");
    for (const char* source : {"s1", "s2", "s3"}) goOnline(source);
    for (const ZORA_Long handle : {1, 2, 3}) takeRow(handle, rowBytes);
  }

  void goOnline(const char* source) { testkit::goOnline(_registry, {"ONE", "g", source}); }

  void takeRow(ZORA_Long handle, std::size_t bytes) {
    Row row{handle, 1, std::string(bytes, 'r')};
    _registry.apply(&row);
  }

  // Of which sources there is one, as digits.
  std::string known() const {
    std::string handles;
    for (const ZORA_Long handle : {1, 2, 3})
      if (_registry.findSource(handle)->row) handles += std::to_string(handle);
    return handles;
  }

  Registry _registry{{.offlineRowBytes = 2 * rowBytes + rowBytes / 2}};
};

TEST_F(OfflineRowsTest, ThatOfTheSourceThatIsOffLineLongestIsForgottenFirst) {
  for (const ZORA_Long handle : {2, 1}) testkit::goOffline(_registry, handle);
  EXPECT_EQ(known(), "123");
  testkit::goOffline(_registry, 3);
  EXPECT_EQ(known(), "13");
}

TEST_F(OfflineRowsTest, ThoseOfSourcesOnLineAgainCountNoMore) {
  for (const ZORA_Long handle : {1, 2}) testkit::goOffline(_registry, handle);
  goOnline("s1");
  testkit::goOffline(_registry, 3);
  EXPECT_EQ(known(), "123");
  testkit::goOffline(_registry, 1);
  EXPECT_EQ(known(), "13");
}

TEST_F(OfflineRowsTest, OneThatComesLateTakesThePlaceOfItsForerunner) {
  for (const ZORA_Long handle : {1, 2}) testkit::goOffline(_registry, handle);
  takeRow(1, rowBytes);
  EXPECT_EQ(known(), "123");
  testkit::goOffline(_registry, 3);
  EXPECT_EQ(known(), "13") << "the late one was the newest";
  takeRow(2, rowBytes);
  EXPECT_EQ(known(), "23");
}

TEST_F(OfflineRowsTest, OneThatIsTooLargeIsNotKeptAndPushesOutNoOther) {
  testkit::goOffline(_registry, 1);
  takeRow(2, 3 * rowBytes);
  testkit::goOffline(_registry, 2);
  EXPECT_EQ(known(), "13");
  takeRow(1, 3 * rowBytes);
  EXPECT_EQ(known(), "3") << "an older one is not the newest";
  testkit::goOffline(_registry, 3);
  takeRow(1, rowBytes);
  EXPECT_EQ(known(), "13");
}

TEST_F(OfflineRowsTest, AreThereAlsoWhenTheApplicationIsUnregistered) {
  takeRow(3, rowBytes / 4);
  unregister(_registry, "ONE");
  EXPECT_EQ(known(), "123");
  EXPECT_EQ(_registry.nextSource(0)->handle, 1);
  EXPECT_EQ(_registry.nextSource(2)->handle, 3);
  EXPECT_EQ(_registry.nextSource(3), nullptr);
}

TEST(RegistryWalkTest, LeadsThroughTheApplicationsThatAreRegistered) {
  Registry registry;
  EXPECT_EQ(registry.nextApplication(""), nullptr);
  for (const char* name : {"A", "B", "C"})
    registerText(registry, std::string("appl:") + name + ",KEY;group:g;attr:a,N,4;");
  testkit::goOnline(registry, {"B", "g", "s"});
  unregister(registry, "B");  // it stays known, for its source
  EXPECT_EQ(registry.nextApplication("")->name, "A");
  EXPECT_EQ(registry.nextApplication("A")->name, "C");
  EXPECT_EQ(registry.nextApplication("AB")->name, "C");
  EXPECT_EQ(registry.nextApplication("C"), nullptr);
}

}  // namespace
}  // namespace dch
