// Rows on their way from zordp through zordchd to zordc.
#include <gmock/gmock.h>
#include <signal.h>
#include <sysexits.h>

#include <nlohmann/json.hpp>

#include "tools/testkit/printed_times.h"
#include "tools/testkit/tools_fixture.h"

namespace tools {
namespace {

using ::testing::ContainsRegex;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;

// The values of each line that zordc printed as JSON.
std::vector<std::string> valuesIn(const std::string& jsonLines) {
  std::vector<std::string> rows;
  std::istringstream lines(jsonLines);
  for (std::string line; std::getline(lines, line);)
    rows.push_back(nlohmann::ordered_json::parse(line)["values"].dump());
  return rows;
}

TEST_F(ToolsTest, RowsArriveInEveryFormat) {
  const auto table = startWatching({"-C", "3"});
  const auto csv = startWatching({"-C", "3", "-F", "csv"});
  const auto jsonLines = startWatching({"-C", "3", "--format", "jsonl"});
  const ProcessResult sent = send(
      "clouds,note\n"
      "8,\"grey, \"\"wet\"\"\"\n"
      "-2147483648,\n"
      "2147483647,\n");
  EXPECT_EQ(sent.exitStatus, EX_OK);
  EXPECT_EQ(sent.standardOutput, "");
  EXPECT_EQ(sent.standardError, "");

  ProcessResult seen = table->finish();
  EXPECT_EQ(seen.exitStatus, EX_OK);
  EXPECT_EQ(withoutTimes(seen.standardOutput),
            "TIME                      HANDLE    clouds  note\n"
            "TIME       1         8  grey, \"wet\"\n"
            "TIME                      HANDLE       clouds\n"
            "TIME       1  -2147483648\n"
            "TIME       1   2147483647\n");
  EXPECT_EQ(seen.standardError, "");

  seen = csv->finish();
  EXPECT_EQ(seen.exitStatus, EX_OK);
  EXPECT_EQ(withoutTimes(seen.standardOutput),
            "time,handle,clouds,note\n"
            "TIME,1,8,\"grey, \"\"wet\"\"\"\n"
            "\n"
            "time,handle,clouds\n"
            "TIME,1,-2147483648\n"
            "TIME,1,2147483647\n");

  seen = jsonLines->finish();
  EXPECT_EQ(seen.exitStatus, EX_OK);
  EXPECT_EQ(withoutTimes(seen.standardOutput),
            R"({"time":"TIME","handle":1,"values":{"clouds":8,"note":"grey, \"wet\""}})"
            "\n"
            R"({"time":"TIME","handle":1,"values":{"clouds":-2147483648}})"
            "\n"
            R"({"time":"TIME","handle":1,"values":{"clouds":2147483647}})"
            "\n");
}

TEST_F(ToolsTest, JsonLinesArriveAsTheyWereSent) {
  const std::vector<std::string> rows = {
      R"({"note":"Schnee \\ \u2603","small":-32768})", R"({"rain":9223372036854775807,"note":""})",
      R"({"clouds":0,"note":"a\tb\nc","rain":-1,"small":32767})"};
  const auto watcher = startWatching({"-C", "3", "-F", "jsonl"});
  EXPECT_EQ(send(rows[0] + "\n" + rows[1] + "\n\n" + rows[2], "jsonl").exitStatus, EX_OK);
  std::vector<std::string> expected;
  for (const std::string& row : rows) expected.push_back(nlohmann::ordered_json::parse(row).dump());
  EXPECT_EQ(valuesIn(watcher->finish().standardOutput), expected);
}

TEST_F(ToolsTest, EachRowIsSentAsSoonAsItsLineIsComplete) {
  const auto watcher = startWatching({"-C", "2", "-F", "jsonl"});
  const auto sender = startSending({"-i", "-"});
  sender->write("clouds\n1\n2");
  watcher->waitForOutput("{\"clouds\":1}");
  sender->write("2\n");
  watcher->waitForOutput("{\"clouds\":22}");
  EXPECT_EQ(sender->finish().exitStatus, EX_OK);
  EXPECT_EQ(watcher->finish().exitStatus, EX_OK);
}

TEST_F(ToolsTest, StandardInputIsReadWhenNoInputIsNamed) {
  const auto watcher = startWatching({"-C", "1", "-F", "jsonl"});
  const auto sender = startSending({});
  sender->write("clouds\n7\n");
  EXPECT_EQ(sender->finish().exitStatus, EX_OK);
  EXPECT_THAT(valuesIn(watcher->finish().standardOutput), ElementsAre("{\"clouds\":7}"));
}

TEST_F(ToolsTest, ABadRowEndsTheInputAndIsNotSentAtAll) {
  const auto watcher = startWatching({"-C", "2", "-F", "jsonl"});
  const TemporaryFile input("clouds,small\n1,2\n3,40000\n5,6\n");
  const ProcessResult sent = startSending({"-i", input.path()})->finish();
  EXPECT_EQ(sent.exitStatus, EX_DATAERR);
  EXPECT_EQ(sent.standardError, "zordp: " + input.path() +
                                    ":3: attribute 'small': 40000 is out of range, -32768 to 32767;"
                                    " 1 row sent before\n");
  _server.waitForError("unregistered WEATHER");
  // Whatever else had been sent would come before this.
  EXPECT_EQ(send("clouds\n7\n").exitStatus, EX_OK);
  EXPECT_THAT(valuesIn(watcher->finish().standardOutput),
              ElementsAre("{\"clouds\":1,\"small\":2}", "{\"clouds\":7}"));
}

TEST_F(ToolsTest, BadInputIsToldWithItsPlaceAndReason) {
  const auto refusal = [this](std::string_view rows, const std::string& format) {
    const auto sender = startSending({"-F", format});
    sender->write(std::string(rows));
    const ProcessResult sent = sender->finish();
    EXPECT_EQ(sent.exitStatus, EX_DATAERR) << rows;
    return sent.standardError;
  };
  EXPECT_EQ(refusal("clouds,wind\n1,2\n", "csv"),
            "zordp: standard input:1: attribute 'wind': the group 'sky' has no such attribute; "
            "0 rows sent before\n");
  EXPECT_EQ(refusal("clouds\n1\n2,3\n", "csv"),
            "zordp: standard input:3: 2 fields, but 1 attributes are named in the first line; "
            "1 row sent before\n");
  EXPECT_EQ(refusal("note\n12345678901234567890\n", "csv"),
            "zordp: standard input:2: attribute 'note': the text has 20 bytes, 20 are registered "
            "and one of them is for the terminating zero; 0 rows sent before\n");
  EXPECT_EQ(refusal("{\"clouds\":1}\n{\"clouds\":2}\n{\"clouds\":1.5}\n", "jsonl"),
            "zordp: standard input:3: attribute 'clouds': '1.5' is not a whole number; "
            "2 rows sent before\n");
}

TEST_F(ToolsTest, TheApplicationIsUnregisteredAtTheEnd) {
  EXPECT_EQ(send("clouds\n1\n").exitStatus, EX_OK);
  const std::string events = _server.waitForError("unregistered WEATHER");
  EXPECT_LT(events.find("registered WEATHER"), events.find("on line: WEATHER sky roof"));
  EXPECT_LT(events.find("on line: WEATHER sky roof"), events.find("off line: handle 1"));
  EXPECT_LT(events.find("off line: handle 1"), events.find("unregistered WEATHER"));
}

TEST_F(ToolsTest, WithKeepTheSourceGoesOffLineAndTheApplicationStays) {
  const auto sender = startSending({"--keep"});
  sender->write("clouds\n1\n");
  EXPECT_EQ(sender->finish().exitStatus, EX_OK);
  // A request that comes later: had it been unregistered, that would have been told before.
  const auto watcher = startWatching({"-W", "0.001"});
  const std::string events = _server.waitForError("subscribed ");
  EXPECT_THAT(events, HasSubstr("off line: handle 1"));
  EXPECT_EQ(events.find("unregistered"), std::string::npos);
}

TEST_F(ToolsTest, SignalsEndTheWatchInGoodOrder) {
  for (const int signal : {SIGINT, SIGTERM}) {
    const auto watcher = startWatching({});
    watcher->signal(signal);
    const ProcessResult seen = watcher->finish();
    EXPECT_EQ(seen.exitStatus, EX_OK);
    EXPECT_EQ(seen.standardOutput + seen.standardError, "");
    _server.waitForError("zordchd: withdrew ", _subscriptions);
  }
}

TEST_F(ToolsTest, ASignalEndsTheSendingInGoodOrder) {
  const auto watcher = startWatching({"-C", "1", "-F", "jsonl"});
  const auto sender = startSending({});
  sender->write("clouds\n1\n2");
  EXPECT_EQ(watcher->finish().exitStatus, EX_OK);
  sender->signal(SIGINT);
  _server.waitForError("unregistered WEATHER");
  const ProcessResult sent = sender->finish();
  EXPECT_EQ(sent.exitStatus, 128 + SIGINT);
  EXPECT_EQ(sent.standardError, "zordp: stopped by signal 2 (Interrupt), 1 row sent\n");
}

TEST_F(ToolsTest, TheWatchEndsWhenNoRowComes) {
  const auto start = std::chrono::steady_clock::now();
  const auto watcher = startWatching({"-W", "0.3"});
  const ProcessResult seen = watcher->finish();
  EXPECT_EQ(seen.exitStatus, EX_TEMPFAIL);
  EXPECT_EQ(seen.standardOutput, "");
  EXPECT_EQ(seen.standardError, "zordc: no row came for 0.3 s\n");
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(300));
  _server.waitForError("zordchd: withdrew ");
}

TEST_F(ToolsTest, AReaderThatIsGoneEndsTheWatch) {
  const std::string pipeline = std::string(ZORDC_PATH) +
                               " watch WEATHER sky | { exec <&-; echo gone >&2; };"
                               " exit ${PIPESTATUS[0]}";
  Process shell("/bin/bash", {"-c", pipeline}, environment());
  shell.waitForError("gone\n");
  _server.waitForError("zordchd: subscribed ");
  EXPECT_EQ(send("clouds\n1\n").exitStatus, EX_OK);
  const ProcessResult seen = shell.finish();
  EXPECT_EQ(seen.exitStatus, EX_OK);
  EXPECT_EQ(seen.standardError, "gone\n");
}

TEST_F(ToolsTest, ATableCannotSteerTheTerminal) {
  const auto watcher = startWatching({"-C", "1"});
  EXPECT_EQ(send("note\n\x1b[2Jx\n").exitStatus, EX_OK);
  EXPECT_THAT(watcher->finish().standardOutput, EndsWith("  \\x1b[2Jx\n"));
}

TEST_F(ToolsTest, ATerminalShowsTheProgress) {
  const auto sender = startSending({}, Output::errorOnTerminal);
  sender->write("clouds\n1\n2\n");
  // The line is written anew while nothing happens.
  sender->waitForError("\r\x1b[Kzordp: 2 rows, ");
  sender->write("3\n");
  const ProcessResult sent = sender->finish();
  EXPECT_EQ(sent.exitStatus, EX_OK);
  EXPECT_THAT(sent.standardError, ContainsRegex("\r\x1b\\[Kzordp: 3 rows, [0-9.]+ rows/s, "
                                                "status 0 \\(done\\)\r\n$"));
}

TEST_F(ToolsTest, AnErrorOnATerminalStandsOnALineOfItsOwn) {
  const auto sender = startSending({}, Output::errorOnTerminal);
  sender->write("clouds\n1\nx\n");
  EXPECT_THAT(sender->finish().standardError,
              HasSubstr("status 0 (done)\r\nzordp: standard input:3: attribute 'clouds'"));
}

}  // namespace
}  // namespace tools
