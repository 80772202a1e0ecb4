// Status subscriptions that cannot be made: no lock, no memory, no way to send.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>

#include "tests/support/failing_calls.h"
#include "tests/support/scripted_dch.h"
#include "tests/support/trace_capture.h"
#include "zordchcl/locks.h"
#include "zordchcl/test_lines.h"
#include "zordchcl/zordchcl.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using zordchcl::_dc_waitForDPStatusLock;

constexpr char function[] = "dc_waitForDPStatusInitialize";
constexpr char allocated[] = "Allocated client_waitForDPStatus @";

class FailedInitialize : public testing::Test {
 protected:
  FailedInitialize() : dch(never()) { DCH_api_init(); }

  // The lock was given back if the next subscription can be made.
  static void expectAnotherWorks() {
    void* const handle = dc_waitForDPStatusInitialize();
    EXPECT_NE(handle, nullptr);
    EXPECT_EQ(dc_waitForDPStatusDestroy(handle), 0);
  }

  ScriptedDch dch;
};

TEST_F(FailedInitialize, WithoutItsLockSaysAndSendsNothing) {
  expectTrace(function, [] {
    const FailingCall failing({SystemCall::lockMutex, &_dc_waitForDPStatusLock}, EINVAL);
    EXPECT_EQ(dc_waitForDPStatusInitialize(), nullptr);
    return Lines{entryLine()};
  });
  EXPECT_THAT(dch.requests(), IsEmpty());
  expectAnotherWorks();
}

TEST_F(FailedInitialize, NeedsNoOtherLock) {
  for (pthread_mutex_t* other :
       {&zordchcl::_dc_waitOnDataLock, &zordchcl::_dc_waitOnDataCancelLock}) {
    const FailingCall failing({SystemCall::lockMutex, other}, EINVAL);
    expectAnotherWorks();
  }
}

TEST_F(FailedInitialize, OfItsLockReturnsNullAfterSending) {
  const TraceCapture trace;
  {
    const FailingCall failing({SystemCall::unlockMutex, &_dc_waitForDPStatusLock}, EPERM);
    EXPECT_EQ(dc_waitForDPStatusInitialize(), nullptr);
  }
  EXPECT_THAT(dch.waitForRequests(1), SizeIs(1));
  EXPECT_THAT(trace.textsOf(function), ElementsAre("<<Entry>>\n", testing::StartsWith(allocated)));
  EXPECT_THAT(trace.textsOf("DCHclient::~DCHclient"), IsEmpty()) << "the client stays alive";
}

TEST_F(FailedInitialize, WithoutMemorySaysAndSendsNothing) {
  expectTrace(function, [] {
    const NoMemory failing;
    EXPECT_EQ(dc_waitForDPStatusInitialize(), nullptr);
    return Lines{entryLine()};
  });
  EXPECT_THAT(dch.requests(), IsEmpty());
  expectAnotherWorks();
}

TEST_F(FailedInitialize, WaitAndDestroyTakeNoLock) {
  void* const handle = dc_waitForDPStatusInitialize();
  const FailingCall failing({SystemCall::lockMutex, &_dc_waitForDPStatusLock}, EINVAL);
  dch.waitForRequests(1);
  dch.push(statusAnswer(0));
  EXPECT_EQ(dc_waitForDPStatus(handle), nullptr);
  EXPECT_EQ(dc_waitForDPStatusDestroy(handle), 1);
}

// Local procedure calls carry nothing, so that the message cannot be written.
TEST(UnsentInitialize, ReturnsNullAndLeavesTheClientAlive) {
  setenv("ZORA_DCH_IPCTYPE", "2", 1);
  DCH_api_init();
  const TraceCapture trace("0xd2");
  EXPECT_EQ(dc_waitForDPStatusInitialize(), nullptr);
  EXPECT_THAT(trace.textsOf(function), ElementsAre("<<Entry>>\n", testing::StartsWith(allocated)));
  EXPECT_THAT(
      trace.textsOf("DCHclient::dc_waitForDPStatusInitialize"),
      ElementsAre("<<Entry>>\n", "Writing dc_waitForDPStatus message. 22 bytes\n",
                  "Error: writing dc_waitForDPStatus message to DCHserver\n", "<<Exit: 1>>\n"));
  EXPECT_THAT(trace.textsOf("DCHclient::~DCHclient"), IsEmpty());
}

}  // namespace
