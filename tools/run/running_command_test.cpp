// A command and what it prints, as long as it has time.
#include "tools/run/running_command.h"

#include <gmock/gmock.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/temporary_files.h"
#include "tests/support/wait_until.h"
#include "tools/run/command_output.h"
#include "tools/testkit/process_state.h"

namespace tools {
namespace {

using ::testing::StartsWith;
using namespace std::chrono_literals;

constexpr std::chrono::seconds longEnough{60};

class Command : public ::testing::Test {
 protected:
  // What the command prints until the end of its output.
  static std::string outputOf(CommandOutput* output) {
    std::string all;
    char bytes[4096];
    while (const std::size_t count = output->read(bytes, sizeof bytes)) all.append(bytes, count);
    return all;
  }
  std::string outputOf(const std::string& line) {
    RunningCommand command(line);
    CommandOutput output(command, _end, {});
    std::string all = outputOf(&output);
    output.waitForShell();
    EXPECT_TRUE(command.hasEndedWell()) << line;
    EXPECT_EQ(command.takeStatus(), 0) << line;
    return all;
  }
  std::string endOf(const std::string& line) {
    RunningCommand command(line);
    CommandOutput output(command, _end, {});
    output.waitForShell();
    EXPECT_FALSE(command.hasEndedWell()) << line;
    return describeEnd(command.takeStatus());
  }

  EndEvent _end;
};

TEST_F(Command, PrintsIntoAPipe) {
  EXPECT_EQ(outputOf("echo one; echo two"), "one\ntwo\n");
}

TEST_F(Command, HasNoInputAndNoOtherDescriptor) {
  EXPECT_EQ(outputOf("cat"), "");
  const int leaking = dup(STDERR_FILENO);  // not closed when a program is started
  // The last one is that of the folder itself, which ls has opened.
  EXPECT_EQ(outputOf("exec ls /proc/self/fd"), "0\n1\n2\n3\n");
  close(leaking);
}

TEST_F(Command, StartsWithNoSignalBlockedOrIgnored) {
  sigset_t blocked, before;
  sigemptyset(&blocked);
  for (const int each : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&blocked, each);
  pthread_sigmask(SIG_BLOCK, &blocked, &before);
  signal(SIGPIPE, SIG_IGN);
  signal(SIGHUP, SIG_IGN);
  const std::string status = outputOf("exec cat /proc/self/status");
  for (const std::string name : {"SigBlk:\t", "SigIgn:\t"}) {
    const std::size_t set = status.find(name);
    ASSERT_NE(set, std::string::npos) << status;
    // From 32 on they are the C library's.
    constexpr unsigned long others = 0x7fffffff;
    EXPECT_EQ(std::stoul(status.substr(set + name.size()), nullptr, 16) & others, 0U) << name;
  }
}

TEST_F(Command, IsAProcessGroupOfItsOwn) {
  // The fifth field of its line is the group.
  const std::string line = outputOf("exec cat /proc/self/stat");
  std::istringstream fields(line);
  std::string id, name, state, parent, processGroup;
  fields >> id >> name >> state >> parent >> processGroup;
  EXPECT_EQ(parent, std::to_string(getpid()));
  EXPECT_EQ(processGroup, id);
}

TEST_F(Command, DoesNotSeeTheServiceManager) {
  setenv("NOTIFY_SOCKET", "/nowhere", 1);
  setenv("NOTIFY_SOCKETS", "stays", 1);
  EXPECT_EQ(outputOf("echo \"<$NOTIFY_SOCKET>$NOTIFY_SOCKETS\""), "<>stays\n");
}

TEST_F(Command, EndsInWords) {
  EXPECT_EQ(endOf("exit 3"), "status 3");
  EXPECT_EQ(endOf("/nowhere/program 2>/dev/null"), "status 127 (not found)");
  EXPECT_EQ(endOf("/ 2>/dev/null"), "status 126 (cannot be executed)");
  EXPECT_EQ(endOf("kill -9 $$"), "signal 9 (Killed)");
}

TEST_F(Command, IsReadToItsEndAndNoFurther) {
  // The output stays open behind the shell's back.
  const std::string text = outputOf("sleep 100 & echo $!");
  const std::string id = text.substr(0, text.find('\n'));
  EXPECT_EQ(text, id + "\n");
  EXPECT_TRUE(processEnds(id)) << id << " was left behind";
}

TEST_F(Command, WhatItLeavesBehindMayPrintForEver) {
  RunningCommand command("yes & exit 0");
  CommandOutput output(command, _end, {});
  outputOf(&output);
  EXPECT_FALSE(output.hasTimedOut());
  command.takeStatus();
}

TEST_F(Command, ThatTakesTooLongIsNotWaitedFor) {
  for (const char* line : {"sleep 100", "echo cut; sleep 100", "exec >&-; sleep 100", "yes"}) {
    RunningCommand command(line);
    CommandOutput output(command, _end, {200ms, false});
    char bytes[65536];
    while (output.read(bytes, sizeof bytes) > 0) continue;
    output.waitForShell();
    EXPECT_TRUE(output.hasTimedOut()) << line;
    EXPECT_FALSE(output.hasShellEnded()) << line;
    EXPECT_FALSE(command.hasEndedWell()) << line;
  }
}

TEST_F(Command, IsEndedWithAllOfItsGroup) {
  RunningCommand command("sleep 100 & echo $!; wait");
  CommandOutput output(command, _end, {});
  char bytes[64];
  const std::string id(bytes, output.read(bytes, sizeof bytes) - 1);
  command.askToEnd();
  EXPECT_TRUE(output.drain(CommandOutput::Clock::now() + longEnough));
  EXPECT_TRUE(processEnds(id));
  EXPECT_THAT(describeEnd(command.takeStatus()), StartsWith("signal 15"));
}

TEST_F(Command, ThatDoesNotWantToEndIsKilled) {
  RunningCommand command("trap '' TERM; sleep 100 & echo $!; wait; sleep 100");
  CommandOutput output(command, _end, {});
  char bytes[64];
  const std::string id(bytes, output.read(bytes, sizeof bytes) - 1);
  command.askToEnd();
  EXPECT_FALSE(output.drain(CommandOutput::Clock::now() + 100ms));
  EXPECT_TRUE(isProcessRunning(id));
  command.kill();
  EXPECT_TRUE(output.drain(CommandOutput::Clock::now() + longEnough));
  EXPECT_TRUE(processEnds(id));
}

TEST_F(Command, IsNotWaitedForAfterTheEndHasBegun) {
  RunningCommand command("echo one; sleep 100");
  CommandOutput output(command, _end, {});
  _end.begin();
  char byte;
  EXPECT_THROW(output.read(&byte, 1), EndHasBegun);
  EXPECT_THROW(output.waitForShell(), EndHasBegun);
}

TEST_F(Command, LeavesNeitherProcessNorDescriptorBehind) {
  const auto descriptors = [] {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return std::distance(begin(all), end(all));
  };
  const auto before = descriptors();
  for (int i = 0; i < 5; ++i) {
    outputOf("echo one");
    const RunningCommand killed("sleep 100");
  }
  EXPECT_EQ(descriptors(), before);
  EXPECT_TRUE(waitUntil([] { return waitpid(-1, nullptr, WNOHANG) == -1; }, longEnough));
}

}  // namespace
}  // namespace tools
