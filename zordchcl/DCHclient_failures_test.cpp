// A client without memory for its transport.
#include "zordchcl/DCHclient.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <vector>

#include "tests/support/failing_calls.h"
#include "tests/support/trace_capture.h"
#include "zordchcl/test_client.h"
#include "zordlpc/zordlpc.h"
#include "zordsock/zordsock.h"

namespace {

void makeWithoutMemory(std::optional<DCHclient>* client) {
  const NoMemory noMemory;
  client->emplace(1, 0);
}

TEST(ClientWithoutTransport, IsReportedAndLatched) {
  expectTrace("DCHclient::DCHclient", [] {
    std::optional<DCHclient> client;
    makeWithoutMemory(&client);
    EXPECT_EQ(NoMemory::lastRefusedBytes(), sizeof(ipcSock));
    EXPECT_EQ(client->_ipcClient, nullptr);
    EXPECT_EQ(client->_clientError, 1);
    EXPECT_EQ(client->_interruptFD, NO_SOCKET);
    return Lines{
        entryLine(),
        errorLine("Error: ipcSock creation failed.\n"),
        detailLine("Allocated DCH Client object @{address}, _interruptFD[-999]\n"),
        exitLine(),
    };
  });
}

TEST(ClientWithoutTransport, IsDestroyedWithoutOne) {
  expectTrace("DCHclient::~DCHclient", [] {
    std::optional<DCHclient> client;
    makeWithoutMemory(&client);
    return Lines{entryLine(), detailLine("Deleting DCH Client object @{address}\n"), exitLine()};
  });
}

TEST(ClientWithoutTransport, RefusesEveryRequest) {
  std::optional<DCHclient> client;
  makeWithoutMemory(&client);
  ZORA_Long status = 4711;
  client->setRetryRead(3);
  EXPECT_EQ(client->dp_register(&status, "appl:A,KEY;group:g;attr:a,D,1;"), 1);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(client->dp_unregister(&status, "A"), 1);
  EXPECT_EQ(client->dc_waitOnDataInitialize("A", "g"), 1);
}

TEST(ClientWithoutTransport, OverLocalProcedureCallsIsLatchedToo) {
  setenv("ZORA_DCH_IPCTYPE", "2", 1);
  expectTrace("DCHclient::DCHclient", [] {
    std::optional<DCHclient> client;
    makeWithoutMemory(&client);
    EXPECT_EQ(NoMemory::lastRefusedBytes(), sizeof(ipcLPC));
    EXPECT_EQ(client->_clientError, 1);
    return Lines{
        entryLine(),
        detailLine("Allocated _ipcClient @(nil)\n"),
        detailLine("Allocated DCH Client object @{address}, _interruptFD[-999]\n"),
        exitLine(),
    };
  });
  expectTrace("DCHclient::~DCHclient", [] {
    std::optional<DCHclient> client;
    makeWithoutMemory(&client);
    return Lines{entryLine(), errorLine("FINISH ME UP!!!!"),
                 detailLine("Deleting DCH Client object @{address}\n"), exitLine()};
  });
}

}  // namespace
