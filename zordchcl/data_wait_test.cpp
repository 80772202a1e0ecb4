// A client's subscription to rows: what is sent, what a wait does with what comes, what a cancel
// leaves behind.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <vector>

#include "tests/support/bytes.h"
#include "tests/support/fake_transport.h"
#include "tests/support/scripted_dch.h"
#include "tests/support/trace_capture.h"
#include "tests/support/trace_lines.h"
#include "zordsock/zordsock.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Lines = std::vector<TraceLine>;

const std::string cancelDatagram = bytesOf("00000016 0022 0000000c '-TERMINATE-' 00");
const TraceLine released = storageLine("Deleting _readBuffer<@{address}>\n");

std::string letters(std::size_t count) {
  return std::string(count, 'n');
}

// A message of `size` bytes in all.
std::string messageOfSize(std::size_t size) {
  return messageOf([&](DCH_MessageBuilder& message) {
    const std::string filling(size - 10, 'r');
    message.addBytes(DCH_response, filling.data(), static_cast<ZORA_Long>(filling.size()));
  });
}

// A client that has subscribed at a DCH that only pushes.
class Subscription {
 public:
  explicit Subscription(const ScriptedDch& dch) : client(1, 0), _dch(dch) {
    const std::size_t before = dch.requests().size();
    EXPECT_EQ(client.dc_waitOnDataInitialize("HOSTMON", "load"), 0);
    EXPECT_EQ(dch.waitForRequests(before + 1).size(), before + 1);
  }

  // The datagrams are with the client when this returns.
  void push(const std::vector<std::string>& datagrams) const {
    for (const std::string& datagram : datagrams) _dch.push(datagram);
  }

  ZORA_Long wait(std::size_t bufferSize) {
    buffer.assign(bufferSize, '#');
    return client.dc_waitOnData(buffer.data(), static_cast<short>(bufferSize));
  }
  std::string received() const { return std::string(buffer.data(), buffer.size()); }

  Lines waitBegun() {
    auto* const transport = static_cast<ipcSock*>(client._ipcClient);
    return {
        entryLine(),
        detailLine("Waiting for dc_waitOnData response message\n"),
        detailLine(textOf("Waiting for sockUDP[%d] port[%d] and interruptFD[%d]\n",
                          static_cast<int>(transport->sockUDP()), transport->sockPortUDP(),
                          static_cast<int>(client._interruptFD))),
    };
  }

  DCHclient client;
  std::vector<char> buffer;  // of exactly its size, so that a byte too many is a fault

 private:
  const ScriptedDch& _dch;
};

Lines operator+(Lines lines, const Lines& more) {
  lines.insert(lines.end(), more.begin(), more.end());
  return lines;
}

const TraceLine dataReady = detailLine("[@{address}] dc_waitOnData data ready.\n");

// ---- Subscribing -----------------------------------------------------------------------------

TEST(Subscribe, SendsTheNamesAndWaitsForNothing) {
  expectTrace("DCHclient::dc_waitOnDataInitialize", [] {
    FakedClient faked;
    EXPECT_EQ(faked.client.dc_waitOnDataInitialize("HOSTMON", "load"), 0);
    EXPECT_STREQ(faked.client._applName, "HOSTMON");
    EXPECT_STREQ(faked.client._attrGroup, "load");
    EXPECT_EQ(faked.transport.written.size(), 1u);
    EXPECT_THAT(faked.transport.waits, IsEmpty());
    return Lines{
        entryLine(),
        {TRC1_CLASS_DUMP, "DUMP[47] of dc_waitOnDataInitialize request.\n"},
        detailLine("Writing dc_waitOnDataInitialize message. 47 bytes\n"),
        exitLine(0),
    };
  });
}

TEST(Subscribe, NullNamesAreRefused) {
  const std::pair<const char*, const char*> names[] = {
      {nullptr, "load"}, {"HOSTMON", nullptr}, {nullptr, nullptr}};
  for (const auto& [applName, attrGroup] : names) {
    expectTrace("DCHclient::dc_waitOnDataInitialize", [&] {
      FakedClient faked;
      EXPECT_EQ(faked.client.dc_waitOnDataInitialize(applName, attrGroup), 1);
      EXPECT_EQ(faked.client._clientError, 1);
      EXPECT_THAT(faked.transport.written, IsEmpty());
      return Lines{entryLine(), errorLine("Error: applName and/or attrGroup were NULL\n"),
                   exitLine(1)};
    });
  }
}

TEST(Subscribe, NamesOfFullLengthAreAccepted) {
  FakedClient faked;
  EXPECT_EQ(faked.client.dc_waitOnDataInitialize(letters(20).c_str(), letters(32).c_str()), 0);
  EXPECT_EQ(faked.client._applName, letters(20));
  EXPECT_EQ(faked.client._attrGroup, letters(32));
  EXPECT_EQ(faked.transport.written.size(), 1u);
}

void expectTooLong(const std::string& applName, const std::string& attrGroup) {
  expectTrace("DCHclient::dc_waitOnDataInitialize", [&] {
    FakedClient faked;
    EXPECT_EQ(faked.client.dc_waitOnDataInitialize(applName.c_str(), attrGroup.c_str()), 1);
    EXPECT_EQ(faked.client._clientError, 1);
    EXPECT_STREQ(faked.client._applName, "");
    EXPECT_STREQ(faked.client._attrGroup, "");
    EXPECT_THAT(faked.transport.written, IsEmpty());
    return Lines{
        entryLine(),
        errorLine(textOf("Error: max length exceeded: applName[%zu:%s] attrGroup[%zu:%s]",
                         applName.size(), applName.c_str(), attrGroup.size(), attrGroup.c_str())),
        exitLine(1)};
  });
}

TEST(Subscribe, TooLongNamesAreRefused) {
  expectTooLong(letters(21), "load");
  expectTooLong("HOSTMON", letters(33));
  expectTooLong(letters(300), letters(300));
}

TEST(Subscribe, AFailedWriteIsAFailure) {
  for (const ZORA_Long count : {-1, 0, 46}) {
    expectTrace("DCHclient::dc_waitOnDataInitialize", [&] {
      FakedClient faked;
      faked.transport.writeResult = count;
      EXPECT_EQ(faked.client.dc_waitOnDataInitialize("HOSTMON", "load"), 1);
      return Lines{
          entryLine(),
          {TRC1_CLASS_DUMP, "DUMP[47] of dc_waitOnDataInitialize request.\n"},
          detailLine("Writing dc_waitOnDataInitialize message. 47 bytes\n"),
          errorLine("Error: writing dc_waitOnDataInitialize message to DCHserver\n"),
          exitLine(1),
      };
    });
  }
}

// ---- Waiting for rows ------------------------------------------------------------------------

TEST(Wait, DeliversTheWholeMessage) {
  const ScriptedDch dch(never());
  const std::string row = messageOfSize(100);
  expectTrace("DCHclient::dc_waitOnData", [&] {
    Subscription subscription(dch);
    subscription.push({row});
    TraceCapture::forget();
    EXPECT_EQ(subscription.wait(150), 0);
    EXPECT_EQ(subscription.received(), row + std::string(50, '#'));
    EXPECT_EQ(subscription.client._readBuffer, nullptr);
    return subscription.waitBegun() + Lines{dataReady, released, exitLine(0)};
  });
}

TEST(Wait, ReadsWithTheDchTimeout) {
  const ScriptedDch dch(never());
  Subscription subscription(dch);
  subscription.push({messageOfSize(20)});
  subscription.client._DCHtimeout = 17;
  subscription.client.setReadTimeout(3);
  const TraceCapture trace("0x10");
  EXPECT_EQ(subscription.wait(20), 0);
  EXPECT_THAT(trace.textsOf("ipcSock::ipcRead"),
              testing::Contains(testing::HasSubstr("initial wait=17")));
}

TEST(Wait, DeliversRowAfterRow) {
  const ScriptedDch dch(never());
  Subscription subscription(dch);
  subscription.push({messageOfSize(30), messageOfSize(31), messageOfSize(4096)});
  for (const std::size_t size : {30u, 31u, 4096u}) {
    EXPECT_EQ(subscription.wait(size), 0);
    EXPECT_EQ(subscription.received(), messageOfSize(size));
  }
}

TEST(Wait, AMessageOfTheBuffersSizeFits) {
  const ScriptedDch dch(never());
  Subscription subscription(dch);
  subscription.push({messageOfSize(64)});
  EXPECT_EQ(subscription.wait(64), 0);
  EXPECT_EQ(subscription.received(), messageOfSize(64));
}

TEST(Wait, ABufferOneByteTooSmallGetsNothing) {
  const ScriptedDch dch(never());
  expectTrace("DCHclient::dc_waitOnData", [&] {
    Subscription subscription(dch);
    subscription.push({messageOfSize(64)});
    TraceCapture::forget();
    EXPECT_EQ(subscription.wait(63), 1);
    EXPECT_EQ(subscription.received(), std::string(63, '#'));
    EXPECT_EQ(subscription.client._readBuffer, nullptr);
    return subscription.waitBegun() +
           Lines{dataReady, errorLine("Error: buflen=63 > bytesRead=64.\n"), released, exitLine(1)};
  });
}

std::vector<std::string> inDatagrams(const std::string& message) {
  std::vector<std::string> datagrams;
  for (std::size_t done = 0; done < message.size(); done += UDP_CHUNK_SIZE)
    datagrams.push_back(message.substr(done, UDP_CHUNK_SIZE));
  return datagrams;
}

TEST(Wait, DeliversAMessageOfSeveralDatagrams) {
  const ScriptedDch dch(never());
  Subscription subscription(dch);
  const std::string message = messageOfSize(3 * UDP_CHUNK_SIZE + 100);
  subscription.push(inDatagrams(message));
  EXPECT_EQ(subscription.wait(message.size()), 0);
  EXPECT_EQ(subscription.received(), message);
}

TEST(Wait, AMessageOfSeveralDatagramsIsBoundedByItsWholeLength) {
  const ScriptedDch dch(never());
  expectTrace("DCHclient::dc_waitOnData", [&] {
    Subscription subscription(dch);
    // The last datagram alone, whose count a read returns, would fit.
    subscription.push(inDatagrams(messageOfSize(UDP_CHUNK_SIZE + 100)));
    TraceCapture::forget();
    EXPECT_EQ(subscription.wait(8000), 1);
    EXPECT_EQ(subscription.received(), std::string(8000, '#'));
    return subscription.waitBegun() + Lines{dataReady,
                                            errorLine("Error: buflen=8000 > bytesRead=8292.\n"),
                                            released, exitLine(1)};
  });
}

TEST(Wait, AMessageThatCannotBeReadIsAFailure) {
  const ScriptedDch dch(never());
  expectTrace("DCHclient::dc_waitOnData", [&] {
    Subscription subscription(dch);
    subscription.push({bytesOf("00000000")});
    TraceCapture::forget();
    EXPECT_EQ(subscription.wait(64), 1);
    EXPECT_EQ(subscription.received(), std::string(64, '#'));
    return subscription.waitBegun() +
           Lines{dataReady,
                 errorLine("Error: while waiting 30 second(s) for dc_waitOnData response.\n"),
                 exitLine(1)};
  });
}

TEST(Wait, WithoutABufferIsAFailure) {
  const ScriptedDch dch(never());
  char buffer[8] = "kept";
  const std::pair<char*, short> none[] = {
      {buffer, short{0}}, {buffer, short{-1}}, {buffer, short{-32768}}, {nullptr, short{8}}};
  for (const auto& [address, length] : none) {
    expectTrace("DCHclient::dc_waitOnData", [&, address = address, length = length] {
      Subscription subscription(dch);
      TraceCapture::forget();
      EXPECT_EQ(subscription.client.dc_waitOnData(address, length), 1);
      EXPECT_STREQ(buffer, "kept");
      return Lines{entryLine(), errorLine("Error: User must specify an allocated buffer.\n"),
                   exitLine(1)};
    });
  }
}

TEST(Wait, AfterAFailureOnlyRepeatsIt) {
  const ScriptedDch dch(never());
  Subscription subscription(dch);
  EXPECT_EQ(subscription.client.dc_waitOnData(nullptr, 8), 1);
  subscription.push({messageOfSize(20)});
  EXPECT_EQ(subscription.wait(64), 1);
  EXPECT_EQ(subscription.received(), std::string(64, '#'));
  EXPECT_EQ(subscription.client.dc_waitOnDataCancel(), 1);
  EXPECT_EQ(subscription.client.dc_waitOnDataDestroy(), 1);
  EXPECT_EQ(dch.requests().size(), 1u);
}

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
        {TRC1_CLASS_DUMP, "DUMP[22] of dc_waitOnDataCancel request.\n"},
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
    {TRC1_CLASS_DUMP, "DUMP[47] of dc_waitOnDataDestroy request.\n"},
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
