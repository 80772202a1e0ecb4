#include "dch/core/catalogue.h"

#include <gtest/gtest.h>

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

  Registry _registry;
};

TEST_F(CatalogueTest, ListsApplicationsByName) {
  EXPECT_EQ(applicationLines(_registry, std::nullopt),
            "APPMON,APM,NODP,g,0\nHOSTMON,HMN,SOCK,load disk,0\n");
  EXPECT_EQ(applicationLines(_registry, "HOSTMON"), "HOSTMON,HMN,SOCK,load disk,0\n");
}

TEST_F(CatalogueTest, CountsTheSourcesThatAreOnLine) {
  goOnline({"HOSTMON", "load", "host1"});
  goOnline({"HOSTMON", "disk", "host1"});
  goOnline({"HOSTMON", "load", "host2"});
  testkit::goOffline(_registry, 2);
  EXPECT_EQ(applicationLines(_registry, "HOSTMON"), "HOSTMON,HMN,SOCK,load disk,2\n");
  EXPECT_EQ(applicationLines(_registry, "APPMON"), "APPMON,APM,NODP,g,0\n");
}

TEST_F(CatalogueTest, ListsAttributesInTheOrderOfTheirRegistration) {
  EXPECT_EQ(attributeLines(_registry, "HOSTMON"),
            "load,load1,D,16,one  minute\nload,processes,N,4,\ndisk,name,T,32,its name\n");
}

TEST_F(CatalogueTest, GivesTheHelpAsItWasRegistered) {
  EXPECT_EQ(helpText(_registry, "HOSTMON"), "Watches\nhosts");
  EXPECT_EQ(helpText(_registry, "APPMON"), "");
}

TEST_F(CatalogueTest, SaysNothingOfUnknownApplications) {
  for (const char* name : {"NONE", "", "HOSTMON "}) {
    EXPECT_EQ(applicationLines(_registry, name), "");
    EXPECT_EQ(attributeLines(_registry, name), "");
    EXPECT_EQ(helpText(_registry, name), "");
  }
  EXPECT_EQ(applicationLines(Registry(), std::nullopt), "");
}

TEST_F(CatalogueTest, ForgetsWhatIsUnregisteredAlsoWhenItHadSources) {
  goOnline({"HOSTMON", "load", "host1"});
  testkit::unregister(_registry, "HOSTMON");
  EXPECT_EQ(applicationLines(_registry, std::nullopt), "APPMON,APM,NODP,g,0\n");
  EXPECT_EQ(attributeLines(_registry, "HOSTMON"), "");
}

TEST_F(CatalogueTest, TellsTheLatestRegistration) {
  registerText("appl:HOSTMON,NEW;group:n;attr:b,I,2;");
  EXPECT_EQ(applicationLines(_registry, "HOSTMON"), "HOSTMON,NEW,NODP,n,0\n");
  EXPECT_EQ(attributeLines(_registry, "HOSTMON"), "n,b,I,2,\n");
}

TEST_F(CatalogueTest, CutsALongTextAtALineEndAndSaysSo) {
  const std::string first = "APPMON,APM,NODP,g,0\n", second = "HOSTMON,HMN,SOCK,load disk,0\n";
  const std::string all = first + second, cut = first + "#truncated\n";
  EXPECT_EQ(applicationLines(_registry, std::nullopt, all.size()), all);
  EXPECT_EQ(applicationLines(_registry, std::nullopt, all.size() - 1), cut);
  EXPECT_EQ(applicationLines(_registry, std::nullopt, cut.size()), cut);
  EXPECT_EQ(applicationLines(_registry, std::nullopt, cut.size() - 1), "#truncated\n");
}

TEST_F(CatalogueTest, MakesNoTextAgainWhileNothingChanges) {
  Catalogue catalogue(_registry);
  const char* const applications = catalogue.allApplications().data();
  const char* const attributes = catalogue.attributes("HOSTMON").data();
  EXPECT_EQ(catalogue.allApplications().data(), applications);
  EXPECT_EQ(catalogue.attributes("HOSTMON").data(), attributes);
  EXPECT_EQ(catalogue.allApplications(), applicationLines(_registry, std::nullopt));
  EXPECT_EQ(catalogue.attributes("HOSTMON"), attributeLines(_registry, "HOSTMON"));
}

TEST_F(CatalogueTest, TellsEachChangeInTheNextText) {
  Catalogue catalogue(_registry);
  const auto expectTheNewest = [&](const std::string& what) {
    EXPECT_EQ(catalogue.allApplications(), applicationLines(_registry, std::nullopt)) << what;
    for (const char* name : {"HOSTMON", "APPMON", "OTHER", "NONE"})
      EXPECT_EQ(catalogue.attributes(name), attributeLines(_registry, name)) << what;
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
  Catalogue catalogue(_registry);
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

}  // namespace
}  // namespace dch
