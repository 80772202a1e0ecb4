// The consumers' exported functions when a lock cannot be had or given back.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <vector>

#include "tests/support/failing_calls.h"
#include "tests/support/leaks_on_purpose.h"
#include "tests/support/scripted_dch.h"
#include "tests/support/trace_capture.h"
#include "zordchcl/DCHclient.h"
#include "zordchcl/locks.h"
#include "zordchcl/test_client.h"

// Locks that are destroyed, or not locked, are used on purpose here.
extern "C" const char* __tsan_default_suppressions();
extern "C" const char* __tsan_default_suppressions() {
  return "mutex:ZORA_GetLock\nmutex:ZORA_ReleaseLock\n";
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class FailingLocks : public testing::Test {
 protected:
  FailingLocks() : dch(never()) { DCH_api_init(); }

  static FailingCall failing(SystemCall call, const pthread_mutex_t& lock) {
    return FailingCall({call, &lock}, EINVAL);
  }

  const ScriptedDch dch;
};

TEST_F(FailingLocks, ASubscriptionWithoutItsLockGivesNoHandle) {
  expectTrace("dc_waitOnDataInitialize", [] {
    const FailingCall noLock = failing(SystemCall::lockMutex, zordchcl::_dc_waitOnDataLock);
    EXPECT_EQ(dc_waitOnDataInitialize("HOSTMON", "load"), nullptr);
    return Lines{entryLine(), errorLine("Error: unable to acquire dc_waitOnDataLock\n")};
  });
  EXPECT_THAT(dch.requests(), IsEmpty());
}

TEST_F(FailingLocks, ASubscriptionThatCannotGiveItsLockBackGivesNoHandle) {
  const LeaksOnPurpose leaks;
  expectTrace("dc_waitOnDataInitialize", [] {
    const FailingCall noUnlock = failing(SystemCall::unlockMutex, zordchcl::_dc_waitOnDataLock);
    EXPECT_EQ(dc_waitOnDataInitialize("HOSTMON", "load"), nullptr);
    return Lines{entryLine(), storageLine("Allocated client_waitOnData @{address}\n")};
  });
  EXPECT_THAT(dch.waitForRequests(7), SizeIs(7)) << "the request itself was sent each time";
}

TEST_F(FailingLocks, ASubscriptionDoesNotUseTheCancelLock) {
  void* handle = nullptr;
  {
    const FailingCall noLock = failing(SystemCall::lockMutex, zordchcl::_dc_waitOnDataCancelLock);
    handle = dc_waitOnDataInitialize("HOSTMON", "load");
  }
  EXPECT_NE(handle, nullptr);
  EXPECT_EQ(dc_waitOnDataDestroy(handle), 0);
}

TEST_F(FailingLocks, ACancelWithoutItsLockFailsSilently) {
  void* const handle = dc_waitOnDataInitialize("HOSTMON", "load");
  expectTrace("dc_waitOnDataCancel", [&] {
    const FailingCall noLock = failing(SystemCall::lockMutex, zordchcl::_dc_waitOnDataCancelLock);
    EXPECT_EQ(dc_waitOnDataCancel(handle), 1);
    return Lines{entryLine(), exitLine(1)};
  });
  EXPECT_EQ(static_cast<DCHclient*>(handle)->_clientError, 0);
  EXPECT_EQ(dc_waitOnDataDestroy(handle), 0);
}

TEST_F(FailingLocks, ACancelThatCannotGiveItsLockBackFailsAfterItsWork) {
  void* const handle = dc_waitOnDataInitialize("HOSTMON", "load");
  {
    const FailingCall noUnlock =
        failing(SystemCall::unlockMutex, zordchcl::_dc_waitOnDataCancelLock);
    EXPECT_EQ(dc_waitOnDataCancel(handle), 1);
  }
  char buffer[64];
  EXPECT_EQ(dc_waitOnData(handle, buffer, sizeof buffer), -1) << "the signal was sent";
  EXPECT_EQ(dc_waitOnDataDestroy(handle), -1);
}

TEST_F(FailingLocks, ADestroyWithoutItsLockLeavesTheHandleAlive) {
  void* const handle = dc_waitOnDataInitialize("HOSTMON", "load");
  dch.waitForRequests(1);
  expectTrace("dc_waitOnDataDestroy", [&] {
    const FailingCall noLock = failing(SystemCall::lockMutex, zordchcl::_dc_waitOnDataCancelLock);
    EXPECT_EQ(dc_waitOnDataDestroy(handle), 1);
    return Lines{entryLine(), exitLine(1)};
  });
  EXPECT_THAT(dch.requests(), SizeIs(1)) << "nothing was sent";
  EXPECT_EQ(dc_waitOnDataDestroy(handle), 0);
}

TEST_F(FailingLocks, ADestroyThatCannotGiveItsLockBackFailsAfterItsWork) {
  expectTrace("dc_waitOnDataDestroy", [&] {
    void* const handle = dc_waitOnDataInitialize("HOSTMON", "load");
    const FailingCall noUnlock =
        failing(SystemCall::unlockMutex, zordchcl::_dc_waitOnDataCancelLock);
    EXPECT_EQ(dc_waitOnDataDestroy(handle), 1);
    return Lines{entryLine(), storageLine("Deleting DCHclient object @{address}\n"), exitLine(1)};
  });
}

TEST_F(FailingLocks, NullHandlesGiveTheirLocksBack) {
  EXPECT_EQ(dc_waitOnDataCancel(nullptr), 1);
  EXPECT_EQ(dc_waitOnDataDestroy(nullptr), 1);
  ASSERT_EQ(pthread_mutex_trylock(&zordchcl::_dc_waitOnDataCancelLock), 0);
  EXPECT_EQ(pthread_mutex_unlock(&zordchcl::_dc_waitOnDataCancelLock), 0);
}

TEST_F(FailingLocks, AFailedSubscriptionGivesItsLockBack) {
  EXPECT_EQ(dc_waitOnDataInitialize(nullptr, nullptr), nullptr);
  ASSERT_EQ(pthread_mutex_trylock(&zordchcl::_dc_waitOnDataLock), 0);
  EXPECT_EQ(pthread_mutex_unlock(&zordchcl::_dc_waitOnDataLock), 0);
}

TEST_F(FailingLocks, AWaitNeedsNoLock) {
  void* const handle = dc_waitOnDataInitialize("HOSTMON", "load");
  dch.waitForRequests(1);
  dch.push(statusAnswer(0));
  char buffer[64];
  for (pthread_mutex_t* lock : {&zordchcl::_dc_waitOnDataLock, &zordchcl::_dc_waitOnDataCancelLock})
    ASSERT_EQ(pthread_mutex_lock(lock), 0);
  EXPECT_EQ(dc_waitOnData(handle, buffer, sizeof buffer), 0);
  for (pthread_mutex_t* lock : {&zordchcl::_dc_waitOnDataLock, &zordchcl::_dc_waitOnDataCancelLock})
    ASSERT_EQ(pthread_mutex_unlock(lock), 0);
  EXPECT_EQ(dc_waitOnDataDestroy(handle), 0);
}

// The locks themselves, ended. A failed lock counts by errno, which the lock call does not set.
TEST_F(FailingLocks, AfterTheLibrarysEndNothingIsSubscribedAnyMore) {
  void* const handle = dc_waitOnDataInitialize("HOSTMON", "load");
  DCH_api_destroy();
  DCH_api_init();  // does not bring the locks back
  const TraceCapture trace("0x80");
  errno = EINVAL;
  EXPECT_EQ(dc_waitOnDataInitialize("HOSTMON", "load"), nullptr);
  EXPECT_THAT(trace.textsOf("dc_waitOnDataInitialize"),
              ElementsAre("Error: unable to acquire dc_waitOnDataLock\n"));
  EXPECT_THAT(trace.textsOf("ZORA_GetLock"),
              ElementsAre(testing::StartsWith("Error: pthread_mutex_lock failed, rc=22 errno=")));
  errno = EINVAL;
  EXPECT_EQ(dc_waitOnDataCancel(handle), 1);
  errno = EINVAL;
  EXPECT_EQ(dc_waitOnDataDestroy(handle), 1);
  EXPECT_EQ(static_cast<DCHclient*>(handle)->_clientError, 0) << "it is still alive";
  delete static_cast<DCHclient*>(handle);
}

}  // namespace
