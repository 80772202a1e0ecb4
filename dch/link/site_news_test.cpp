#include "dch/link/site_news.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>

namespace dch {
namespace {

using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;

class SiteNewsTest : public testing::Test {
 protected:
  // A second passes.
  std::vector<std::string> look() {
    std::vector<SiteState> sites;
    for (const auto& [name, isReachable] : _sites)
      sites.push_back({.name = name, .isReachable = isReachable, .isStopping = _stopping == name});
    return _news.lines(sites, _now += seconds(1));
  }
  // All that is told in that time.
  std::vector<std::string> lookFor(seconds time) {
    std::vector<std::string> told;
    for (seconds passed{0}; passed < time; ++passed)
      for (std::string& each : look()) told.push_back(std::move(each));
    return told;
  }
  void setAll(int count, bool isReachable) {
    for (int number = 0; number < count; ++number)
      _sites["site" + std::to_string(10'000 + number)] = isReachable;
  }

  std::map<std::string, bool> _sites;  // whether they are reachable
  std::string _stopping;

 private:
  SiteNews _news;
  SiteNews::TimePoint _now{seconds(1'000)};
};

TEST_F(SiteNewsTest, TellsOnceThatASiteIsSilentAndThatItIsBack) {
  _sites = {{"east", true}, {"west", true}};
  EXPECT_THAT(lookFor(seconds(30)), IsEmpty());
  _sites["west"] = false;
  EXPECT_THAT(look(), ElementsAre("site west is silent"));
  EXPECT_THAT(lookFor(seconds(100)), IsEmpty());
  _sites["west"] = true;
  EXPECT_THAT(look(), ElementsAre("site west is heard again"));
  EXPECT_THAT(lookFor(seconds(100)), IsEmpty());
  _sites["west"] = false;
  EXPECT_THAT(look(), ElementsAre("site west is silent"));
}

TEST_F(SiteNewsTest, SaysWhichWereStopped) {
  _stopping = "west";
  _sites = {{"east", false}, {"west", false}};
  EXPECT_THAT(look(), ElementsAre("site east is silent", "site west is silent, as it was stopped"));
}

TEST_F(SiteNewsTest, NamesAFew) {
  _sites = {{"a", false}, {"b", false}};
  EXPECT_THAT(look(), ElementsAre("2 sites are silent: a and b"));
  _sites = {{"c", false}, {"d", false}, {"e", false}};
  EXPECT_THAT(lookFor(seconds(20)), ElementsAre("3 sites are silent: c, d and e"));
  _sites = {{"f", false}, {"g", false}, {"h", false}, {"i", false}};
  EXPECT_THAT(lookFor(seconds(20)), ElementsAre("4 sites are silent: f, g, h and 1 more"));
}

TEST_F(SiteNewsTest, AThousandSitesGiveAFewLines) {
  setAll(1'000, true);
  look();
  for (int number = 0; number < 1'000; number += 100) {
    setAll(number + 100, false);
    look();
  }
  EXPECT_THAT(lookFor(seconds(20)),
              ElementsAre("900 sites are silent: site10100, site10101, site10102 and 897 more"));
  setAll(1'000, true);
  EXPECT_THAT(lookFor(seconds(60)),
              ElementsAre("1000 sites are heard again: site10000, site10001, site10002 and 997 "
                          "more"));
}

TEST_F(SiteNewsTest, SitesThatComeAndGoAllTheTimeFillNoLog) {
  std::size_t told = 0;
  for (int turn = 0; turn < 1'000; ++turn) {
    setAll(1'000, turn % 2 == 0);
    told += look().size();
  }
  EXPECT_GT(told, 0u);
  EXPECT_LE(told, 100u);
}

// What is over when it would be told is not told.
TEST_F(SiteNewsTest, ASiteThatIsBackMeanwhileIsNotTold) {
  _sites = {{"east", false}, {"west", true}};
  EXPECT_THAT(look(), ElementsAre("site east is silent"));
  _sites["west"] = false;
  EXPECT_THAT(look(), IsEmpty());
  _sites["west"] = true;
  EXPECT_THAT(lookFor(seconds(30)), IsEmpty());
}

TEST_F(SiteNewsTest, OfASiteThatWasForgottenNothingIsTold) {
  _sites = {{"west", false}};
  look();
  _sites.clear();
  EXPECT_THAT(lookFor(seconds(30)), IsEmpty());
  _sites = {{"west", true}};
  EXPECT_THAT(lookFor(seconds(30)), IsEmpty());
}

}  // namespace
}  // namespace dch
