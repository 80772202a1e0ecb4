// passing_time.h: what stands in for std::chrono::steady_clock in a test that is built with
// PASSES_TIME: the same clock, which a test can put forward.
#ifndef TESTS_SUPPORT_PASSING_TIME_H
#define TESTS_SUPPORT_PASSING_TIME_H

#include <chrono>

// From now on it is so much later. A wait that has begun does not notice.
void letPass(std::chrono::seconds time);

#endif  // TESTS_SUPPORT_PASSING_TIME_H
