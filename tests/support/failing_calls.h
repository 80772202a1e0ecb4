// failing_calls.h: makes every system call of one kind fail, of the library's threads and mutexes
// and forks, and counts them. For programs that link zord410_test_failing_calls, whose linker
// options put these wrappers before the real functions. A single call fails by fault_plan.h.
#ifndef TESTS_SUPPORT_FAILING_CALLS_H
#define TESTS_SUPPORT_FAILING_CALLS_H

#include "tests/support/fault_plan.h"

// While it lives, one call fails. One at a time.
class FailingCall {
 public:
  // Every `call` on the mutex or condition `object` (null: on any) answers `result` with errno
  // `systemError`, without being made; but an unlock is made, so that the mutex can be destroyed.
  FailingCall(SystemCall call, const void* object, int result, int systemError);
  ~FailingCall();
  FailingCall(const FailingCall&) = delete;
  FailingCall& operator=(const FailingCall&) = delete;
};

// Counts the calls of one kind on one mutex or condition while it lives, whether they fail or not.
// One at a time.
class CallCounter {
 public:
  CallCounter(SystemCall call, const void* object);
  ~CallCounter();
  CallCounter(const CallCounter&) = delete;
  CallCounter& operator=(const CallCounter&) = delete;

  int count() const;
};

#endif  // TESTS_SUPPORT_FAILING_CALLS_H
