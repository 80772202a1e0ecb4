// fault_plan.h: one call of the code under test that is to fail: the Nth of its kind. For programs
// that link zord410_test_faults, whose linker options put wrappers before the real functions.
//
// Only calls of a thread that is UnderTest count and fail, in this process and in those that it
// forks: a test's own calls, in other threads and outside, are made as ever.
#ifndef TESTS_SUPPORT_FAULT_PLAN_H
#define TESTS_SUPPORT_FAULT_PLAN_H

#include <pthread.h>

#include <string>

// `memory` stands for new in all its forms, malloc and calloc.
enum class SystemCall {
  memory,
  getEnvironment,
  lockMutex,
  unlockMutex,
  waitCondition,
  timedWaitCondition,
  signalCondition,
  createThread,
  openSocket,
  bindSocket,
  listenOnSocket,
  acceptConnection,
  select,
  sendTo,
  send,
  receiveFrom,
  fork,
  execute,
  spawn,
  rename,
  synchronize
};
constexpr int systemCallCount = static_cast<int>(SystemCall::synchronize) + 1;

const char* nameOf(SystemCall call);

struct Fault {
  SystemCall call;
  int number;      // which call of that kind fails, from 1
  int error;       // the error number that the call reports
  int errnoAfter;  // errno after it: a pthread function reports its error without setting errno
};

// "the 2nd sendto, errno 105 (No buffer space available)" for messages of tests.
std::string describe(const Fault& fault);

// Plans one fault, or none, and starts to count anew. Not while a thread is under test.
void planFault(const Fault& fault);
void planNoFault();

// What happened since, in this process and those forked from it.
bool faultHappened();
int callsMade(SystemCall call);

// Mutexes that this process has locked and not unlocked, whoever locked them.
int mutexesHeld();

// The calling thread is under test while it lives. It can be nested.
class UnderTest {
 public:
  UnderTest();
  ~UnderTest();
  UnderTest(const UnderTest&) = delete;
  UnderTest& operator=(const UnderTest&) = delete;
};

// ---- For the wrappers ------------------------------------------------------------------------

// Whether the calling thread is under test.
bool isUnderTest();

// Counts a call of a thread under test; whether it is the one to fail. Sets errno then.
bool isToFail(SystemCall call);

// What the planned fault fails, and the error that it reports.
SystemCall plannedCall();
int plannedError();

// Keeps count of the mutexes held.
void countLocked();
void countUnlocked();

// Locks the mutex when a fault kept the calling thread from it and was not noticed: what waits on
// it must hold it.
void lockIfRefused(pthread_mutex_t* mutex);

#endif  // TESTS_SUPPORT_FAULT_PLAN_H
