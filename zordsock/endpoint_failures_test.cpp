// An endpoint whose sockets, lock or host name cannot be had.
#include <gmock/gmock.h>
#include <sys/socket.h>

#include <cerrno>

#include "suite/names.h"
#include "tests/support/failing_calls.h"
#include "tests/support/trace_capture.h"
#include "tests/support/trace_lines.h"
#include "zordsock/test_endpoint.h"

using namespace zordsock;

namespace {

bool hasLocalHostName = true;

}  // namespace

extern "C" {

// ZOR0_LocalHostNameString()
const char* __real__Z24ZOR0_LocalHostNameStringv();
const char* __wrap__Z24ZOR0_LocalHostNameStringv();
const char* __wrap__Z24ZOR0_LocalHostNameStringv() {
  return hasLocalHostName ? __real__Z24ZOR0_LocalHostNameStringv() : nullptr;
}

}  // extern "C"

namespace {

TraceLine openingLine(const DchSocket& dch, int connectTo, int service) {
  return storageLine(textOf("DCHName[127.0.0.1] DCHPort[%d] connectTo[%d] typeOfServer[%d]\n",
                            dch.port(), connectTo, service));
}

TEST(EndpointWithoutDatagramSocket, Fails) {
  const DchSocket dch;
  const FailingCall refused({.kind = SystemCall::openSocket, .socketType = SOCK_DGRAM}, ENOBUFS);
  expectTrace("ipcSock::IPCClient", [&] {
    const ipcSock endpoint(SERVICE_CLIENT, 0, 0);
    EXPECT_EQ(endpoint.ipcGetError(), 1);
    EXPECT_EQ(endpoint._sockTCP, NO_SOCKET);
    return std::vector<TraceLine>{entryLine(), openingLine(dch, 0, 1),
                                  errorLine(textOf("Error: _sockUDP[-1]  errno=%d\n", ENOBUFS)),
                                  exitLine(1)};
  });
}

TEST(EndpointWithoutDatagramSocket, DoesNotOpenTheStreamSocketToConnectEither) {
  const DchSocket dch;
  const FailingCall refused({.kind = SystemCall::openSocket, .socketType = SOCK_DGRAM}, ENOBUFS);
  expectTrace("ipcSock::IPCClient", [&] {
    const ipcSock endpoint(SERVICE_UDP_CLIENT, 1, 0);
    EXPECT_EQ(endpoint.ipcGetError(), 1);
    EXPECT_EQ(endpoint._sockTCP, NO_SOCKET);
    return std::vector<TraceLine>{entryLine(), openingLine(dch, 1, 3),
                                  errorLine(textOf("Error: _sockUDP[-1]  errno=%d\n", ENOBUFS)),
                                  exitLine(1)};
  });
}

TEST(EndpointWithoutStreamSocket, Fails) {
  const DchSocket dch;
  const FailingCall refused({.kind = SystemCall::openSocket, .socketType = SOCK_STREAM}, ENOBUFS);
  expectTrace("ipcSock::IPCClient", [&] {
    const ipcSock endpoint(SERVICE_CLIENT, 0, 0);
    EXPECT_EQ(endpoint.ipcGetError(), 1);
    return std::vector<TraceLine>{entryLine(), openingLine(dch, 0, 1),
                                  errorLine(textOf("Error: _sockTCP[-1]  errno=%d\n", ENOBUFS)),
                                  exitLine(1)};
  });
}

TEST(EndpointWithoutStreamSocket, FailsToConnect) {
  const DchSocket dch;
  const FailingCall refused({.kind = SystemCall::openSocket, .socketType = SOCK_STREAM}, ENOBUFS);
  expectTrace("ipcSock::IPCClient", [&] {
    const ipcSock endpoint(SERVICE_UDP_CLIENT, 1, 0);
    EXPECT_EQ(endpoint.ipcGetError(), 1);
    return std::vector<TraceLine>{entryLine(), openingLine(dch, 1, 3),
                                  errorLine(textOf("Error: _sockTCP[-1]  errno=%d\n", ENOBUFS)),
                                  exitLine(1)};
  });
}

TEST(EndpointWithoutStreamSocket, IsOfNoConcernToADatagramEndpoint) {
  const DchSocket dch;
  const FailingCall refused({.kind = SystemCall::openSocket, .socketType = SOCK_STREAM}, ENOBUFS);
  EXPECT_EQ(ipcSock(SERVICE_UDP_CLIENT, 0, 0).ipcGetError(), 0);
}

// ---- Without the lock --------------------------------------------------------------------------

TEST(EndpointWithoutTheInitLock, IsOpenedWithTheSettingsAsTheyAre) {
  const DchSocket dch;
  const FailingCall noLock({SystemCall::lockMutex, ZORA_GetEnvVarsInitLock()}, EINVAL);
  const TraceCapture trace("zordsock/*=0x81,zora/*=0");
  const ipcSock endpoint(SERVICE_UDP_CLIENT, 1, 0);
  EXPECT_EQ(endpoint.ipcGetError(), 0);
  EXPECT_EQ(_envVarsInit, 0);
  EXPECT_EQ(_envPortNo, 0);
  EXPECT_STREQ(_envDCHname, "");
  EXPECT_THAT(trace.textsOf("ipcSock::ipcSock"),
              testing::ElementsAre(
                  "service=3 connectTo=1 _useFromSockPool=0 _envVarsInit=0 _envDCHUDPInit=0\n",
                  textOf("Acquiring EnvVars Init Lock. [@%p]\n", ZORA_GetEnvVarsInitLock())));
}

TEST(EndpointWithoutTheInitLock, DoesNotReleaseItForWhoHoldsIt) {
  const DchSocket dch;
  auto* const lock = static_cast<pthread_mutex_t*>(ZORA_GetEnvVarsInitLock());
  pthread_mutex_lock(lock);
  {
    const FailingCall noLock({SystemCall::lockMutex, lock}, EINVAL);
    const TraceCapture trace("0x80");
    const ipcSock endpoint(SERVICE_UDP_CLIENT, 1, 0);
    EXPECT_THAT(trace.texts(), testing::ElementsAre(textOf(
                                   "Error: pthread_mutex_lock failed, rc=%d errno=%d [@%p]\n",
                                   EINVAL, EINVAL, TRC1_Pointer(&endpoint))));
  }
  EXPECT_EQ(pthread_mutex_trylock(lock), EBUSY);
  pthread_mutex_unlock(lock);
}

TEST(EndpointWithoutTheInitLock, FailsOnAFirstCallForLackOfAName) {
  const DchSocket dch;
  const FailingCall noLock({SystemCall::lockMutex, ZORA_GetEnvVarsInitLock()}, EINVAL);
  const TraceCapture trace("0x80");
  const ipcSock endpoint(SERVICE_UDP_CLIENT, 0, 0);
  EXPECT_EQ(endpoint.ipcGetError(), 1);
  EXPECT_TRUE(trace.has("Error: ZOR0_ConvertNameToAddr failed for[]\n"));
}

// ---- Without a host name -----------------------------------------------------------------------

struct EndpointWithoutAHostName : testing::Test {
  EndpointWithoutAHostName() {
    unsetenv("ZORA_DCH_ADDR");
    setenv("ZORA_DCH_PORT", "4711", 1);
    hasLocalHostName = false;
  }
};

TEST_F(EndpointWithoutAHostName, LeavesTheNameEmptyAndGoesOnWithTheOtherSettings) {
  ipcSock endpoint(SERVICE_UDP_CLIENT, 1, 0);
  expectTrace("ipcSock::getEnvVariables", [&] {
    endpoint._sockError = 0;
    endpoint.getEnvVariables();
    EXPECT_EQ(endpoint._sockError, 1);
    EXPECT_STREQ(_envDCHname, "");
    return std::vector<TraceLine>{
        entryLine(),
        detailLine(textOf("DCHIpc instance @%p and _envVarsInit=1\n", TRC1_Pointer(&endpoint))),
        errorLine("Error: ZOR0_LocalHostNameString failed.\n"),
        detailLine("Assigned DCH port number to 4711\n"),
        detailLine("_envDCHname[] _envPortNo[4711] _envDCHtimeout[30] _envTRAPEMIT[0]\n"),
        exitLine()};
  });
}

TEST_F(EndpointWithoutAHostName, TakesItsErrorFromItsOpening) {
  const ipcSock connecting(SERVICE_UDP_CLIENT, 1, 0);
  EXPECT_EQ(connecting._sockError, 0);
  EXPECT_EQ(connecting.ipcGetError(), 0);
  const ipcSock toPeer(SERVICE_UDP_CLIENT, 0, 0);
  EXPECT_EQ(toPeer._sockError, 1);
  EXPECT_EQ(toPeer.ipcGetError(), 1);
}

}  // namespace
