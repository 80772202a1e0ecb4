// The life of a client: what it sets up, what its latch does, how it ends.
#include "zordchcl/DCHclient.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

#include "tests/support/descriptor_limit.h"
#include "tests/support/fake_transport.h"
#include "tests/support/process.h"
#include "tests/support/scripted_dch.h"
#include "tests/support/trace_capture.h"
#include "tests/support/trace_lines.h"
#include "zordlpc/zordlpc.h"
#include "zordsock/zordsock.h"

namespace {

using testing::EndsWith;
using testing::Not;

constexpr char className[] = "DCHclient::DCHclient";
constexpr char destructorName[] = "DCHclient::~DCHclient";

sockaddr_in localAddressOf(ZORA_Long descriptor) {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  EXPECT_EQ(getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length), 0);
  return address;
}

TEST(Construction, TakesAPooledSocketAndTheTransportsTimeout) {
  setenv("ZORA_DCH_TIMEOUT", "7", 1);
  expectTrace(className, [] {
    const DCHclient client(0, 1);
    EXPECT_EQ(client._clientIpcType, IPC_TYPE_SOCKET);
    EXPECT_EQ(client._interruptFD, NO_SOCKET);
    EXPECT_EQ(client._DCHtimeout, 7);
    EXPECT_EQ(client._ipcReadTimeout, 7);
    EXPECT_EQ(client._clientError, 0);
    EXPECT_EQ(client._readBuffer, nullptr);
    EXPECT_EQ(static_cast<ipcSock*>(client._ipcClient)->_useFromSockPool, 1);
    EXPECT_EQ(client._ipcClient->ipcTypeOfService(), SERVICE_UDP_CLIENT);
    return Lines{
        entryLine(),
        detailLine("Allocated _ipcClient @{address}\n"),
        detailLine("_DCHtimeout=7 _ipcReadTimeout=7\n"),
        detailLine("Allocated DCH Client object @{address}, _interruptFD[-999]\n"),
        exitLine(),
    };
  });
}

TEST(Construction, OpensTheInterruptSocketOnTheLoopbackInterface) {
  expectTrace(className, [] {
    const DCHclient client(1, 0);
    const sockaddr_in address = localAddressOf(client._interruptFD);
    EXPECT_EQ(address.sin_addr.s_addr, htonl(INADDR_LOOPBACK));
    EXPECT_EQ(ntohs(address.sin_port), client._interruptPort);
    EXPECT_EQ(static_cast<ipcSock*>(client._ipcClient)->_useFromSockPool, 0);
    EXPECT_EQ(client._DCHtimeout, 30);
    const int descriptor = client._interruptFD;
    return Lines{
        entryLine(),
        detailLine("Allocated _ipcClient @{address}\n"),
        storageLine(textOf("_interruptFD socket[%d] bound to port[%d]\n", descriptor,
                           static_cast<int>(client._interruptPort))),
        detailLine("_DCHtimeout=30 _ipcReadTimeout=30\n"),
        detailLine(
            textOf("Allocated DCH Client object @{address}, _interruptFD[%d]\n", descriptor)),
        exitLine(),
    };
  });
}

TEST(Construction, TakesTheTimeoutAsASixteenBitValue) {
  setenv("ZORA_DCH_TIMEOUT", "65537", 1);
  const DCHclient client(0, 1);
  EXPECT_EQ(client._DCHtimeout, 1);
  EXPECT_EQ(client._ipcReadTimeout, 1);
}

TEST(Construction, OverLocalProcedureCallsSetsNoTimeout) {
  setenv("ZORA_DCH_IPCTYPE", "2", 1);
  expectTrace(className, [] {
    const DCHclient client(1, 0);
    EXPECT_EQ(client._clientIpcType, IPC_TYPE_LPC);
    EXPECT_NE(dynamic_cast<ipcLPC*>(client._ipcClient), nullptr);
    EXPECT_EQ(client._ipcClient->ipcTypeOfService(), SERVICE_CLIENT);
    EXPECT_EQ(client._DCHtimeout, 0);
    EXPECT_EQ(client._ipcReadTimeout, 0);
    EXPECT_EQ(client._interruptFD, NO_SOCKET);
    return Lines{
        entryLine(),
        detailLine("Allocated _ipcClient @{address}\n"),
        detailLine("Allocated DCH Client object @{address}, _interruptFD[-999]\n"),
        exitLine(),
    };
  });
}

TEST(Construction, AnUnopenedInterruptSocketSetsTheLatch) {
  { const DCHclient readsSettings(1, 0); }
  expectTrace(className, [] {
    const DescriptorLimit room(1);  // for the transport's socket
    DCHclient client(1, 0);
    EXPECT_EQ(client._clientError, 1);
    EXPECT_EQ(client._interruptFD, NO_SOCKET);
    EXPECT_EQ(client.dc_waitOnDataInitialize("A", "g"), 1);
    return Lines{
        entryLine(),
        detailLine("Allocated _ipcClient @{address}\n"),
        errorLine("Error: _interruptFD[-1]  errno=24\n"),
        detailLine("_DCHtimeout=30 _ipcReadTimeout=30\n"),
        detailLine("Allocated DCH Client object @{address}, _interruptFD[-999]\n"),
        exitLine(),
    };
  });
}

// ---- Ends of the process ---------------------------------------------------------------------

// The child leaves a text in the buffer of standard output, which the end must not lose.
ProcessResult constructInChild(const std::map<std::string, std::string>& environment) {
  return runInChild(
      [] {
        std::fputs("kept", stdout);
        const DCHclient client(1, 0);
        return 77;
      },
      environment);
}

void expectEndAfterASecond(const ProcessResult& child) {
  EXPECT_EQ(child.exitStatus, 1);
  EXPECT_EQ(child.standardOutput, "kept");
  EXPECT_GE(child.seconds, 1.0);
  EXPECT_LT(child.seconds, 5.0);
}

TEST(FatalEnd, AnUnknownIpcTypeEndsTheProcess) {
  const ProcessResult child = constructInChild({{"ZORA_DCH_IPCTYPE", "7"}});
  expectEndAfterASecond(child);
  EXPECT_THAT(child.standardError, EndsWith(" Error: Unrecognized IPC type 7, exiting...\n"));
}

TEST(FatalEnd, AnIpcTypeThatIsNoNumberEndsTheProcess) {
  const ProcessResult child = constructInChild({{"ZORA_DCH_IPCTYPE", "sockets"}});
  expectEndAfterASecond(child);
  EXPECT_THAT(child.standardError, EndsWith(" Error: Unrecognized IPC type 0, exiting...\n"));
}

TEST(FatalEnd, AnUnknownHostEndsTheProcess) {
  const ProcessResult child = constructInChild({{"ZORA_DCH_ADDR", "no such host"}});
  expectEndAfterASecond(child);
  EXPECT_THAT(
      child.standardError,
      EndsWith(" Error: DCH Client cannot continue. IPC initialization failed, exiting...\n"));
}

TEST(FatalEnd, ATransportWithoutASocketEndsTheProcess) {
  const ProcessResult child = runInChild([] {
    std::fputs("kept", stdout);
    { const DCHclient first(1, 0); }  // sanitizers need descriptors to look at a type once
    // Static: it ends before what a sanitizer does at the end of a process.
    static const DescriptorLimit limit(0);
    const DCHclient client(1, 0);
    return 77;
  });
  expectEndAfterASecond(child);
  EXPECT_THAT(
      child.standardError,
      EndsWith(" Error: DCH Client cannot continue. IPC initialization failed, exiting...\n"));
}

TEST(FatalEnd, IsReportedUnderTheErrorClassAlone) {
  for (const char* ipcType : {"7", "1"}) {
    const ProcessResult child = constructInChild(
        {{"ZORA_DCH_IPCTYPE", ipcType}, {"ZORA_DCH_ADDR", "no such host"}, {"ZORA_TRACE", "0x57"}});
    expectEndAfterASecond(child);
    EXPECT_THAT(child.standardError, Not(testing::HasSubstr("Error:"))) << ipcType;
    EXPECT_THAT(child.standardError, testing::HasSubstr("<<Entry>>")) << ipcType;
  }
}

// ---- Destruction -----------------------------------------------------------------------------

TEST(Destruction, GivesThePooledSocketBack) {
  setenv("ZORA_DCH_UDP_SOCKETS_IN_POOL", "1", 1);
  ZORA_Long pooled = 0;
  expectTrace(destructorName, [&] {
    // With one socket in the pool a second client could not be made, were it not given back.
    const DCHclient client(0, 1);
    const ZORA_Long descriptor = static_cast<ipcSock*>(client._ipcClient)->sockUDP();
    EXPECT_TRUE(pooled == 0 || pooled == descriptor);
    pooled = descriptor;
    return Lines{
        entryLine(),
        detailLine("Deleting _ipcClient @{address}, _interruptFD[-999]\n"),
        detailLine("Deleting DCH Client object @{address}\n"),
        exitLine(),
    };
  });
  localAddressOf(pooled);  // still open
}

TEST(Destruction, ClosesTheInterruptSocket) {
  expectTrace(destructorName, [] {
    const DCHclient client(1, 0);
    return Lines{
        entryLine(),
        detailLine(textOf("Closing socket[%d]\n", static_cast<int>(client._interruptFD))),
        detailLine(textOf("Deleting _ipcClient @{address}, _interruptFD[%d]\n",
                          static_cast<int>(client._interruptFD))),
        detailLine("Deleting DCH Client object @{address}\n"),
        exitLine(),
    };
  });
}

TEST(Destruction, LeavesNoDescriptorBehind) {
  { const DCHclient first(1, 0); }
  const DescriptorLimit room(2);
  for (int i = 0; i < 5; ++i) {
    const DCHclient client(1, 0);
    EXPECT_EQ(client._clientError, 0) << i;
  }
}

TEST(Destruction, OverLocalProcedureCallsSaysThatItIsUnfinished) {
  setenv("ZORA_DCH_IPCTYPE", "2", 1);
  expectTrace(destructorName, [] {
    const DCHclient client(0, 1);
    return Lines{
        entryLine(),
        errorLine("FINISH ME UP!!!!"),
        detailLine("Deleting _ipcClient @{address}\n"),
        detailLine("Deleting DCH Client object @{address}\n"),
        exitLine(),
    };
  });
}

TEST(Destruction, WithAnUnknownTypeLeavesTheTransportAlone) {
  expectTrace(destructorName, [] {
    ipcSock* transport = nullptr;
    {
      DCHclient client(0, 1);
      transport = static_cast<ipcSock*>(client._ipcClient);
      client._clientIpcType = 7;
    }
    EXPECT_EQ(transport->releaseIPC(), 0);
    transport->ipcSock::~ipcSock();
    ::operator delete(transport);
    return Lines{
        entryLine(),
        errorLine("Error: Unrecognized IPC type 7\n"),
        detailLine("Deleting DCH Client object @{address}\n"),
        exitLine(),
    };
  });
}

// ---- Settings --------------------------------------------------------------------------------

TEST(ReadTimeout, IsSetAndGoesBackToTheTransports) {
  setenv("ZORA_DCH_TIMEOUT", "9", 1);
  DCHclient client(0, 1);
  client.setReadTimeout(7);
  EXPECT_EQ(client._ipcReadTimeout, 7);
  client.setReadTimeout(0);
  EXPECT_EQ(client._ipcReadTimeout, 9);
  client.setReadTimeout(-1);
  EXPECT_EQ(client._ipcReadTimeout, -1);
  EXPECT_EQ(client._DCHtimeout, 9);
}

TEST(RetryRead, IsTheTransports) {
  FakedClient faked;
  EXPECT_EQ(faked.transport.ipcGetRetryRead(), 1);
  faked.client.setRetryRead(4);
  EXPECT_EQ(faked.transport.ipcGetRetryRead(), 4);
  faked.client.setRetryRead(0);
  EXPECT_EQ(faked.transport.ipcGetRetryRead(), 0);
}

TEST(RetryRead, WithoutATransportDoesNothing) {
  DCHclient client(0, 1);
  DCHipc* const transport = client._ipcClient;
  client._ipcClient = nullptr;
  client.setRetryRead(4);
  client._ipcClient = transport;
  EXPECT_EQ(transport->ipcGetRetryRead(), 1);
  EXPECT_EQ(client._clientError, 0);
}

}  // namespace
