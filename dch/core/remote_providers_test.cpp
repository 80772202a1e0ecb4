#include "dch/core/remote_providers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "dch/testkit/registry_changes.h"

namespace dch {
namespace {

using Kind = ProviderFact::Kind;
using ::testing::ElementsAre;

std::string textOf(const std::string& application, const std::string& group = "g") {
  return "appl:" + application + ",KEY;group:" + group + ";attr:a,C,1;";
}

class RemoteProvidersTest : public ::testing::Test {
 protected:
  void registers(const std::string& site, const std::string& application,
                 const std::string& group = "g") {
    _providers.take(site, {Kind::registered,
                           application,
                           {},
                           {},
                           std::make_shared<const suite::Registration>(
                               testkit::registrationOf(textOf(application, group)))});
  }
  void unregisters(const std::string& site, const std::string& application) {
    _providers.take(site, {Kind::unregistered, application});
  }
  void online(const std::string& site, const std::string& source,
              const std::string& application = "A") {
    _providers.take(site, {Kind::online, application, "g", source});
  }
  void offline(const std::string& site, const std::string& source,
               const std::string& application = "A") {
    _providers.take(site, {Kind::offline, application, "g", source});
  }
  void settle() {
    while (_providers.settle()) {
    }
  }

  // "APPLICATION groups count;..." of all.
  std::string told() const {
    std::string text;
    for (const RemoteApplication* each = _providers.next({}); each != nullptr;
         each = _providers.next(each->name())) {
      EXPECT_EQ(_providers.find(each->name()), each);
      text += each->name();
      for (const std::string_view group : each->groupNames()) text.append(" ").append(group);
      text += ' ' + std::to_string(each->sourcesOnline()) + ';';
    }
    return text;
  }

  RemoteProviders _providers{{.applications = 40, .entries = 400, .textBytes = 4'000}};
};

TEST_F(RemoteProvidersTest, TellsWhatSeveralSitesHaveOnce) {
  registers("west", "B");
  registers("west", "A");
  registers("east", "A");
  online("west", "host1");
  online("west", "host2");
  online("east", "host1");
  EXPECT_EQ(told(), "A g 3;B g 0;");
  online("east", "host1");
  EXPECT_EQ(told(), "A g 3;B g 0;") << "it is on line already";
  offline("west", "host1");
  offline("west", "none");
  offline("none", "host1");
  EXPECT_EQ(told(), "A g 2;B g 0;");
  unregisters("west", "B");
  unregisters("west", "A");
  EXPECT_EQ(told(), "A g 2;") << "another site has it";
  EXPECT_EQ(_providers.find("B"), nullptr);
}

TEST_F(RemoteProvidersTest, OfSeveralRegistrationsTellsOneWhoeverToldWhichFirst) {
  registers("west", "A", "h");
  registers("east", "A", "g");
  EXPECT_EQ(told(), "A g h 0;");
  registers("west", "A", "i");
  EXPECT_EQ(told(), "A g i 0;");
  registers("east", "A", "i");
  EXPECT_EQ(told(), "A i 0;");
}

TEST_F(RemoteProvidersTest, TellsNothingOfAnApplicationThatIsNotRegistered) {
  online("west", "host1");
  EXPECT_EQ(told(), "");
  EXPECT_EQ(_providers.find("A"), nullptr);
  registers("east", "A");
  EXPECT_EQ(told(), "A g 1;");
}

TEST_F(RemoteProvidersTest, WhatACopyDoesNotTellIsGone) {
  registers("west", "A");
  registers("west", "B");
  online("west", "host1");
  online("west", "host2");
  online("east", "host1");
  _providers.begin("west");
  registers("west", "A", "new");
  online("west", "host2");
  online("west", "host3");
  EXPECT_FALSE(_providers.settle());
  EXPECT_EQ(told(), "A new 4;B g 0;") << "until it ends all of it is there";
  _providers.end("west");
  settle();
  EXPECT_EQ(told(), "A new 3;");
}

TEST_F(RemoteProvidersTest, ACopyThatBeginsAnewCountsFromThere) {
  online("west", "host1");
  registers("west", "A");
  _providers.begin("west");
  online("west", "host1");
  _providers.begin("west");
  registers("west", "A");
  _providers.end("west");
  settle();
  EXPECT_EQ(told(), "A g 0;");
}

TEST_F(RemoteProvidersTest, AnEndWithoutABeginningIsNone) {
  registers("west", "A");
  online("west", "host1");
  _providers.end("west");
  _providers.begin("west");
  _providers.silent("west");
  registers("west", "A");
  _providers.end("west");
  _providers.end("west");
  settle();
  EXPECT_EQ(told(), "A g 0;");
}

TEST_F(RemoteProvidersTest, OfASilentSiteNoSourceIsOnLine) {
  registers("west", "A");
  online("west", "host1");
  online("east", "host1");
  _providers.silent("west");
  settle();
  EXPECT_EQ(told(), "A g 1;");
  online("west", "host2");
  EXPECT_EQ(told(), "A g 2;");
}

TEST_F(RemoteProvidersTest, WhatIsToldAgainBeforeItWentStays) {
  registers("west", "A");
  for (const char* source : {"host1", "host2", "host3"}) online("west", source);
  _providers.silent("west");
  online("west", "host2");
  offline("west", "host1");
  settle();
  EXPECT_EQ(told(), "A g 1;");
}

TEST_F(RemoteProvidersTest, WhatIsGoneGoesInPiecesAndSoDoesWhatGoesMeanwhile) {
  registers("west", "A");
  registers("east", "A");
  for (const char* site : {"west", "east"})
    for (int i = 0; i < 99; ++i) online(site, std::to_string(i));
  _providers.silent("west");
  _providers.silent("east");
  EXPECT_TRUE(_providers.settle());
  const std::size_t left = _providers.find("A")->sourcesOnline();
  EXPECT_GT(left, 0u);
  EXPECT_LT(left, 198u);
  for (const char* site : {"west", "east"})
    for (int i = 0; i < 99; ++i) offline(site, std::to_string(i));
  EXPECT_EQ(told(), "A g 0;");
  settle();
  EXPECT_EQ(told(), "A g 0;");
  online("west", "host1");
  EXPECT_EQ(told(), "A g 1;");
}

TEST_F(RemoteProvidersTest, ASiteHasAQuarterOfTheRoomForApplications) {
  for (int i = 10; i < 30; ++i) registers("west", "A" + std::to_string(i));
  EXPECT_EQ(_providers.refused(), 10u);
  online("west", "host1", "B");
  EXPECT_EQ(_providers.refused(), 11u) << "they count without a registration, too";
  online("west", "host1", "A10");
  registers("west", "A10", "h");
  EXPECT_EQ(_providers.refused(), 11u) << "of one that it has";
  unregisters("west", "A10");
  online("west", "host2", "B");
  EXPECT_EQ(_providers.refused(), 12u) << "a source of the first is on line";
  offline("west", "host1", "A10");
  online("west", "host2", "B");
  EXPECT_EQ(_providers.refused(), 12u);
  online("east", "host1", "B");
  EXPECT_EQ(_providers.refused(), 12u) << "others have room";
}

TEST_F(RemoteProvidersTest, AllSitesHaveSoManyApplications) {
  for (int i = 0; i < 40; ++i)
    online("site" + std::to_string(i / 10), "s", "A" + std::to_string(i));
  EXPECT_EQ(_providers.refused(), 0u);
  online("another", "s", "B");
  EXPECT_EQ(_providers.refused(), 1u);
  online("another", "s", "A1");
  EXPECT_EQ(_providers.refused(), 1u) << "one that is known";
}

TEST_F(RemoteProvidersTest, ASiteHasAQuarterOfTheEntriesAndAllHaveSoMany) {
  registers("site0", "A");
  for (int i = 0; i < 400; ++i) online("site" + std::to_string(i / 100), std::to_string(i));
  EXPECT_EQ(_providers.refused(), 1u) << "of the one that has registered, too";
  online("another", "s");
  EXPECT_EQ(_providers.refused(), 2u);
  EXPECT_EQ(told(), "A g 399;");
  offline("site1", "100");
  online("another", "s");
  EXPECT_EQ(told(), "A g 399;");
}

TEST_F(RemoteProvidersTest, TextsThatSitesShareTakeRoomOnce) {
  const std::string longName(32, 'h');
  for (int site = 0; site < 100; ++site) registers("site" + std::to_string(site), "A", longName);
  EXPECT_EQ(_providers.refused(), 0u);
  const std::size_t bytes = textOf("A", longName).size();
  const std::size_t fit = (4'000 - bytes) / textOf("A", "1000").size();
  for (std::size_t i = 0; i < fit; ++i)
    registers("other" + std::to_string(i), "A", std::to_string(1'000 + i));
  EXPECT_EQ(_providers.refused(), 0u);
  registers("another", "A", "another");
  EXPECT_EQ(_providers.refused(), 1u);
  registers("another", "A", longName);
  registers("other0", "A", "9999");
  EXPECT_EQ(_providers.refused(), 1u)
      << "one that is there, and one that another one makes room for";
}

TEST_F(RemoteProvidersTest, ASiteHasAQuarterOfTheRoomForTexts) {
  RemoteProviders providers({.applications = 400, .entries = 400, .textBytes = 4'000});
  const auto take = [&](int number) {
    const std::string name = "A" + std::to_string(number);
    providers.take(
        "west",
        {Kind::registered,
         name,
         {},
         {},
         std::make_shared<const suite::Registration>(testkit::registrationOf(textOf(name)))});
  };
  const int fits = static_cast<int>(1'000 / textOf("A10").size());
  for (int i = 10; i < 10 + fits; ++i) take(i);
  EXPECT_EQ(providers.refused(), 0u);
  take(10 + fits);
  EXPECT_EQ(providers.refused(), 1u);
  take(10);
  EXPECT_EQ(providers.refused(), 1u) << "it takes the place of the same";
  EXPECT_EQ(providers.find("A" + std::to_string(10 + fits)), nullptr);
}

TEST_F(RemoteProvidersTest, TheRevisionIsAnotherOneExactlyWhenAnotherTextIsTold) {
  std::uint64_t revision = _providers.revision();
  const auto isAnother = [&] { return std::exchange(revision, _providers.revision()) != revision; };
  registers("west", "A");
  EXPECT_TRUE(isAnother());
  registers("west", "A");
  registers("east", "A");
  EXPECT_FALSE(isAnother());
  online("west", "host1");
  EXPECT_TRUE(isAnother());
  online("west", "host1");
  offline("west", "none");
  _providers.begin("west");
  EXPECT_FALSE(isAnother());
  _providers.end("west");
  settle();
  EXPECT_TRUE(isAnother()) << "the source is gone";
  unregisters("east", "A");
  EXPECT_TRUE(isAnother()) << "both have unregistered it";
  registers("east", "A", "h");
  EXPECT_TRUE(isAnother());
  registers("east", "A", "i");
  EXPECT_TRUE(isAnother());
}

class ToldProvidersTest : public RemoteProvidersTest {
 protected:
  ToldProvidersTest() {
    _providers.setTold([this](const SourceNames& names, short code) {
      _events.push_back(std::string(names.application) + ',' + std::string(names.group) + ',' +
                        std::string(names.source) + ',' + std::to_string(code));
    });
  }

  // Since it was called last.
  std::vector<std::string> events() { return std::exchange(_events, {}); }

 private:
  std::vector<std::string> _events;
};

TEST_F(ToldProvidersTest, WhatBecomesOfEachIsToldOnce) {
  for (int times = 0; times < 2; ++times) {
    registers("west", "A");
    online("west", "s1");
  }
  EXPECT_THAT(events(), ElementsAre("A,,,4112", "A,g,s1,4117"));
  registers("west", "A", "other");
  EXPECT_THAT(events(), ElementsAre("A,,,4112"));
  for (int times = 0; times < 2; ++times) {
    offline("west", "s1");
    unregisters("west", "A");
  }
  EXPECT_THAT(events(), ElementsAre("A,g,s1,4133", "A,,,4128"));
}

TEST_F(ToldProvidersTest, EachSiteIsToldOfByItself) {
  online("west", "s1");
  online("east", "s1");
  offline("west", "s1");
  EXPECT_THAT(events(), ElementsAre("A,g,s1,4117", "A,g,s1,4117", "A,g,s1,4133"));
}

TEST_F(ToldProvidersTest, ACopyTellsWhatDiffers) {
  for (const char* const source : {"s1", "s2"}) online("west", source);
  events();
  _providers.begin("west");
  online("west", "s2");
  online("west", "s3");
  _providers.end("west");
  settle();
  EXPECT_THAT(events(), ElementsAre("A,g,s3,4117", "A,g,s1,4133"));
}

TEST_F(ToldProvidersTest, ASilentSiteLosesItsSourcesOnce) {
  registers("west", "A");
  for (const char* const source : {"s1", "s2"}) online("west", source);
  events();
  for (int times = 0; times < 2; ++times) {
    _providers.silent("west");
    settle();
  }
  EXPECT_THAT(events(), ElementsAre("A,g,s1,4133", "A,g,s2,4133"));
}

TEST_F(RemoteProvidersTest, LeadThroughTheSourcesOnLineOfAllSites) {
  registers("west", "A");
  online("west", "s2");
  online("west", "s1");
  online("east", "s1");
  online("north", "s3");
  _providers.silent("north");
  std::string sources;
  RemoteProviders::Place place;
  while (const auto names = _providers.nextOnline(&place))
    sources += place.site + ' ' + std::string(names->application) + ' ' +
               std::string(names->group) + ' ' + std::string(names->source) + ';';
  EXPECT_EQ(sources, "east A g s1;north A g s3;west A g s1;west A g s2;");
  EXPECT_FALSE(_providers.hasOnlineBehind(place));
}

}  // namespace
}  // namespace dch
