// zordp run with a real server: which rows arrive, what it says of commands, and how it ends.
#include <gmock/gmock.h>

#include "tools/testkit/run_fixture.h"

namespace tools {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;

class Run : public ToolsTest {
 protected:
  // A consumer of that many rows.
  std::unique_ptr<Process> watch(const std::string& group, int rows) {
    return startWatching("WEATHER", group, {"-C", std::to_string(rows), "-F", "jsonl"});
  }
  static std::vector<std::string> rowsOf(Process& watcher) {
    const ProcessResult result = watcher.finish();
    EXPECT_EQ(result.exitStatus, 0) << result.standardError;
    return valuesIn(result.standardOutput);
  }
  RunningZordp start(const std::string& tables, const Arguments& more = {}) {
    return RunningZordp(tables, environment(), more);
  }
};

// ---- Rows ----

TEST_F(Run, RowsOfCommandsOfBothKindsArriveInOrder) {
  const CommandInput input;
  const auto sky = watch("sky", 3);
  const auto wind = watch("wind", 3);
  auto zordp = start(rowsTable("sky", "printf 'clouds,note\\n1,a\\n2,b\\n3,c\\n'", once) +
                     rowsTable("wind", "cat " + input.path(), "columns = ['speed']"));
  EXPECT_THAT(rowsOf(*sky), ElementsAre(R"({"clouds":1,"note":"a"})", R"({"clouds":2,"note":"b"})",
                                        R"({"clouds":3,"note":"c"})"));
  // Each is sent when it is there, not when more comes.
  for (int i = 1; i <= 3; ++i) {
    input.write(std::to_string(i) + "\n");
    wind->waitForOutput("\"speed\":" + std::to_string(i));
  }
  EXPECT_THAT(rowsOf(*wind), ElementsAre(R"({"speed":1})", R"({"speed":2})", R"({"speed":3})"));
  EXPECT_EQ(zordp.stop().standardError,
            "zordp: WEATHER is on line, sources: 2\n"
            "zordp: stopped by signal 15 (Terminated), 6 rows sent\n");
}

TEST_F(Run, ACommandRunsAtItsIntervals) {
  const auto sky = watch("sky", 3);
  auto zordp =
      start(rowsTable("sky", "echo $$", "every = 0.1\ntimeout = 60\ncolumns = ['clouds']"));
  const auto rows = rowsOf(*sky);
  ASSERT_EQ(rows.size(), 3U);
  EXPECT_NE(rows[0], rows[1]);
  EXPECT_NE(rows[1], rows[2]);
}

TEST_F(Run, EachFormatIsUnderstood) {
  const auto sky = watch("sky", 1);
  const auto wind = watch("wind", 1);
  auto zordp =
      start(rowsTable("sky", "echo ' calm\t 7 '",
                      "format = 'words'\ncolumns = ['note', 'clouds']\n" + std::string(once)) +
            rowsTable("wind", "echo '{\"speed\": 5}'", "format = 'jsonl'\n" + std::string(once)));
  EXPECT_THAT(rowsOf(*sky), ElementsAre(R"({"clouds":7,"note":"calm"})"));
  EXPECT_THAT(rowsOf(*wind), ElementsAre(R"({"speed":5})"));
}

TEST_F(Run, SourcesOfAGroupHaveAHandleEach) {
  const auto sky = startWatching({"-C", "2", "-F", "jsonl"});
  const std::string columns = "columns = ['clouds']\n" + std::string(once);
  std::string other = rowsTable("sky", "echo 2", columns);
  other.replace(other.find("roof"), 4, "cellar");
  auto zordp = start(rowsTable("sky", "echo 1", columns) + other);
  zordp.waitUntilOnline();
  _server.waitForError("on line: WEATHER sky roof, handle 1\n");
  _server.waitForError("on line: WEATHER sky cellar, handle 2\n");
  const std::string rows = sky->finish().standardOutput;
  EXPECT_THAT(rows, HasSubstr(R"("handle":1,"values":{"clouds":1})"));
  EXPECT_THAT(rows, HasSubstr(R"("handle":2,"values":{"clouds":2})"));
  zordp.stop();
  _server.waitForError("off line: handle 2");
  _server.waitForError("unregistered WEATHER");
}

TEST_F(Run, LinesThatAreNoRowsAreLeftOutAndSaid) {
  const auto sky = watch("sky", 3);
  auto zordp = start(rowsTable("sky",
                               "echo 1; echo x; printf 'a\\0b\\n'; head -c 3000000 /dev/zero | "
                               "tr '\\0' 9; echo; echo 2; head -c 100 /dev/urandom | od -An -c | "
                               "tr -d '\\n' | sed 's/^/x/'; echo; echo 3",
                               "columns = ['clouds']\n" + std::string(once)));
  EXPECT_THAT(rowsOf(*sky), ElementsAre(R"({"clouds":1})", R"({"clouds":2})", R"({"clouds":3})"));
  zordp->waitForError("zordp: sky of roof: 4 lines were left out\n");
  EXPECT_THAT(zordp.stop().standardError,
              HasSubstr("zordp: sky of roof: line 2 is left out: attribute 'clouds': 'x' is not a "
                        "whole number\nzordp: sky of roof: 4 lines were left out\n"));
}

TEST_F(Run, OfACommandThatGoesOnAGoodRowEndsTheStreak) {
  const CommandInput input;
  auto zordp = start(rowsTable("sky", "cat " + input.path(), "columns = ['clouds']"));
  input.write("x\ny\nz\n1\n");
  zordp->waitForError("zordp: sky of roof: line 1 is left out: attribute 'clouds': 'x' is not");
  zordp->waitForError("zordp: sky of roof: 3 lines were left out\n");
  input.write("2\n");
  zordp->waitForError("zordp: sky of roof: every line is a row again\n");
  EXPECT_THAT(zordp.stop().standardError, Not(HasSubstr("'y'")));
}

TEST_F(Run, OnlyACommandThatEndsWellMayLeaveOutTheLastLineEnd) {
  const auto sky = watch("sky", 2);
  auto zordp = start(
      rowsTable("sky", "echo 1; printf 2", "columns = ['clouds']\n" + std::string(once)) +
      rowsTable("wind", "printf '4\\n567'; exit 1", "columns = ['speed']\n" + std::string(once)));
  EXPECT_THAT(rowsOf(*sky), ElementsAre(R"({"clouds":1})", R"({"clouds":2})"));
  zordp->waitForError("wind of roof: the command has ended with status 1\n");
  EXPECT_THAT(zordp.stop().standardError, EndsWith(", 3 rows sent\n"));
}

// ---- Commands ----

TEST_F(Run, HowACommandEndsIsSaidWhenItChanges) {
  const Diary diary;
  const TemporaryFolder marks;
  const auto mark = [&](const std::string& name) { std::ofstream(marks.path() + "/" + name); };
  auto zordp = start(rowsTable("sky",
                               "echo run >>" + diary.path() + "; cd " + marks.path() +
                                   "; [ -e well ] && exit 0; [ -e four ] && exit 4; exit 3",
                               "every = 0.1\ntimeout = 60"));
  ASSERT_TRUE(diary.waitForLines(3));
  mark("four");
  zordp->waitForError("zordp: sky of roof: the command has ended with status 4\n");
  mark("well");
  zordp->waitForError("zordp: sky of roof: the command is well again\n");
  ASSERT_TRUE(diary.waitForLines(diary.lines().size() + 2));
  const std::string said = zordp.stop().standardError;
  for (const char* text : {"status 3\n", "status 4\n", "well again\n"})
    EXPECT_EQ(said.find(text), said.rfind(text)) << said;
}

TEST_F(Run, ACommandThatIsNotThereIsSaidAndTheOthersGoOn) {
  const auto wind = watch("wind", 1);
  auto zordp = start(rowsTable("sky", "/nowhere/program", once) +
                     rowsTable("wind", "echo 1", "columns = ['speed']\n" + std::string(once)));
  // What the shell says of it stands there, too.
  zordp->waitForError("/nowhere/program");
  zordp->waitForError("zordp: sky of roof: the command has ended with status 127 (not found)\n");
  EXPECT_THAT(rowsOf(*wind), ElementsAre(R"({"speed":1})"));
}

TEST_F(Run, ACommandThatHangsIsStoppedWithWhatItStarted) {
  const Diary diary;
  // Its child does not care for SIGTERM, so that this takes until it is killed.
  auto zordp = start(rowsTable(
      "sky", "(trap '' TERM; sleep 100) & echo $! >>" + diary.path() + "; wait; sleep 100",
      "every = 1\ntimeout = 0.5"));
  zordp->waitForError(
      "zordp: sky of roof: the command has not ended within 0.5 s and was stopped\n");
  // On a slow machine not in the first run.
  ASSERT_TRUE(diary.waitForLines(1));
  EXPECT_TRUE(processEnds(diary.lines()[0]));
}

TEST_F(Run, ACommandThatIsToGoOnIsStartedAnew) {
  const auto sky = watch("sky", 2);
  auto zordp = start(rowsTable("sky", "echo 1", "columns = ['clouds']"));
  EXPECT_THAT(rowsOf(*sky), ElementsAre(R"({"clouds":1})", R"({"clouds":1})"));
  const std::string said = zordp.stop().standardError;
  const std::string end = "zordp: sky of roof: the command has ended with status 0\n";
  ASSERT_THAT(said, HasSubstr(end));
  EXPECT_EQ(said.find(end), said.rfind(end)) << said;
}

TEST_F(Run, ACommandThatFallsSilentIsStartedAnew) {
  const auto sky = watch("sky", 2);
  auto zordp = start(rowsTable("sky", "echo 1; sleep 100", "columns = ['clouds']\ntimeout = 0.3"));
  EXPECT_THAT(rowsOf(*sky), ElementsAre(R"({"clouds":1})", R"({"clouds":1})"));
  EXPECT_THAT(zordp.stop().standardError,
              HasSubstr("zordp: sky of roof: the command has printed no line for 0.3 s and was "
                        "stopped\n"));
}

TEST_F(Run, WhatACommandSaysOnStandardErrorIsPassedThrough) {
  auto zordp = start(rowsTable("sky", "cat; echo of the command >&2", once));
  zordp->waitForError("of the command\n");
}

// ---- The end ----

TEST_F(Run, EachSignalEndsItInGoodOrder) {
  int times = 0;
  for (const auto& [signal, name] :
       {std::pair(SIGINT, "2 (Interrupt)"), {SIGTERM, "15 (Terminated)"}, {SIGHUP, "1 (Hangup)"}}) {
    const Diary diary;
    auto zordp = start(rowsTable("sky", "echo $$ >>" + diary.path() + "; exec sleep 100") +
                       rowsTable("wind", "true", once));
    ASSERT_TRUE(diary.waitForLines(1));
    const ProcessResult result = zordp.stop(signal);
    EXPECT_EQ(result.exitStatus, 128 + signal);
    EXPECT_THAT(result.standardError,
                EndsWith("zordp: stopped by signal " + std::string(name) + ", 0 rows sent\n"));
    EXPECT_TRUE(processEnds(diary.lines()[0]));
    _server.waitForError("unregistered WEATHER", ++times);
    EXPECT_THAT(_server.waitForError("off line: handle ", 2 * times), HasSubstr("handle 2"));
  }
}

TEST_F(Run, CommandsThatDoNotWantToEndDoNotHoldItUp) {
  const Diary diary;
  const std::string stubborn = "trap '' TERM; echo $$ >>" + diary.path() + "; sleep 100; sleep 100";
  auto zordp = start(rowsTable("sky", stubborn) + rowsTable("wind", stubborn, once));
  ASSERT_TRUE(diary.waitForLines(2));
  EXPECT_EQ(zordp.stop().exitStatus, 128 + SIGTERM);
  for (const std::string& each : diary.lines())
    EXPECT_TRUE(processEnds(each)) << "one was left behind";
}

TEST_F(Run, TheApplicationMayStayRegistered) {
  auto zordp = start(rowsTable("sky", "true", once), {"--keep"});
  zordp.waitUntilOnline();
  zordp.stop();
  _server.waitForError("off line: handle 1");
  EXPECT_THAT(zordc({"apps", "-F", "csv"}).standardOutput, HasSubstr("WEATHER,WTH"));
}

TEST_F(Run, ItHasNoMoreProcessesAndDescriptorsAfterManyRuns) {
  const Diary diary;
  auto zordp = start(rowsTable("sky", "echo $$ >>" + diary.path() + "; echo 1",
                               "columns = ['clouds']\nevery = 0.1\ntimeout = 60"));
  const auto descriptors = [&] {
    const std::filesystem::directory_iterator all("/proc/" + std::to_string(zordp->id()) + "/fd");
    return std::distance(begin(all), end(all));
  };
  ASSERT_TRUE(diary.waitForLines(1));
  // As few as between two runs.
  const auto before = descriptors();
  ASSERT_TRUE(diary.waitForLines(8));
  EXPECT_TRUE(waitUntil([&] { return descriptors() <= before; }, runPatience));
  // The shell is a child of zordp no more: it was waited for.
  const std::string about = contentOf("/proc/" + diary.lines()[0] + "/status");
  EXPECT_THAT(about, Not(HasSubstr("\nPPid:\t" + std::to_string(zordp->id()) + "\n")));
}

}  // namespace
}  // namespace tools
