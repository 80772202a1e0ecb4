// The real program as a service of systemd.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <map>
#include <string>

#include "dch/testkit/clients.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/notify_socket.h"
#include "dch/testkit/server_process.h"
#include "tests/support/temporary_files.h"

namespace dch::testkit {
namespace {

using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Not;
using ::testing::StartsWith;

class ZordchdSystemdTest : public ::testing::Test {
 protected:
  Process::Environment environment(const Process::Environment& more = {}) const {
    Process::Environment all{{"NOTIFY_SOCKET", _manager.name()}};
    all.insert(more.begin(), more.end());
    return all;
  }

  const TemporaryFolder _folder;
  const NotifySocket _manager{_folder.path() + "/notify"};
};

TEST_F(ZordchdSystemdTest, TellsHowItDoes) {
  ServerProcess server({}, nullptr, 0, environment());
  EXPECT_EQ(_manager.receive(), "READY=1");
  EXPECT_EQ(_manager.receive(), "STATUS=0 applications, 0 sources on line, 0 rows kept, 0 lost");

  UdpClient client(server.port());
  EXPECT_EQ(statusOf(client.ask(registerMessage())), 0);
  const auto answer = onlineAnswerOf(client.ask(onlineMessage("HOSTMON", "load", "host1")));
  ASSERT_TRUE(answer);
  for (int i = 0; i < 2; ++i)
    EXPECT_EQ(statusOf(client.ask(dataMessage(answer->handle, {{"load1", 'D', "1"}}))), 0);
  // What was the case in between may be told before.
  EXPECT_EQ(_manager.receiveUntil("STATUS=1 application, 1 source on line, 2 rows kept, 0 lost"),
            "STATUS=1 application, 1 source on line, 2 rows kept, 0 lost");

  kill(server.processId(), SIGHUP);
  EXPECT_EQ(_manager.receive(), "RELOADING=1");
  EXPECT_EQ(_manager.receive(), "READY=1");
  EXPECT_EQ(server.stop(SIGTERM), 0);
  EXPECT_EQ(_manager.receive(), "STOPPING=1");
  EXPECT_EQ(_manager.receive(), "STATUS=stopping");
  EXPECT_FALSE(_manager.hasMessage());
}

TEST_F(ZordchdSystemdTest, TellsWhenItReadsItsFileAgainWhateverThatIsLike) {
  const TemporaryFile file("[channel]\nconnections = 10\n", "zordchd.toml");
  ServerProcess server({"--config", file.path()}, nullptr, 0, environment());
  EXPECT_EQ(_manager.receive(), "READY=1");
  EXPECT_THAT(_manager.receive(), StartsWith("STATUS="));
  struct {
    std::string text, said;
  } const files[] = {{"[channel]\nconnections = 20\n", "has read " + file.path() + " again\n"},
                     {"[channel]\nconnections = 'many'\n", "nothing has changed\n"},
                     {"[actions]\nfile = '/nowhere/actions'\n", "nothing has changed\n"},
                     {"", "has read " + file.path() + " again\n"}};
  std::map<std::string, int> times;
  for (const auto& [text, said] : files) {
    file.write(text);
    kill(server.processId(), SIGHUP);
    EXPECT_EQ(_manager.receive(), "RELOADING=1") << text;
    EXPECT_EQ(_manager.receive(), "READY=1") << text;
    EXPECT_TRUE(server.waitForError(said, ++times[said])) << text;
    EXPECT_FALSE(_manager.hasMessage()) << text;
  }
  EXPECT_EQ(server.stop(SIGTERM), 0);
}

TEST_F(ZordchdSystemdTest, AnswersTheWatchdog) {
  ServerProcess server({}, nullptr, 0, environment({{"WATCHDOG_USEC", "100000"}}));
  for (int i = 0; i < 5; ++i) EXPECT_EQ(_manager.receiveUntil("WATCHDOG=1"), "WATCHDOG=1");
  EXPECT_EQ(server.stop(SIGTERM), 0);
}

TEST_F(ZordchdSystemdTest, DoesNotWaitForAServiceManagerThatDoesNotRead) {
  _manager.fill();
  ServerProcess server({}, nullptr, 0, environment({{"WATCHDOG_USEC", "3000"}}));
  UdpClient client(server.port());
  for (int i = 0; i < 100; ++i) EXPECT_EQ(statusOf(client.ask(registerMessage())), 0);
  EXPECT_EQ(server.stop(SIGTERM), 0);
}

TEST_F(ZordchdSystemdTest, ServesWhenTheServiceManagerIsNotThere) {
  ServerProcess server({}, nullptr, 0, {{"NOTIFY_SOCKET", _folder.path() + "/nobody"}});
  EXPECT_EQ(statusOf(UdpClient(server.port()).ask(registerMessage())), 0);
  EXPECT_EQ(server.stop(SIGTERM), 0);
}

TEST_F(ZordchdSystemdTest, KeepsItsServiceManagerFromActions) {
  const TemporaryFile actions("environment /usr/bin/env\n");
  ServerProcess server({"--actions", actions.path()}, nullptr, 0,
                       environment({{"WATCHDOG_USEC", "10000000"}, {"OTHER", "stays"}}));
  UdpClient client(server.port());
  client.send(actionMessage("environment", 7));
  EXPECT_NE(client.ask(actionResultsMessage(7)), "");
  EXPECT_EQ(server.stop(SIGTERM), 0);
  EXPECT_THAT(server.standardOutput(), HasSubstr("OTHER=stays\n"));
  for (const char* name : {"NOTIFY_SOCKET", "WATCHDOG_USEC"})
    EXPECT_THAT(server.standardOutput(), Not(HasSubstr(name)));
}

// JOURNAL_STREAM names its standard error.
Process::Arguments withJournal(const Process::Arguments& arguments) {
  Process::Arguments all{"-c", "JOURNAL_STREAM=$(stat -Lc %d:%i /dev/stderr) exec \"$@\"", "bash",
                         serverPath()};
  all.insert(all.end(), arguments.begin(), arguments.end());
  return all;
}

TEST_F(ZordchdSystemdTest, TellsTheJournalThePriorityOfEachLine) {
  Process server("/bin/bash", withJournal({"--port", "0", "--verbose"}));
  server.waitForOutput(" state in ");
  server.signal(SIGUSR1);
  server.waitForError("log_lines_dropped 0\n");
  server.signal(SIGTERM);
  const ProcessResult result = server.finish();
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_THAT(result.standardError, MatchesRegex("(<5>[^\n]*\n)+<6>[^\n]*stopping on signal 15\n"));
}

TEST_F(ZordchdSystemdTest, TellsTheJournalThatAnErrorIsOne) {
  for (const Process::Arguments& arguments :
       {Process::Arguments{"--what"}, {"--actions", "/nowhere/actions.conf"}}) {
    const ProcessResult result = Process("/bin/bash", withJournal(arguments)).finish();
    EXPECT_NE(result.exitStatus, 0);
    EXPECT_THAT(result.standardError, MatchesRegex("<3>zordchd: [^\n]*\n(<3>[^\n]*\n)?"));
  }
}

}  // namespace
}  // namespace dch::testkit
