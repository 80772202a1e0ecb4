#include "dch/web/metrics_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "dch/core/requests.h"
#include "dch/testkit/web_rows.h"
#include "zordchcl/messages.h"

namespace dch {
namespace {

using testing::HasSubstr;
using testing::Not;

TEST(MetricsForm, IsOpenMetricsWhereItDoesNotMatter) {
  for (const char* each :
       {"", "*/*", "application/openmetrics-text", "application/*", "application/json",
        "application/openmetrics-text;version=1.0.0,application/openmetrics-text;version=0.0.1;q="
        "0.75,text/plain;version=0.0.4;q=0.5,*/*;q=0.1"})
    EXPECT_EQ(MetricsForm::openMetrics, metricsFormFor(each)) << each;
}

TEST(MetricsForm, IsTextForThoseWhoPreferIt) {
  for (const char* each :
       {"text/plain", "text/plain;version=0.0.4", "text/*", "text/plain;q=0.5, */*;q=0.1",
        "application/openmetrics-text;q=0.2, text/plain;q=0.9",
        "text/html,application/xhtml+xml,application/xml;q=0.9,*/*;q=0.8"})
    EXPECT_EQ(MetricsForm::text, metricsFormFor(each)) << each;
}

class MetricsTextTest : public testing::Test {
 protected:
  std::string text(MetricsForm form) {
    return metricsText(form, _counters, _figures, _snapshot, _sites);
  }

  Snapshot::SourceState& addSource(const std::string& name, std::string message) {
    Snapshot::SourceState& source = _snapshot.sources.emplace_back();
    source.application = "DEMO";
    source.group = "load";
    source.name = name;
    source.isOnline = true;
    source.rowTime = 1'769'903'999'123'456;
    source.message = std::move(message);
    return source;
  }

  Counters _counters;
  Figures _figures;
  Snapshot _snapshot;
  std::vector<SiteState> _sites;
};

TEST_F(MetricsTextTest, TellsCountersAndGauges) {
  _counters.add(Counter::rowsKept, 17);
  _counters.set(Counter::sources, 3);
  const std::string open = text(MetricsForm::openMetrics);
  EXPECT_THAT(open, HasSubstr("# TYPE zordchd_rows_kept counter\nzordchd_rows_kept_total 17\n"));
  EXPECT_THAT(open, HasSubstr("# TYPE zordchd_sources gauge\nzordchd_sources 3\n"));
  EXPECT_TRUE(open.ends_with("# EOF\n"));
  const std::string older = text(MetricsForm::text);
  EXPECT_THAT(older,
              HasSubstr("# TYPE zordchd_rows_kept_total counter\nzordchd_rows_kept_total 17\n"));
  EXPECT_THAT(older, Not(HasSubstr("EOF")));
}

TEST_F(MetricsTextTest, TellsTimesInSeconds) {
  _counters.set(Counter::writeMicroseconds, 12'000'345);
  EXPECT_THAT(text(MetricsForm::text), HasSubstr("\nzordchd_write_seconds_total 12.000345\n"));
}

TEST_F(MetricsTextTest, TellsRequestsByWhatTheyWereAnswered) {
  _figures.requests.add(requestTypeOf(DCH_REQUEST_DATA), DCH_STATUS_UNKNOWN_HANDLE);
  const std::string metrics = text(MetricsForm::text);
  EXPECT_THAT(metrics, HasSubstr("{request=\"data\",status=\"0\"} 0\n"));
  EXPECT_THAT(metrics, HasSubstr("{request=\"data\",status=\"104\"} 1\n"));
  EXPECT_THAT(metrics, Not(HasSubstr("status=\"100\"")));
}

TEST_F(MetricsTextTest, TellsTheNewestNumbersOfSourcesOnLine) {
  addSource("web1", testkit::loadRow(4, 17, "quiet"));
  addSource("offline1", testkit::loadRow(5, 25, "")).isOnline = false;
  const std::string metrics = text(MetricsForm::text);
  EXPECT_THAT(metrics, HasSubstr("\nzord_value{application=\"DEMO\",group=\"load\",source=\"web1\","
                                 "attribute=\"load1\"} 17\n"));
  EXPECT_THAT(metrics, HasSubstr("\nzord_row_time_seconds{application=\"DEMO\",group=\"load\","
                                 "source=\"web1\"} 1769903999.123456\n"));
  EXPECT_THAT(metrics, Not(HasSubstr("quiet")));
  EXPECT_THAT(metrics, Not(HasSubstr("offline1")));
}

TEST_F(MetricsTextTest, TellsNumbersThatTheNewestRowDoesNotHave) {
  addSource("web1", testkit::loadRow(4, 17, "quiet")).earlier = {{"load5", -3}};
  const std::string metrics = text(MetricsForm::text);
  EXPECT_THAT(metrics, HasSubstr("source=\"web1\",attribute=\"load1\"} 17\n"));
  EXPECT_THAT(metrics, HasSubstr("source=\"web1\",attribute=\"load5\"} -3\n"));
}

TEST_F(MetricsTextTest, EscapesNames) {
  addSource("a\"b\\c\nd", "");
  addSource("\xFF", "");
  const std::string metrics = text(MetricsForm::openMetrics);
  EXPECT_THAT(metrics, HasSubstr("source=\"a\\\"b\\\\c\\nd\"}"));
  EXPECT_THAT(metrics, HasSubstr("source=\"0xff\"}"));
}

TEST_F(MetricsTextTest, TellsNothingOfSitesWithoutAny) {
  EXPECT_THAT(text(MetricsForm::openMetrics), Not(HasSubstr("zordchd_site")));
}

TEST_F(MetricsTextTest, TellsWhichSitesAreReachableAndHowFarBehind) {
  _sites = {{.name = "east", .isReachable = true, .behind = 12, .uncollected = 3},
            {.name = "memory", .isReachable = true},
            {.name = "north", .behind = 0}};
  EXPECT_THAT(text(MetricsForm::openMetrics),
              HasSubstr("# TYPE zordchd_site_reachable gauge\n"
                        "zordchd_site_reachable{site=\"east\"} 1\n"
                        "zordchd_site_reachable{site=\"memory\"} 1\n"
                        "zordchd_site_reachable{site=\"north\"} 0\n"));
  const std::string metrics = text(MetricsForm::text);
  EXPECT_THAT(metrics, HasSubstr("# TYPE zordchd_site_changes_behind gauge\n"
                                 "zordchd_site_changes_behind{site=\"east\"} 12\n"
                                 "zordchd_site_changes_behind{site=\"north\"} 0\n#"));
  EXPECT_TRUE(
      metrics.ends_with("# TYPE zordchd_site_changes_uncollected gauge\n"
                        "zordchd_site_changes_uncollected{site=\"east\"} 3\n"));
  for (SiteState& each : _sites) each.uncollected.reset();
  EXPECT_THAT(text(MetricsForm::text), Not(HasSubstr("uncollected")));
}

// A scrape with the same sample twice, or a label that ends too early, would be lost as a whole.
TEST_F(MetricsTextTest, NamesOfSitesBreakNoLine) {
  _sites = {{.name = "0xff"}, {.name = "a\"} 1\nb\\"}, {.name = "\xFF", .isReachable = true}};
  EXPECT_TRUE(text(MetricsForm::text)
                  .ends_with(" gauge\n"
                             "zordchd_site_reachable{site=\"0xff\"} 0\n"
                             "zordchd_site_reachable{site=\"a\\\"} 1\\nb\\\\\"} 0\n"));
}

}  // namespace
}  // namespace dch
