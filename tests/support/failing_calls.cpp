#include "tests/support/failing_calls.h"

#include <pthread.h>
#include <sys/types.h>

#include <atomic>
#include <cerrno>

namespace {

// Atomic, because threads of a test that have no part in it make such calls all the time.

struct Failure {
  std::atomic<SystemCall> call;
  std::atomic<const void*> object;
  std::atomic<int> result;
  std::atomic<int> systemError;
};

struct Counted {
  std::atomic<SystemCall> call;
  std::atomic<const void*> object;
};

Failure failure;
std::atomic<bool> isFailing{false};
Counted counted;
std::atomic<bool> isCounting{false};
std::atomic<int> callCount{0};

// The mutex that a fault kept from being locked. Code that takes the failure for a success will
// unlock it, which must not be made: nobody may unlock what is not locked.
thread_local const void* refusedMutex = nullptr;

bool fails(SystemCall call, const void* object) {
  if (isCounting.load(std::memory_order_acquire) && counted.call == call &&
      counted.object == object)
    callCount.fetch_add(1);
  if (!isFailing.load(std::memory_order_acquire) || failure.call != call) return false;
  if (failure.object != nullptr && failure.object != object) return false;
  errno = failure.systemError;
  return true;
}

}  // namespace

FailingCall::FailingCall(SystemCall call, const void* object, int result, int systemError) {
  failure.call = call;
  failure.object = object;
  failure.result = result;
  failure.systemError = systemError;
  isFailing.store(true, std::memory_order_release);
}

FailingCall::~FailingCall() {
  isFailing.store(false, std::memory_order_release);
}

CallCounter::CallCounter(SystemCall call, const void* object) {
  counted.call = call;
  counted.object = object;
  callCount = 0;
  isCounting.store(true, std::memory_order_release);
}

CallCounter::~CallCounter() {
  isCounting.store(false, std::memory_order_release);
}

int CallCounter::count() const {
  return callCount;
}

extern "C" {

int __real_pthread_create(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
int __real_pthread_mutex_lock(pthread_mutex_t*);
int __real_pthread_mutex_unlock(pthread_mutex_t*);
int __real_pthread_cond_wait(pthread_cond_t*, pthread_mutex_t*);
int __real_pthread_cond_signal(pthread_cond_t*);
pid_t __real_fork();

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*entry)(void*), void* argument) {
  if (isToFail(SystemCall::createThread)) return plannedError();
  if (fails(SystemCall::createThread, nullptr)) return failure.result;
  return __real_pthread_create(thread, attributes, entry, argument);
}

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
  if (isToFail(SystemCall::lockMutex)) {
    refusedMutex = mutex;
    return plannedError();
  }
  if (fails(SystemCall::lockMutex, mutex)) return failure.result;
  const int result = __real_pthread_mutex_lock(mutex);
  if (result == 0) {
    if (refusedMutex == mutex) refusedMutex = nullptr;
    countLocked();
  }
  return result;
}

int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex) {
  int result = 0;
  if (refusedMutex == mutex) {
    refusedMutex = nullptr;
  } else {
    result = __real_pthread_mutex_unlock(mutex);
    if (result == 0) countUnlocked();
  }
  if (isToFail(SystemCall::unlockMutex)) return plannedError();
  return fails(SystemCall::unlockMutex, mutex) ? failure.result.load() : result;
}

int __wrap_pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex) {
  if (isToFail(SystemCall::waitCondition)) return plannedError();
  if (fails(SystemCall::waitCondition, condition)) return failure.result;
  lockIfRefused(mutex);
  return __real_pthread_cond_wait(condition, mutex);
}

int __wrap_pthread_cond_signal(pthread_cond_t* condition) {
  if (isToFail(SystemCall::signalCondition)) return plannedError();
  if (fails(SystemCall::signalCondition, condition)) return failure.result;
  return __real_pthread_cond_signal(condition);
}

pid_t __wrap_fork() {
  if (isToFail(SystemCall::fork)) return -1;
  if (fails(SystemCall::fork, nullptr)) return failure.result;
  return __real_fork();
}

}  // extern "C"

void lockIfRefused(pthread_mutex_t* mutex) {
  if (refusedMutex != mutex) return;
  refusedMutex = nullptr;
  if (__real_pthread_mutex_lock(mutex) == 0) countLocked();
}
