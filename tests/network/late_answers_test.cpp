// Answers that come late, twice, or to the wrong client. Answers carry no number, and the sockets
// of the pool are handed on as they are: what is left over is read by the next request. What can be
// told is the form of an answer: the types of its fields.
#include <gmock/gmock.h>

#include <chrono>

#include "dch/testkit/clients.h"
#include "dch/testkit/messages.h"
#include "tests/network/network_test.h"
#include "tests/support/temporary_files.h"
#include "tests/support/trace_capture.h"
#include "tools/testkit/tools_fixture.h"

namespace network {
namespace {

using dch::testkit::UdpClient;

class LateAnswersTest : public NetworkTest {
 protected:
  // Leaves an answer with status 104, of a request that gave up, in the socket that is used next.
  void leaveALateAnswer() {
    nextAnswer(late);
    EXPECT_EQ(goOffline(unknownHandle), noAnswer);
    _network.release();
  }

  // Whether the next request gets its own answer.
  static bool isInStep() { return registerNet() == good && goOffline(unknownHandle) == unknown; }

  static constexpr Outcome unknown = answered(104);
};

TEST_F(LateAnswersTest, AnAnswerThatIsLateButInTimeDoesNoHarm) {
  setTimeout(10);
  nextAnswer({Arrival{.delay = std::chrono::milliseconds(1500)}});
  EXPECT_EQ(registerNet(), good);
  EXPECT_TRUE(isInStep());
}

// Nothing tells it from the right one.
TEST_F(LateAnswersTest, ALateAnswerOfTheSameFormIsTakenForTheNextOneAndShiftsAllThatFollow) {
  leaveALateAnswer();
  EXPECT_EQ(registerNet(), unknown) << "though the DCH registered it";
  EXPECT_EQ(goOffline(unknownHandle), good) << "the answer to the registration";
  EXPECT_EQ(registerNet(), unknown) << "the answer to the request before";
}

TEST_F(LateAnswersTest, AnAnswerThatComesTwiceShiftsAllThatFollow) {
  nextAnswer(twice);
  EXPECT_EQ(goOffline(unknownHandle), unknown);
  EXPECT_EQ(registerNet(), unknown);
  EXPECT_EQ(goOffline(unknownHandle), good);
}

TEST_F(LateAnswersTest, ALateAnswerWithoutAHandleIsNotTakenForThatToAnOnlineRequest) {
  EXPECT_EQ(registerNet(), good);
  leaveALateAnswer();
  const TraceCapture trace("0x80");
  ZORA_Long handle = noHandle;
  EXPECT_EQ(goOnline(&handle), fieldMissing);
  EXPECT_EQ(handle, noHandle);
  EXPECT_TRUE(trace.has("Error: dataType of DCH_handle missing: 0\n"));
}

TEST_F(LateAnswersTest, ALateStatusIsNotTakenForTheAnswerToAQuestion) {
  EXPECT_EQ(registerNet(), good);
  leaveALateAnswer();
  const TraceCapture trace("0x80");
  ZORA_Long length = -1;
  char* answer = nullptr;
  EXPECT_EQ(dc_getApplHelp(&length, &answer, "NET", 1), 1);
  EXPECT_EQ(length, 0);
  EXPECT_EQ(answer, nullptr);
  EXPECT_TRUE(trace.has("Error: dataType of DCH_response missing: 17\n"));
}

TEST_F(LateAnswersTest, ALateTextIsNotTakenForAStatus) {
  EXPECT_EQ(registerNet(), good);
  nextAnswer(twice);
  ZORA_Long length = 0;
  char* answer = nullptr;
  EXPECT_EQ(dc_getApplHelp(&length, &answer, "NET", 1), 0);
  EXPECT_STREQ(answer, "Of a test");
  std::free(answer);
  const TraceCapture trace("0x80");
  EXPECT_EQ(sendRow(unknownHandle, "a row"), statusMissing);
  EXPECT_TRUE(trace.has("Error: dataType of DCH_status missing: 18\n"));
}

// The pool hands out its first free socket: a program that asks one thing after the other always
// uses the same one.
TEST_F(LateAnswersTest, MoreSocketsInThePoolDoNotHelp) {
  setPoolSize(64);
  leaveALateAnswer();
  EXPECT_EQ(registerNet(), unknown);
}

TEST_F(LateAnswersTest, AnotherProcessIsNotShifted) {
  leaveALateAnswer();
  const TemporaryFile registration(registrationText);
  const TemporaryFile rows("text\nsunny\n");
  const ProcessResult sent = tools::runProgram(
      ZORDP_PATH,
      {"send", "-r", registration.path(), "-g", "rows", "-s", "host1", "-i", rows.path()},
      tools::environmentFor(_network.port()));
  EXPECT_EQ(sent.exitStatus, 0) << sent.standardError;
  EXPECT_FALSE(isInStep()) << "this one still is";
}

// A request without names sends nothing and reads one answer all the same. While there is one its
// status is not 5; when there is none it waits for the time-out.
TEST_F(LateAnswersTest, AProcessGetsBackInStepByReadingUntilNothingIsLeft) {
  leaveALateAnswer();
  nextAnswer(twice);
  EXPECT_EQ(goOffline(unknownHandle), unknown);
  ZORA_Long handle = noHandle;
  ZORA_Long status = 0;
  int answersLeft = -1;
  do {
    ++answersLeft;
    dp_online(&status, &handle, nullptr, nullptr, nullptr);
  } while (status != 5);
  EXPECT_EQ(answersLeft, 2);
  EXPECT_TRUE(isInStep());
}

// The library does not look at who sent an answer: neither at the port, as other tests show, nor
// whether it asked that sender anything.
TEST_F(LateAnswersTest, AnAnswerToAnotherClientIsTakenWhenItsFormFits) {
  EXPECT_EQ(registerNet(), good);  // client 0
  UdpClient other(_network.port());
  _network.setFaults([&, offlines = 0](const Passing& passing) mutable -> Arrivals {
    if (passing.direction == Direction::toDch) {
      // This client's request is lost, the other's is made at the same time.
      if (passing.client == 0 && offlines++ == 0) {
        other.send(dch::testkit::offlineMessage(unknownHandle));
        return lost;
      }
      return once;
    }
    return {Arrival{.client = 0}};
  });
  ZORA_Long handle = noHandle;
  EXPECT_EQ(goOnline(&handle), fieldMissing) << "a status without a handle";
  EXPECT_EQ(handle, noHandle);
  _network.setFaults(noFaults());  // it uses the other client no more
}

}  // namespace
}  // namespace network
