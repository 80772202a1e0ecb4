#include <gtest/gtest.h>
#include <pthread.h>

#include <cerrno>
#include <cstdlib>
#include <functional>
#include <thread>

#include "tests/support/failing_calls.h"
#include "tests/support/trace_capture.h"
#include "tests/support/trace_lines.h"
#include "zora/zora.h"

namespace {

constexpr int someError = 4711;

char caller;
void* const tag = &caller;
pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;

// Whether another thread finds the mutex taken.
bool isTaken() {
  bool taken = false;
  std::thread([&] {
    taken = pthread_mutex_trylock(&mutex) == EBUSY;
    if (!taken) pthread_mutex_unlock(&mutex);
  }).join();
  return taken;
}

int getLockFailing(int code, int systemError) {
  const FailingCall failing({SystemCall::lockMutex, &mutex}, code, systemError);
  return ZORA_GetLock(&mutex, tag);
}

int releaseLockFailing(int code, int systemError) {
  pthread_mutex_lock(&mutex);
  const FailingCall failing({SystemCall::unlockMutex, &mutex}, code, systemError);
  return ZORA_ReleaseLock(&mutex, tag);
}

TEST(Locks, AreTakenAndReleased) {
  EXPECT_EQ(ZORA_GetLock(&mutex, tag), 0);
  EXPECT_TRUE(isTaken());
  EXPECT_EQ(ZORA_ReleaseLock(&mutex, tag), 0);
  EXPECT_FALSE(isTaken());
}

TEST(Locks, KeepThreadsApart) {
  constexpr int rounds = 10000;
  int counter = 0;
  const auto count = [&] {
    for (int i = 0; i < rounds; ++i) {
      ZORA_GetLock(&mutex, tag);
      ++counter;
      ZORA_ReleaseLock(&mutex, tag);
    }
  };
  std::thread first(count);
  std::thread second(count);
  first.join();
  second.join();
  EXPECT_EQ(counter, 2 * rounds);
}

TEST(Locks, AreSilentUnlessAskedTwice) {
  const TraceCapture trace;
  ZORA_GetLock(&mutex, tag);
  ZORA_ReleaseLock(&mutex, tag);
  EXPECT_TRUE(trace.textsOf("ZORA_GetLock").empty());
  EXPECT_TRUE(trace.textsOf("ZORA_ReleaseLock").empty());
}

TEST(Locks, AreSilentAtTheDebugLevelToo) {
  setenv("ZORA_VERBOSE", "D", 1);
  ASSERT_EQ(VX_Debug(), 2);
  const TraceCapture trace;
  ZORA_GetLock(&mutex, tag);
  ZORA_ReleaseLock(&mutex, tag);
  EXPECT_TRUE(trace.texts().empty());
}

TEST(Locks, ShowTheirCallsAtTheVerboseLevel) {
  setenv("ZORA_VERBOSE", "Y", 1);
  expectTrace("ZORA_GetLock", [] {
    ZORA_GetLock(&mutex, tag);
    pthread_mutex_unlock(&mutex);
    return std::vector{entryLine(), exitLine(0)};
  });
  expectTrace("ZORA_ReleaseLock", [] {
    pthread_mutex_lock(&mutex);
    ZORA_ReleaseLock(&mutex, tag);
    return std::vector{entryLine(), exitLine(0)};
  });
}

TEST(Locks, DoNotReadTheVerboseLevelForNothing) {
  setenv("ZORA_VERBOSE", "Y", 1);
  const TraceCapture trace("0xff,zora/*=0xbf");
  ZORA_GetLock(&mutex, tag);
  ZORA_ReleaseLock(&mutex, tag);
  EXPECT_TRUE(trace.texts().empty());
}

TEST(GetLock, RefusesANullLockAndNamesTheCaller) {
  expectTrace("ZORA_GetLock", [] {
    EXPECT_EQ(ZORA_GetLock(nullptr, tag), -1);
    return std::vector{
        errorLine(textOf("Error: pthread_mutex_lock failed, lock parameter is NULL [@%p]\n", tag))};
  });
}

TEST(ReleaseLock, RefusesANullLockAndNamesTheCaller) {
  expectTrace("ZORA_ReleaseLock", [] {
    EXPECT_EQ(ZORA_ReleaseLock(nullptr, tag), -1);
    return std::vector{errorLine(
        textOf("Error: pthread_mutex_unlock failed, lock parameter is NULL [@%p]\n", tag))};
  });
}

TEST(GetLock, ReportsTheCodeButAnswersErrno) {
  expectTrace("ZORA_GetLock", [] {
    EXPECT_EQ(getLockFailing(EINVAL, someError), someError);
    return std::vector{errorLine(
        textOf("Error: pthread_mutex_lock failed, rc=%d errno=4711 [@%p]\n", EINVAL, tag))};
  });
}

TEST(ReleaseLock, ReportsTheCodeButAnswersErrno) {
  expectTrace("ZORA_ReleaseLock", [] {
    EXPECT_EQ(releaseLockFailing(EPERM, someError), someError);
    return std::vector{errorLine(
        textOf("Error: pthread_mutex_unlock failed, rc=%d errno=4711 [@%p]\n", EPERM, tag))};
  });
}

TEST(Locks, AnswerZeroForAFailureThatLeavesErrnoAtZero) {
  const TraceCapture trace("0x80");
  EXPECT_EQ(getLockFailing(EINVAL, 0), 0);
  EXPECT_EQ(releaseLockFailing(EPERM, 0), 0);
  EXPECT_TRUE(
      trace.has(textOf("Error: pthread_mutex_lock failed, rc=%d errno=0 [@%p]\n", EINVAL, tag)));
  EXPECT_TRUE(
      trace.has(textOf("Error: pthread_mutex_unlock failed, rc=%d errno=0 [@%p]\n", EPERM, tag)));
}

TEST(Locks, ShowTheErrorBetweenEntryAndExit) {
  setenv("ZORA_VERBOSE", "Yes", 1);
  expectTrace("ZORA_GetLock", [] {
    ZORA_GetLock(nullptr, nullptr);
    return std::vector{
        entryLine(),
        errorLine("Error: pthread_mutex_lock failed, lock parameter is NULL [@(nil)]\n"),
        exitLine(-1)};
  });
  expectTrace("ZORA_ReleaseLock", [] {
    releaseLockFailing(EPERM, someError);
    return std::vector{
        entryLine(),
        errorLine(
            textOf("Error: pthread_mutex_unlock failed, rc=%d errno=4711 [@%p]\n", EPERM, tag)),
        exitLine(someError)};
  });
}

TEST(Locks, TraceAsTheUtilities) {
  const TraceCapture trace("0x80");
  ZORA_GetLock(nullptr, tag);
  ASSERT_EQ(trace.records().size(), 1u);
  EXPECT_EQ(trace.records()[0].unit, "zora");
  EXPECT_EQ(trace.records()[0].component, "ZORA410");
}

TEST(EnvVarsInitLock, IsOneReadyMutexForTheProcess) {
  const TraceCapture trace;
  void* const lock = ZORA_GetEnvVarsInitLock();
  EXPECT_EQ(ZORA_GetEnvVarsInitLock(), lock);
  auto* const initLock = static_cast<pthread_mutex_t*>(lock);
  EXPECT_EQ(pthread_mutex_trylock(initLock), 0);
  EXPECT_EQ(ZORA_ReleaseLock(lock, tag), 0);
  EXPECT_EQ(ZORA_GetLock(lock, tag), 0);
  EXPECT_EQ(pthread_mutex_unlock(initLock), 0);
  EXPECT_TRUE(trace.textsOf("ZORA_GetEnvVarsInitLock").empty());
}

}  // namespace
