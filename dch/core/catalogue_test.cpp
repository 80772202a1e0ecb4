#include "dch/core/catalogue.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "dch/testkit/registry_changes.h"

namespace dch {
namespace {

class CatalogueTest : public ::testing::Test {
 protected:
  CatalogueTest() {
    registerText(
        "appl:HOSTMON,HMN;type:SOCK;help:Watches\nhosts;"
        "group:load;attr:load1,D,16,one\r\nminute;attr:processes,N,4;"
        "group:disk;attr:name,T,32,its name;");
    registerText("appl:APPMON,APM;group:g;attr:a,C,1;");
  }

  void registerText(const std::string& text) {
    ASSERT_EQ(testkit::registerText(_registry, text), DCH_STATUS_OK);
  }

  void goOnline(const SourceNames& names) {
    ASSERT_EQ(testkit::goOnline(_registry, names).status, DCH_STATUS_OK);
  }

  void siteRegisters(const std::string& site, const std::string& text) {
    const auto registration =
        std::make_shared<const suite::Registration>(testkit::registrationOf(text));
    _remote.take(site,
                 {ProviderFact::Kind::registered, registration->applName, {}, {}, registration});
  }

  void siteGoesOnline(const std::string& site, const SourceNames& names) {
    _remote.take(site, {ProviderFact::Kind::online, std::string(names.application),
                        std::string(names.group), std::string(names.source)});
  }

  Registry _registry;
  RemoteProviders _remote;
  const AllProviders _all{_registry, _remote};
};

TEST_F(CatalogueTest, ListsApplicationsByName) {
  EXPECT_EQ(applicationLines(_all, std::nullopt),
            "APPMON,APM,NODP,g,0\nHOSTMON,HMN,SOCK,load disk,0\n");
  EXPECT_EQ(applicationLines(_all, "HOSTMON"), "HOSTMON,HMN,SOCK,load disk,0\n");
}

TEST_F(CatalogueTest, CountsTheSourcesThatAreOnLine) {
  goOnline({"HOSTMON", "load", "host1"});
  goOnline({"HOSTMON", "disk", "host1"});
  goOnline({"HOSTMON", "load", "host2"});
  testkit::goOffline(_registry, 2);
  EXPECT_EQ(applicationLines(_all, "HOSTMON"), "HOSTMON,HMN,SOCK,load disk,2\n");
  EXPECT_EQ(applicationLines(_all, "APPMON"), "APPMON,APM,NODP,g,0\n");
}

TEST_F(CatalogueTest, ListsAttributesInTheOrderOfTheirRegistration) {
  EXPECT_EQ(attributeLines(_all, "HOSTMON"),
            "load,load1,D,16,one  minute\nload,processes,N,4,\ndisk,name,T,32,its name\n");
}

TEST_F(CatalogueTest, GivesTheHelpAsItWasRegistered) {
  EXPECT_EQ(helpText(_all, "HOSTMON"), "Watches\nhosts");
  EXPECT_EQ(helpText(_all, "APPMON"), "");
}

TEST_F(CatalogueTest, SaysNothingOfUnknownApplications) {
  for (const char* name : {"NONE", "", "HOSTMON "}) {
    EXPECT_EQ(applicationLines(_all, name), "");
    EXPECT_EQ(attributeLines(_all, name), "");
    EXPECT_EQ(helpText(_all, name), "");
  }
  EXPECT_EQ(applicationLines({Registry(), RemoteProviders()}, std::nullopt), "");
}

TEST_F(CatalogueTest, ForgetsWhatIsUnregisteredAlsoWhenItHadSources) {
  goOnline({"HOSTMON", "load", "host1"});
  testkit::unregister(_registry, "HOSTMON");
  EXPECT_EQ(applicationLines(_all, std::nullopt), "APPMON,APM,NODP,g,0\n");
  EXPECT_EQ(attributeLines(_all, "HOSTMON"), "");
}

TEST_F(CatalogueTest, TellsTheLatestRegistration) {
  registerText("appl:HOSTMON,NEW;group:n;attr:b,I,2;");
  EXPECT_EQ(applicationLines(_all, "HOSTMON"), "HOSTMON,NEW,NODP,n,0\n");
  EXPECT_EQ(attributeLines(_all, "HOSTMON"), "n,b,I,2,\n");
}

TEST_F(CatalogueTest, CutsALongTextAtALineEndAndSaysSo) {
  const std::string first = "APPMON,APM,NODP,g,0\n", second = "HOSTMON,HMN,SOCK,load disk,0\n";
  const std::string all = first + second, cut = first + "#truncated\n";
  EXPECT_EQ(applicationLines(_all, std::nullopt, all.size()), all);
  EXPECT_EQ(applicationLines(_all, std::nullopt, all.size() - 1), cut);
  EXPECT_EQ(applicationLines(_all, std::nullopt, cut.size()), cut);
  EXPECT_EQ(applicationLines(_all, std::nullopt, cut.size() - 1), "#truncated\n");
}

TEST_F(CatalogueTest, MakesNoTextAgainWhileNothingChanges) {
  Catalogue catalogue(_all);
  const char* const applications = catalogue.allApplications().data();
  const char* const attributes = catalogue.attributes("HOSTMON").data();
  EXPECT_EQ(catalogue.allApplications().data(), applications);
  EXPECT_EQ(catalogue.attributes("HOSTMON").data(), attributes);
  EXPECT_EQ(catalogue.allApplications(), applicationLines(_all, std::nullopt));
  EXPECT_EQ(catalogue.attributes("HOSTMON"), attributeLines(_all, "HOSTMON"));
}

TEST_F(CatalogueTest, TellsEachChangeInTheNextText) {
  Catalogue catalogue(_all);
  const auto expectTheNewest = [&](const std::string& what) {
    EXPECT_EQ(catalogue.allApplications(), applicationLines(_all, std::nullopt)) << what;
    for (const char* name : {"HOSTMON", "APPMON", "OTHER", "NONE"})
      EXPECT_EQ(catalogue.attributes(name), attributeLines(_all, name)) << what;
  };
  expectTheNewest("at first");
  registerText("appl:OTHER,OTH;group:g;attr:a,N,4;");
  expectTheNewest("after a registration");
  registerText("appl:OTHER,OTH;group:h;attr:b,D,9;");
  expectTheNewest("after another one of the same application");
  goOnline({"HOSTMON", "load", "host1"});
  expectTheNewest("when a source is on line");
  testkit::goOffline(_registry, 1);
  expectTheNewest("when it is off line");
  testkit::unregister(_registry, "OTHER");
  expectTheNewest("when an application is gone");
}

TEST_F(CatalogueTest, KeepsOnlyAFewOfTheLongestTexts) {
  std::string groups = "group:g;";
  for (int i = 0; i < 1'000; ++i)
    groups += "attr:a" + std::to_string(i) + ",D,9," + std::string(100, 'h') + ";";
  Catalogue catalogue(_all);
  constexpr int applications = 12;
  for (int i = 0; i < applications; ++i)
    registerText("appl:LARGE" + std::to_string(i) + ",LRG;" + groups);
  for (int i = 0; i < applications; ++i) {
    const std::string name = "LARGE" + std::to_string(i);
    ASSERT_GT(catalogue.attributes(name).size(), 100'000u);
    EXPECT_LE(catalogue.keptBytes(), 9 * maxCatalogueTextBytes) << name;
  }
  EXPECT_GT(catalogue.keptBytes(), 0u);
}

TEST_F(CatalogueTest, ListsTheApplicationsOfAllSitesOnceByName) {
  siteRegisters("west", "appl:HOSTMON,HMN;group:load;attr:load1,D,16,one;");
  siteRegisters("west", "appl:BOTH,BTH;group:g;attr:a,C,1;");
  siteRegisters("east", "appl:BOTH,BTH;group:g;attr:a,C,1;");
  siteRegisters("east", "appl:ZLAST,ZLA;type:SOCK;group:g;attr:a,C,1;group:h;attr:a,C,1;");
  goOnline({"HOSTMON", "load", "host1"});
  siteGoesOnline("west", {"HOSTMON", "load", "host1"});
  siteGoesOnline("west", {"BOTH", "g", "host1"});
  siteGoesOnline("east", {"BOTH", "g", "host1"});
  EXPECT_EQ(applicationLines(_all, std::nullopt),
            "APPMON,APM,NODP,g,0\nBOTH,BTH,NODP,g,2\nHOSTMON,HMN,SOCK,load disk,2\n"
            "ZLAST,ZLA,SOCK,g h,0\n");
  EXPECT_EQ(applicationLines(_all, "BOTH"), "BOTH,BTH,NODP,g,2\n");
  EXPECT_EQ(applicationLines(_all, "HOSTMON"), "HOSTMON,HMN,SOCK,load disk,2\n");
  testkit::unregister(_registry, "APPMON");
  testkit::unregister(_registry, "HOSTMON");
  EXPECT_EQ(applicationLines(_all, std::nullopt),
            "BOTH,BTH,NODP,g,2\nHOSTMON,HMN,NODP,load,1\nZLAST,ZLA,SOCK,g h,0\n");
}

TEST_F(CatalogueTest, WhatOnlyOtherSitesHaveComesBehindWhatThisOneHas) {
  siteRegisters("west",
                "appl:HOSTMON,OTH;type:NODP;help:other;group:net;attr:in,D,9;"
                "group:load;attr:load15,D,16,fifteen;attr:load1,T,9,not this;");
  siteRegisters("east", "appl:APPMON,APM;help:of east;group:g;attr:a,C,1;");
  siteRegisters("west", "appl:APPMON,APM;help:of west;group:g;attr:a,C,1;");
  EXPECT_EQ(applicationLines(_all, "HOSTMON"), "HOSTMON,HMN,SOCK,load disk net,0\n");
  EXPECT_EQ(attributeLines(_all, "HOSTMON"),
            "load,load1,D,16,one  minute\nload,processes,N,4,\nload,load15,D,16,fifteen\n"
            "disk,name,T,32,its name\nnet,in,D,9,\n");
  EXPECT_EQ(helpText(_all, "HOSTMON"), "Watches\nhosts");
  EXPECT_EQ(helpText(_all, "APPMON"), "of east") << "this one has none";
}

TEST_F(CatalogueTest, AnswersForApplicationsThatOnlyOtherSitesHave) {
  siteRegisters("west", "appl:FAR,FAR;help:away;group:g;attr:b,I,2;");
  siteRegisters("east", "appl:FAR,FAR;help:away;group:g;attr:b,I,2;attr:c,I,2;");
  EXPECT_EQ(applicationLines(_all, "FAR"), "FAR,FAR,NODP,g,0\n");
  EXPECT_EQ(attributeLines(_all, "FAR"), "g,b,I,2,\ng,c,I,2,\n");
  EXPECT_EQ(helpText(_all, "FAR"), "away");
  EXPECT_EQ(Catalogue(_all).attributes("FAR"), "g,b,I,2,\ng,c,I,2,\n");
  siteGoesOnline("west", {"NONE", "g", "host1"});
  EXPECT_EQ(applicationLines(_all, "NONE"), "") << "it is not registered";
}

TEST_F(CatalogueTest, CutsALineThatSeveralSitesMakeTooLong) {
  siteRegisters("west", "appl:HOSTMON,HMN;group:another;attr:a,C,1;");
  const std::string line = "HOSTMON,HMN,SOCK,load disk another,0\n";
  EXPECT_EQ(applicationLines(_all, "HOSTMON", line.size()), line);
  EXPECT_EQ(applicationLines(_all, "HOSTMON", line.size() - 1), "#truncated\n");
}

TEST_F(CatalogueTest, TellsEachChangeOfOtherSitesInTheNextText) {
  Catalogue catalogue(_all);
  const std::string applications = catalogue.allApplications();
  const std::string attributes = catalogue.attributes("HOSTMON");
  siteRegisters("west", "appl:HOSTMON,HMN;group:n;attr:b,I,2;");
  EXPECT_NE(catalogue.attributes("HOSTMON"), attributes);
  EXPECT_NE(catalogue.allApplications(), applications);
  siteGoesOnline("west", {"HOSTMON", "n", "host1"});
  EXPECT_EQ(catalogue.allApplications(), applicationLines(_all, std::nullopt));
  _remote.begin("west");
  _remote.end("west");
  _remote.settle();
  EXPECT_EQ(catalogue.attributes("HOSTMON"), attributes);
  EXPECT_EQ(catalogue.allApplications(), applications);
}

}  // namespace
}  // namespace dch
