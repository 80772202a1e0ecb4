// What the error latch of a client does to its requests, and requests over local procedure calls.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>

#include "tests/support/fake_transport.h"
#include "tests/support/scripted_dch.h"
#include "tests/support/trace_lines.h"

namespace {

using testing::IsEmpty;

struct Request {
  const char* method;
  std::function<ZORA_Long(DCHclient&, ZORA_Long* status)> make;
};

char latchRow[DCH_WORK_BUFFER_SIZE];

std::vector<Request> allRequests() {
  static ZORA_Long handle;
  static ZORA_Long size;
  static char* buffer;
  buffer = latchRow;
  return {
      {"dp_register", [](auto& client, auto status) { return client.dp_register(status, "appl"); }},
      {"dp_online",
       [](auto& client, auto status) {
         return client.dp_online(status, &handle, "A", "g", nullptr);
       }},
      {"dp_offline", [](auto& client, auto status) { return client.dp_offline(status, 1); }},
      {"dp_unregister",
       [](auto& client, auto status) { return client.dp_unregister(status, "A"); }},
      {"dp_cancel", [](auto& client, auto status) { return client.dp_cancel(status, 1); }},
      {"dp_formatData",
       [](auto& client, auto status) {
         return client.dp_formatData(status, &buffer, &size, "n", "v", 1, 'D');
       }},
      {"dp_data", [](auto& client, auto status) { return client.dp_data(status, 1, 2, &buffer); }},
  };
}

std::vector<Request> requestsWithoutStatus() {
  return {
      {"dc_waitOnDataInitialize",
       [](auto& client, auto) { return client.dc_waitOnDataInitialize(nullptr, nullptr); }},
      {"dc_waitOnData", [](auto& client, auto) { return client.dc_waitOnData(nullptr, 0); }},
      {"dc_waitOnDataCancel", [](auto& client, auto) { return client.dc_waitOnDataCancel(); }},
      {"dc_waitOnDataDestroy", [](auto& client, auto) { return client.dc_waitOnDataDestroy(); }},
  };
}

void expectOnlyTheLatch(const Request& request, ZORA_Long latch) {
  expectTrace(std::string("DCHclient::") + request.method, [&] {
    FakedClient faked;
    faked.client._clientError = latch;
    ZORA_Long status = 0;
    EXPECT_EQ(request.make(faked.client, &status), latch);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(faked.client._clientError, latch);
    EXPECT_THAT(faked.transport.written, IsEmpty());
    EXPECT_THAT(faked.transport.waits, IsEmpty());
    return Lines{entryLine(), exitLine(latch)};
  });
}

TEST(Latch, AboveZeroStopsEveryRequestWithStatusZero) {
  for (const Request& request : allRequests())
    for (const ZORA_Long latch : {1, 4}) expectOnlyTheLatch(request, latch);
}

TEST(Latch, AStoppedRequestSetsTheStatusToZero) {
  for (const Request& request : allRequests()) {
    FakedClient faked;
    faked.client._clientError = 1;
    ZORA_Long status = 99;
    request.make(faked.client, &status);
    EXPECT_EQ(status, 0) << request.method;
  }
}

TEST(Latch, AboveZeroStopsEverySubscriptionCall) {
  for (const Request& request : requestsWithoutStatus())
    for (const ZORA_Long latch : {1, 4}) expectOnlyTheLatch(request, latch);
}

TEST(Latch, StopsTheShutdownRequestToo) {
  expectTrace("DCHclient::shutdown", [] {
    FakedClient faked;
    faked.client._clientError = 1;
    faked.client.shutdown(0);
    return Lines{entryLine(), exitLine()};
  });
}

TEST(Latch, OfACancelledWaitStopsNoRequest) {
  FakedClient faked;
  faked.client._clientError = -1;
  faked.transport.answers = {statusAnswer(6)};
  ZORA_Long status = 99;
  EXPECT_EQ(faked.client.dp_offline(&status, 1), -1);
  EXPECT_EQ(status, 6);
  EXPECT_EQ(faked.transport.written.size(), 1u);
}

TEST(Latch, IsNeverCleared) {
  FakedClient faked;
  ZORA_Long status = 99;
  EXPECT_EQ(faked.client.dp_offline(&status, 1), 1);
  EXPECT_EQ(status, 5);
  faked.transport.answers = {statusAnswer(0)};
  EXPECT_EQ(faked.client.dp_offline(&status, 1), 1);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(faked.transport.written.size(), 1u);
}

// ---- Requests over local procedure calls -----------------------------------------------------

TEST(LocalProcedureCalls, CarryNoRequest) {
  setenv("ZORA_DCH_IPCTYPE", "2", 1);
  ZORA_Long status = 99;
  {
    DCHclient client(0, 1);
    EXPECT_EQ(client.dp_offline(&status, 1), 1);
    EXPECT_EQ(status, 2) << "nothing was written";
  }
  DCHclient client(0, 1);
  EXPECT_EQ(client.dp_register(&status, "appl:A,KEY;group:g;attr:a,D,1;"), 1);
  EXPECT_EQ(status, 5) << "nothing was read either";
}

}  // namespace
