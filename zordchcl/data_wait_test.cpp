// A client that subscribes to rows: what is sent, and what a wait does with what comes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/fake_transport.h"
#include "tests/support/scripted_dch.h"
#include "tests/support/trace_capture.h"
#include "zordchcl/test_subscription.h"

namespace {

using testing::IsEmpty;

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
        dumpLine("DUMP[47] of dc_waitOnDataInitialize request.\n"),
        detailLine("Writing dc_waitOnDataInitialize message. 47 bytes\n"),
        exitLine(0),
    };
  });
}

TEST(Subscribe, NullNamesAreRefused) {
  const std::pair<const char*, const char*> names[] = {
      {nullptr, "load"}, {"HOSTMON", nullptr}, {nullptr, nullptr}};
  for (const auto& [applName, attrGroup] : names) {
    expectTrace("DCHclient::dc_waitOnDataInitialize", [applName = applName, attrGroup = attrGroup] {
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
          dumpLine("DUMP[47] of dc_waitOnDataInitialize request.\n"),
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
    return subscription.waitBegun() + Lines{dataReady, releasedLine(), exitLine(0)};
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
    return subscription.waitBegun() + Lines{dataReady,
                                            errorLine("Error: buflen=63 > bytesRead=64.\n"),
                                            releasedLine(), exitLine(1)};
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
                                            releasedLine(), exitLine(1)};
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

}  // namespace
