// A pool whose waits run out or fail, whose lock or sockets cannot be had, or that finds no memory.
#include <gmock/gmock.h>
#include <pthread.h>
#include <sys/socket.h>

#include <cerrno>
#include <ctime>
#include <functional>
#include <memory>
#include <optional>

#include "tests/support/failing_calls.h"
#include "tests/support/recorded_sleep.h"
#include "tests/support/trace_capture.h"
#include "zordsock/test_pool.h"

using namespace zordsock;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

int runsOut() {
  return ETIMEDOUT;
}

int isSignalled() {
  _UDPSockList[0].inUse = 0;
  return 0;
}

TraceLine timeoutLine(int systemError = 0) {
  return detailLine(textOf("Wait timeout on UDP sock pool - errno=%d\n", systemError));
}

// A pool of one socket, which is taken, and an endpoint that asks for it too.
class FullPool : public testing::Test {
 protected:
  // Asks for a socket during whose waits things go as told.
  ZORA_Long allocate(const std::vector<std::function<int()>>& script) {
    _UDPSockList[0].inUse = 1;
    std::size_t waitsMade = 0;
    const std::time_t start = std::time(nullptr);
    standIns.timedWait = [&](pthread_cond_t* condition, pthread_mutex_t* mutex,
                             const timespec* deadline) {
      EXPECT_EQ(condition, &_UDPSockCond);
      EXPECT_EQ(mutex, &_UDPSockLock);
      // Ten seconds from some moment between the start and now.
      EXPECT_GE(deadline->tv_sec, start + 10);
      EXPECT_LE(deadline->tv_sec, std::time(nullptr) + 10);
      EXPECT_EQ(deadline->tv_nsec, 0);
      return script.at(waitsMade++)();
    };
    clearRecordedSleeps();
    errno = EBADF;  // of an older call, which must not decide
    const ZORA_Long result = endpoint.allocateIPC();
    EXPECT_EQ(waitsMade, script.size());
    EXPECT_EQ(pthread_mutex_trylock(&_UDPSockLock), 0);
    pthread_mutex_unlock(&_UDPSockLock);
    return result;
  }

  DchSocket dch;
  struct PoolSize {
    PoolSize() { setPoolSize(1); }
  } poolSize;
  ipcSock endpoint{SERVICE_UDP_CLIENT, 0, 1};
  const ZORA_Long descriptor = endpoint.sockUDP();
};

// ---- Waits -------------------------------------------------------------------------------------

TEST_F(FullPool, IsWaitedForInPassesForAsLongAsItTakes) {
  expectTrace("ipcSock::allocateIPC", [&] {
    EXPECT_EQ(allocate({runsOut, runsOut, isSignalled}), descriptor);
    EXPECT_THAT(recordedSleeps(), ElementsAre(3, 3));
    return with(allocationLines(),
                {waitingLine(), timeoutLine(), waitingLine(), timeoutLine(), waitingLine(),
                 signalledLine(), availableLine(0, descriptor), exitLine(descriptor)});
  });
}

TEST_F(FullPool, IsWaitedForAgainWhenAnotherTookTheFreedSocket) {
  expectTrace("ipcSock::allocateIPC", [&] {
    EXPECT_EQ(allocate({[] { return 0; }, isSignalled}), descriptor);
    EXPECT_THAT(recordedSleeps(), IsEmpty());
    return with(allocationLines(), {waitingLine(), signalledLine(), waitingLine(), signalledLine(),
                                    availableLine(0, descriptor), exitLine(descriptor)});
  });
}

TEST_F(FullPool, IsLookedAtAgainAfterThePause) {
  expectTrace("ipcSock::allocateIPC", [&] {
    // Freed while nobody waits on the condition.
    EXPECT_EQ(allocate({[] {
                _UDPSockList[0].inUse = 0;
                return ETIMEDOUT;
              }}),
              descriptor);
    EXPECT_THAT(recordedSleeps(), ElementsAre(3));
    return with(allocationLines(),
                {waitingLine(), timeoutLine(), availableLine(0, descriptor), exitLine(descriptor)});
  });
}

TEST_F(FullPool, AWaitWithErrnoAgainCountsAsRunOut) {
  expectTrace("ipcSock::allocateIPC", [&] {
    EXPECT_EQ(allocate({[] {
                          errno = EAGAIN;
                          return EINVAL;
                        },
                        isSignalled}),
              descriptor);
    EXPECT_THAT(recordedSleeps(), ElementsAre(3));
    return with(allocationLines(),
                {waitingLine(), timeoutLine(EAGAIN), waitingLine(), signalledLine(),
                 availableLine(0, descriptor), exitLine(descriptor)});
  });
}

TEST_F(FullPool, AWaitWithAnyOtherErrnoFails) {
  expectTrace("ipcSock::allocateIPC", [&] {
    EXPECT_EQ(allocate({[] {
                errno = EPERM;
                return EINVAL;
              }}),
              -999);
    EXPECT_THAT(recordedSleeps(), IsEmpty());
    return with(
        allocationLines(),
        {waitingLine(),
         errorLine(textOf("Error: pthread_cond_wait failed. rc=%d errno=%d\n", EINVAL, EPERM)),
         exitLine(-999)});
  });
}

// ---- The lock ----------------------------------------------------------------------------------

// The first wait runs out, and `call` on the lock fails until the second, which is signalled.
std::vector<std::function<int()>> waitsBetweenWhich(SystemCall call, int error) {
  const auto failing = std::make_shared<std::optional<FailingCall>>();
  return {[=] {
            failing->emplace(Calls{call, &_UDPSockLock}, error);
            return ETIMEDOUT;
          },
          [=] {
            failing->reset();
            pthread_mutex_lock(&_UDPSockLock);
            return isSignalled();
          }};
}

TEST_F(FullPool, IsNotPausedForWithoutReleasingTheLock) {
  expectTrace("ipcSock::allocateIPC", [&] {
    EXPECT_EQ(allocate(waitsBetweenWhich(SystemCall::unlockMutex, EPERM)), descriptor);
    EXPECT_THAT(recordedSleeps(), IsEmpty());
    return with(allocationLines(), {waitingLine(), timeoutLine(), waitingLine(), signalledLine(),
                                    availableLine(0, descriptor), exitLine(descriptor)});
  });
}

TEST_F(FullPool, IsLookedAtAgainEvenWithoutTheLock) {
  expectTrace("ipcSock::allocateIPC", [&] {
    EXPECT_EQ(allocate(waitsBetweenWhich(SystemCall::lockMutex, EINVAL)), descriptor);
    EXPECT_THAT(recordedSleeps(), ElementsAre(3));
    return with(
        allocationLines(),
        {waitingLine(), timeoutLine(), errorLine("Error: unable to re-acquire lock\n"),
         waitingLine(), signalledLine(), availableLine(0, descriptor), exitLine(descriptor)});
  });
}

TEST_F(FullPool, CannotBeBorrowedFromWithoutTheLock) {
  _UDPSockList[0].inUse = 0;
  const FailingCall failing({SystemCall::lockMutex, &_UDPSockLock}, EINVAL, EDEADLK);
  expectTrace("ipcSock::allocateIPC", [&] {
    EXPECT_EQ(endpoint.allocateIPC(), -999);
    EXPECT_EQ(_UDPSockList[0].inUse, 0);
    return with(
        poolLines(),
        {tryLine(), errorLine(textOf("Error: pthread_cond_lock failed. errno=%d\n", EDEADLK)),
         exitLine(-999)});
  });
}

TEST_F(FullPool, CannotBeGivenBackToWithoutTheLock) {
  const FailingCall failing({SystemCall::lockMutex, &_UDPSockLock}, EINVAL, EDEADLK);
  expectTrace("ipcSock::releaseIPC", [&] {
    EXPECT_EQ(endpoint.releaseIPC(), 1);
    EXPECT_EQ(_UDPSockList[0].inUse, 1);
    return with(
        poolLines(),
        {errorLine(textOf("Error: pthread_cond_lock failed. errno=%d\n", EDEADLK)), exitLine(1)});
  });
}

TEST_F(FullPool, FreesTheSocketEvenIfTheWaitersCannotBeSignalled) {
  const FailingCall failing({SystemCall::signalCondition, &_UDPSockCond}, EINVAL, EPERM);
  expectTrace("ipcSock::releaseIPC", [&] {
    _UDPSockList[0].inUse = 1;
    EXPECT_EQ(endpoint.releaseIPC(), 1);
    EXPECT_EQ(_UDPSockList[0].inUse, 0);
    return with(
        poolLines(),
        {freedLine(0, descriptor), signallingLine(),
         errorLine(textOf("Error: pthread_cond_signal failed. rc=%d errno=%d\n", EINVAL, EPERM)),
         exitLine(1)});
  });
}

TEST_F(FullPool, TakesAFailedUnlockForDone) {
  const FailingCall failing({SystemCall::unlockMutex, &_UDPSockLock}, EPERM);
  EXPECT_EQ(endpoint.releaseIPC(), 0);
  EXPECT_EQ(_UDPSockList[0].inUse, 0);
}

// Notes with each line whether the pool's lock was held when it was written.
void noteLock(void* notes, const TRC1_Record& record) {
  const bool isFree = pthread_mutex_trylock(&_UDPSockLock) == 0;
  if (isFree) pthread_mutex_unlock(&_UDPSockLock);
  static_cast<std::vector<std::string>*>(notes)->push_back(
      (isFree ? "free: " : "held: ") + std::string(record.text, record.textLength));
}

TEST_F(FullPool, SignalsWithoutTheLock) {
  std::vector<std::string> notes;
  TRC1_SetSink(noteLock, &notes);
  TRC1_Configure("0,*/ipcSock::releaseIPC=0x10");
  EXPECT_EQ(endpoint.releaseIPC(), 0);
  TRC1_Configure(nullptr);
  TRC1_SetSink(nullptr, nullptr);
  EXPECT_THAT(notes, ElementsAre("held: " + freedLine(0, descriptor).text,
                                 "free: " + signallingLine().text));
}

// ---- Sockets that could not be opened ----------------------------------------------------------

TEST(PoolWithoutSockets, KeepsTheElementsWhoseSocketCouldNotBeOpened) {
  const DchSocket dch;
  setPoolSize(3);
  const TraceCapture trace("0x80");
  const FailingCall refused({.kind = SystemCall::openSocket, .socketType = SOCK_DGRAM, .first = 2},
                            ENOBUFS);
  const Borrower borrower;
  EXPECT_EQ(borrower.endpoint.ipcGetError(), 0);
  const std::string line = textOf("Error: _UDPSockList[i].sockUDP[-1]  errno=%d\n", ENOBUFS);
  EXPECT_THAT(trace.texts(), ElementsAre(line, line));
  EXPECT_THAT(inUse(), ElementsAre(1, 0, 0));
  EXPECT_EQ(_UDPSockList[1].sockUDP, -1);
}

TEST(PoolWithoutSockets, TakesAnElementBackFromTheEndpointThatFailedWithIt) {
  const DchSocket dch;
  setPoolSize(2);
  const FailingCall refused({.kind = SystemCall::openSocket, .socketType = SOCK_DGRAM, .first = 2},
                            ENOBUFS);
  const Borrower borrower;
  expectTrace("ipcSock::releaseIPC", [] {
    ipcSock failed(SERVICE_UDP_CLIENT, 0, 1);
    EXPECT_EQ(failed.ipcGetError(), 1);
    EXPECT_EQ(failed.sockUDP(), -1);
    EXPECT_THAT(inUse(), ElementsAre(1, 1));
    EXPECT_EQ(failed.releaseIPC(), 0);
    EXPECT_THAT(inUse(), ElementsAre(1, 0));
    return with(poolLines(), {freedLine(1, -1), signallingLine(), exitLine(0)});
  });
}

TEST(PoolWithoutSockets, MakesAnEndpointFail) {
  const DchSocket dch;
  setPoolSize(2);
  const FailingCall refused({.kind = SystemCall::openSocket, .socketType = SOCK_DGRAM, .first = 2},
                            ENOBUFS);
  const Borrower borrower;
  expectTrace("ipcSock::IPCClient", [&] {
    errno = 0;
    ipcSock failed(SERVICE_UDP_CLIENT, 0, 1);
    failed.releaseIPC();
    return std::vector<TraceLine>{
        entryLine(),
        storageLine(
            textOf("DCHName[127.0.0.1] DCHPort[%d] connectTo[0] typeOfServer[3]\n", dch.port())),
        errorLine("Error: _sockUDP[-1]  errno=0\n"), exitLine(1)};
  });
}

// ---- Memory ------------------------------------------------------------------------------------

TEST(PoolWithoutMemory, ServesNobody) {
  const DchSocket dch;
  const ipcSock readsEnvironment(SERVICE_UDP_CLIENT, 0, 0);
  expectTrace("ipcSock::ipcSock", [] {
    forgetPool(32);
    const NoMemory noMemory;
    const ipcSock endpoint(SERVICE_UDP_CLIENT, 0, 1);
    EXPECT_EQ(endpoint.ipcGetError(), 1);
    EXPECT_EQ(endpoint.sockUDP(), -999);
    EXPECT_EQ(_UDPSockList, nullptr);
    EXPECT_EQ(_envDCHUDPInit, 1);
    const void* const lock = ZORA_GetEnvVarsInitLock();
    return std::vector<TraceLine>{
        entryLine(),
        flowLine("service=3 connectTo=0 _useFromSockPool=1 _envVarsInit=1 _envDCHUDPInit=0\n"),
        flowLine(textOf("Acquiring EnvVars Init Lock. [@%p]\n", lock)),
        storageLine(textOf("Initializing mutex[@%p] and Cond[@%p] for ipcSock object @%p\n",
                           poolLock(), TRC1_Pointer(&_UDPSockCond), TRC1_Pointer(&endpoint))),
        detailLine("Initializing 32 UDP sockets.\n"),
        errorLine("Error: allocation of 32 UDPSockElement failed\n"),
        flowLine(textOf("Releasing EnvVars Init Lock. [@%p]\n", lock)),
        errorLine("Error: startup failed. _sockError=1\n"),
        errorLine("Error: _sockError=1\n"),
        exitLine()};
  });
}

}  // namespace
