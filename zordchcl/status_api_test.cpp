// The exported functions of a status subscription: their handles, their scope, the text that all
// callers share.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "tests/support/bytes.h"
#include "tests/support/scripted_dch.h"
#include "tests/support/trace_capture.h"
#include "zordchcl/DCHclient.h"
#include "zordchcl/test_lines.h"
#include "zordsock/zordsock.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

const std::string subscription = bytesOf("00000016 0010 00000002 2070 0011 00000004 00000001");
const std::string withdrawal = bytesOf("00000016 0010 00000002 2070 0011 00000004 00000000");

std::string notificationOf(const char* sourceName) {
  return messageOf([&](DCH_MessageBuilder& message) {
    message.add(DCH_applName, "HOSTMON")
        .add(DCH_attrGroup, "load")
        .add(DCH_sourceName, sourceName)
        .add(DCH_requestType, short{DCH_REQUEST_ONLINE});
  });
}

// The static buffer that an answered text stands in, all of it.
std::string wholeBuffer(const char* text) {
  return std::string(text, DCH_STATUS_TEXT_SIZE);
}

const std::string clearedBuffer(DCH_STATUS_TEXT_SIZE, '\0');

class StatusApi : public testing::Test {
 protected:
  StatusApi() : dch(never()) { DCH_api_init(); }

  // Both return when the DCH has what they send.
  void* subscribe() {
    void* const handle = dc_waitForDPStatusInitialize();
    EXPECT_NE(handle, nullptr);
    awaitNextRequest();
    return handle;
  }
  int destroy(void* handle) {
    const int result = dc_waitForDPStatusDestroy(handle);
    if (result == 0) awaitNextRequest();
    return result;
  }

  // A wait that a datagram ends.
  char* waitFor(void* handle, const std::string& datagram) {
    dch.push(datagram);
    return dc_waitForDPStatus(handle);
  }

  ScriptedDch dch;

 private:
  void awaitNextRequest() {
    ++_sent;
    EXPECT_THAT(dch.waitForRequests(_sent), SizeIs(_sent));
  }

  std::size_t _sent = 0;
};

TEST_F(StatusApi, AHandleLivesFromStartToStop) {
  void* const handle = subscribe();
  EXPECT_STREQ(waitFor(handle, notificationOf("one")), "HOSTMON,load,one,4117");
  EXPECT_STREQ(waitFor(handle, notificationOf("two")), "HOSTMON,load,two,4117");
  EXPECT_EQ(destroy(handle), 0);
  EXPECT_THAT(dch.requests(), ElementsAre(subscription, withdrawal));
}

TEST_F(StatusApi, AHandleHasASocketOfItsOwnAndNoInterrupt) {
  void* const handle = subscribe();
  const auto* const client = static_cast<DCHclient*>(handle);
  EXPECT_EQ(static_cast<ipcSock*>(client->_ipcClient)->_useFromSockPool, 0);
  EXPECT_EQ(client->_interruptFD, NO_SOCKET);
  EXPECT_EQ(destroy(handle), 0);
}

TEST_F(StatusApi, NotificationsAreReturnedOneByOneInOrder) {
  void* const handle = subscribe();
  for (const char* source : {"1", "2", "3"}) dch.push(notificationOf(source));
  for (const char* text : {"HOSTMON,load,1,4117", "HOSTMON,load,2,4117", "HOSTMON,load,3,4117"})
    EXPECT_STREQ(dc_waitForDPStatus(handle), text);
  EXPECT_EQ(destroy(handle), 0);
}

TEST_F(StatusApi, AWaitLastsUntilANotificationComes) {
  void* const handle = subscribe();
  const TraceCapture trace("*/DCHclient::dc_waitForDPStatus=0x10");
  std::string text;
  std::thread waiter([&] { text = dc_waitForDPStatus(handle); });
  EXPECT_TRUE(
      trace.waitFor(textOf("[@%p] Waiting for dc_waitForDPStatus response.\n",
                           static_cast<const void*>(static_cast<DCHclient*>(handle)->_ipcClient))));
  dch.push(notificationOf("late"));
  waiter.join();
  EXPECT_EQ(text, "HOSTMON,load,late,4117");
  EXPECT_EQ(destroy(handle), 0);
}

TEST_F(StatusApi, SeveralHandlesGetTheirOwnNotifications) {
  void* const first = subscribe();
  dch.push(notificationOf("first"));
  void* const second = subscribe();
  dch.push(notificationOf("second"));
  EXPECT_NE(first, second);
  EXPECT_STREQ(dc_waitForDPStatus(second), "HOSTMON,load,second,4117");
  EXPECT_EQ(destroy(second), 0);
  EXPECT_STREQ(dc_waitForDPStatus(first), "HOSTMON,load,first,4117");
  EXPECT_EQ(destroy(first), 0);
}

TEST_F(StatusApi, AllTextsStandInOneBufferThatTheNextWaitClears) {
  void* const handle = subscribe();
  char* const text = waitFor(handle, notificationOf("a-rather-long-source"));
  EXPECT_EQ(waitFor(handle, notificationOf("b")), text);
  EXPECT_EQ(wholeBuffer(text).substr(0, 25), std::string("HOSTMON,load,b,4117\0\0\0\0\0\0", 25));
  EXPECT_EQ(destroy(handle), 0);
  EXPECT_STREQ(text, "HOSTMON,load,b,4117") << "the text outlives its handle";
}

TEST_F(StatusApi, ANullHandleGivesNullAndAClearedBuffer) {
  void* const handle = subscribe();
  char* const text = waitFor(handle, notificationOf("hostA"));
  EXPECT_NE(wholeBuffer(text), clearedBuffer);
  expectTrace("dc_waitForDPStatus", [] {
    EXPECT_EQ(dc_waitForDPStatus(nullptr), nullptr);
    return Lines{entryLine(), returningNullLine()};
  });
  EXPECT_EQ(wholeBuffer(text), clearedBuffer);
  EXPECT_EQ(destroy(handle), 0);
}

TEST_F(StatusApi, AFailedWaitClearsTheBufferAndEndsTheHandlesUse) {
  void* const handle = subscribe();
  char* const text = waitFor(handle, notificationOf("hostA"));
  EXPECT_EQ(waitFor(handle, statusAnswer(0)), nullptr);
  EXPECT_EQ(wholeBuffer(text), clearedBuffer);
  EXPECT_EQ(waitFor(handle, notificationOf("hostB")), nullptr) << "at once, unread";
  EXPECT_EQ(destroy(handle), 1);
  EXPECT_THAT(dch.requests(), ElementsAre(subscription)) << "no withdrawal is sent";
}

TEST_F(StatusApi, DatagramsThatAreNoMessagesFailTheWait) {
  const std::string datagrams[] = {
      "",                                                 // no byte
      bytesOf("00"),                                      // less than a length word
      bytesOf("00000000"),                                // the length word of nothing
      bytesOf("00000003 00"),                             // a length that is its word's own part
      bytesOf("00000004 0020 00000002 'A' 00"),           // more than announced
      bytesOf("00000004"),                                // no fields
      bytesOf("00000010 0020 fffffff0 'A' 00 00000000"),  // a field that goes far beyond
  };
  for (const std::string& datagram : datagrams) {
    void* const handle = subscribe();
    EXPECT_EQ(waitFor(handle, datagram), nullptr) << testing::PrintToString(datagram);
    EXPECT_EQ(destroy(handle), 1);
  }
}

// ---- The scope -------------------------------------------------------------------------------

TEST_F(StatusApi, InitializeTracesItsEntryButNoExit) {
  expectTrace("dc_waitForDPStatusInitialize", [&] {
    destroy(subscribe());
    return Lines{entryLine(), storageLine("Allocated client_waitForDPStatus @{address}\n")};
  });
}

TEST_F(StatusApi, InitializeShowsItsHandle) {
  const TraceCapture trace("*/dc_waitForDPStatusInitialize=0x02");
  void* const handle = subscribe();
  EXPECT_THAT(trace.textsOf("dc_waitForDPStatusInitialize"),
              ElementsAre(textOf("Allocated client_waitForDPStatus @%p\n", handle)));
  destroy(handle);
}

TEST_F(StatusApi, AWaitTracesTheTextThatItReturns) {
  expectTrace("dc_waitForDPStatus", [&] {
    void* const handle = subscribe();
    waitFor(handle, notificationOf("hostA"));
    destroy(handle);
    return Lines{entryLine(), eventLine("<<Exit: HOSTMON,load,hostA,4117>>\n")};
  });
}

TEST_F(StatusApi, AFailedWaitTracesNoExit) {
  expectTrace("dc_waitForDPStatus", [&] {
    void* const handle = subscribe();
    waitFor(handle, statusAnswer(0));
    destroy(handle);
    return Lines{entryLine(), returningNullLine()};
  });
}

TEST_F(StatusApi, DestroyFreesTheHandleBeforeItsLastEvent) {
  void* const handle = subscribe();
  const TraceCapture trace("0x50");
  EXPECT_EQ(destroy(handle), 0);
  const auto records = trace.records();
  ASSERT_GE(records.size(), 3u);
  EXPECT_EQ(records.front().function, "dc_waitForDPStatusDestroy");
  EXPECT_EQ(records.front().text, "<<Entry>>\n");
  EXPECT_EQ(records[records.size() - 2].function, "DCHclient::~DCHclient");
  EXPECT_EQ(records.back().function, "dc_waitForDPStatusDestroy");
  EXPECT_EQ(records.back().text, "<<Exit: 0>>\n");
}

TEST_F(StatusApi, DestroyTracesItsResultAlone) {
  expectTrace("dc_waitForDPStatusDestroy", [&] {
    EXPECT_EQ(destroy(subscribe()), 0);
    return Lines{entryLine(), exitLine(0)};
  });
  expectTrace("dc_waitForDPStatusDestroy", [&] {
    void* const handle = subscribe();
    waitFor(handle, statusAnswer(0));
    EXPECT_EQ(destroy(handle), 1);
    return Lines{entryLine(), exitLine(1)};
  });
  expectTrace("dc_waitForDPStatusDestroy", [] {
    EXPECT_EQ(dc_waitForDPStatusDestroy(nullptr), 1);
    return Lines{entryLine(), exitLine(1)};
  });
}

TEST_F(StatusApi, DestroyFreesAFailedHandleToo) {
  void* const handle = subscribe();
  EXPECT_EQ(waitFor(handle, statusAnswer(0)), nullptr);
  const TraceCapture trace("*/DCHclient::~DCHclient=0x10");
  EXPECT_EQ(destroy(handle), 1);
  EXPECT_TRUE(trace.has(textOf("Deleting DCH Client object @%p\n", handle)));
}

}  // namespace
