// A client's requests for an action, for its result, and for the deferral of a report.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>

#include "tests/support/bytes.h"
#include "tests/support/fake_transport.h"
#include "tests/support/scripted_dch.h"
#include "tests/support/trace_capture.h"
#include "zordchcl/test_lines.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// ---- dc_provideAction ------------------------------------------------------------------------

constexpr char provideName[] = "DCHclient::dc_provideAction";

constexpr int actionLength = 73;
const std::string actionFields = bytesOf(
    "0010 00000002 2080 0100 00000002 0003 0150 00000006 'owner' 00"
    "0022 00000005 'node' 00 0022 00000004 'sub' 00 0110 00000004 'act' 00"
    "0120 00000004 00000011");

ZORA_Long provide(DCHclient& client, const char* actionParms) {
  return client.dc_provideAction(3, "owner", "node", "sub", "act", 17, actionParms);
}

const Lines actionShown = {
    entryLine(),
    detailLine("actionType  : <3> "),
    detailLine("actionOwner : <owner> "),
    detailLine("subNode     : <sub> "),
    detailLine("actionNode  : <node> "),
    detailLine("actionName  : <act> "),
    detailLine("actionID    : <17> "),
};

TEST(ProvideAction, WithoutParametersSendsSevenFields) {
  expectTrace(provideName, [] {
    FakedClient faked;
    EXPECT_EQ(provide(faked.client, nullptr), 0);
    EXPECT_THAT(faked.transport.written, ElementsAre(bytesOf("00000049") + actionFields));
    EXPECT_THAT(faked.transport.flags, ElementsAre(0u));
    EXPECT_THAT(faked.transport.waits, IsEmpty()) << "there is no answer";
    return actionShown + writingLines("dc_provideAction", actionLength) + Lines{exitLine(0)};
  });
}

TEST(ProvideAction, WithParametersSendsEightFields) {
  expectTrace(provideName, [] {
    FakedClient faked;
    EXPECT_EQ(provide(faked.client, "p LOGONID=u"), 0);
    EXPECT_THAT(faked.transport.written, ElementsAre(bytesOf("0000005b") + actionFields +
                                                     bytesOf("0130 0000000c 'p LOGONID=u' 00")));
    return actionShown + Lines{detailLine("actionParms: <p> ")} +
           writingLines("dc_provideAction", actionLength + 18) + Lines{exitLine(0)};
  });
}

TEST(ProvideAction, WithEmptyParametersSendsThem) {
  FakedClient faked;
  EXPECT_EQ(provide(faked.client, ""), 0);
  EXPECT_THAT(faked.transport.written,
              ElementsAre(bytesOf("00000050") + actionFields + bytesOf("0130 00000001 00")));
}

TEST(ProvideAction, CarriesNegativeNumbersAndEmptyTexts) {
  FakedClient faked;
  EXPECT_EQ(faked.client.dc_provideAction(-1, "", nullptr, "", nullptr, -2, nullptr), 0);
  EXPECT_THAT(faked.transport.written,
              ElementsAre(bytesOf("0000003a 0010 00000002 2080 0100 00000002 ffff"
                                  "0150 00000001 00 0022 00000001 00 0022 00000001 00"
                                  "0110 00000001 00 0120 00000004 fffffffe")));
}

TEST(ProvideAction, ThatIsNotWrittenWholeIsAFailure) {
  for (const ZORA_Long count : {-1, 0, actionLength - 1, actionLength + 1}) {
    expectTrace(provideName, [&] {
      FakedClient faked;
      faked.transport.writeResult = count;
      EXPECT_EQ(provide(faked.client, nullptr), 1);
      EXPECT_EQ(faked.client._clientError, 1);
      EXPECT_THAT(faked.transport.waits, IsEmpty());
      return actionShown + writingLines("dc_provideAction", actionLength) +
             Lines{writeErrorLine("dc_provideAction"), exitLine(1)};
    });
  }
}

TEST(ProvideAction, HasRoomForItsLongestTextsAndNoMore) {
  const std::string longest(4031 - 15, 'p');  // 15 are those of the other texts
  FakedClient fitting;
  EXPECT_EQ(provide(fitting.client, longest.c_str()), 0);
  EXPECT_EQ(fitting.transport.written.at(0).size(), 4096u);
  expectTrace(provideName, [&] {
    FakedClient faked;
    EXPECT_EQ(provide(faked.client, (longest + "p").c_str()), 1);
    EXPECT_EQ(faked.client._clientError, 1);
    EXPECT_THAT(faked.transport.written, IsEmpty());
    return actionShown +
           Lines{errorLine("Error: dc_provideAction message is longer than 4096 bytes\n"),
                 exitLine(1)};
  });
}

TEST(ProvideAction, SendsNothingOnceTheLatchIsSet) {
  for (const ZORA_Long latch : {1, 4}) {
    expectTrace(provideName, [&] {
      FakedClient faked;
      faked.client._clientError = latch;
      EXPECT_EQ(provide(faked.client, "p LOGONID=u"), latch);
      EXPECT_THAT(faked.transport.written, IsEmpty());
      return Lines{entryLine(), exitLine(latch)};
    });
  }
}

TEST(ProvideAction, StartsItsMessageInAClearedBuffer) {
  FakedClient faked;
  std::fill_n(faked.client._msgBuffer, sizeof faked.client._msgBuffer, '#');
  provide(faked.client, nullptr);
  EXPECT_EQ(std::string(faked.client._msgBuffer + actionLength, 4096 - actionLength),
            std::string(4096 - actionLength, '\0'));
}

// ---- dc_waitForActionResults -----------------------------------------------------------------

constexpr char resultsName[] = "DCHclient::dc_waitForActionResults";

const Lines resultsWritten = Lines{entryLine(), detailLine("actionID   : <17>\n")} +
                             writingLines("dc_waitForActionResults", 22);
const TraceLine resultsWaiting = waitingLine("dc_waitForActionResults");
const TraceLine gettingResults = detailLine("Getting action results.\n");
const TraceLine quickWaitFailed = errorLine("Error: ipcRead with wait[1 second] failed\n");

TEST(ActionResults, AreTheStatusOfTheAnswer) {
  for (const int result : {0, 1, -1, 42, -2147483647 - 1}) {
    expectTrace(resultsName, [&] {
      FakedClient faked;
      faked.transport.answers = {statusAnswer(result)};
      EXPECT_EQ(faked.client.dc_waitForActionResults(17), result);
      EXPECT_EQ(faked.client._clientError, 0);
      EXPECT_EQ(faked.client._readBuffer, nullptr);
      EXPECT_THAT(faked.transport.written,
                  ElementsAre(bytesOf("00000016 0010 00000002 2090 0120 00000004 00000011")));
      EXPECT_THAT(faked.transport.flags, ElementsAre(0u));
      EXPECT_THAT(faked.transport.waits, ElementsAre(30));
      return resultsWritten + Lines{resultsWaiting, gettingResults,
                                    detailLine(textOf("actionResults: <%d>\n", result)),
                                    releasedLine(), exitLine(result)};
    });
  }
}

TEST(ActionResults, AreAwaitedForTheDchTimeoutAndNoOther) {
  FakedClient faked;
  faked.client._DCHtimeout = 7;
  faked.client.setReadTimeout(9);
  faked.client.dc_waitForActionResults(17);
  EXPECT_THAT(faked.transport.waits, ElementsAre(7));
}

void expectNoStatusField(const std::string& answer, int type) {
  expectTrace(resultsName, [&] {
    FakedClient faked;
    faked.transport.answers = {answer};
    EXPECT_EQ(faked.client.dc_waitForActionResults(17), -1);
    EXPECT_EQ(faked.client._clientError, 1);
    EXPECT_EQ(faked.client._readBuffer, nullptr);
    return resultsWritten +
           Lines{resultsWaiting, gettingResults,
                 errorLine(textOf("Error: dataType of DCH_status missing: %d\n", type)),
                 releasedLine(), exitLine(-1)};
  });
}

TEST(ActionResults, WithoutAStatusFieldAreNone) {
  expectNoStatusField(bytesOf("0000000c 0020 00000002 'A' 00"), DCH_applName);
  expectNoStatusField(bytesOf("00000004"), 0);
  expectNoStatusField(bytesOf("0000000c 0011 00000002 0001"), 0);
  expectNoStatusField(bytesOf("0000000c 0011 00000004 0001"), 0);
  expectNoStatusField(bytesOf("0000000a ffff 00000000"), -1);
}

TEST(ActionResults, AreNoneWhenNothingIsRead) {
  for (const ZORA_Long timeout : {1, 2, 30}) {
    for (const ZORA_Long count : {-1, 0, 8192}) {
      expectTrace(resultsName, [&] {
        FakedClient faked;
        faked.client._DCHtimeout = timeout;
        faked.transport.failedRead = count;
        EXPECT_EQ(faked.client.dc_waitForActionResults(17), -1);
        EXPECT_EQ(faked.client._clientError, 1);
        const Lines told = timeout == 1 ? Lines{quickWaitFailed} : Lines{};
        return resultsWritten + Lines{resultsWaiting} + told + Lines{exitLine(-1)};
      });
    }
  }
}

TEST(ActionResults, AreAwaitedEvenAfterAFailedWriteButDoNotCountThen) {
  for (const ZORA_Long count : {-1, 0, 21, 23}) {
    expectTrace(resultsName, [&] {
      FakedClient faked;
      faked.transport.writeResult = count;
      faked.transport.answers = {statusAnswer(42)};
      EXPECT_EQ(faked.client.dc_waitForActionResults(17), -1);
      EXPECT_EQ(faked.client._clientError, 1);
      EXPECT_THAT(faked.transport.waits, ElementsAre(30));
      return resultsWritten +
             Lines{writeErrorLine("dc_waitForActionResults"), resultsWaiting, gettingResults,
                   detailLine("actionResults: <42>\n"),       releasedLine(), exitLine(-1)};
    });
  }
}

TEST(ActionResults, TellBothFailures) {
  expectTrace(resultsName, [] {
    FakedClient faked;
    faked.client._DCHtimeout = 1;
    faked.transport.writeResult = -1;
    EXPECT_EQ(faked.client.dc_waitForActionResults(17), -1);
    return resultsWritten + Lines{writeErrorLine("dc_waitForActionResults"), resultsWaiting,
                                  quickWaitFailed, exitLine(-1)};
  });
}

TEST(ActionResults, AreNoneOnceTheLatchIsSet) {
  for (const ZORA_Long latch : {1, 4}) {
    expectTrace(resultsName, [&] {
      FakedClient faked;
      faked.client._clientError = latch;
      faked.transport.answers = {statusAnswer(42)};
      EXPECT_EQ(faked.client.dc_waitForActionResults(17), -1);
      EXPECT_EQ(faked.client._clientError, latch);
      EXPECT_THAT(faked.transport.written, IsEmpty());
      EXPECT_THAT(faked.transport.waits, IsEmpty());
      return Lines{entryLine(), exitLine(-1)};
    });
  }
}

// ---- dc_deferReportRequest -------------------------------------------------------------------

constexpr char deferName[] = "DCHclient::dc_deferReportRequest";
constexpr int deferLength = 76;

void* addressOf(std::uintptr_t number) {
  return reinterpret_cast<void*>(number);
}

ZORA_Long defer(DCHclient& client, void* peltaObject = addressOf(0x12345678)) {
  return client.dc_deferReportRequest(peltaObject, 17, 1900000000, "HMN", "table", "hostA");
}

const Lines deferShown = {
    entryLine(),
    detailLine("actionID    : <17>\n"),
    detailLine("peltaObject : <@0x12345678>\n"),
    detailLine("currentTime : <1900000000>\n"),
    detailLine("applKey     : <HMN>\n"),
    detailLine("tableName   : <table>\n"),
    detailLine("sourceName  : <hostA>\n"),
};
const Lines deferWriting = {
    dumpLine("DUMP[76] of dc_deferReportRequest:"),
    detailLine("Writing dc_deferReportRequest message. 76 bytes"),
};

TEST(DeferReportRequest, SendsItsSevenFields) {
  expectTrace(deferName, [] {
    FakedClient faked;
    EXPECT_EQ(defer(faked.client), 0);
    EXPECT_THAT(faked.transport.written,
                ElementsAre(bytesOf("0000004c 0010 00000002 20a0 0120 00000004 00000011"
                                    "0170 00000004 12345678 0160 00000004 713fb300"
                                    "0021 00000004 'HMN' 00 0024 00000006 'table' 00"
                                    "0022 00000006 'hostA' 00")));
    EXPECT_THAT(faked.transport.flags, ElementsAre(0u));
    EXPECT_THAT(faked.transport.waits, IsEmpty()) << "there is no answer";
    return deferShown + deferWriting + Lines{exitLine(0)};
  });
}

TEST(DeferReportRequest, DumpsTheMessageBehindItsHeading) {
  FakedClient faked;
  const TraceCapture trace("0x04");
  defer(faked.client);
  const std::vector<std::string> texts = trace.texts();
  ASSERT_EQ(texts.size(), 1u + (deferLength + 15) / 16);
  EXPECT_EQ(texts[0], "DUMP[76] of dc_deferReportRequest:");
  EXPECT_EQ(texts[1],
            "0000  00 00 00 4c 00 10 00 00 00 02 20 a0 01 20 00 00  |...L...... .. ..|\n");
}

TEST(DeferReportRequest, CarriesTheLow32BitsOfTheAddress) {
  const auto carried = [](std::uintptr_t number) {
    FakedClient faked;
    defer(faked.client, addressOf(number));
    return faked.transport.written.at(0).substr(28, 4);
  };
  EXPECT_EQ(carried(0), bytesOf("00000000"));
  EXPECT_EQ(carried(0x89abcdef), bytesOf("89abcdef"));
  EXPECT_EQ(carried(UINTPTR_MAX - 1), bytesOf("fffffffe"));
  if constexpr (sizeof(std::uintptr_t) == 8) {
    EXPECT_EQ(carried(static_cast<std::uintptr_t>(0x0123456789abcdefULL)), bytesOf("89abcdef"));
  }
}

TEST(DeferReportRequest, CarriesNegativeNumbersAndEmptyTexts) {
  FakedClient faked;
  EXPECT_EQ(faked.client.dc_deferReportRequest(nullptr, -1, -2, "", nullptr, ""), 0);
  EXPECT_THAT(faked.transport.written,
              ElementsAre(bytesOf("0000003f 0010 00000002 20a0 0120 00000004 ffffffff"
                                  "0170 00000004 00000000 0160 00000004 fffffffe"
                                  "0021 00000001 00 0024 00000001 00 0022 00000001 00")));
}

TEST(DeferReportRequest, ThatIsNotWrittenWholeIsAFailure) {
  for (const ZORA_Long count : {-1, 0, deferLength - 1, deferLength + 1}) {
    expectTrace(deferName, [&] {
      FakedClient faked;
      faked.transport.writeResult = count;
      EXPECT_EQ(defer(faked.client), 1);
      EXPECT_EQ(faked.client._clientError, 1);
      EXPECT_THAT(faked.transport.waits, IsEmpty());
      return deferShown + deferWriting +
             Lines{errorLine("Error: writing dc_deferReportRequest message to DCHserver"),
                   exitLine(1)};
    });
  }
}

TEST(DeferReportRequest, HasRoomForItsLongestTextsAndNoMore) {
  const std::string longest(4033, 't');
  FakedClient fitting;
  EXPECT_EQ(fitting.client.dc_deferReportRequest(nullptr, 1, 2, "", longest.c_str(), ""), 0);
  EXPECT_EQ(fitting.transport.written.at(0).size(), 4096u);
  FakedClient faked;
  const TraceCapture trace("0x80");
  EXPECT_EQ(faked.client.dc_deferReportRequest(nullptr, 1, 2, "", (longest + "t").c_str(), ""), 1);
  EXPECT_EQ(faked.client._clientError, 1);
  EXPECT_THAT(faked.transport.written, IsEmpty());
  EXPECT_THAT(trace.texts(),
              ElementsAre("Error: dc_deferReportRequest message is longer than 4096 bytes\n"));
}

TEST(DeferReportRequest, SendsNothingOnceTheLatchIsSet) {
  for (const ZORA_Long latch : {1, 4}) {
    expectTrace(deferName, [&] {
      FakedClient faked;
      faked.client._clientError = latch;
      EXPECT_EQ(defer(faked.client), latch);
      EXPECT_THAT(faked.transport.written, IsEmpty());
      return Lines{entryLine(), exitLine(latch)};
    });
  }
}

TEST(DeferReportRequest, StartsItsMessageInAClearedBuffer) {
  FakedClient faked;
  std::fill_n(faked.client._msgBuffer, sizeof faked.client._msgBuffer, '#');
  defer(faked.client);
  EXPECT_EQ(std::string(faked.client._msgBuffer + deferLength, 4096 - deferLength),
            std::string(4096 - deferLength, '\0'));
}

}  // namespace
