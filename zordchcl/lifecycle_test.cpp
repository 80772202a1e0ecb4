// Registration, on line, off line, unregistration: every outcome with its status, its result and
// its whole trace.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/bytes.h"
#include "tests/support/fake_transport.h"
#include "tests/support/scripted_dch.h"
#include "tests/support/trace_capture.h"
#include "tests/support/trace_lines.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Lines = std::vector<TraceLine>;

constexpr ZORA_Long untouched = 4711;
constexpr char registration[] = "appl:HOSTMON,HMN;group:load;attr:load1,D,16;";
constexpr int registrationSize = 86;

const TraceLine released = storageLine("Deleting _readBuffer<@{address}>\n");

// An answer whose first field is an application name, and one without a field.
const std::string wrongAnswer = bytesOf("0000000c 0020 00000002 'A' 00");
const std::string emptyAnswer = bytesOf("00000004");

TraceLine dumpLine(std::string text) {
  return {TRC1_CLASS_DUMP, std::move(text)};
}

// The beginning of every request that gets as far as being written.
Lines written(const std::string& request, int length) {
  return {
      entryLine(),
      dumpLine(textOf("DUMP[%d] of %s request.\n", length, request.c_str())),
      detailLine(textOf("Writing %s message. %d bytes\n", request.c_str(), length)),
  };
}

TraceLine waiting(const std::string& request) {
  return detailLine("[@{address}] Waiting for " + request + " response.\n");
}

Lines operator+(Lines lines, const Lines& more) {
  lines.insert(lines.end(), more.begin(), more.end());
  return lines;
}

// What one request does, given how its write and its read end.
struct Outcome {
  ZORA_Long result;
  ZORA_Long status;
  Lines trace;
  ZORA_Long handle = untouched;
};

struct Ends {
  std::deque<std::string> answers;
  std::optional<ZORA_Long> writeResult;
  ZORA_Long timeout = 30;
};

using Call = std::function<ZORA_Long(DCHclient&, ZORA_Long* status, ZORA_Long* handle)>;

void expectOutcome(const std::string& method, const Call& call, const Ends& ends,
                   const Outcome& expected) {
  expectTrace("DCHclient::" + method, [&] {
    FakedClient faked;
    faked.transport.answers = ends.answers;
    faked.transport.writeResult = ends.writeResult;
    faked.client._DCHtimeout = ends.timeout;
    ZORA_Long status = untouched;
    ZORA_Long handle = untouched;
    EXPECT_EQ(call(faked.client, &status, &handle), expected.result);
    EXPECT_EQ(status, expected.status);
    EXPECT_EQ(handle, expected.handle);
    EXPECT_EQ(faked.client._clientError, expected.result);
    EXPECT_EQ(faked.client._readBuffer, nullptr);
    for (const ZORA_Long wait : faked.transport.waits) EXPECT_EQ(wait, ends.timeout);
    return expected.trace;
  });
}

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
        {0, status, registerWritten + Lines{waiting("dp_register"), told, released, exitLine(0)}});
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
  const Lines begun{entryLine(), badText, waiting("dp_register")};
  expectOutcome("dp_register", registersBadText, {{statusAnswer(101)}, {}},
                {1, 101, begun + Lines{detailLine("status <101>\n"), released, exitLine(1)}});
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
  const Lines begun = registerWritten + Lines{registerUnwritten, waiting("dp_register")};
  for (const ZORA_Long count : {-1, 0, registrationSize - 1}) {
    expectOutcome("dp_register", registers, {{statusAnswer(0)}, count},
                  {1, 0, begun + Lines{detailLine("status <0>\n"), released, exitLine(1)}});
    expectOutcome("dp_register", registers, {{}, count}, {1, 5, begun + Lines{exitLine(1)}});
  }
}

TEST(Register, AFailedReadIsToldWhenTheTimeoutIsOneSecond) {
  const Lines begun = registerWritten + Lines{waiting("dp_register")};
  for (const ZORA_Long timeout : {30, 2, 0, -1})
    expectOutcome("dp_register", registers, {{}, {}, timeout}, {1, 5, begun + Lines{exitLine(1)}});
  expectOutcome(
      "dp_register", registers, {{}, {}, 1},
      {1, 5, begun + Lines{errorLine("Error: ipcRead with wait[1 second] failed\n"), exitLine(1)}});
}

TEST(Register, AnAnswerWithoutAStatusIsStatusTwo) {
  const Lines begun = registerWritten + Lines{waiting("dp_register")};
  expectOutcome("dp_register", registers, {{wrongAnswer}, {}},
                {1, 2,
                 begun + Lines{errorLine("Error: dataType of DCH_status missing: 32\n"), released,
                               exitLine(1)}});
  expectOutcome("dp_register", registers, {{emptyAnswer}, {}},
                {1, 2,
                 begun + Lines{errorLine("Error: dataType of DCH_status missing: 0\n"), released,
                               exitLine(1)}});
}

// ---- dp_online -------------------------------------------------------------------------------

Call goesOnline(const char* applName, const char* attrGroup, const char* sourceName) {
  return [=](DCHclient& client, ZORA_Long* status, ZORA_Long* handle) {
    return client.dp_online(status, handle, applName, attrGroup, sourceName);
  };
}

const Call goesOnlineWell = goesOnline("HOSTMON", "load", "host1");
const Lines onlineWritten = written("dp_online", 49);

std::string letters(std::size_t count) {
  return std::string(count, 'n');
}

TEST(Online, TellsStatusAndHandle) {
  const Lines told{waiting("dp_online"), detailLine("status <0>\n"), detailLine("handle <815>\n"),
                   released, exitLine(0)};
  expectOutcome("dp_online", goesOnlineWell, {{onlineAnswer(0, 815)}, {}},
                {0, 0, onlineWritten + told, 815});
}

TEST(Online, ReadsTheHandleWhateverTheStatus) {
  const Lines told{waiting("dp_online"), detailLine("status <102>\n"), detailLine("handle <-3>\n"),
                   released, exitLine(0)};
  expectOutcome("dp_online", goesOnlineWell, {{onlineAnswer(102, -3)}, {}},
                {0, 102, onlineWritten + told, -3});
}

TEST(Online, NamesOfFullLengthAreSent) {
  FakedClient faked;
  faked.transport.answers = {onlineAnswer(0, 1)};
  ZORA_Long status = untouched;
  ZORA_Long handle = untouched;
  EXPECT_EQ(faked.client.dp_online(&status, &handle, letters(20).c_str(), letters(32).c_str(),
                                   letters(32).c_str()),
            0);
  EXPECT_EQ(status, 0);
  ASSERT_EQ(faked.transport.written.size(), 1u);
  EXPECT_EQ(faked.transport.written[0].size(), 4u + 8 + 27 + 39 + 39);
}

TEST(Online, EmptyNamesAreSent) {
  FakedClient faked;
  faked.transport.answers = {onlineAnswer(0, 1)};
  ZORA_Long status = untouched;
  ZORA_Long handle = untouched;
  EXPECT_EQ(faked.client.dp_online(&status, &handle, "", "", ""), 0);
  EXPECT_EQ(faked.transport.written.size(), 1u);
}

void expectRefusedOnline(const Call& call, const TraceLine& reason) {
  const Lines begun{entryLine(), reason, waiting("dp_online")};
  expectOutcome("dp_online", call, {{}, {}}, {1, 5, begun + Lines{exitLine(1)}});
  // The answer is read all the same; its handle is not, because the latch is set.
  expectOutcome("dp_online", call, {{onlineAnswer(0, 815)}, {}},
                {1, 0, begun + Lines{detailLine("status <0>\n"), released, exitLine(1)}});
  FakedClient faked;
  ZORA_Long status = untouched;
  ZORA_Long handle = untouched;
  call(faked.client, &status, &handle);
  EXPECT_THAT(faked.transport.written, IsEmpty());
  EXPECT_THAT(faked.transport.waits, ElementsAre(30));
}

TEST(Online, ANullNameSendsNothingButWaits) {
  const TraceLine reason = errorLine("Error: applName/attrGroup/sourceName were NULL\n");
  expectRefusedOnline(goesOnline(nullptr, "load", "host1"), reason);
  expectRefusedOnline(goesOnline("HOSTMON", nullptr, "host1"), reason);
  expectRefusedOnline(goesOnline("HOSTMON", "load", nullptr), reason);
}

TEST(Online, ATooLongNameSendsNothingButWaits) {
  const std::string name20 = letters(20);
  const std::string name21 = letters(21);
  const std::string name32 = letters(32);
  const std::string name33 = letters(33);
  const auto tooLong = [](const char* lengths) {
    return errorLine(std::string("Error: max length exceeded: ") + lengths + "\n");
  };
  expectRefusedOnline(goesOnline(name21.c_str(), name32.c_str(), name32.c_str()),
                      tooLong("applName[21] attrGroup[32] sourceName[32]"));
  expectRefusedOnline(goesOnline(name20.c_str(), name33.c_str(), "s"),
                      tooLong("applName[20] attrGroup[33] sourceName[1]"));
  expectRefusedOnline(goesOnline("a", "", name33.c_str()),
                      tooLong("applName[1] attrGroup[0] sourceName[33]"));
}

TEST(Online, AFailedWriteStillWaitsAndEndsWithTheAnsweredStatus) {
  const Lines begun =
      onlineWritten +
      Lines{errorLine("Error: writing dp_online message to DCHserver\n"), waiting("dp_online")};
  for (const ZORA_Long count : {-1, 0, 48}) {
    expectOutcome("dp_online", goesOnlineWell, {{onlineAnswer(7, 815)}, count},
                  {1, 7, begun + Lines{detailLine("status <7>\n"), released, exitLine(1)}});
    expectOutcome("dp_online", goesOnlineWell, {{}, count}, {1, 5, begun + Lines{exitLine(1)}});
  }
}

TEST(Online, AFailedReadIsToldWhenTheTimeoutIsOneSecond) {
  const Lines begun = onlineWritten + Lines{waiting("dp_online")};
  expectOutcome("dp_online", goesOnlineWell, {{}, {}, 30}, {1, 5, begun + Lines{exitLine(1)}});
  expectOutcome(
      "dp_online", goesOnlineWell, {{}, {}, 1},
      {1, 5, begun + Lines{errorLine("Error: ipcRead with wait[1 second] failed\n"), exitLine(1)}});
}

TEST(Online, AnAnswerWithoutAStatusIsStatusTwo) {
  const Lines told{waiting("dp_online"), errorLine("Error: dataType of DCH_status missing: 32\n"),
                   released, exitLine(1)};
  expectOutcome("dp_online", goesOnlineWell, {{wrongAnswer}, {}}, {1, 2, onlineWritten + told});
}

TEST(Online, AnAnswerWithoutAHandleIsStatusTwoAfterTheStatusWasTold) {
  const auto told = [](int type) {
    return Lines{waiting("dp_online"), detailLine("status <9>\n"),
                 errorLine(textOf("Error: dataType of DCH_handle missing: %d\n", type)), released,
                 exitLine(1)};
  };
  expectOutcome("dp_online", goesOnlineWell, {{statusAnswer(9)}, {}},
                {1, 2, onlineWritten + told(0)});
  const std::string twoStatuses = messageOf([](DCH_MessageBuilder& message) {
    message.add(DCH_status, ZORA_Long{9}).add(DCH_status, ZORA_Long{9});
  });
  expectOutcome("dp_online", goesOnlineWell, {{twoStatuses}, {}}, {1, 2, onlineWritten + told(17)});
}

TEST(Online, AHandleBeforeTheStatusIsOutOfOrder) {
  const std::string turned = messageOf([](DCH_MessageBuilder& message) {
    message.add(DCH_handle, ZORA_Long{1}).add(DCH_status, ZORA_Long{0});
  });
  const Lines told{waiting("dp_online"), errorLine("Error: dataType of DCH_status missing: 128\n"),
                   released, exitLine(1)};
  expectOutcome("dp_online", goesOnlineWell, {{turned}, {}}, {1, 2, onlineWritten + told});
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
            begun() + Lines{waiting(name()), detailLine("Getting Status info.\n"), told, released,
                            exitLine(0)}});
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
  const Lines waited = begun() + Lines{waiting(name())};
  expect({{}, {}, 30}, {1, 5, waited + Lines{exitLine(1)}});
  expect({{}, {}, 1},
         {1, 5,
          waited + Lines{errorLine("Error: ipcRead with wait[1 second] failed\n"), exitLine(1)}});
}

TEST_P(Plain, AnAnswerWithoutAStatusIsStatusOne) {
  const Lines waited = begun() + Lines{waiting(name()), detailLine("Getting Status info.\n")};
  expect({{wrongAnswer}, {}},
         {1, 1,
          waited + Lines{errorLine("Error: dataType of DCH_status missing: 32\n"), released,
                         exitLine(1)}});
  expect({{emptyAnswer}, {}},
         {1, 1,
          waited + Lines{errorLine("Error: dataType of DCH_status missing: 0\n"), released,
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
  EXPECT_EQ(faked.transport.written.at(0).size(), std::size_t{DCH_MESSAGE_BUFFER_SIZE});
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
