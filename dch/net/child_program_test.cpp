#include "dch/net/child_program.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>

#include "dch/net/signals.h"

namespace dch {
namespace {

// The result of a shell's script, run as the server runs its programs: with what it changes for
// itself in force.
ZORA_Long resultOf(const std::string& script) {
  for (const int each : ignoredSignals) signal(each, SIG_IGN);
  sigset_t blocked;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGTERM);
  sigprocmask(SIG_BLOCK, &blocked, nullptr);
  ChildProgram program({"/bin/sh", "-c", script});
  for (;;) {
    if (const auto result = program.takeResult()) return *result;
    usleep(1000);
  }
}

TEST(ChildProgramTest, HasTheExitStatusOfItsProgramAsResult) {
  EXPECT_EQ(resultOf("exit 0"), 0);
  EXPECT_EQ(resultOf("exit 7"), 7);
  EXPECT_EQ(resultOf("exit 255"), 255);
}

TEST(ChildProgramTest, TellsTheSignalThatEndedItsProgram) {
  EXPECT_EQ(resultOf("kill -KILL $$"), 128 + SIGKILL);
}

TEST(ChildProgramTest, HasAResultAlsoWhenSomebodyElseHasWaitedForIt) {
  ChildProgram program({"/bin/true"});
  EXPECT_GT(wait(nullptr), 0);
  EXPECT_EQ(program.takeResult(), 128);
}

TEST(ChildProgramTest, RunsItWithoutTheServersSignalSettings) {
  EXPECT_EQ(resultOf("kill -TERM $$; exit 1"), 128 + SIGTERM);
  EXPECT_EQ(resultOf("kill -PIPE $$; exit 1"), 128 + SIGPIPE);
  EXPECT_EQ(resultOf("kill -XFSZ $$; exit 1"), 128 + SIGXFSZ);
}

TEST(ChildProgramTest, GivesItAnEmptyInput) {
  EXPECT_EQ(resultOf("read line && exit 1; test -c /dev/stdin && exit 3"), 3);
}

TEST(ChildProgramTest, GivesItNothingElseThatIsOpen) {
  const int inherited = dup(STDERR_FILENO);
  ASSERT_GT(inherited, STDERR_FILENO);
  EXPECT_EQ(resultOf("test -e /proc/$$/fd/" + std::to_string(inherited) + " && exit 1; exit 3"), 3);
  close(inherited);
}

TEST(ChildProgramTest, RunsItInAProcessGroupOfItsOwn) {
  EXPECT_EQ(resultOf("read -r id name state parent group rest < /proc/$$/stat; "
                     "test $group = $$ && exit 3"),
            3);
}

TEST(ChildProgramTest, PassesArgumentsOnWithoutAShell) {
  ChildProgram program({"/usr/bin/test", "$HOME", "=", "$(HOME)"});
  std::optional<ZORA_Long> result;
  while (!(result = program.takeResult())) usleep(1000);
  EXPECT_EQ(result, 1);
}

TEST(ChildProgramTest, SaysWhyAProgramCannotBeStarted) {
  try {
    ChildProgram program({"/nowhere/program"});
    FAIL();
  } catch (const std::system_error& error) {
    EXPECT_STREQ(error.what(), "/nowhere/program: No such file or directory");
  }
  EXPECT_THROW(ChildProgram({"/"}), std::system_error);
}

TEST(ChildProgramTest, EndsWhatStillRunsAndWhatThatHasStarted) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  {
    const ChildProgram program({"/bin/sh", "-c", "/bin/sleep 1000 & wait"});
    close(ends[1]);
  }
  // The other end was inherited by both of them: it is closed when both are gone.
  char byte;
  EXPECT_EQ(read(ends[0], &byte, 1), 0);
  close(ends[0]);
  int status = 0;
  EXPECT_GT(wait(&status), 0);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM);
}

}  // namespace
}  // namespace dch
