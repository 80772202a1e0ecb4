#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <deque>
#include <future>

#include "tests/support/failing_calls.h"
#include "tests/support/trace_capture.h"
#include "tests/support/trace_lines.h"
#include "zordipc/test_transport.h"

namespace {

constexpr std::chrono::seconds patience{20};

// ---- Construction and destruction ------------------------------------------------------------

TEST(Endpoint, StartsWithoutErrorAndRetriesReads) {
  const TestTransport transport(SERVICE_UDP_CLIENT);
  EXPECT_EQ(transport.ipcGetError(), 0);
  EXPECT_EQ(transport.ipcTypeOfService(), 3);
  EXPECT_EQ(transport.ipcGetRetryRead(), 1);
  EXPECT_EQ(transport._dchIpcType, IPC_TYPE_SOCKET);
  EXPECT_EQ(transport._ipcCircularBuffer, nullptr);
}

TEST(Endpoint, KeepsTheIpcTypeOfTheProcess) {
  setenv("ZORA_DCH_IPCTYPE", "2", 1);
  EXPECT_EQ(TestTransport(SERVICE_CLIENT)._dchIpcType, IPC_TYPE_LPC);
}

TEST(Endpoint, ShowsItsKindWhenItIsMade) {
  expectTrace("DCHipc::DCHipc", [] {
    const TestTransport transport(SERVICE_SERVER);
    return std::vector{entryLine(), detailLine("ZORA_DCH_IPCTYPE<1> IPC_QSIZE<5>\n"),
                       detailLine("typeOfService<2>\n"), exitLine()};
  });
}

TEST(Endpoint, TracesAsTheDataChannel) {
  const TraceCapture trace("0x10");
  const TestTransport transport(SERVICE_CLIENT);
  ASSERT_EQ(trace.records().size(), 2u);
  EXPECT_EQ(trace.records()[0].unit, "zordipc");
  EXPECT_EQ(trace.records()[0].component, "ZORD410");
}

TEST(EndpointWithoutService, IsInError) {
  expectTrace("DCHipc::DCHipc - BAD", [] {
    const TestTransport transport;
    EXPECT_EQ(transport.ipcGetError(), 1);
    return std::vector{entryLine(), errorLine("Error: this constructor should not be used.\n"),
                       exitLine()};
  });
}

TEST(Endpoint, AccessorsStoreAndAnswerInSilence) {
  TestTransport transport(SERVICE_CLIENT);
  const TraceCapture trace;
  transport.ipcSetError(7);
  EXPECT_EQ(transport.ipcGetError(), 7);
  transport.ipcSetRetryRead(0);
  EXPECT_EQ(transport.ipcGetRetryRead(), 0);
  EXPECT_EQ(transport.ipcTypeOfService(), SERVICE_CLIENT);
  EXPECT_TRUE(trace.texts().empty());
}

TEST(Endpoint, WaitsThirtySecondsByDefault) {
  expectTrace("DCHipc::DCHtimeout", [] {
    EXPECT_EQ(TestTransport(SERVICE_CLIENT).DCHtimeout(), 30);
    return std::vector{entryLine(), exitLine(30)};
  });
}

TEST(Destructor, FreesTheQueueOfAServer) {
  expectTrace("DCHipc::ipc_delete_cb", [] {
    const void* queue;
    {
      TestTransport server(SERVICE_SERVER);
      server.ipc_new_cb();
      queue = server._ipcCircularBuffer;
    }
    return std::vector{entryLine(), storageLine(textOf("Deleting ipcCircularBuffer @%p\n", queue)),
                       exitLine()};
  });
}

void makeAndDestroyClients() {
  const TestTransport client(SERVICE_CLIENT);
  const TestTransport datagramClient(SERVICE_UDP_CLIENT);
}

TEST(Destructor, DoesNothingElse) {
  expectTrace("DCHipc::~DCHipc", [] {
    makeAndDestroyClients();
    return std::vector{entryLine(), exitLine(), entryLine(), exitLine()};
  });
  const TraceCapture trace;
  makeAndDestroyClients();
  EXPECT_TRUE(trace.textsOf("DCHipc::ipc_delete_cb").empty());
}

// ---- Start of a client -----------------------------------------------------------------------

TEST(ClientStart, OpensTheEndpointWithItsOwnArguments) {
  for (const short service : {SERVICE_CLIENT, SERVICE_UDP_CLIENT}) {
    char argument;
    TestTransport client(service);
    int calls = 0;
    client.openEndpoint = [&](void* clientArg, ZORA_Long connectTo, ZORA_Long typeOfService) {
      ++calls;
      EXPECT_EQ(clientArg, &argument);
      EXPECT_EQ(connectTo, 42);
      EXPECT_EQ(typeOfService, service);
      return ZORA_Long{0};
    };
    client.ipcSetError(1);
    EXPECT_EQ(client.startup(&argument, 42), 0);
    EXPECT_EQ(client.ipcGetError(), 0);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(client._ipcCircularBuffer, nullptr);
  }
}

TEST(ClientStart, SaysThatItIsAClient) {
  expectTrace("DCHipc::startup", [] {
    TestTransport(SERVICE_UDP_CLIENT).startup(nullptr, 0);
    return std::vector{entryLine(), detailLine("DCHipc CLIENT Service initializing.\n"),
                       exitLine(0)};
  });
}

TEST(ClientStart, PassesAFailureOn) {
  expectTrace("DCHipc::startup", [] {
    TestTransport client(SERVICE_CLIENT);
    client.openEndpoint = [](void*, ZORA_Long, ZORA_Long) { return ZORA_Long{5}; };
    EXPECT_EQ(client.startup(nullptr, 0), 5);
    EXPECT_EQ(client.ipcGetError(), 5);
    return std::vector{entryLine(), detailLine("DCHipc CLIENT Service initializing.\n"),
                       errorLine("Error: IPCClient failed.\n"), exitLine(5)};
  });
}

TEST(Start, RefusesOtherTypesOfService) {
  for (const short service : std::initializer_list<short>{0, 4, -1}) {
    expectTrace("DCHipc::startup", [&] {
      TestTransport transport(service);
      EXPECT_EQ(transport.startup(nullptr, 0), 1);
      EXPECT_EQ(transport.ipcGetError(), 1);
      EXPECT_EQ(transport._ipcCircularBuffer, nullptr);
      return std::vector{
          entryLine(),
          errorLine(textOf("Error: Invalid type of service for DCHipc: %d\n", service)),
          exitLine(1)};
    });
  }
}

// ---- Start of a server -----------------------------------------------------------------------

// A server whose receiver thread tells that it runs. It lives as long as the process, because
// nothing waits for the end of that thread.
struct StartedServer {
  StartedServer() {
    transport.receiveLoop = [this] {
      isRunning.set_value();
      return ZORA_Long{0};
    };
  }
  bool waitUntilRunning() {
    return isRunning.get_future().wait_for(patience) == std::future_status::ready;
  }
  TestTransport transport{SERVICE_SERVER};
  std::promise<void> isRunning;
};

StartedServer& newServer() {
  static auto& servers = *new std::deque<StartedServer>;
  return servers.emplace_back();
}

TEST(ServerStart, MakesTheQueueAndRunsTheReceiverThread) {
  static auto& server = newServer();
  EXPECT_EQ(server.transport.startup(nullptr, 0), 0);
  EXPECT_EQ(server.transport.ipcGetError(), 0);
  EXPECT_NE(server.transport._ipcCircularBuffer, nullptr);
  EXPECT_TRUE(server.waitUntilRunning());
}

TEST(ServerStart, ShowsItsSteps) {
  expectTrace("DCHipc::startup", [] {
    StartedServer& server = newServer();
    server.transport.startup(nullptr, 0);
    EXPECT_TRUE(server.waitUntilRunning());
    return std::vector{entryLine(), detailLine("DCHipc SERVER Service initializing.\n"),
                       storageLine("IPCServerThread thread created\n"), exitLine(0)};
  });
}

TEST(ServerStart, MakesTheQueueBeforeTheThread) {
  static auto& server = newServer();
  static auto& hadQueue = *new std::promise<bool>;
  server.transport.receiveLoop = [] {
    hadQueue.set_value(server.transport._ipcCircularBuffer != nullptr);
    return ZORA_Long{0};
  };
  server.transport.startup(nullptr, 0);
  auto answer = hadQueue.get_future();
  ASSERT_EQ(answer.wait_for(patience), std::future_status::ready);
  EXPECT_TRUE(answer.get());
}

TEST(ServerStart, FailsWithoutAThread) {
  expectTrace("DCHipc::startup", [] {
    const FailingCall failing({SystemCall::createThread}, EAGAIN, 0);
    TestTransport server(SERVICE_SERVER);
    EXPECT_EQ(server.startup(nullptr, 0), 1);
    EXPECT_EQ(server.ipcGetError(), 1);
    return std::vector{entryLine(), detailLine("DCHipc SERVER Service initializing.\n"),
                       errorLine("Error: IPCServerThread thread failed creation.\n"), exitLine(1)};
  });
}

TEST(ServerStart, RunsTheReceiverThreadEvenWithoutAQueue) {
  expectTrace("DCHipc::startup", [] {
    StartedServer& server = newServer();
    {
      const NoMemory failing;
      EXPECT_EQ(server.transport.startup(nullptr, 0), 1);
    }
    EXPECT_EQ(server.transport.ipcGetError(), 1);
    EXPECT_TRUE(server.waitUntilRunning());
    return std::vector{entryLine(), detailLine("DCHipc SERVER Service initializing.\n"),
                       storageLine("IPCServerThread thread created\n"), exitLine(1)};
  });
}

// The thread has dropped its first message, which clears the error state, before startup goes on.
TEST(ServerStart, FailsWithoutAQueueHoweverQuickTheThreadIs) {
  static auto& server = newServer();
  static auto& hasDropped = *new std::promise<void>;
  server.transport.receiveLoop = [] {
    server.transport.ipc_put_data(3, "abc", "", 0, nullptr, 0);
    hasDropped.set_value();
    return ZORA_Long{0};
  };
  static auto dropped = hasDropped.get_future();
  // Only startup traces, and its line about the thread is held up.
  TRC1_Configure("0,*/DCHipc::startup=0x02");
  TRC1_SetSink([](void*, const TRC1_Record&) { dropped.wait_for(patience); }, nullptr);
  {
    const NoMemory failing;
    EXPECT_EQ(server.transport.startup(nullptr, 0), 1);
  }
  EXPECT_EQ(dropped.wait_for(std::chrono::seconds(0)), std::future_status::ready);
  EXPECT_EQ(server.transport.ipcGetError(), 1);
  TRC1_SetSink(nullptr, nullptr);
}

// ---- The receiver thread ---------------------------------------------------------------------

TEST(ReceiverThread, EndsWithALineInPlaceOfTheExitEvent) {
  expectTrace("IPCServerThread", [] {
    TestTransport server(SERVICE_SERVER);
    EXPECT_EQ(IPCServerThread(static_cast<DCHipc*>(&server)), nullptr);
    EXPECT_EQ(server.ipcGetError(), 0);
    return std::vector{entryLine(), eventLine("Returning NULL\n")};
  });
}

TEST(ReceiverThread, ReportsAReceiveLoopThatCannotStart) {
  expectTrace("IPCServerThread", [] {
    TestTransport server(SERVICE_SERVER);
    server.receiveLoop = [] { return ZORA_Long{-3}; };
    EXPECT_EQ(IPCServerThread(static_cast<DCHipc*>(&server)), nullptr);
    EXPECT_EQ(server.ipcGetError(), 1);
    return std::vector{
        entryLine(),
        errorLine("Error: IPCServer initialization failure, cannot continue processing.\n"),
        eventLine("Returning NULL\n")};
  });
}

}  // namespace
