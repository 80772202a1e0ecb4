// A subscription that is cancelled, withdrawn, or made over something else than sockets.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/support/fake_transport.h"
#include "tests/support/scripted_dch.h"
#include "tests/support/trace_capture.h"
#include "zordchcl/test_subscription.h"

namespace {

using testing::IsEmpty;

const std::string cancelDatagram = bytesOf("00000016 0022 0000000c '-TERMINATE-' 00");

// ---- Cancelling ------------------------------------------------------------------------------

TEST(Cancel, SendsItsDatagramToTheClientsOwnInterruptSocket) {
  const ScriptedDch dch(never());
  expectTrace("DCHclient::dc_waitOnDataCancel", [&] {
    Subscription subscription(dch);
    EXPECT_EQ(subscription.client.dc_waitOnDataCancel(), 0);
    char datagram[100];
    const ssize_t count =
        recv(subscription.client._interruptFD, datagram, sizeof datagram, MSG_DONTWAIT);
    EXPECT_EQ(std::string(datagram, count > 0 ? static_cast<std::size_t>(count) : 0),
              cancelDatagram);
    // The port is shown as the signed 16-bit value that it is taken as.
    return Lines{
        entryLine(),
        detailLine(textOf(">> interruptFD=%d, sockAddress <127.0.0.1[%d]>\n",
                          static_cast<int>(subscription.client._interruptFD),
                          static_cast<short>(subscription.client._interruptPort))),
        dumpLine("DUMP[22] of dc_waitOnDataCancel request.\n"),
        exitLine(0),
    };
  });
}

TEST(Cancel, BeforeAWaitEndsTheWaitAtOnce) {
  const ScriptedDch dch(never());
  expectTrace("DCHclient::dc_waitOnData", [&] {
    Subscription subscription(dch);
    EXPECT_EQ(subscription.client.dc_waitOnDataCancel(), 0);
    TraceCapture::forget();
    EXPECT_EQ(subscription.wait(30), -1);
    EXPECT_EQ(subscription.received(), cancelDatagram + std::string(8, '#'));
    return subscription.waitBegun() +
           Lines{detailLine("dc_waitOnDataCancel signal ready.\n"), exitLine(-1)};
  });
}

TEST(Cancel, FillsNoMoreThanTheBuffer) {
  const ScriptedDch dch(never());
  Subscription subscription(dch);
  EXPECT_EQ(subscription.client.dc_waitOnDataCancel(), 0);
  EXPECT_EQ(subscription.wait(5), -1);
  EXPECT_EQ(subscription.received(), cancelDatagram.substr(0, 5));
}

TEST(Cancel, GivesWayToARowThatIsReadyToo) {
  const ScriptedDch dch(never());
  Subscription subscription(dch);
  subscription.push({messageOfSize(40)});
  EXPECT_EQ(subscription.client.dc_waitOnDataCancel(), 0);
  EXPECT_EQ(subscription.wait(40), 0);
  EXPECT_EQ(subscription.received(), messageOfSize(40));
  EXPECT_EQ(subscription.wait(22), -1) << "the cancel is still there";
  EXPECT_EQ(subscription.received(), cancelDatagram);
}

TEST(Cancel, IsKeptThroughAWaitThatDelivers) {
  const ScriptedDch dch(never());
  Subscription subscription(dch);
  subscription.client.dc_waitOnDataCancel();
  EXPECT_EQ(subscription.wait(40), -1);
  subscription.push({messageOfSize(40)});
  EXPECT_EQ(subscription.wait(40), -1);
  EXPECT_EQ(subscription.received(), messageOfSize(40));
  EXPECT_EQ(subscription.client._readBuffer, nullptr);
}

TEST(Cancel, AgainSendsItsDatagramButDumpsNothing) {
  const ScriptedDch dch(never());
  expectTrace("DCHclient::dc_waitOnDataCancel", [&] {
    Subscription subscription(dch);
    subscription.client.dc_waitOnDataCancel();
    subscription.wait(40);
    TraceCapture::forget();
    EXPECT_EQ(subscription.client.dc_waitOnDataCancel(), -1);
    EXPECT_EQ(subscription.wait(22), -1);
    EXPECT_EQ(subscription.received(), cancelDatagram);
    return Lines{entryLine(),
                 detailLine(textOf(">> interruptFD=%d, sockAddress <127.0.0.1[%d]>\n",
                                   static_cast<int>(subscription.client._interruptFD),
                                   static_cast<short>(subscription.client._interruptPort))),
                 exitLine(-1)};
  });
}

TEST(Cancel, AFailureAfterItReplacesIt) {
  const ScriptedDch dch(never());
  Subscription subscription(dch);
  subscription.client.dc_waitOnDataCancel();
  EXPECT_EQ(subscription.wait(40), -1);
  EXPECT_EQ(subscription.client.dc_waitOnData(nullptr, 1), 1);
  EXPECT_EQ(subscription.wait(40), 1);
}

// ---- Withdrawing -----------------------------------------------------------------------------

const Lines withdrawn = {
    entryLine(),
    dumpLine("DUMP[47] of dc_waitOnDataDestroy request.\n"),
    detailLine("Writing dc_waitOnDataDestroy message. 47 bytes\n"),
};

TEST(Withdraw, RepeatsTheNamesAndWaitsForNothing) {
  for (const ZORA_Long latch : {0, -1}) {  // -1: after a cancelled wait
    expectTrace("DCHclient::dc_waitOnDataDestroy", [&] {
      FakedClient faked;
      faked.client.dc_waitOnDataInitialize("HOSTMON", "load");
      faked.client._clientError = latch;
      EXPECT_EQ(faked.client.dc_waitOnDataDestroy(), latch);
      EXPECT_EQ(faked.transport.written.size(), 2u);
      EXPECT_THAT(faked.transport.waits, IsEmpty());
      return withdrawn + Lines{exitLine(latch)};
    });
  }
}

TEST(Withdraw, AFailedWriteIsAFailure) {
  for (const ZORA_Long latch : {0, -1}) {
    expectTrace("DCHclient::dc_waitOnDataDestroy", [&] {
      FakedClient faked;
      faked.client.dc_waitOnDataInitialize("HOSTMON", "load");
      faked.client._clientError = latch;
      faked.transport.writeResult = 46;
      EXPECT_EQ(faked.client.dc_waitOnDataDestroy(), 1);
      return withdrawn +
             Lines{errorLine("Error: writing dc_waitOnDataDestroy message to DCHserver\n"),
                   exitLine(1)};
    });
  }
}

// ---- Other IPC types -------------------------------------------------------------------------

using Method = ZORA_Long (*)(DCHclient&);

const std::pair<const char*, Method> socketMethods[] = {
    {"DCHclient::dc_waitOnData",
     [](DCHclient& client) {
       char buffer[8];
       return client.dc_waitOnData(buffer, sizeof buffer);
     }},
    {"DCHclient::dc_waitOnDataCancel",
     [](DCHclient& client) { return client.dc_waitOnDataCancel(); }},
};

TEST(OtherIpcTypes, LocalProcedureCallsAreUnfinished) {
  setenv("ZORA_DCH_IPCTYPE", "2", 1);
  for (const auto& [name, method] : socketMethods) {
    expectTrace(name, [method = method] {
      DCHclient client(1, 0);
      EXPECT_EQ(method(client), 1);
      return Lines{entryLine(), errorLine("FINISH ME UP!!!!"), exitLine(1)};
    });
  }
}

TEST(OtherIpcTypes, UnknownOnesAreNamed) {
  for (const auto& [name, method] : socketMethods) {
    expectTrace(name, [method = method] {
      DCHclient client(1, 0);
      client._clientIpcType = 7;
      EXPECT_EQ(method(client), 1);
      client._clientIpcType = IPC_TYPE_SOCKET;
      return Lines{entryLine(), errorLine("Error: Unrecognized IPC type 7\n"), exitLine(1)};
    });
  }
}

TEST(OtherIpcTypes, PlayNoPartInSubscribingAndWithdrawing) {
  FakedClient faked;
  faked.client._clientIpcType = 7;
  EXPECT_EQ(faked.client.dc_waitOnDataInitialize("HOSTMON", "load"), 0);
  EXPECT_EQ(faked.client.dc_waitOnDataDestroy(), 0);
  EXPECT_EQ(faked.transport.written.size(), 2u);
  faked.client._clientIpcType = IPC_TYPE_SOCKET;
}

}  // namespace
