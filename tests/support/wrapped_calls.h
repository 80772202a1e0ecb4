// wrapped_calls.h: what the wrappers of wrapped_calls.cpp ask failing_calls.cpp.
#ifndef TESTS_SUPPORT_WRAPPED_CALLS_H
#define TESTS_SUPPORT_WRAPPED_CALLS_H

#include <optional>

#include "tests/support/failing_calls.h"

// Counts a call; the error that it is to report when it is to fail. Sets errno then.
std::optional<int> failureOf(SystemCall call, const void* object = nullptr, int socketType = 0);

// The same for a call that fails under test alone.
bool isPlannedToFail(SystemCall call);

// Whether the calling thread is under test, and what the planned fault fails.
bool isUnderTest();
SystemCall plannedCall();

// Keep count of the mutexes held.
void countLocked();
void countUnlocked();

#endif  // TESTS_SUPPORT_WRAPPED_CALLS_H
