#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/support/trace_capture.h"
#include "tests/support/trace_lines.h"
#include "zordchcl/DCHclient.h"
#include "zordlpc/zordlpc.h"

namespace {

TEST(LocalTransport, IsReadyAtOnce) {
  for (const short service : {SERVICE_CLIENT, SERVICE_UDP_CLIENT}) {
    const ipcLPC transport(service, nullptr, 0);
    EXPECT_EQ(transport.ipcGetError(), 0);
    EXPECT_EQ(transport._lpcError, 0);
    EXPECT_EQ(transport.ipcTypeOfService(), service);
    EXPECT_EQ(transport.ipcGetRetryRead(), 1);
  }
}

TEST(LocalTransport, StartsAsAClientOrAServer) {
  const TraceCapture trace("0x12");
  const ipcLPC client(SERVICE_CLIENT, nullptr, 0);
  EXPECT_TRUE(trace.has("DCHipc CLIENT Service initializing.\n"));
  static auto& server = *new ipcLPC(SERVICE_SERVER, nullptr, 0);  // its thread is never awaited
  EXPECT_TRUE(trace.has("DCHipc SERVER Service initializing.\n"));
  EXPECT_EQ(server.ipcGetError(), 0);
  EXPECT_NE(server._ipcCircularBuffer, nullptr);
}

TEST(LocalTransport, ShowsItsEventsOnly) {
  expectTrace("ipcLPC::ipcLPC", [] {
    const ipcLPC transport(SERVICE_CLIENT, nullptr, 0);
    return Lines{entryLine(), exitLine()};
  });
  expectTrace("ipcLPC::~ipcLPC", [] {
    { const ipcLPC transport(SERVICE_CLIENT, nullptr, 0); }
    return Lines{entryLine(), exitLine()};
  });
}

TEST(LocalTransport, TracesAsTheDataChannel) {
  const TraceCapture trace("0,zordlpc/*=0x40");
  const ipcLPC transport(SERVICE_CLIENT, nullptr, 0);
  ASSERT_FALSE(trace.records().empty());
  EXPECT_EQ(trace.records()[0].unit, "zordlpc");
  EXPECT_EQ(trace.records()[0].component, "ZORD410");
}

TEST(LocalTransport, RefusesAnUnknownTypeOfService) {
  const ipcLPC transport(4, nullptr, 0);
  EXPECT_EQ(transport.ipcGetError(), 1);
  EXPECT_EQ(transport._lpcError, 0);
}

TEST(LocalTransport, ReadsNothing) {
  ipcLPC transport(SERVICE_CLIENT, nullptr, 0);
  char untouched;
  expectTrace("ipcLPC::ipcRead", [&] {
    void* buffer = &untouched;
    EXPECT_EQ(transport.ipcRead(&buffer, 30), 0);
    EXPECT_EQ(buffer, &untouched);
    return Lines{entryLine(), exitLine(0)};
  });
}

TEST(LocalTransport, WritesNothing) {
  ipcLPC transport(SERVICE_CLIENT, nullptr, 0);
  char message[] = "hello";
  expectTrace("ipcLPC::ipcWrite", [&] {
    EXPECT_EQ(transport.ipcWrite(message, 5, 0), 0);
    return Lines{entryLine(), exitLine(0)};
  });
  EXPECT_STREQ(message, "hello");
}

TEST(LocalTransport, HasNoPeer) {
  ipcLPC transport(SERVICE_CLIENT, nullptr, 0);
  char address[16] = {};
  expectTrace("ipcLPC::setClientAddr", [&] {
    transport.setClientAddr(address, 16);
    return Lines{entryLine(), exitLine()};
  });
}

struct Operation {
  const char* name;
  ZORA_Long (*run)(ipcLPC&);
};

constexpr Operation operations[] = {
    {"ipcLPC::IPCServer", [](ipcLPC& transport) { return transport.IPCServer(); }},
    {"ipcLPC::IPCClient", [](ipcLPC& transport) { return transport.IPCClient(nullptr, 0, 1); }},
    {"ipcLPC::allocateIPC", [](ipcLPC& transport) { return transport.allocateIPC(); }},
    {"ipcLPC::releaseIPC", [](ipcLPC& transport) { return transport.releaseIPC(); }},
};

TEST(LocalTransport, OperationsSucceed) {
  ipcLPC transport(SERVICE_CLIENT, nullptr, 0);
  for (const Operation& operation : operations) {
    expectTrace(operation.name, [&] {
      EXPECT_EQ(operation.run(transport), 0);
      return Lines{entryLine(), exitLine(0)};
    });
  }
}

TEST(LocalTransport, WaitsThirtySeconds) {
  ipcLPC transport(SERVICE_CLIENT, nullptr, 0);
  EXPECT_EQ(static_cast<DCHipc&>(transport).DCHtimeout(), 30);
}

TEST(LocalTransportWithoutService, IsInErrorAndSoAreItsOperations) {
  ipcLPC transport;
  EXPECT_EQ(transport.ipcGetError(), 1);
  EXPECT_EQ(transport._lpcError, 1);
  for (const Operation& operation : operations) {
    expectTrace(operation.name, [&] {
      EXPECT_EQ(operation.run(transport), 1);
      return Lines{entryLine(), exitLine(1)};
    });
  }
  void* buffer = nullptr;
  EXPECT_EQ(transport.ipcRead(&buffer, 1), 0);
  EXPECT_EQ(transport.ipcWrite(&buffer, 1, 0), 0);
}

TEST(LocalTransportWithoutService, SaysSoWithoutALineEnd) {
  expectTrace("ipcLPC::ipcLPC - BAD", [] {
    const ipcLPC transport;
    return Lines{entryLine(), errorLine("Error: this constructor should not be used."), exitLine()};
  });
  const TraceCapture trace("0x80");
  const ipcLPC transport;
  EXPECT_EQ(trace.texts(),
            (std::vector<std::string>{"Error: this constructor should not be used.\n",
                                      "Error: this constructor should not be used."}));
}

TEST(LocalTransport, CarriesAClientThatSendsAndReadsNothing) {
  setenv("ZORA_DCH_IPCTYPE", "2", 1);
  DCHclient client(0, 1);
  EXPECT_EQ(client._clientError, 0);
  EXPECT_NE(dynamic_cast<ipcLPC*>(client._ipcClient), nullptr);
  const TraceCapture trace("0x80");
  ZORA_Long status = -1;
  ZORA_Long handle = -1;
  EXPECT_EQ(client.dp_online(&status, &handle, "appl", "group", "source"), 1);
  EXPECT_EQ(status, 5);  // as when no answer comes
  EXPECT_FALSE(trace.texts().empty());
}

}  // namespace
