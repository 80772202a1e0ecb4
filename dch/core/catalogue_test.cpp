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

}  // namespace
}  // namespace dch
