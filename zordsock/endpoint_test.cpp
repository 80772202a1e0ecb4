#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <memory>
#include <optional>

#include "suite/sockets.h"
#include "tests/support/scripted_dch.h"
#include "tests/support/trace_capture.h"
#include "tests/support/trace_lines.h"
#include "zordchcl/zordchcl.h"
#include "zordsock/test_endpoint.h"

using namespace zordsock;
using testing::IsEmpty;

namespace {

int socketType(int descriptor) {
  int type = 0;
  socklen_t length = sizeof type;
  getsockopt(descriptor, SOL_SOCKET, SO_TYPE, &type, &length);
  return type;
}

sockaddr_in localAddress(int descriptor) {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length);
  return address;
}

std::string traced(const ipcSock& endpoint) {
  return tracedAddress(endpoint._sockAddress);
}

// ---- Opening -----------------------------------------------------------------------------------

TEST(Endpoint, OfDatagramsAloneHasAFreshSocketAndThePeer) {
  const DchSocket dch;
  const ipcSock endpoint(SERVICE_UDP_CLIENT, 0, 0);
  EXPECT_EQ(endpoint.ipcGetError(), 0);
  EXPECT_EQ(endpoint._sockError, 0);
  EXPECT_EQ(socketType(endpoint.sockUDP()), SOCK_DGRAM);
  EXPECT_EQ(endpoint._sockTCP, NO_SOCKET);
  EXPECT_EQ(traced(endpoint), tracedAddress(dch.address()));
  EXPECT_EQ(endpoint._sockAddrLen, 16);
  EXPECT_EQ(_envDCHUDPInit, 0);
}

TEST(Endpoint, OfServiceClientHasBothSocketsAndThePeer) {
  const DchSocket dch;
  const ipcSock endpoint(SERVICE_CLIENT, 0, 0);
  EXPECT_EQ(endpoint.ipcGetError(), 0);
  EXPECT_EQ(socketType(endpoint.sockUDP()), SOCK_DGRAM);
  EXPECT_EQ(socketType(endpoint._sockTCP), SOCK_STREAM);
  EXPECT_EQ(traced(endpoint), tracedAddress(dch.address()));
}

TEST(Endpoint, ThatIsToConnectHasBothSocketsAndNoPeer) {
  const DchSocket dch;
  const ipcSock endpoint(SERVICE_UDP_CLIENT, 1, 0);
  EXPECT_EQ(endpoint.ipcGetError(), 0);
  EXPECT_EQ(socketType(endpoint.sockUDP()), SOCK_DGRAM);
  EXPECT_EQ(socketType(endpoint._sockTCP), SOCK_STREAM);
  EXPECT_EQ(traced(endpoint), tracedAddress(localAddress(endpoint._sockTCP)));
}

TEST(Endpoint, PoolIsBuiltOnlyForAPooledDatagramEndpointThatDoesNotConnect) {
  const DchSocket dch;
  setenv("ZORA_DCH_UDP_SOCKETS_IN_POOL", "2", 1);
  const ipcSock withoutPool(SERVICE_UDP_CLIENT, 0, 0);
  const ipcSock connecting(SERVICE_UDP_CLIENT, 1, 1);
  const ipcSock otherService(SERVICE_CLIENT, 0, 1);
  EXPECT_EQ(_envDCHUDPInit, 0);
  EXPECT_EQ(_UDPSockList, nullptr);
  const ipcSock pooled(SERVICE_UDP_CLIENT, 0, 1);
  EXPECT_EQ(_envDCHUDPInit, 1);
  EXPECT_EQ(pooled.sockUDP(), _UDPSockList[0].sockUDP);
}

TEST(Endpoint, OpeningADatagramEndpointIsTraced) {
  const DchSocket dch;
  expectTrace("ipcSock::IPCClient", [&] {
    const ipcSock endpoint(SERVICE_UDP_CLIENT, 0, 0);
    return std::vector<TraceLine>{
        entryLine(),
        storageLine(
            textOf("DCHName[127.0.0.1] DCHPort[%d] connectTo[0] typeOfServer[3]\n", dch.port())),
        detailLine(textOf("Using DCH port number: %d\n", dch.port())),
        detailLine(textOf("Created _sockUDP[%d] bound to port", endpoint.sockUDP()) +
                   traced(endpoint)),
        exitLine(0)};
  });
}

TEST(Endpoint, OpeningBothKindsShowsTheDatagramDescriptorTwice) {
  const DchSocket dch;
  expectTrace("ipcSock::IPCClient", [&] {
    const ipcSock endpoint(SERVICE_CLIENT, 0, 0);
    return std::vector<TraceLine>{
        entryLine(),
        storageLine(
            textOf("DCHName[127.0.0.1] DCHPort[%d] connectTo[0] typeOfServer[1]\n", dch.port())),
        detailLine(textOf("Using DCH port number: %d\n", dch.port())),
        detailLine(textOf("Created _sockUDP[%d] bound to port", endpoint.sockUDP()) +
                   traced(endpoint)),
        detailLine(textOf("Created _sockTCP[%d] bound to port", endpoint.sockUDP()) +
                   traced(endpoint)),
        exitLine(0)};
  });
}

TEST(Endpoint, OpeningToConnectShowsTheDatagramSocketOnly) {
  const DchSocket dch;
  expectTrace("ipcSock::IPCClient", [&] {
    const ipcSock endpoint(SERVICE_CLIENT, 5, 0);
    return std::vector<TraceLine>{
        entryLine(),
        storageLine(
            textOf("DCHName[127.0.0.1] DCHPort[%d] connectTo[5] typeOfServer[1]\n", dch.port())),
        detailLine(textOf("Created _sockUDP[%d] bound to port", endpoint.sockUDP()) +
                   traced(endpoint)),
        exitLine(0)};
  });
}

TEST(Endpoint, OpensAgainWithAClearedError) {
  const DchSocket dch;
  ipcSock endpoint(SERVICE_UDP_CLIENT, 0, 0);
  ZOR0_CloseTheSocket(endpoint.sockUDP());
  endpoint._sockError = 1;
  EXPECT_EQ(endpoint.IPCClient(nullptr, 0, SERVICE_UDP_CLIENT), 0);
  EXPECT_EQ(endpoint._sockError, 0);
}

// ---- Construction ------------------------------------------------------------------------------

TEST(Endpoint, FirstConstructionReadsTheEnvironmentUnderItsLock) {
  const DchSocket dch;
  expectTrace("ipcSock::ipcSock", [&] {
    _envVarsInit = 0;
    const ipcSock endpoint(SERVICE_UDP_CLIENT, 0, 0);
    const void* const lock = ZORA_GetEnvVarsInitLock();
    return std::vector<TraceLine>{
        entryLine(),
        flowLine("service=3 connectTo=0 _useFromSockPool=0 _envVarsInit=0 _envDCHUDPInit=0\n"),
        flowLine(textOf("Acquiring EnvVars Init Lock. [@%p]\n", lock)),
        flowLine(textOf("Releasing EnvVars Init Lock. [@%p]\n", lock)), exitLine()};
  });
}

TEST(Endpoint, StepsOfAConstructionComeInOrder) {
  const DchSocket dch;
  VX_Debug();  // its own first call is traced too
  const TraceCapture trace("0x40");
  const ipcSock endpoint(SERVICE_UDP_CLIENT, 0, 0);
  std::vector<std::string> entered;
  for (const CapturedRecord& record : trace.records())
    if (record.text == "<<Entry>>\n") entered.push_back(record.function);
  EXPECT_THAT(entered, testing::ElementsAre("DCHipc::DCHipc", "ipcSock::ipcSock",
                                            "ipcSock::getEnvVariables", "DCHipc::startup",
                                            "ipcSock::IPCClient", "ipcSock::setClientAddr",
                                            "ipcSock::allocateIPC", "ipcSock::setClientAddr"));
}

TEST(Endpoint, OfAnUnknownServiceFails) {
  const DchSocket dch;
  const ipcSock readsEnvironment(SERVICE_UDP_CLIENT, 0, 0);
  expectTrace("ipcSock::ipcSock", [&] {
    const ipcSock endpoint(4, 1, 1);
    EXPECT_EQ(endpoint.ipcGetError(), 1);
    EXPECT_EQ(endpoint._sockError, 1);
    const void* const lock = ZORA_GetEnvVarsInitLock();
    return std::vector<TraceLine>{
        entryLine(),
        flowLine("service=4 connectTo=1 _useFromSockPool=1 _envVarsInit=1 _envDCHUDPInit=0\n"),
        flowLine(textOf("Acquiring EnvVars Init Lock. [@%p]\n", lock)),
        flowLine(textOf("Releasing EnvVars Init Lock. [@%p]\n", lock)),
        errorLine("Error: startup failed. _sockError=1\n"),
        errorLine("Error: _sockError=1\n"),
        exitLine()};
  });
}

TEST(Endpoint, OfTheDefaultConstructorIsInError) {
  expectTrace("ipcSock::ipcSock - BAD", [] {
    const ipcSock endpoint;
    EXPECT_EQ(endpoint.ipcGetError(), 1);
    EXPECT_EQ(endpoint._sockError, 1);
    return std::vector<TraceLine>{
        entryLine(), errorLine("Error: this constructor should not be used.\n"), exitLine()};
  });
}

TEST(Endpoint, WithAnUnknownHostFails) {
  setenv("ZORA_DCH_ADDR", "no such host", 1);
  const TraceCapture trace("0x80");
  const ipcSock endpoint(SERVICE_UDP_CLIENT, 0, 0);
  EXPECT_EQ(endpoint.ipcGetError(), 1);
  EXPECT_EQ(endpoint._sockError, 1);
  EXPECT_THAT(trace.texts(), testing::ElementsAre(
                                 "Error: ZOR0_ConvertNameToAddr failed for[no such host]\n",
                                 "Error: IPCClient failed.\n",
                                 "Error: startup failed. _sockError=1\n", "Error: _sockError=1\n"));
}

TEST(Endpoint, WithAnUnknownHostShowsNoSocketAsCreated) {
  setenv("ZORA_DCH_ADDR", "no such host", 1);
  setenv("ZORA_DCH_PORT", "4711", 1);
  expectTrace("ipcSock::IPCClient", [] {
    const ipcSock endpoint(SERVICE_UDP_CLIENT, 0, 0);
    return std::vector<TraceLine>{
        entryLine(),
        storageLine("DCHName[no such host] DCHPort[4711] connectTo[0] typeOfServer[3]\n"),
        detailLine("Using DCH port number: 4711\n"),
        errorLine("Error: ZOR0_ConvertNameToAddr failed for[no such host]\n"), exitLine(1)};
  });
}

// ---- Destruction -------------------------------------------------------------------------------

// Destroys the endpoint with the trace on and returns its two descriptors.
struct Descriptors {
  int stream;
  int datagram;
};
Descriptors destroy(std::unique_ptr<ipcSock> endpoint) {
  return {endpoint->_sockTCP, endpoint->sockUDP()};
}

TEST(Endpoint, DestructionClosesBothOwnSockets) {
  const DchSocket dch;
  expectTrace("ipcSock::~ipcSock", [&] {
    const auto [stream, datagram] = destroy(std::make_unique<ipcSock>(SERVICE_CLIENT, 0, 0));
    EXPECT_FALSE(isOpen(stream));
    EXPECT_FALSE(isOpen(datagram));
    return std::vector<TraceLine>{
        entryLine(),
        detailLine(textOf("_useFromSockPool=0, _sockTCP=%d, _sockUDP=%d\n", stream, datagram)),
        flowLine(textOf("Closing TCP socket %d for DCH port %d\n", stream, dch.port())),
        flowLine(textOf("Closing UDP socket %d for DCH port %d\n", datagram, dch.port())),
        detailLine("ipcTypeOfService=1\n"),
        exitLine()};
  });
}

TEST(Endpoint, DestructionLeavesABorrowedSocketOpen) {
  const DchSocket dch;
  setenv("ZORA_DCH_UDP_SOCKETS_IN_POOL", "1", 1);
  expectTrace("ipcSock::~ipcSock", [&] {
    auto endpoint = std::make_unique<ipcSock>(SERVICE_UDP_CLIENT, 0, 1);
    EXPECT_EQ(endpoint->releaseIPC(), 0);
    const int datagram = destroy(std::move(endpoint)).datagram;
    EXPECT_TRUE(isOpen(datagram));
    return std::vector<TraceLine>{
        entryLine(),
        detailLine(textOf("_useFromSockPool=1, _sockTCP=-999, _sockUDP=%d\n", datagram)),
        detailLine("ipcTypeOfService=3\n"), exitLine()};
  });
}

TEST(Endpoint, DestructionClosesAForeignSocketOfAPooledEndpoint) {
  const DchSocket dch;
  setenv("ZORA_DCH_UDP_SOCKETS_IN_POOL", "1", 1);
  const ipcSock buildsPool(SERVICE_UDP_CLIENT, 0, 1);
  expectTrace("ipcSock::~ipcSock", [&] {
    const auto [stream, datagram] = destroy(std::make_unique<ipcSock>(SERVICE_UDP_CLIENT, 1, 1));
    EXPECT_FALSE(isOpen(stream));
    EXPECT_FALSE(isOpen(datagram));
    return std::vector<TraceLine>{
        entryLine(),
        detailLine(textOf("_useFromSockPool=1, _sockTCP=%d, _sockUDP=%d\n", stream, datagram)),
        flowLine(textOf("Closing TCP socket %d for DCH port %d\n", stream, dch.port())),
        detailLine("ipcTypeOfService=3\n"),
        flowLine(textOf("Closing UDP socket %d\n", datagram)),
        exitLine()};
  });
}

TEST(Endpoint, DestructionClosesADatagramSocketThatIsNotOpen) {
  expectTrace("ipcSock::~ipcSock", [] {
    const long before = openDescriptors();
    std::optional<ipcSock> endpoint(std::in_place);
    endpoint.reset();
    EXPECT_EQ(openDescriptors(), before);
    return std::vector<TraceLine>{entryLine(),
                                  detailLine("_useFromSockPool=0, _sockTCP=-999, _sockUDP=-999\n"),
                                  flowLine("Closing UDP socket -999 for DCH port 0\n"),
                                  detailLine("ipcTypeOfService=0\n"), exitLine()};
  });
}

TEST(Endpoint, LeavesNoDescriptorOpen) {
  const DchSocket dch;
  setenv("ZORA_DCH_UDP_SOCKETS_IN_POOL", "2", 1);
  { ipcSock(SERVICE_UDP_CLIENT, 0, 1).releaseIPC(); }
  const long before = openDescriptors();
  for (int i = 0; i < 20; ++i) {
    const ipcSock datagram(SERVICE_UDP_CLIENT, 0, 0);
    const ipcSock both(SERVICE_CLIENT, 0, 0);
    const ipcSock connecting(SERVICE_UDP_CLIENT, 1, 0);
    const ipcSock connectingPooled(SERVICE_UDP_CLIENT, 1, 1);
    ipcSock pooled(SERVICE_UDP_CLIENT, 0, 1);
    pooled.releaseIPC();
  }
  EXPECT_EQ(openDescriptors(), before);
}

TEST(Endpoint, ThatFailsLeavesNoDescriptorOpen) {
  setenv("ZORA_DCH_ADDR", "no such host", 1);
  const long before = openDescriptors();
  {
    const ipcSock endpoint(SERVICE_CLIENT, 0, 0);
    EXPECT_EQ(endpoint.ipcGetError(), 1);
  }
  EXPECT_EQ(openDescriptors(), before);
}

// ---- Peer and ports ----------------------------------------------------------------------------

TEST(Endpoint, TakesAWholeAddressWhateverLengthIsGiven) {
  const DchSocket dch;
  ipcSock endpoint(SERVICE_UDP_CLIENT, 0, 0);
  const DatagramSocket other;
  sockaddr_in address = other.address();
  expectTrace("ipcSock::setClientAddr", [&] {
    endpoint.setClientAddr(&address, 2);
    return std::vector<TraceLine>{entryLine(), exitLine()};
  });
  EXPECT_EQ(traced(endpoint), tracedAddress(address));
}

TEST(Endpoint, ANullAddressClearsThePeerWhateverLengthIsGiven) {
  const DchSocket dch;
  ipcSock endpoint(SERVICE_UDP_CLIENT, 0, 0);
  endpoint.setClientAddr(nullptr, 16);
  EXPECT_EQ(traced(endpoint), tracedAddress(sockaddr_in{}));
}

TEST(Endpoint, TellsAndKeepsThePortsOfItsSockets) {
  const DchSocket dch;
  ipcSock endpoint(SERVICE_CLIENT, 0, 0);
  const unsigned short streamPort = ntohs(localAddress(endpoint._sockTCP).sin_port);
  const unsigned short datagramPort = ntohs(localAddress(endpoint.sockUDP()).sin_port);
  EXPECT_EQ(endpoint._sockPortTCP, 0);
  EXPECT_EQ(endpoint._sockPortUDP, 0);
  expectTrace("ipcSock::sockPortTCP", [&] {
    EXPECT_EQ(endpoint.sockPortTCP(), streamPort);
    return std::vector<TraceLine>{entryLine(), exitLine(streamPort)};
  });
  expectTrace("ipcSock::sockPortUDP", [&] {
    EXPECT_EQ(endpoint.sockPortUDP(), datagramPort);
    return std::vector<TraceLine>{entryLine(), exitLine(datagramPort)};
  });
  EXPECT_EQ(endpoint._sockPortTCP, streamPort);
  EXPECT_EQ(endpoint._sockPortUDP, datagramPort);
  EXPECT_NE(streamPort, 0);
  EXPECT_NE(datagramPort, 0);
}

TEST(Endpoint, HasPortZeroWithoutASocket) {
  const DchSocket dch;
  ipcSock endpoint(SERVICE_UDP_CLIENT, 0, 0);
  EXPECT_EQ(endpoint.sockPortTCP(), 0);
}

// ---- Many open files ---------------------------------------------------------------------------

// Raises the limit of open files and takes descriptors until the next one is above a plain set's.
bool takeDescriptorsBeyondAPlainSet() {
  rlimit limit;
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
  int highest = 0;
  while (highest >= 0 && highest < FD_SETSIZE + 100) highest = dup(STDERR_FILENO);
  return highest >= 0;
}

TEST(Endpoint, ServesARequestInAProcessWithManyOpenFiles) {
  ScriptedDch dch(always(onlineAnswer(0, 77)));
  if (!takeDescriptorsBeyondAPlainSet()) GTEST_SKIP() << "too few descriptors are allowed here";
  const TraceCapture trace("0x80");
  ZORA_Long status = -1;
  ZORA_Long handle = -1;
  EXPECT_EQ(dp_online(&status, &handle, "appl", "group", "source"), 0);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(handle, 77);
  EXPECT_GT(_UDPSockList[0].sockUDP, FD_SETSIZE);
  EXPECT_THAT(trace.texts(), IsEmpty());
}

}  // namespace
