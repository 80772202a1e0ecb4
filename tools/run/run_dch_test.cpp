// zordp run while the DCH is away, refuses, or has started anew; and mistakes in its file.
#include <gmock/gmock.h>
#include <sysexits.h>

#include <atomic>

#include "tests/support/scripted_dch.h"
#include "tools/testkit/requests.h"
#include "tools/testkit/run_fixture.h"

namespace tools {
namespace {

using ::testing::EndsWith;

using Datagrams = std::vector<std::string>;

Datagrams welcome(const std::string& request) {
  if (requestCode(request) == DCH_REQUEST_ONLINE) return {onlineAnswer(0, 1)};
  return {statusAnswer(0)};
}

constexpr char skyColumns[] = "columns = ['clouds']\n";

TEST(RunAlone, ADchThatIsNotThereYetIsWaitedFor) {
  std::atomic<bool> isThere{false};
  const ScriptedDch dch(
      [&](const std::string& request) { return isThere ? welcome(request) : Datagrams{}; });
  RunningZordp zordp(rowsTable("sky", "true", once), environmentFor(dch.port(), "1"));
  zordp->waitForError("zordp: the DCH does not answer; trying again\n");
  ASSERT_TRUE(waitForRequests(dch, 2, [](const std::string&) { return true; }));
  isThere = true;
  zordp->waitForError("zordp: the DCH answers again\n");
  zordp.waitUntilOnline();
}

TEST(RunAlone, ASignalEndsTheWaitForADch) {
  const ScriptedDch dch(never());
  // Longer than the test would wait.
  RunningZordp zordp(rowsTable("sky", "true", once), environmentFor(dch.port(), "1000"));
  ASSERT_EQ(dch.waitForRequests(1).size(), 1U);
  const ProcessResult result = zordp.stop();
  EXPECT_EQ(result.exitStatus, 128 + SIGTERM);
  EXPECT_EQ(result.standardError, "zordp: stopped by signal 15 (Terminated), 0 rows sent\n");
}

TEST(RunAlone, ARefusalAtTheStartEndsIt) {
  const ScriptedDch dch([](const std::string& request) {
    return requestCode(request) == DCH_REQUEST_ONLINE ? Datagrams{onlineAnswer(102, 0)}
                                                      : welcome(request);
  });
  RunningZordp zordp(rowsTable("sky", "true", once), environmentFor(dch.port()));
  const ProcessResult result = zordp->finish();
  EXPECT_EQ(result.exitStatus, EX_PROTOCOL);
  EXPECT_EQ(result.standardError,
            "zordp: online failed: status 102 (unknown attribute group); 0 rows sent before\n");
  EXPECT_EQ(requestCode(dch.requests().back()), DCH_REQUEST_UNREGISTER);
}

TEST(RunAlone, ARowThatIsRefusedEndsAllInGoodOrder) {
  const ScriptedDch dch([](const std::string& request) {
    return requestCode(request) == DCH_REQUEST_DATA ? Datagrams{statusAnswer(103)}
                                                    : welcome(request);
  });
  const Diary diary;
  RunningZordp zordp(rowsTable("wind", "echo $$ >>" + diary.path() + "; sleep 100; true", once) +
                         rowsTable("sky", "until [ -s " + diary.path() + " ]; do :; done; echo 1",
                                   std::string(skyColumns) + once),
                     environmentFor(dch.port()));
  const ProcessResult result = zordp->finish();
  EXPECT_EQ(result.exitStatus, EX_PROTOCOL);
  EXPECT_THAT(
      result.standardError,
      EndsWith("zordp: sky of roof: sending a row failed: status 103 (unknown attribute); 0 rows "
               "sent before\n"));
  const std::vector<short> codes = codesOf(dch.requests());
  EXPECT_EQ(codes.back(), DCH_REQUEST_UNREGISTER);
  EXPECT_EQ(std::count(codes.begin(), codes.end(), DCH_REQUEST_OFFLINE), 2);
  ASSERT_EQ(diary.lines().size(), 1U);
  EXPECT_TRUE(processEnds(diary.lines()[0]));
}

// Three rows, of which the second is answered so at first, are taken in their order; meanwhile the
// user is told this.
void expectAllRowsTaken(const Datagrams& answer, const std::vector<std::string>& said) {
  int tries = 0;
  std::vector<std::string> taken;  // read when all are there
  const ScriptedDch dch([&](const std::string& request) {
    if (requestCode(request) != DCH_REQUEST_DATA) return welcome(request);
    if (++tries == 2) return answer;
    taken.push_back(request);
    return welcome(request);
  });
  const CommandInput input;
  RunningZordp zordp(rowsTable("sky", "cat " + input.path(), skyColumns),
                     environmentFor(dch.port(), "10"));
  for (int i = 1; i <= 3; ++i) input.write(std::to_string(i) + "\n");
  for (const std::string& each : said) zordp->waitForError("zordp: " + each + "\n");
  ASSERT_TRUE(waitForRequests(
      dch, 4, [](const std::string& request) { return requestCode(request) == DCH_REQUEST_DATA; }));
  zordp.stop();
  ASSERT_EQ(taken.size(), 3U);
  // The number is at the end of the message.
  const auto rowOf = [](const std::string& request) {
    int number = 0;
    request.copy(reinterpret_cast<char*>(&number), sizeof number, request.size() - sizeof number);
    return number;
  };
  for (int i = 0; i < 3; ++i) EXPECT_EQ(rowOf(taken[static_cast<std::size_t>(i)]), i + 1);
}

TEST(RunAlone, NoRowIsLeftOutWhileTheDchIsAway) {
  expectAllRowsTaken({}, {"the DCH does not answer; trying again", "the DCH answers again"});
}

TEST(RunAlone, NoRowIsLeftOutWhileTheDchCannotKeepOne) {
  expectAllRowsTaken({statusAnswer(105)},
                     {"the DCH stores no rows; trying again", "the DCH stores rows again"});
}

TEST(RunAlone, ASecondSignalDoesNotWaitForTheDch) {
  std::atomic<bool> isAway{false};
  const ScriptedDch dch(
      [&](const std::string& request) { return isAway ? Datagrams{} : welcome(request); });
  const Diary diary;
  RunningZordp zordp(rowsTable("sky", "echo $$ >>" + diary.path() + "; exec sleep 100"),
                     environmentFor(dch.port(), "1000"));
  ASSERT_TRUE(diary.waitForLines(1));
  isAway = true;
  zordp->signal(SIGTERM);
  // The command is ended before the DCH is asked.
  ASSERT_TRUE(processEnds(diary.lines()[0]));
  EXPECT_EQ(zordp.stop().exitStatus, 128 + SIGTERM);
}

TEST(RunAlone, CommandsAreEndedWhileARowWaitsForTheDch) {
  const ScriptedDch dch([&](const std::string& request) {
    return requestCode(request) == DCH_REQUEST_DATA ? Datagrams{} : welcome(request);
  });
  const Diary diary;
  RunningZordp zordp(
      rowsTable("sky",
                "trap '' TERM; echo $$ >>" + diary.path() + "; echo 1; sleep 100; :", skyColumns),
      environmentFor(dch.port(), "1000"));
  ASSERT_TRUE(waitForRequests(
      dch, 1, [](const std::string& request) { return requestCode(request) == DCH_REQUEST_DATA; }));
  zordp->signal(SIGTERM);
  EXPECT_TRUE(processEnds(diary.lines()[0]));
}

TEST(RunAlone, AFileWithMistakesIsRefusedWithThemAll) {
  const TemporaryFile file(
      "registration = 1\n[[rows]]\ngroup = 'x'\nevery = 0\ncommand = 'true'\n");
  const ProcessResult result = runProgram(ZORDP_PATH, {"run", file.path()}, environmentFor(1));
  EXPECT_EQ(result.exitStatus, EX_DATAERR);
  EXPECT_EQ(result.standardError,
            "zordp: " + file.path() +
                ":1: registration has to be the text that registers the application in quotes, not "
                "1\nzordp: " +
                file.path() +
                ":4: every in [[rows]] has to be a number of seconds from 0.1 to 86400, not 0\n");
  const ProcessResult missing = runProgram(ZORDP_PATH, {"run", "/nowhere/a.toml"}, {});
  EXPECT_EQ(missing.exitStatus, EX_NOINPUT);
  EXPECT_EQ(missing.standardError,
            "zordp: cannot open /nowhere/a.toml: No such file or directory\n");
}

}  // namespace
}  // namespace tools
