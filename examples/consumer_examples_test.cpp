// The consumers' examples as their reader runs them, with zordchd at the other end.
#include <gmock/gmock.h>

#include "tools/testkit/tools_fixture.h"
#include "zordchcl/messages.h"

namespace {

using ::testing::HasSubstr;
using tools::Arguments;
using tools::runProgram;

struct ActionsFile {
  const TemporaryFile actions{"succeed /bin/true\nfail /bin/false\n"};
};

class ConsumerExamples : private ActionsFile, public tools::ToolsTest {
 protected:
  ConsumerExamples() : ToolsTest({"--actions", actions.path()}) {}

  ProcessResult run(const char* path, const Arguments& arguments = {}) const {
    return runProgram(path, arguments, environment());
  }

  // WEATHER, on line at roof until it is finished.
  std::unique_ptr<Process> startProvider() {
    auto sender = startSending({});
    sender->write("clouds\n1\n");
    _server.waitForError("on line: WEATHER sky roof");
    return sender;
  }
};

TEST_F(ConsumerExamples, RowsShowsWhatComesUntilItsTimeIsOver) {
  Process rows(ROWS_PATH, {"WEATHER", "sky", "8"}, environment());
  _server.waitForError("zordchd: subscribed ");
  EXPECT_EQ(send("clouds\n1\n2\n").exitStatus, 0);
  rows.waitForOutput("a row of ", 2);
  const ProcessResult seen = rows.finish();
  EXPECT_EQ(seen.exitStatus, 0);
  EXPECT_EQ(seen.standardError, "");
  _server.waitForError("zordchd: withdrew ");
}

TEST_F(ConsumerExamples, ChangesShowsAsManyAsItIsTold) {
  Process changes(CHANGES_PATH, {"4"}, environment());
  _server.waitForError(" to provider status\n");
  EXPECT_EQ(send("clouds\n1\n").exitStatus, 0);
  const ProcessResult seen = changes.finish();
  EXPECT_EQ(seen.exitStatus, 0);
  EXPECT_EQ(seen.standardError, "");
  const auto withCode = [](const char* text, int code) { return text + std::to_string(code); };
  EXPECT_EQ(seen.standardOutput, withCode("WEATHER,,,", DCH_REQUEST_REGISTER) + '\n' +
                                     withCode("WEATHER,sky,roof,", DCH_REQUEST_ONLINE) + '\n' +
                                     withCode("WEATHER,sky,roof,", DCH_REQUEST_OFFLINE) + '\n' +
                                     withCode("WEATHER,,,", DCH_REQUEST_UNREGISTER) + '\n');
}

TEST_F(ConsumerExamples, CatalogueShowsWhatTheDchKnows) {
  const auto provider = startProvider();
  const ProcessResult all = run(CATALOGUE_PATH);
  EXPECT_EQ(all.exitStatus, 0);
  EXPECT_EQ(all.standardOutput, "applications:\nWEATHER,WTH,SOCK,sky odd,1\n\n");
  const ProcessResult one = run(CATALOGUE_PATH, {"WEATHER"});
  EXPECT_EQ(one.exitStatus, 0);
  EXPECT_EQ(one.standardOutput,
            "attributes:\n"
            "sky,clouds,G,4,eighths\nsky,note,T,20,\nsky,rain,C,8,\nsky,small,I,2,\nodd,size3,G,3,"
            "\n\nhelp:\nWhat the sky does\n");
}

TEST_F(ConsumerExamples, CatalogueTellsWhenThereIsNothing) {
  const ProcessResult all = run(CATALOGUE_PATH);
  EXPECT_EQ(all.exitStatus, 1);
  EXPECT_EQ(all.standardOutput, "applications: none\n");
  const ProcessResult one = run(CATALOGUE_PATH, {"NONE"});
  EXPECT_EQ(one.exitStatus, 0);
  EXPECT_EQ(one.standardOutput, "attributes: none\nhelp: none\n");
}

TEST_F(ConsumerExamples, ActionDefersTheReportAndShowsTheResult) {
  ProcessResult result = run(ACTION_PATH, {"succeed", "hostA", "hostA:HMN00", "me", "7"});
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_EQ(result.standardOutput, "action 7: result 0\n");
  const std::string events = _server.waitForError("deferred: action 7, ");
  EXPECT_THAT(events, HasSubstr("zordchd: action 7: succeed started\n"));
  result = run(ACTION_PATH, {"fail", "hostA", "hostA:HMN00", "me", "8"});
  EXPECT_EQ(result.exitStatus, 1);
  EXPECT_EQ(result.standardOutput, "action 8: result 1\n");
}

TEST(ConsumerExamplesAlone, TellHowTheyAreUsed) {
  const auto refusal = [](const char* path, const Arguments& arguments) {
    const ProcessResult result = runProgram(path, arguments, {});
    EXPECT_EQ(result.exitStatus, 64);
    EXPECT_EQ(result.standardOutput, "");
    return result.standardError;
  };
  EXPECT_EQ(refusal(ROWS_PATH, {"WEATHER"}), "usage: rows APPLICATION GROUP SECONDS\n");
  EXPECT_EQ(refusal(CHANGES_PATH, {}), "usage: changes COUNT\n");
  EXPECT_EQ(refusal(CATALOGUE_PATH, {"A", "B"}), "usage: catalogue [APPLICATION]\n");
  EXPECT_EQ(refusal(ACTION_PATH, {"x"}), "usage: action NAME NODE SUBNODE OWNER ID\n");
}

}  // namespace
