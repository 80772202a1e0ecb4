// What the tools print, and how they end, when the network fails them.
#include <gmock/gmock.h>
#include <sysexits.h>

#include "tests/network/network_test.h"
#include "tests/support/temporary_files.h"
#include "tools/testkit/requests.h"
#include "tools/testkit/tools_fixture.h"
#include "zordchcl/messages.h"

namespace network {
namespace {

using ::testing::ContainsRegex;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using tools::Arguments;

// Requests with this code fare so.
Faults faultOfRequests(short code, Arrivals arrivals) {
  return [=](const Passing& passing) {
    return passing.direction == Direction::toDch && requestCode(passing.bytes) == code ? arrivals
                                                                                       : once;
  };
}

// A base, so that the file is there before the server starts.
struct ActionsFile {
  const TemporaryFile actions{"succeed /bin/true\n"};
};

class NetworkToolsTest : private ActionsFile, public tools::ToolsTest {
 protected:
  NetworkToolsTest() : tools::ToolsTest({"--actions", actions.path()}) {}

  ProcessResult zordp(std::string_view rows) const {
    const TemporaryFile input(rows);
    return run(ZORDP_PATH,
               {"send", "-r", _registration.path(), "-g", "sky", "-s", "roof", "-i", input.path()});
  }
  ProcessResult zordc(const Arguments& arguments) const { return run(ZORDC_PATH, arguments); }

  FaultyNetwork _network{_port, noFaults()};

 private:
  ProcessResult run(const char* program, const Arguments& arguments) const {
    return tools::runProgram(
        program, arguments, tools::environmentFor(_network.port(), std::to_string(timeoutSeconds)));
  }
};

TEST_F(NetworkToolsTest, ALostRegistrationIsAnUnavailableDch) {
  _network.setFaults(faultOfRequests(DCH_REQUEST_REGISTER, lost));
  const ProcessResult result = zordp("clouds\n1\n");
  EXPECT_EQ(result.exitStatus, EX_UNAVAILABLE);
  EXPECT_THAT(result.standardError, HasSubstr("status 5 (no answer from the DCH)"));
}

TEST_F(NetworkToolsTest, ARowThatIsLostIsSentAgain) {
  const auto watcher = startWatching({"--count", "3", "--format", "csv"});
  _network.setFaults([rows = 0](const Passing& passing) mutable {
    if (passing.direction == Direction::toClient || requestCode(passing.bytes) != DCH_REQUEST_DATA)
      return once;
    return ++rows == 2 ? lost : once;
  });
  const ProcessResult result = zordp("clouds\n1\n2\n3\n");
  EXPECT_EQ(result.exitStatus, EX_OK);
  EXPECT_THAT(result.standardError, HasSubstr("zordp: the DCH does not answer; trying again\n"));
  EXPECT_THAT(result.standardError, HasSubstr("zordp: the DCH answers again\n"));
  EXPECT_THAT(watcher->finish().standardOutput, ContainsRegex(",1\n[^\n]*,2\n[^\n]*,3\n$"));
}

TEST_F(NetworkToolsTest, ARowWhoseAnswerIsLostComesTwice) {
  const auto watcher = startWatching({"--count", "3", "--format", "csv"});
  // The third one: those to registration and online come before.
  _network.setFaults(faultOf(Direction::toClient, 2, lost));
  const ProcessResult result = zordp("clouds\n1\n2\n");
  EXPECT_EQ(result.exitStatus, EX_OK);
  EXPECT_THAT(watcher->finish().standardOutput, ContainsRegex(",1\n[^\n]*,1\n[^\n]*,2\n$"));
}

TEST_F(NetworkToolsTest, ALostQuestionIsToldWithHowLongItWaited) {
  _network.setFaults(faultOfAll(Direction::toDch, lost));
  const ProcessResult result = zordc({"apps", "-W", "1"});
  EXPECT_EQ(result.exitStatus, EX_UNAVAILABLE);
  EXPECT_THAT(result.standardError,
              ContainsRegex("zordc: no answer from the DCH at 127.0.0.1:[0-9]+ in 1 s\n$"));
}

TEST_F(NetworkToolsTest, ALostSubscriptionIsToldByTheTimeoutOfWatch) {
  _network.setFaults(faultOfAll(Direction::toDch, lost));
  const ProcessResult result = zordc({"watch", "WEATHER", "sky", "-W", "0.5"});
  EXPECT_EQ(result.exitStatus, EX_TEMPFAIL);
  EXPECT_THAT(result.standardError, EndsWith("zordc: no row came for 0.5 s\n"));
}

const Arguments actAndWait{"act",     "succeed", "--node", "n", "--subnode", "s",
                           "--owner", "o",       "--id",   "7", "--wait"};

TEST_F(NetworkToolsTest, AnActionWhoseRequestIsLostIsUnknown) {
  _network.setFaults(faultOfRequests(DCH_REQUEST_ACTION, lost));
  const ProcessResult result = zordc(actAndWait);
  EXPECT_EQ(result.exitStatus, 1);
  EXPECT_EQ(result.standardOutput, "action 7\nresult 106 (unknown action)\n");
}

TEST_F(NetworkToolsTest, AResultThatIsLostIsTold) {
  _network.setFaults(faultOf(Direction::toClient, 0, lost));
  const ProcessResult result = zordc(actAndWait);
  EXPECT_EQ(result.exitStatus, EX_TEMPFAIL);
  EXPECT_THAT(result.standardError, EndsWith("zordc: no result of action 7 came in time\n"));
}

TEST_F(NetworkToolsTest, ADchThatIsOutOfReachIsToldFromAnActionThatTakesLong) {
  _network.setFaults(faultOfAll(Direction::toClient, lost));
  const ProcessResult result = zordc(actAndWait);
  EXPECT_EQ(result.exitStatus, EX_UNAVAILABLE);
  EXPECT_THAT(result.standardError, EndsWith("zordc: the DCH does not answer\n"));
  _server.waitForError("action 7 ended with 0\n");
}

// A copy that comes while the program runs starts nothing; one that comes after its end does.
TEST_F(NetworkToolsTest, AnActionWhoseRequestIsRepeatedLateIsCarriedOutAgain) {
  _network.setFaults(faultOfRequests(DCH_REQUEST_ACTION, {Arrival{}, Arrival{.isHeld = true}}));
  EXPECT_EQ(zordc(actAndWait).exitStatus, EX_OK);
  _network.release();
  _server.waitForError("action 7: succeed started\n", 2);
}

}  // namespace
}  // namespace network
