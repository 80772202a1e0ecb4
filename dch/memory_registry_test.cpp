#include "dch/memory_registry.h"

#include <gtest/gtest.h>

namespace dch {
namespace {

suite::Registration registrationOf(const std::string& text) {
  suite::Registration registration;
  std::string error;
  EXPECT_TRUE(suite::parseRegistration(text, &registration, &error)) << error;
  return registration;
}

const SourceNames loadOfHost1{"HOSTMON", "load", "host1"};
const SourceNames diskOfHost1{"HOSTMON", "disk", "host1"};

class MemoryRegistryTest : public testing::Test {
 protected:
  MemoryRegistryTest() {
    registerText(
        "appl:HOSTMON,HMN;group:load;attr:load1,D,16;"
        "group:disk;attr:name,T,32;");
  }

  DCH_Status registerText(const std::string& text) {
    return _registry.registerApplication(registrationOf(text));
  }

  ZORA_Long goOnline(const SourceNames& names) {
    ZORA_Long handle = 0;
    EXPECT_EQ(_registry.goOnline(names, &handle), DCH_STATUS_OK);
    return handle;
  }

  std::vector<ZORA_Long> online() const {
    std::vector<ZORA_Long> handles;
    const OnlineSource* source = nullptr;
    while ((source = _registry.nextOnline(handles.empty() ? 0 : handles.back())) != nullptr)
      handles.push_back(source->handle);
    return handles;
  }

  std::vector<ZORA_Long> onlineOf(std::string_view application) const {
    std::vector<ZORA_Long> handles;
    _registry.visitOnline(application,
                          [&](const OnlineSource& source) { handles.push_back(source.handle); });
    return handles;
  }

  bool isOnline(ZORA_Long handle) const { return _registry.findOnline(handle) != nullptr; }

  MemoryRegistry _registry;
};

TEST_F(MemoryRegistryTest, TellsTheNamesTopicAndAttributesOfAnOnlineSource) {
  const OnlineSource* const source = _registry.findOnline(goOnline(loadOfHost1));
  ASSERT_NE(source, nullptr);
  EXPECT_EQ(source->application, "HOSTMON");
  EXPECT_EQ(source->groupName, "load");
  EXPECT_EQ(source->source, "host1");
  EXPECT_EQ(source->topic, topicOf("HOSTMON", "load"));
  ASSERT_TRUE(source->group->contains("load1"));
  EXPECT_EQ(source->group->at("load1").letter, 'D');
  EXPECT_EQ(source->group->at("load1").size, 16);
}

TEST_F(MemoryRegistryTest, GivesTheSameHandleForTheSameNamesOnLineOrOff) {
  const ZORA_Long handle = goOnline(loadOfHost1);
  EXPECT_GT(handle, 0);
  EXPECT_EQ(goOnline(loadOfHost1), handle);
  EXPECT_EQ(_registry.goOffline(handle), DCH_STATUS_OK);
  EXPECT_EQ(goOnline(loadOfHost1), handle);
}

TEST_F(MemoryRegistryTest, GivesOtherNamesOtherHandlesAlsoAfterUnregistering) {
  const ZORA_Long load = goOnline(loadOfHost1);
  const ZORA_Long disk = goOnline(diskOfHost1);
  EXPECT_NE(load, disk);
  _registry.goOffline(load);
  _registry.unregisterApplication("HOSTMON");
  registerText("appl:OTHER,OTH;group:load;attr:a,N,4;");
  const ZORA_Long other = goOnline({"OTHER", "load", "host1"});
  EXPECT_NE(other, load);
  EXPECT_NE(other, disk);
}

TEST_F(MemoryRegistryTest, KeepsAHandleForItsNamesAcrossUnregistering) {
  const ZORA_Long handle = goOnline(loadOfHost1);
  _registry.unregisterApplication("HOSTMON");
  registerText("appl:HOSTMON,HMN;group:load;attr:load1,D,16;");
  EXPECT_EQ(goOnline(loadOfHost1), handle);
}

TEST_F(MemoryRegistryTest, DoesNotMixUpNamesThatJoinToTheSameText) {
  registerText("appl:A,AAA;group:BC;attr:x,N,4;");
  registerText("appl:AB,AAA;group:C;attr:x,N,4;");
  EXPECT_NE(goOnline({"A", "BC", "s"}), goOnline({"AB", "C", "s"}));
}

TEST_F(MemoryRegistryTest, RefusesUnknownApplicationsGroupsAndHandles) {
  ZORA_Long handle = 42;
  EXPECT_EQ(_registry.goOnline({"NONE", "load", "host1"}, &handle), DCH_STATUS_UNKNOWN_APPLICATION);
  EXPECT_EQ(_registry.goOnline({"HOSTMON", "none", "host1"}, &handle), DCH_STATUS_UNKNOWN_GROUP);
  EXPECT_EQ(handle, 42);
  for (const ZORA_Long unknown : {0, -1, 1, 1'000'000, INT32_MAX, INT32_MIN}) {
    EXPECT_EQ(_registry.goOffline(unknown), DCH_STATUS_UNKNOWN_HANDLE) << unknown;
    EXPECT_FALSE(isOnline(unknown)) << unknown;
  }
}

TEST_F(MemoryRegistryTest, RefusesToTakeASourceOffLineTwice) {
  const ZORA_Long handle = goOnline(loadOfHost1);
  EXPECT_EQ(_registry.goOffline(handle), DCH_STATUS_OK);
  EXPECT_FALSE(isOnline(handle));
  EXPECT_EQ(_registry.goOffline(handle), DCH_STATUS_UNKNOWN_HANDLE);
}

TEST_F(MemoryRegistryTest, ReplacingARegistrationKeepsSourcesOfItsGroupsOnLine) {
  const ZORA_Long load = goOnline(loadOfHost1);
  const ZORA_Long disk = goOnline(diskOfHost1);
  registerText("appl:HOSTMON,HMN;group:load;attr:load5,N,4;");
  ASSERT_TRUE(isOnline(load));
  EXPECT_TRUE(_registry.findOnline(load)->group->contains("load5"));
  EXPECT_FALSE(_registry.findOnline(load)->group->contains("load1"));
  EXPECT_FALSE(isOnline(disk));
}

TEST_F(MemoryRegistryTest, ReplacingARegistrationLeavesOfflineSourcesOffLine) {
  const ZORA_Long handle = goOnline(loadOfHost1);
  _registry.goOffline(handle);
  registerText("appl:HOSTMON,HMN;group:load;attr:load1,D,16;");
  EXPECT_FALSE(isOnline(handle));
}

TEST_F(MemoryRegistryTest, UnregisteringTakesItsSourcesOffLineAndForgetsTheApplication) {
  const ZORA_Long handle = goOnline(loadOfHost1);
  EXPECT_EQ(_registry.unregisterApplication("HOSTMON"), DCH_STATUS_OK);
  EXPECT_FALSE(isOnline(handle));
  EXPECT_EQ(_registry.unregisterApplication("HOSTMON"), DCH_STATUS_UNKNOWN_APPLICATION);
  ZORA_Long again = 0;
  EXPECT_EQ(_registry.goOnline(loadOfHost1, &again), DCH_STATUS_UNKNOWN_APPLICATION);
}

TEST_F(MemoryRegistryTest, TellsWhetherASourceIsOnLine) {
  EXPECT_FALSE(_registry.isOnline(loadOfHost1));
  const ZORA_Long handle = goOnline(loadOfHost1);
  EXPECT_TRUE(_registry.isOnline(loadOfHost1));
  EXPECT_FALSE(_registry.isOnline(diskOfHost1));
  _registry.goOffline(handle);
  EXPECT_FALSE(_registry.isOnline(loadOfHost1));
}

TEST_F(MemoryRegistryTest, LeadsThroughTheSourcesThatAreOnLineAndVisitsThoseOfOneApplication) {
  registerText("appl:OTHER,OTH;group:g;attr:a,N,4;");
  const ZORA_Long load = goOnline(loadOfHost1);
  const ZORA_Long disk = goOnline(diskOfHost1);
  const ZORA_Long other = goOnline({"OTHER", "g", "s"});
  EXPECT_EQ(online(), (std::vector{load, disk, other}));
  EXPECT_EQ(onlineOf("HOSTMON"), (std::vector{load, disk}));
  EXPECT_EQ(onlineOf("NONE"), std::vector<ZORA_Long>());
  _registry.goOffline(load);
  EXPECT_EQ(online(), (std::vector{disk, other}));
  EXPECT_EQ(onlineOf("HOSTMON"), (std::vector{disk}));
}

TEST(MemoryRegistryLimitsTest, DoesNotStoreMoreThanItsLimitsAndStillServesWhatItHas) {
  MemoryRegistry registry({.applications = 1, .sources = 1});
  const auto first = registrationOf("appl:ONE,ONE;group:g;attr:a,N,4;");
  EXPECT_EQ(registry.registerApplication(first), DCH_STATUS_OK);
  EXPECT_EQ(registry.registerApplication(registrationOf("appl:TWO,TWO;group:g;attr:a,N,4;")),
            DCH_STATUS_NOT_STORED);
  EXPECT_EQ(registry.registerApplication(first), DCH_STATUS_OK);

  ZORA_Long handle = 0;
  EXPECT_EQ(registry.goOnline({"ONE", "g", "s1"}, &handle), DCH_STATUS_OK);
  ZORA_Long refused = 0;
  EXPECT_EQ(registry.goOnline({"ONE", "g", "s2"}, &refused), DCH_STATUS_NOT_STORED);
  EXPECT_EQ(refused, 0);
  EXPECT_EQ(registry.goOnline({"ONE", "g", "s1"}, &handle), DCH_STATUS_OK);
}

TEST(MemoryRegistryLimitsTest, MakesRoomWhenAnApplicationWithoutSourcesIsUnregistered) {
  MemoryRegistry registry({.applications = 1, .sources = 1});
  registry.registerApplication(registrationOf("appl:ONE,ONE;group:g;attr:a,N,4;"));
  registry.unregisterApplication("ONE");
  EXPECT_EQ(registry.registerApplication(registrationOf("appl:TWO,TWO;group:g;attr:a,N,4;")),
            DCH_STATUS_OK);
}

}  // namespace
}  // namespace dch
