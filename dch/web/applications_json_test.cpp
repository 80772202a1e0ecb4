#include "dch/web/applications_json.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "dch/clock.h"
#include "dch/core/site_report.h"
#include "dch/testkit/web_rows.h"
#include "dch/web/moment.h"
#include "dch/web/state_json.h"
#include "zordchcl/messages.h"

namespace dch {
namespace {

using Parsed = nlohmann::ordered_json;

std::shared_ptr<const suite::Registration> registered(const std::string& text) {
  suite::Registration registration;
  std::string error;
  EXPECT_TRUE(suite::parseRegistration(text, &registration, &error)) << error;
  return std::make_shared<const suite::Registration>(std::move(registration));
}

TEST(ApplicationsJson, IsEmptyWithoutApplications) {
  EXPECT_EQ(R"({"applications":[]})", applicationsJson({}));
}

TEST(ApplicationsJson, TellsWhatIsRegisteredWithItsSources) {
  Snapshot snapshot;
  snapshot.applications = std::make_shared<Snapshot::Applications>(Snapshot::Applications{
      registered("appl:DEMO,DMO;group:load;attr:load1,G,4,one minute;attr:note,T,20;group:other;"
                 "attr:a,L,4;")});
  snapshot.sources.push_back({.application = "DEMO",
                              .group = "load",
                              .name = "web1",
                              .handle = 4,
                              .isOnline = true,
                              .rowTime = 1'769'903'999'123'456,
                              .message = testkit::loadRow(4, 17, "quiet")});
  snapshot.sources.push_back(
      {.application = "DEMO", .group = "load", .name = "<b>\xFF", .handle = 5, .message = {}});
  const Parsed json = Parsed::parse(applicationsJson(snapshot));
  const Parsed expected = Parsed::parse(R"({"applications": [{
    "name": "DEMO", "key": "DMO", "type": "NODP", "help": "",
    "groups": [
      {"name": "load",
       "attributes": [{"name": "load1", "letter": "G", "size": 4, "help": "one minute"},
                      {"name": "note", "letter": "T", "size": 20, "help": ""}],
       "sources": [{"name": "web1", "handle": 4, "online": true,
                    "last_row": "2026-01-31T23:59:59.123456Z",
                    "values": {"load1": 17, "note": "quiet"}},
                   {"name": "0x3c623eff", "handle": 5, "online": false, "last_row": null,
                    "values": {}}]},
      {"name": "other", "attributes": [{"name": "a", "letter": "L", "size": 4, "help": ""}],
       "sources": []}]}]})");
  EXPECT_EQ(expected, json);
}

TEST(StateJson, TellsTheTableAndHowRequestsWereAnswered) {
  Counters counters;
  counters.add(Counter::rowsKept, 5);
  counters.set(Counter::sources, 2);
  Figures figures;
  figures.deferrals = 3;
  figures.requests.add(requestTypeOf(DCH_REQUEST_DATA), DCH_STATUS_UNKNOWN_HANDLE);
  const Parsed json = Parsed::parse(stateJson({"4.1.0", 0, "/a/b.db"}, counters, figures, {}));
  EXPECT_EQ("4.1.0", json["version"]);
  EXPECT_EQ("1970-01-01T00:00:00.000000Z", json["started"]);
  EXPECT_EQ("/a/b.db", json["state"]);
  EXPECT_EQ(5, json["counters"]["rows_kept"]);
  EXPECT_FALSE(json["counters"].contains("sources"));
  EXPECT_EQ(2, json["gauges"]["sources"]);
  EXPECT_EQ(3, json["deferrals"]);
  EXPECT_EQ(Parsed::parse(R"([{"request": "data", "code": 4144, "status": 104,
                               "text": "unknown handle", "count": 1}])"),
            json["requests"]);
  for (const CounterDescription& each : counterDescriptions)
    EXPECT_EQ(each.help, json["help"][each.name]);
  EXPECT_EQ(Parsed::array(), json["sites"]);
  EXPECT_EQ(0, json["sites_left_out"]);
}

TEST(StateJson, TellsTheOtherSites) {
  const std::vector<SiteState> sites = {
      {.name = "east", .isReachable = true, .version = "4.1.0", .behind = 7, .uncollected = 2},
      {.name = "n\xFF", .isReachable = true, .isStopping = true},
      {.name = "west", .since = std::chrono::steady_clock::now(), .version = "4.1.0", .behind = 0}};
  Parsed json = Parsed::parse(stateJson({}, Counters(), Figures(), sites))["sites"];
  for (Parsed& each : json) EXPECT_TRUE(parseMoment(each["since"].get<std::string>(), 0));
  EXPECT_NEAR(static_cast<double>(*parseMoment(json[0]["since"].get<std::string>(), 0)),
              static_cast<double>(now()), 60e6);
  for (Parsed& each : json) each.erase("since");
  EXPECT_EQ(Parsed::parse(R"([
      {"site": "west", "state": "silent", "changes_behind": 0, "changes_uncollected": null,
       "version": "4.1.0"},
      {"site": "east", "state": "here", "changes_behind": 7, "changes_uncollected": 2,
       "version": "4.1.0"},
      {"site": "0x6eff", "state": "stopping", "changes_behind": null, "changes_uncollected": null,
       "version": ""}])"),
            json);
}

TEST(StateJson, LeavesOutSitesThatMatterLess) {
  std::vector<SiteState> sites;
  for (int number = 0; number < 1'000; ++number)
    sites.push_back({.name = std::to_string(number), .isReachable = number != 777});
  const Parsed json = Parsed::parse(stateJson({}, Counters(), Figures(), sites));
  EXPECT_EQ(mostSitesTold, json["sites"].size());
  EXPECT_EQ("777", json["sites"][0]["site"]);
  EXPECT_EQ(1'000 - mostSitesTold, json["sites_left_out"]);
}

}  // namespace
}  // namespace dch
