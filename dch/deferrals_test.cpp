#include "dch/deferrals.h"

#include <gtest/gtest.h>

#include "dch/memory_registry.h"
#include "dch/state_report.h"

namespace dch {
namespace {

const Deferral sample{5, -1, 1700, "HMN", "TABLE", "host1"};

TEST(DeferralsTest, TellOneOnALine) {
  EXPECT_EQ(sample.text(),
            "action 5, reference 0xffffffff, time 1700, key HMN, table TABLE, source host1");
  EXPECT_EQ((Deferral{-1, 0x1234, 0, "", "a\nb", "\x1b"}.text()),
            "action -1, reference 0x00001234, time 0, key , table a\\x0ab, source \\x1b");
}

TEST(DeferralsTest, KeepTheLatestOnes) {
  Deferrals deferrals(2);
  for (const ZORA_Long id : {1, 2, 3}) {
    Deferral deferral = sample;
    deferral.actionId = id;
    deferrals.add(deferral);
  }
  ASSERT_EQ(deferrals.kept().size(), 2u);
  EXPECT_EQ(deferrals.kept().front().actionId, 2);
  EXPECT_EQ(deferrals.kept().back().actionId, 3);
}

TEST(StateReportTest, ShowsApplicationsAndDeferrals) {
  MemoryRegistry registry;
  Deferrals deferrals;
  EXPECT_EQ(stateReport(registry, deferrals),
            "zordchd: 0 application(s)\nzordchd: 0 deferral(s)\n");
  suite::Registration registration;
  std::string error;
  ASSERT_TRUE(
      suite::parseRegistration("appl:HOSTMON,HMN;group:load;attr:a,N,4;", &registration, &error));
  registry.registerApplication(registration);
  ZORA_Long handle;
  registry.goOnline({"HOSTMON", "load", "host1"}, &handle);
  deferrals.add(sample);
  EXPECT_EQ(
      stateReport(registry, deferrals),
      "zordchd: 1 application(s)\n  HOSTMON: 1 source(s) on line\nzordchd: 1 deferral(s)\n  " +
          sample.text() + '\n');
}

}  // namespace
}  // namespace dch
