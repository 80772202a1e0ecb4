#include "dch/core/state_report.h"

#include <gtest/gtest.h>

#include <list>
#include <utility>

namespace dch {
namespace {

TEST(StateReportTest, ShowsTheStartOfADeferralOfGreatLength) {
  Counters counters;
  Deferrals deferrals(counters);
  std::list<Deferral> one(1);
  one.front().actionId = 42;
  one.front().tableName = std::string(8'000, '\x01');
  deferrals.add(std::move(one));
  const std::string report = stateReport(Registry(), deferrals, RequestCounts(), counters);
  EXPECT_NE(report.find("\n  action 42,"), std::string::npos);
  EXPECT_NE(report.find("...\nzordchd: requests\n"), std::string::npos);
  EXPECT_LT(report.size(), 3'000u);
}

TEST(StatusLineTest, AddsUpWhatWasLost) {
  Counters counters;
  counters.set(Counter::applications, 1);
  counters.set(Counter::sourcesOnline, 2);
  counters.add(Counter::rowsKept, 1'234);
  counters.add(Counter::datagramsThrownAway, 1);
  counters.add(Counter::changesNotKept, 10);
  counters.add(Counter::pushesLost, 100);
  EXPECT_EQ(statusLine(counters), "1 application, 2 sources on line, 1234 rows kept, 111 lost");
}

}  // namespace
}  // namespace dch
