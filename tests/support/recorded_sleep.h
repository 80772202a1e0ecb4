// recorded_sleep.h: what stands in for OSV1_Sleep in a test that is built with RECORDS_SLEEPS. It
// returns at once and keeps what was asked for.
#ifndef TESTS_SUPPORT_RECORDED_SLEEP_H
#define TESTS_SUPPORT_RECORDED_SLEEP_H

#include <vector>

// The seconds of every sleep so far, of all threads, in order.
std::vector<int> recordedSleeps();

// Forgets them.
void clearRecordedSleeps();

#endif  // TESTS_SUPPORT_RECORDED_SLEEP_H
