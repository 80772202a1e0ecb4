#include "dch/core/state_report.h"

#include <gtest/gtest.h>

namespace dch {
namespace {

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
