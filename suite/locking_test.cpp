// Base services whose locks cannot be had. The exported functions come past them, and none of those
// may throw.
#include "suite/locking.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "suite/names.h"
#include "suite/trc1.h"
#include "tests/support/failing_calls.h"
#include "zora/zora.h"

namespace {

using testing::EndsWith;

constinit TRC1_Unit unit{"zordsock", "ZORD410"};
constinit TRC1_Block block{"function", 8, 1, &unit, {}, {}};

// While it lives, no mutex can be locked.
class NoLocks {
  FailingCall _failing{{SystemCall::lockMutex}, EAGAIN};
};

TEST(Lock, TellsThatItIsNotHeldAndLetsGoOfNothing) {
  std::mutex mutex;
  mutex.lock();
  {
    const NoLocks noLocks;
    const suite::Lock lock(mutex);
    EXPECT_FALSE(lock.isHeld());
  }
  EXPECT_FALSE(mutex.try_lock());
  mutex.unlock();
  {
    const suite::Lock lock(mutex);
    EXPECT_TRUE(lock.isHeld());
    EXPECT_FALSE(mutex.try_lock());
  }
  EXPECT_TRUE(mutex.try_lock());
  mutex.unlock();
}

TEST(TraceWithoutLocks, ShowsErrorsUntilTheRulesCanBeRead) {
  TRC1_Configure("0x10");
  {
    const NoLocks noLocks;
    EXPECT_EQ(TRC1_Sync(&block), 0x80u);
    TRC1_Configure("0x40");
  }
  EXPECT_EQ(TRC1_Sync(&block), 0x10u);
}

TEST(TraceWithoutLocks, WritesRecordsToStandardError) {
  bool isSinkCalled = false;
  TRC1_SetSink([](void* called, const TRC1_Record&) { *static_cast<bool*>(called) = true; },
               &isSinkCalled);
  testing::internal::CaptureStderr();
  {
    const NoLocks noLocks;
    TRC1_Printf(&block, 1, "Error: %d\n", 5);
  }
  TRC1_SetSink(nullptr, nullptr);
  EXPECT_THAT(testing::internal::GetCapturedStderr(), EndsWith(" ZORD410 function:1 Error: 5\n"));
  EXPECT_FALSE(isSinkCalled);
}

TEST(TraceWithoutLocks, LetsTheProcessForkAndTracesInBoth) {
  TRC1_Configure("0x10");
  pid_t child;
  {
    const NoLocks noLocks;
    child = fork();
  }
  const bool traces = TRC1_Sync(&block) == 0x10;
  if (child == 0) _exit(traces ? 0 : 1);
  EXPECT_TRUE(traces);
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

// The resolver needs no network for this form of an address, but it is asked.
TEST(NamesWithoutLocks, AreAskedOfTheResolverEachTime) {
  const NoLocks noLocks;
  for (int i = 0; i < 2; ++i) {
    sockaddr_in address{};
    EXPECT_EQ(ZOR0_ConvertNameToAddr("127.1", 1919, &address), 1);
    EXPECT_EQ(address.sin_addr.s_addr, htonl(INADDR_LOOPBACK));
  }
}

TEST(ExportedFunctionsWithoutLocks, ThrowNothing) {
  const NoLocks noLocks;
  EXPECT_STREQ(ZORA_ComputeChecksumOnAttrGroup(""), "0");
}

}  // namespace
