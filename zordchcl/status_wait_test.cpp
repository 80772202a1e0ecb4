// A client's subscription to provider status: what is sent, how a notification becomes a text, what
// ends a wait.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/bytes.h"
#include "tests/support/fake_transport.h"
#include "tests/support/scripted_dch.h"
#include "tests/support/trace_capture.h"
#include "zordchcl/test_lines.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char initializeName[] = "DCHclient::dc_waitForDPStatusInitialize";
constexpr char waitName[] = "DCHclient::dc_waitForDPStatus";
constexpr char destroyName[] = "DCHclient::dc_waitForDPStatusDestroy";

const TraceLine writeError = errorLine("Error: writing dc_waitForDPStatus message to DCHserver\n");

// ---- Subscribing and withdrawing -------------------------------------------------------------

TEST(Subscription, StartsWithOneMessageAndNoAnswer) {
  expectTrace(initializeName, [] {
    FakedClient faked;
    EXPECT_EQ(faked.client.dc_waitForDPStatusInitialize(), 0);
    EXPECT_THAT(faked.transport.written,
                ElementsAre(bytesOf("00000016 0010 00000002 2070 0011 00000004 00000001")));
    EXPECT_THAT(faked.transport.flags, ElementsAre(0u));
    EXPECT_THAT(faked.transport.waits, IsEmpty());
    return Lines{
        entryLine(),
        dumpLine("DUMP[22] of dc_waitForDPStatusInitialize request.\n"),
        detailLine("Writing dc_waitForDPStatus message. 22 bytes\n"),
        exitLine(0),
    };
  });
}

TEST(Subscription, EndsWithOneMessageAndNoAnswer) {
  expectTrace(destroyName, [] {
    FakedClient faked;
    EXPECT_EQ(faked.client.dc_waitForDPStatusDestroy(), 0);
    EXPECT_THAT(faked.transport.written,
                ElementsAre(bytesOf("00000016 0010 00000002 2070 0011 00000004 00000000")));
    EXPECT_THAT(faked.transport.flags, ElementsAre(0u));
    EXPECT_THAT(faked.transport.waits, IsEmpty());
    return Lines{
        entryLine(),
        dumpLine("DUMP[22] of dc_waitForDPStatusDestroy request.\n"),
        detailLine("Writing dc_waitForDPStatus message. 22 bytes"),
        exitLine(0),
    };
  });
}

TEST(Subscription, DumpsTheMessageBehindItsHeading) {
  FakedClient faked;
  const TraceCapture trace("0x04");
  faked.client.dc_waitForDPStatusInitialize();
  EXPECT_THAT(
      trace.texts(),
      ElementsAre("DUMP[22] of dc_waitForDPStatusInitialize request.\n",
                  "0000  00 00 00 16 00 10 00 00 00 02 20 70 00 11 00 00  |.......... p....|\n",
                  "0010  00 04 00 00 00 01                                |......|\n"));
}

TEST(Subscription, StartsAMessageInAClearedBuffer) {
  FakedClient faked;
  std::fill_n(faked.client._msgBuffer, sizeof faked.client._msgBuffer, '#');
  faked.client.dc_waitForDPStatusInitialize();
  EXPECT_EQ(std::string(faked.client._msgBuffer + 22, 4096 - 22), std::string(4096 - 22, '\0'));
}

TEST(Subscription, AShortWriteIsAFailure) {
  for (const ZORA_Long count : {-1, 0, 21, 23}) {
    expectTrace(initializeName, [&] {
      FakedClient faked;
      faked.transport.writeResult = count;
      EXPECT_EQ(faked.client.dc_waitForDPStatusInitialize(), 1);
      EXPECT_EQ(faked.client._clientError, 1);
      return Lines{
          entryLine(),
          dumpLine("DUMP[22] of dc_waitForDPStatusInitialize request.\n"),
          detailLine("Writing dc_waitForDPStatus message. 22 bytes\n"),
          writeError,
          exitLine(1),
      };
    });
    expectTrace(destroyName, [&] {
      FakedClient faked;
      faked.transport.writeResult = count;
      EXPECT_EQ(faked.client.dc_waitForDPStatusDestroy(), 1);
      EXPECT_EQ(faked.client._clientError, 1);
      return Lines{
          entryLine(),
          dumpLine("DUMP[22] of dc_waitForDPStatusDestroy request.\n"),
          detailLine("Writing dc_waitForDPStatus message. 22 bytes"),
          writeError,
          exitLine(1),
      };
    });
  }
}

TEST(Subscription, SendsNothingOnceTheLatchIsSet) {
  for (const ZORA_Long latch : {1, 4}) {
    FakedClient faked;
    faked.client._clientError = latch;
    EXPECT_EQ(faked.client.dc_waitForDPStatusInitialize(), latch);
    EXPECT_EQ(faked.client.dc_waitForDPStatusDestroy(), latch);
    EXPECT_THAT(faked.transport.written, IsEmpty());
  }
  for (const char* function : {initializeName, destroyName}) {
    expectTrace(function, [] {
      FakedClient faked;
      faked.client._clientError = 1;
      faked.client.dc_waitForDPStatusInitialize();
      faked.client.dc_waitForDPStatusDestroy();
      return Lines{entryLine(), exitLine(1)};
    });
  }
}

// ---- Notifications ---------------------------------------------------------------------------

std::string notification(const std::string& applName, const std::string& attrGroup,
                         const std::string& sourceName, short requestType) {
  return messageOf([&](DCH_MessageBuilder& message) {
    message.add(DCH_applName, applName.c_str())
        .add(DCH_attrGroup, attrGroup.c_str())
        .add(DCH_sourceName, sourceName.c_str())
        .add(DCH_requestType, requestType);
  });
}

// What a wait makes of one message.
std::string textFor(const std::string& message) {
  FakedClient faked;
  faked.transport.answers = {message};
  const char* const text = faked.client.dc_waitForDPStatus();
  EXPECT_EQ(faked.client._readBuffer, nullptr);
  return text != nullptr ? text : "(null)";
}

TEST(Notification, BecomesALineOfText) {
  expectTrace(waitName, [] {
    FakedClient faked;
    faked.transport.answers = {notification("HOSTMON", "load", "hostA", 0x1015)};
    char* const text = faked.client.dc_waitForDPStatus();
    EXPECT_EQ(text, faked.client._msgBuffer);
    EXPECT_STREQ(text, "HOSTMON,load,hostA,4117");
    EXPECT_THAT(faked.transport.waits, ElementsAre(0)) << "without limit";
    EXPECT_THAT(faked.transport.written, IsEmpty());
    EXPECT_EQ(faked.client._readBuffer, nullptr);
    EXPECT_EQ(faked.client._clientError, 0);
    return Lines{
        entryLine(),
        waitingLine("dc_waitForDPStatus"),
        detailLine("applName <HOSTMON>\n"),
        detailLine("attrGroup <load>\n"),
        detailLine("sourceName <hostA>\n"),
        detailLine("requestType <4117>\n"),
        detailLine("Returning response <HOSTMON,load,hostA,4117>\n"),
        releasedLine(),
        eventLine("<<Exit: {address}>>\n"),
    };
  });
}

TEST(Notification, NamesTheTransportAndTheTextByTheirAddresses) {
  FakedClient faked;
  faked.transport.answers = {notification("A", "g", "s", 1)};
  const TraceCapture trace;
  char* const text = faked.client.dc_waitForDPStatus();
  EXPECT_TRUE(trace.has(textOf("[@%p] Waiting for dc_waitForDPStatus response.\n",
                               static_cast<void*>(&faked.transport))));
  EXPECT_TRUE(trace.has(textOf("<<Exit: %p>>\n", static_cast<void*>(text))));
}

TEST(Notification, ClearsWhatTheTextDoesNotFill) {
  FakedClient faked;
  std::fill_n(faked.client._msgBuffer, sizeof faked.client._msgBuffer, '#');
  faked.transport.answers = {notification("A", "g", "s", 1)};
  const std::string text = faked.client.dc_waitForDPStatus();
  EXPECT_EQ(std::string(faked.client._msgBuffer + text.size(), 4096 - text.size()),
            std::string(4096 - text.size(), '\0'));
}

TEST(Notification, ShowsItsRequestTypeWithItsSign) {
  EXPECT_EQ(textFor(notification("A", "g", "s", -1)), "A,g,s,-1");
  EXPECT_EQ(textFor(notification("A", "g", "s", 0)), "A,g,s,0");
  EXPECT_EQ(textFor(notification("A", "g", "s", 32767)), "A,g,s,32767");
  EXPECT_EQ(textFor(notification("A", "g", "s", -32768)), "A,g,s,-32768");
}

TEST(Notification, MayHaveEmptyNames) {
  EXPECT_EQ(textFor(notification("", "", "hostA", 0x1010)), ",,hostA,4112");
  EXPECT_EQ(textFor(notification("", "", "", 0x1020)), ",,,4128");
}

TEST(Notification, KeepsCommasAndPercentSignsInNames) {
  EXPECT_EQ(textFor(notification("a,b", "%s", "%n,", 0x1025)), "a,b,%s,%n,,4133");
}

TEST(Notification, NamesOfFullLengthAreKeptAndLongerOnesCut) {
  const auto letters = [](std::size_t count) { return std::string(count, 'n'); };
  const std::string full = letters(20) + "," + letters(32) + "," + letters(32) + ",4117";
  EXPECT_EQ(textFor(notification(letters(20), letters(32), letters(32), 0x1015)), full);
  EXPECT_EQ(textFor(notification(letters(21), letters(33), letters(33), 0x1015)), full);
  EXPECT_EQ(textFor(notification(letters(5000), letters(5000), letters(5000), 0x1015)), full);
  expectTrace(waitName, [&] {
    textFor(notification(letters(21), letters(33), letters(33), 0x1015));
    return Lines{
        entryLine(),
        waitingLine("dc_waitForDPStatus"),
        detailLine("applName <" + letters(20) + ">\n"),
        detailLine("attrGroup <" + letters(32) + ">\n"),
        detailLine("sourceName <" + letters(32) + ">\n"),
        detailLine("requestType <4117>\n"),
        detailLine("Returning response <" + full + ">\n"),
        releasedLine(),
        eventLine("<<Exit: {address}>>\n"),
    };
  });
}

TEST(Notification, ATextEndsAtItsFirstZero) {
  EXPECT_EQ(textFor(bytesOf("00000027 0020 00000005 'A' 00 'xy' 00 0023 00000002 'g' 00"
                            "0022 00000002 's' 00 0010 00000002 1015")),
            "A,g,s,4117");
}

TEST(Notification, FieldsBehindTheLastAreNotLookedAt) {
  std::string message = messageOf([](DCH_MessageBuilder& fields) {
    fields.add(DCH_applName, "A")
        .add(DCH_attrGroup, "g")
        .add(DCH_sourceName, "s")
        .add(DCH_requestType, short{1})
        .add(DCH_status, ZORA_Long{2});
  });
  EXPECT_EQ(textFor(message), "A,g,s,1");
}

// ---- Notifications that are none -------------------------------------------------------------

std::string messageWith(const std::string& fields) {
  const auto length = static_cast<unsigned>(4 + fields.size());
  return bytesOf(textOf("%08x", length)) + fields;
}

const std::string applA = bytesOf("0020 00000002 'A' 00");
const std::string groupG = bytesOf("0023 00000002 'g' 00");
const std::string sourceS = bytesOf("0022 00000002 's' 00");
const std::string type1 = bytesOf("0010 00000002 0001");

const Lines applSeen = {detailLine("applName <A>\n")};
const Lines groupSeen = applSeen + Lines{detailLine("attrGroup <g>\n")};
const Lines sourceSeen = groupSeen + Lines{detailLine("sourceName <s>\n")};

// A wait that gets `fields` sees as much as `seen` and then misses `name`, finding `type`.
void expectMissing(const std::string& fields, const Lines& seen, const char* name, int type) {
  expectTrace(waitName, [&] {
    FakedClient faked;
    faked.transport.answers = {messageWith(fields)};
    EXPECT_EQ(faked.client.dc_waitForDPStatus(), nullptr);
    EXPECT_EQ(faked.client._clientError, 1);
    EXPECT_EQ(faked.client._readBuffer, nullptr);
    return Lines{entryLine(), waitingLine("dc_waitForDPStatus")} + seen +
           Lines{errorLine(textOf("Error: dataType of %s missing: %d\n", name, type)),
                 releasedLine(), returningNullLine()};
  });
}

TEST(BrokenNotification, WithoutItsApplication) {
  expectMissing("", {}, "DCH_applName", 0);
  expectMissing(groupG + sourceS + type1, {}, "DCH_applName", DCH_attrGroup);
  expectMissing(bytesOf("0011 00000004 00000000") + applA + groupG + sourceS + type1, {},
                "DCH_applName", DCH_status);
}

TEST(BrokenNotification, WithoutItsGroup) {
  expectMissing(applA, applSeen, "DCH_attrGroup", 0);
  expectMissing(applA + sourceS + type1, applSeen, "DCH_attrGroup", DCH_sourceName);
  expectMissing(applA + applA + groupG + sourceS + type1, applSeen, "DCH_attrGroup", DCH_applName);
}

TEST(BrokenNotification, WithoutItsSource) {
  expectMissing(applA + groupG, groupSeen, "DCH_sourceName", 0);
  expectMissing(applA + groupG + type1, groupSeen, "DCH_sourceName", DCH_requestType);
}

TEST(BrokenNotification, WithoutItsRequestType) {
  expectMissing(applA + groupG + sourceS, sourceSeen, "DCH_requestType", 0);
  expectMissing(applA + groupG + sourceS + sourceS, sourceSeen, "DCH_requestType", DCH_sourceName);
}

TEST(BrokenNotification, WithFieldsThatDoNotFit) {
  const std::string rest = groupG + sourceS + type1;
  expectMissing(bytesOf("0020 000000ff 'A' 00") + rest, {}, "DCH_applName", 0);
  expectMissing(bytesOf("0020 ffffffff 'A' 00") + rest, {}, "DCH_applName", 0);
  expectMissing(bytesOf("0020 7fffffff 'A' 00") + rest, {}, "DCH_applName", 0);
  expectMissing(bytesOf("0020 0000"), {}, "DCH_applName", 0);
  expectMissing(applA + bytesOf("0023 00000003 'g' 00"), applSeen, "DCH_attrGroup", 0);
}

TEST(BrokenNotification, WithTextsThatDoNotEnd) {
  expectMissing(bytesOf("0020 00000001 'A'") + groupG + sourceS + type1, {}, "DCH_applName", 0);
  expectMissing(bytesOf("0020 00000000") + groupG + sourceS + type1, {}, "DCH_applName", 0);
  expectMissing(applA + groupG + bytesOf("0022 00000001 's'"), groupSeen, "DCH_sourceName", 0);
}

TEST(BrokenNotification, WithARequestTypeOfAnotherWidth) {
  const std::string names = applA + groupG + sourceS;
  expectMissing(names + bytesOf("0010 00000004 00000001"), sourceSeen, "DCH_requestType", 0);
  expectMissing(names + bytesOf("0010 00000001 01"), sourceSeen, "DCH_requestType", 0);
}

TEST(BrokenNotification, WithTypesThatNobodyKnows) {
  expectMissing(bytesOf("03e7 00000001 'x'") + applA, {}, "DCH_applName", 999);
  expectMissing(bytesOf("ffff 00000000") + applA, {}, "DCH_applName", -1);
}

// ---- Waits that fail -------------------------------------------------------------------------

TEST(FailedWait, ReturnsNull) {
  for (const ZORA_Long count : {-1, 0}) {
    expectTrace(waitName, [&] {
      FakedClient faked;
      faked.transport.failedRead = count;
      EXPECT_EQ(faked.client.dc_waitForDPStatus(), nullptr);
      EXPECT_EQ(faked.client._clientError, 1);
      return Lines{
          entryLine(),
          waitingLine("dc_waitForDPStatus"),
          errorLine("Error: ipcRead with wait[FOREVER] failed\n"),
          returningNullLine(),
      };
    });
  }
}

TEST(FailedWait, ACountWithoutAMessageIsOne) {
  FakedClient faked;
  faked.transport.failedRead = 8192;
  const TraceCapture trace("0x80");
  EXPECT_EQ(faked.client.dc_waitForDPStatus(), nullptr);
  EXPECT_EQ(faked.client._clientError, 1);
  EXPECT_THAT(trace.texts(), ElementsAre("Error: ipcRead with wait[FOREVER] failed\n"));
}

TEST(FailedWait, OnACancelledClientReadsAndReturnsNullAllTheSame) {
  expectTrace(waitName, [] {
    FakedClient faked;
    faked.client._clientError = -1;
    faked.transport.answers = {notification("A", "g", "s", 1)};
    EXPECT_EQ(faked.client.dc_waitForDPStatus(), nullptr);
    EXPECT_EQ(faked.client._clientError, -1);
    return Lines{entryLine(), waitingLine("dc_waitForDPStatus")} + sourceSeen +
           Lines{detailLine("requestType <1>\n"), detailLine("Returning response <A,g,s,1>\n"),
                 releasedLine(), returningNullLine()};
  });
}

TEST(FailedWait, MakesEveryLaterWaitReturnNullWithoutReading) {
  expectTrace(waitName, [] {
    FakedClient faked;
    faked.client._clientError = 1;
    faked.transport.answers = {notification("A", "g", "s", 1)};
    EXPECT_EQ(faked.client.dc_waitForDPStatus(), nullptr);
    EXPECT_THAT(faked.transport.waits, IsEmpty());
    return Lines{entryLine(), returningNullLine()};
  });
  FakedClient faked;
  faked.transport.answers = {messageWith(""), notification("A", "g", "s", 1)};
  EXPECT_EQ(faked.client.dc_waitForDPStatus(), nullptr);
  EXPECT_EQ(faked.client.dc_waitForDPStatus(), nullptr);
  EXPECT_EQ(faked.transport.waits.size(), 1u);
  EXPECT_EQ(faked.client.dc_waitForDPStatusDestroy(), 1);
  EXPECT_THAT(faked.transport.written, IsEmpty()) << "no withdrawal";
}

}  // namespace
