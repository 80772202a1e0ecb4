// Registration, off line, unregistration: every outcome with its status, its result and its whole
// trace.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/scripted_dch.h"
#include "tests/support/trace_capture.h"
#include "zordchcl/test_outcome.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char registration[] = "appl:HOSTMON,HMN;group:load;attr:load1,D,16;";
constexpr int registrationSize = 86;

// ---- dp_register -----------------------------------------------------------------------------

const Call registers = [](DCHclient& client, ZORA_Long* status, ZORA_Long*) {
  return client.dp_register(status, registration);
};
const Call registersBadText = [](DCHclient& client, ZORA_Long* status, ZORA_Long*) {
  return client.dp_register(status, "appl:HOSTMON;");
};
const Lines registerWritten = written("dp_register", registrationSize);
const TraceLine badText =
    errorLine("Error: ZORP_ConstructDPregisterBuffer failed: [appl:HOSTMON;]\n");
const TraceLine registerUnwritten = errorLine(
    "Error: writing dp_register message to DCHserver for "
    "[appl:HOSTMON,HMN;group:load;attr:load1,D,16;]\n");

TEST(Register, TellsTheAnsweredStatus) {
  for (const ZORA_Long status : {0, 101, -7}) {
    const TraceLine told = detailLine(textOf("status <%d>\n", static_cast<int>(status)));
    expectOutcome(
        "dp_register", registers, {{statusAnswer(status)}, {}},
        {0, status,
         registerWritten + Lines{waitingLine("dp_register"), told, releasedLine(), exitLine(0)}});
  }
}

TEST(Register, DumpsTheMessageBehindItsHeading) {
  FakedClient faked;
  faked.transport.answers = {statusAnswer(0)};
  const TraceCapture trace("0x04");
  ZORA_Long status = untouched;
  faked.client.dp_register(&status, registration);
  const std::vector<std::string> texts = trace.texts();
  ASSERT_EQ(texts.size(), 1u + (registrationSize + 15) / 16);
  EXPECT_EQ(texts[1],
            "0000  00 00 00 56 00 10 00 00 00 02 10 10 00 20 00 00  |...V......... ..|\n");
}

TEST(Register, ABadTextStillWaitsAndEndsWithTheAnsweredStatus) {
  const Lines begun{entryLine(), badText, waitingLine("dp_register")};
  expectOutcome("dp_register", registersBadText, {{statusAnswer(101)}, {}},
                {1, 101, begun + Lines{detailLine("status <101>\n"), releasedLine(), exitLine(1)}});
  expectOutcome("dp_register", registersBadText, {{}, {}}, {1, 5, begun + Lines{exitLine(1)}});
}

TEST(Register, ABadTextSendsNothing) {
  FakedClient faked;
  ZORA_Long status = untouched;
  faked.client.dp_register(&status, "appl:HOSTMON;");
  EXPECT_THAT(faked.transport.written, IsEmpty());
  EXPECT_THAT(faked.transport.waits, ElementsAre(30));
}

TEST(Register, ANullTextIsABadText) {
  FakedClient faked;
  faked.transport.answers = {statusAnswer(0)};
  ZORA_Long status = untouched;
  EXPECT_EQ(faked.client.dp_register(&status, nullptr), 1);
  EXPECT_EQ(status, 0) << "the answer's";
}

TEST(Register, AFailedWriteStillWaitsAndEndsWithTheAnsweredStatus) {
  const Lines begun = registerWritten + Lines{registerUnwritten, waitingLine("dp_register")};
  for (const ZORA_Long count : {-1, 0, registrationSize - 1}) {
    expectOutcome("dp_register", registers, {{statusAnswer(0)}, count},
                  {1, 0, begun + Lines{detailLine("status <0>\n"), releasedLine(), exitLine(1)}});
    expectOutcome("dp_register", registers, {{}, count}, {1, 5, begun + Lines{exitLine(1)}});
  }
}

TEST(Register, TheReasonIsTheStatusUntilTheAnswerReplacesIt) {
  EXPECT_EQ(statusWhileWaiting(registersBadText), 1);
  EXPECT_EQ(statusWhileWaiting(registers, -1), 2);
  EXPECT_EQ(statusWhileWaiting(registers), 0);
}

TEST(Register, AFailedReadIsToldWhenTheTimeoutIsOneSecond) {
  const Lines begun = registerWritten + Lines{waitingLine("dp_register")};
  for (const ZORA_Long timeout : {30, 2, 0, -1})
    expectOutcome("dp_register", registers, {{}, {}, timeout}, {1, 5, begun + Lines{exitLine(1)}});
  expectOutcome(
      "dp_register", registers, {{}, {}, 1},
      {1, 5, begun + Lines{errorLine("Error: ipcRead with wait[1 second] failed\n"), exitLine(1)}});
}

TEST(Register, AnAnswerWithoutAStatusIsStatusTwo) {
  const Lines begun = registerWritten + Lines{waitingLine("dp_register")};
  expectOutcome("dp_register", registers, {{wrongAnswer()}, {}},
                {1, 2,
                 begun + Lines{errorLine("Error: dataType of DCH_status missing: 32\n"),
                               releasedLine(), exitLine(1)}});
  expectOutcome("dp_register", registers, {{emptyAnswer()}, {}},
                {1, 2,
                 begun + Lines{errorLine("Error: dataType of DCH_status missing: 0\n"),
                               releasedLine(), exitLine(1)}});
}

// ---- dp_offline and dp_unregister ------------------------------------------------------------

struct PlainRequest {
  std::string name;
  Call call;
  int length;
};

const PlainRequest plainRequests[] = {
    {"dp_offline",
     [](DCHclient& client, ZORA_Long* status, ZORA_Long*) {
       return client.dp_offline(status, 815);
     },
     22},
    {"dp_unregister",
     [](DCHclient& client, ZORA_Long* status, ZORA_Long*) {
       return client.dp_unregister(status, "HOSTMON");
     },
     26},
};

class Plain : public testing::TestWithParam<PlainRequest> {
 protected:
  const std::string& name() const { return GetParam().name; }
  Lines begun() const { return written(name(), GetParam().length); }
  void expect(const Ends& ends, const Outcome& outcome) const {
    expectOutcome(name(), GetParam().call, ends, outcome);
  }
};

TEST_P(Plain, TellsTheAnsweredStatus) {
  for (const ZORA_Long status : {0, 104, -1}) {
    const TraceLine told = detailLine(textOf(" returnStatus=%d\n", static_cast<int>(status)));
    expect({{statusAnswer(status)}, {}},
           {0, status,
            begun() + Lines{waitingLine(name()), detailLine("Getting Status info.\n"), told,
                            releasedLine(), exitLine(0)}});
  }
}

TEST_P(Plain, AFailedWriteIsStatusTwoWithoutAWait) {
  for (const ZORA_Long count : {-1, 0, GetParam().length - 1}) {
    expect({{statusAnswer(0)}, count},
           {1, 2,
            begun() + Lines{errorLine("Error: writing " + name() + " message to DCHserver\n"),
                            exitLine(1)}});
    FakedClient faked;
    faked.transport.writeResult = count;
    ZORA_Long status = untouched;
    GetParam().call(faked.client, &status, nullptr);
    EXPECT_THAT(faked.transport.waits, IsEmpty());
  }
}

TEST_P(Plain, AFailedReadIsToldWhenTheTimeoutIsOneSecond) {
  const Lines waited = begun() + Lines{waitingLine(name())};
  expect({{}, {}, 30}, {1, 5, waited + Lines{exitLine(1)}});
  expect({{}, {}, 1},
         {1, 5,
          waited + Lines{errorLine("Error: ipcRead with wait[1 second] failed\n"), exitLine(1)}});
}

TEST_P(Plain, AnAnswerWithoutAStatusIsStatusOne) {
  const Lines waited = begun() + Lines{waitingLine(name()), detailLine("Getting Status info.\n")};
  expect({{wrongAnswer()}, {}},
         {1, 1,
          waited + Lines{errorLine("Error: dataType of DCH_status missing: 32\n"), releasedLine(),
                         exitLine(1)}});
  expect({{emptyAnswer()}, {}},
         {1, 1,
          waited + Lines{errorLine("Error: dataType of DCH_status missing: 0\n"), releasedLine(),
                         exitLine(1)}});
}

TEST_P(Plain, AReadErrorCountsAsNoAnswer) {
  FakedClient faked;
  faked.transport.failedRead = -1;
  ZORA_Long status = untouched;
  EXPECT_EQ(GetParam().call(faked.client, &status, nullptr), 1);
  EXPECT_EQ(status, 5);
}

TEST_P(Plain, ACountWithoutAMessageCountsAsNoAnswer) {
  FakedClient faked;
  faked.transport.failedRead = 8192;
  ZORA_Long status = untouched;
  EXPECT_EQ(GetParam().call(faked.client, &status, nullptr), 1);
  EXPECT_EQ(status, 5);
}

INSTANTIATE_TEST_SUITE_P(Lifecycle, Plain, testing::ValuesIn(plainRequests),
                         [](const auto& test) { return test.param.name; });

TEST(Unregister, ANullNameIsSentAsAnEmptyOne) {
  FakedClient faked;
  faked.transport.answers = {statusAnswer(101)};
  ZORA_Long status = untouched;
  EXPECT_EQ(faked.client.dp_unregister(&status, nullptr), 0);
  EXPECT_EQ(status, 101);
  EXPECT_THAT(faked.transport.written,
              ElementsAre(bytesOf("00000013 0010 00000002 1020 0020 00000001 00")));
}

TEST(Unregister, ChecksNoLength) {
  FakedClient faked;
  faked.transport.answers = {statusAnswer(0)};
  ZORA_Long status = untouched;
  EXPECT_EQ(faked.client.dp_unregister(&status, letters(4077).c_str()), 0);
  EXPECT_EQ(faked.transport.written.at(0).size(), std::size_t{ZOR0_MAX_REQUEST_SIZE});
}

TEST(Unregister, ANameThatDoesNotFitTheMessageIsRefused) {
  const std::string name = letters(4078);
  expectOutcome(
      "dp_unregister",
      [&](DCHclient& client, ZORA_Long* status, ZORA_Long*) {
        return client.dp_unregister(status, name.c_str());
      },
      {{statusAnswer(0)}, {}},
      {1, 1,
       Lines{entryLine(), errorLine("Error: dp_unregister message is longer than 4096 bytes\n"),
             exitLine(1)}});
}

// ---- Reserved requests -----------------------------------------------------------------------

TEST(Cancel, OnlySaysThatItIsUnfinished) {
  for (const ZORA_Long handle : {0, 815, -1}) {
    expectTrace("DCHclient::dp_cancel", [&] {
      FakedClient faked;
      ZORA_Long status = untouched;
      EXPECT_EQ(faked.client.dp_cancel(&status, handle), 0);
      EXPECT_EQ(status, 0);
      EXPECT_THAT(faked.transport.written, IsEmpty());
      EXPECT_THAT(faked.transport.waits, IsEmpty());
      return Lines{entryLine(), errorLine("Error: FINISH ME UP!"), exitLine(0)};
    });
  }
}

TEST(Shutdown, OnlySaysThatItIsUnfinished) {
  for (const ZORA_Long value : {0, 1, -5}) {
    expectTrace("DCHclient::shutdown", [&] {
      FakedClient faked;
      faked.client.shutdown(value);
      EXPECT_THAT(faked.transport.written, IsEmpty());
      EXPECT_THAT(faked.transport.waits, IsEmpty());
      EXPECT_EQ(faked.client._clientError, 0);
      return Lines{entryLine(), errorLine("Error: FINISH ME UP!"), exitLine()};
    });
  }
}

TEST(Shutdown, SpeaksAfterACancelledWaitToo) {
  FakedClient faked;
  faked.client._clientError = -1;
  const TraceCapture trace("0x80");
  faked.client.shutdown(0);
  EXPECT_THAT(trace.texts(), ElementsAre("Error: FINISH ME UP!"));
}

}  // namespace
