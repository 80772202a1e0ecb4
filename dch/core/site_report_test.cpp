#include "dch/core/site_report.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace dch {
namespace {

using std::chrono::seconds;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

const std::chrono::steady_clock::time_point start{seconds(1'000)};

SiteState site(const std::string& name, bool isReachable, std::optional<std::int64_t> behind) {
  return {.name = name,
          .isReachable = isReachable,
          .since = start,
          .version = "1.2.3",
          .behind = behind};
}

std::vector<std::string> namesOf(const std::vector<const SiteState*>& sites) {
  std::vector<std::string> names;
  for (const SiteState* each : sites) names.push_back(each->name);
  return names;
}

TEST(SitesByUrgency, AreSilentThenBehindThenByName) {
  const std::vector<SiteState> sites = {site("b", true, 0),         site("a", true, 0),
                                        site("behind", true, 7),    site("silent", false, 1),
                                        site("silent2", false, 50), site("memory", true, {})};
  EXPECT_THAT(namesOf(sitesByUrgency(sites, 10)),
              ElementsAre("silent2", "silent", "behind", "a", "b", "memory"));
  EXPECT_THAT(namesOf(sitesByUrgency(sites, 3)), ElementsAre("silent2", "silent", "behind"));
  EXPECT_TRUE(sitesByUrgency({}, 3).empty());
}

TEST(SiteReport, HasALineForEachSite) {
  std::vector<SiteState> sites = {site("east", true, 0), site("north", false, 12),
                                  site("west", true, {})};
  sites[0].uncollected = 3;
  sites[2].isStopping = true;
  EXPECT_EQ(siteReport(sites, start + seconds(75)),
            "zordchd: 3 other site(s)\n"
            "  north: silent for 75 s, 12 change(s) behind, version 1.2.3\n"
            "  east: here for 75 s, 0 change(s) behind, 3 not collected, version 1.2.3\n"
            "  west: stopping for 75 s, version 1.2.3\n");
  EXPECT_EQ(siteReport({}, start), "zordchd: 0 other site(s)\n");
}

TEST(SiteReport, NamesForgeNoLines) {
  SiteState hostile = site("a\n  pushed 7", true, 0);
  hostile.version = "\x1b[2J";
  const std::string report = siteReport({hostile}, start);
  EXPECT_THAT(report, HasSubstr("\n  a\\x0a  pushed 7: here"));
  EXPECT_THAT(report, Not(HasSubstr("\x1b")));
}

TEST(SiteReport, IsBounded) {
  std::vector<SiteState> sites;
  for (int number = 0; number < 1'000; ++number)
    sites.push_back(site("site" + std::to_string(number), number != 777, 0));
  const std::string report = siteReport(sites, start);
  EXPECT_EQ(std::count(report.begin(), report.end(), '\n'), 1 + mostSitesTold + 1);
  EXPECT_THAT(report, HasSubstr("1000 other site(s)\n  site777: silent"));
  EXPECT_TRUE(report.ends_with("  and 800 more\n"));
}

}  // namespace
}  // namespace dch
