// failing_calls.h: makes system calls of the library fail. For programs that link
// zord410_test_failing_calls, whose linker options put these wrappers before the real functions.
#ifndef TESTS_SUPPORT_FAILING_CALLS_H
#define TESTS_SUPPORT_FAILING_CALLS_H

enum class SystemCall {
  createThread,
  lockMutex,
  unlockMutex,
  waitCondition,
  signalCondition,
  fork
};

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

// How often `call` was made so far, by any thread, whether it failed or not.
int callsMade(SystemCall call);

#endif  // TESTS_SUPPORT_FAILING_CALLS_H
