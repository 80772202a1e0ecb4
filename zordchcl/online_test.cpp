// Going on line: every outcome with its status, its result and its whole trace.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/scripted_dch.h"
#include "zordchcl/test_outcome.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

Call goesOnline(const char* applName, const char* attrGroup, const char* sourceName) {
  return [=](DCHclient& client, ZORA_Long* status, ZORA_Long* handle) {
    return client.dp_online(status, handle, applName, attrGroup, sourceName);
  };
}

const Call goesOnlineWell = goesOnline("HOSTMON", "load", "host1");
const Lines onlineWritten = written("dp_online", 49);

TEST(Online, TellsStatusAndHandle) {
  const Lines told{waitingLine("dp_online"), detailLine("status <0>\n"),
                   detailLine("handle <815>\n"), releasedLine(), exitLine(0)};
  expectOutcome("dp_online", goesOnlineWell, {{onlineAnswer(0, 815)}, {}},
                {0, 0, onlineWritten + told, 815});
}

TEST(Online, ReadsTheHandleWhateverTheStatus) {
  const Lines told{waitingLine("dp_online"), detailLine("status <102>\n"),
                   detailLine("handle <-3>\n"), releasedLine(), exitLine(0)};
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
  const Lines begun{entryLine(), reason, waitingLine("dp_online")};
  expectOutcome("dp_online", call, {{}, {}}, {1, 5, begun + Lines{exitLine(1)}});
  // The answer is read all the same; its handle is not, because the latch is set.
  expectOutcome("dp_online", call, {{onlineAnswer(0, 815)}, {}},
                {1, 0, begun + Lines{detailLine("status <0>\n"), releasedLine(), exitLine(1)}});
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
      Lines{errorLine("Error: writing dp_online message to DCHserver\n"), waitingLine("dp_online")};
  for (const ZORA_Long count : {-1, 0, 48}) {
    expectOutcome("dp_online", goesOnlineWell, {{onlineAnswer(7, 815)}, count},
                  {1, 7, begun + Lines{detailLine("status <7>\n"), releasedLine(), exitLine(1)}});
    expectOutcome("dp_online", goesOnlineWell, {{}, count}, {1, 5, begun + Lines{exitLine(1)}});
  }
}

TEST(Online, TheReasonIsTheStatusUntilTheAnswerReplacesIt) {
  EXPECT_EQ(statusWhileWaiting(goesOnline("A", "g", nullptr)), 3);
  EXPECT_EQ(statusWhileWaiting(goesOnline("A", "g", letters(33).c_str())), 1);
  EXPECT_EQ(statusWhileWaiting(goesOnlineWell, -1), 2);
  EXPECT_EQ(statusWhileWaiting(goesOnlineWell), 0);
}

TEST(Online, AFailedReadIsToldWhenTheTimeoutIsOneSecond) {
  const Lines begun = onlineWritten + Lines{waitingLine("dp_online")};
  expectOutcome("dp_online", goesOnlineWell, {{}, {}, 30}, {1, 5, begun + Lines{exitLine(1)}});
  expectOutcome(
      "dp_online", goesOnlineWell, {{}, {}, 1},
      {1, 5, begun + Lines{errorLine("Error: ipcRead with wait[1 second] failed\n"), exitLine(1)}});
}

TEST(Online, AnAnswerWithoutAStatusIsStatusTwo) {
  const Lines told{waitingLine("dp_online"),
                   errorLine("Error: dataType of DCH_status missing: 32\n"), releasedLine(),
                   exitLine(1)};
  expectOutcome("dp_online", goesOnlineWell, {{wrongAnswer()}, {}}, {1, 2, onlineWritten + told});
}

TEST(Online, AnAnswerWithoutAHandleIsStatusTwoAfterTheStatusWasTold) {
  const auto told = [](int type) {
    return Lines{waitingLine("dp_online"), detailLine("status <9>\n"),
                 errorLine(textOf("Error: dataType of DCH_handle missing: %d\n", type)),
                 releasedLine(), exitLine(1)};
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
  const Lines told{waitingLine("dp_online"),
                   errorLine("Error: dataType of DCH_status missing: 128\n"), releasedLine(),
                   exitLine(1)};
  expectOutcome("dp_online", goesOnlineWell, {{turned}, {}}, {1, 2, onlineWritten + told});
}

}  // namespace
