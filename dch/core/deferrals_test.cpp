#include "dch/core/deferrals.h"

#include <gtest/gtest.h>

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
  Counters counters;
  Deferrals deferrals(counters, 2);
  for (const ZORA_Long id : {1, 2, 3}) {
    Deferral deferral = sample;
    deferral.actionId = id;
    deferrals.add({deferral});
    EXPECT_EQ(counters[Counter::deferralsForgotten], id < 3 ? 0u : 1u);
  }
  ASSERT_EQ(deferrals.kept().size(), 2u);
  EXPECT_EQ(deferrals.kept().front().actionId, 2);
  EXPECT_EQ(deferrals.kept().back().actionId, 3);
}

}  // namespace
}  // namespace dch
