// Actions and deferrals that consumers ask the real program for, through the library and beside it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <thread>

#include "dch/testkit/clients.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/server_process.h"
#include "tests/support/temporary_files.h"
#include "zordchcl/status.h"
#include "zordchcl/zordchcl.h"

namespace dch::testkit {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

class ZordchdActionsTest : public ::testing::Test {
 protected:
  ZordchdActionsTest() {
    EXPECT_EQ(mkfifo(gate().c_str(), 0600), 0);
    writeFile("gated", "read result < " + gate() + "; exit $result\n");
    writeFile("killed", "kill -KILL $$\n");
    writeFile("lasting", "sleep 1000 & wait\n");
    writeFile("actions.conf", "succeed /bin/true\nfail /bin/false\nmissing /nowhere/program\n" +
                                  line("gated") + line("killed") + line("lasting"));
    _server = std::make_unique<ServerProcess>(
        ServerProcess::Arguments{"--verbose", "--actions", _directory.path() + "/actions.conf"});
    setenv("ZORA_DCH_ADDR", "127.0.0.1", 1);
    setenv("ZORA_DCH_PORT", std::to_string(_server->port()).c_str(), 1);
  }
  ~ZordchdActionsTest() override {
    EXPECT_EQ(_server->stop(SIGTERM), 0) << _server->standardError();
  }

  std::string gate() const { return _directory.path() + "/gate"; }

  // A line of the list for the script of the same name.
  std::string line(const std::string& name) const {
    return name + " /bin/sh " + _directory.path() + "/" + name + '\n';
  }

  void writeFile(const std::string& name, const std::string& text) const {
    std::ofstream(_directory.path() + "/" + name) << text;
  }

  // Ends the action "gated". Waits until it has come as far as its gate.
  void openGate(int result) const { std::ofstream(gate()) << result << '\n'; }

  static void start(const char* action, ZORA_Long id, const char* parameters = nullptr) {
    EXPECT_EQ(dc_provideAction(1, "owner", "node", "subnode", action, id, parameters), 0);
  }

  // Waits until the server has the requests sent so far.
  void expectServes(UdpClient* client) const {
    EXPECT_EQ(statusOf(client->ask(unregisterMessage("NONE"))), DCH_STATUS_UNKNOWN_APPLICATION);
  }

  const TemporaryFolder _directory;
  std::unique_ptr<ServerProcess> _server;
};

TEST_F(ZordchdActionsTest, GivesTheLibraryTheResultOfAProgram) {
  start("succeed", 1);
  EXPECT_EQ(dc_waitForActionResults(1), 0);
  start("fail", 2);
  EXPECT_EQ(dc_waitForActionResults(2), 1);
  start("killed", 3);
  EXPECT_EQ(dc_waitForActionResults(3), 128 + SIGKILL);
  start("missing", 4);
  EXPECT_EQ(dc_waitForActionResults(4), 127);
  start("unlisted", 5);
  EXPECT_EQ(dc_waitForActionResults(5), DCH_STATUS_UNKNOWN_ACTION);
  EXPECT_EQ(dc_waitForActionResults(6), DCH_STATUS_UNKNOWN_ACTION) << "never started";
}

TEST_F(ZordchdActionsTest, AnswersWhenTheProgramEnds) {
  start("gated", 1);
  std::thread opener([this] {
    EXPECT_TRUE(_server->waitForError("action 1: gated started\n"));
    openGate(7);
  });
  EXPECT_EQ(dc_waitForActionResults(1), 7);
  opener.join();
  EXPECT_EQ(dc_waitForActionResults(1), 7) << "asked again";
}

TEST_F(ZordchdActionsTest, AnswersAllWhoWaitAndServesOthersMeanwhile) {
  UdpClient first(_server->port()), second(_server->port());
  TcpClient connection(_server->port());
  first.send(actionMessage("gated", 1));
  for (UdpClient* client : {&first, &second}) client->send(actionResultsMessage(1));
  // This one does not wait for the answer.
  UdpClient(_server->port(), portToLeave()).send(actionResultsMessage(1));
  connection.send(actionResultsMessage(1));
  UdpClient other(_server->port());
  for (int i = 0; i < 100; ++i) expectServes(&other);
  constexpr int noWait = 0;
  EXPECT_EQ(first.receive(noWait), std::nullopt);
  openGate(7);
  EXPECT_EQ(statusOf(first.receive().value_or("")), 7);
  EXPECT_EQ(statusOf(second.receive().value_or("")), 7);
  EXPECT_EQ(statusOf(connection.receive().value_or("")), 7);
  expectServes(&other);
}

TEST_F(ZordchdActionsTest, DoesNotStartAnActionTwiceWhileItRuns) {
  start("gated", 1);
  start("gated", 1);
  start("succeed", 1);
  EXPECT_TRUE(_server->waitForError("action 1 is running and not started again\n", 2));
  openGate(7);
  EXPECT_EQ(dc_waitForActionResults(1), 7);
  start("succeed", 1);
  EXPECT_EQ(dc_waitForActionResults(1), 0) << "the ID was free again";
}

TEST_F(ZordchdActionsTest, FindsTheEndOfManyProgramsAtATime) {
  UdpClient client(_server->port());
  for (ZORA_Long id = 1; id <= 50; ++id) client.send(actionMessage("fail", id));
  for (ZORA_Long id = 1; id <= 50; ++id)
    EXPECT_EQ(statusOf(client.ask(actionResultsMessage(id))), 1) << id;
}

TEST_F(ZordchdActionsTest, EndsTheProgramsThatStillRunWhenItEnds) {
  // They hold the server's output open, which the end of this test waits for.
  for (ZORA_Long id = 1; id <= 3; ++id) start("lasting", id);
  EXPECT_TRUE(_server->waitForError("action 3: lasting started\n"));
}

TEST_F(ZordchdActionsTest, ShowsNoParameters) {
  start("succeed", 1, "MONITOR START LOGONID=me PASSWORD=secret");
  EXPECT_EQ(dc_waitForActionResults(1), 0);
  EXPECT_THAT(_server->standardError(), Not(HasSubstr("secret")));
  EXPECT_THAT(_server->standardError(), Not(HasSubstr("LOGONID")));
}

TEST_F(ZordchdActionsTest, LogsButDoesNotAnswerMalformedRequests) {
  UdpClient client(_server->port());
  client.send(actionMessage("succeed", 1) + 'x');
  EXPECT_TRUE(_server->waitForError("refused action (0x2080)"));
  client.send(deferralMessage(1) + 'x');
  EXPECT_TRUE(_server->waitForError("refused deferral (0x20a0)"));
  client.send(statusSubscribeMessage(2));
  EXPECT_TRUE(_server->waitForError("refused status subscription (0x2070)"));
  // Whatever was answered would come first.
  expectServes(&client);
}

TEST_F(ZordchdActionsTest, ShowsDeferralsAndApplicationsOnRequest) {
  UdpClient provider(_server->port());
  EXPECT_EQ(statusOf(provider.ask(registerMessage())), DCH_STATUS_OK);
  EXPECT_TRUE(onlineAnswerOf(provider.ask(onlineMessage("HOSTMON", "load", "host1"))));
  int record = 0;
  EXPECT_EQ(dc_deferReportRequest(&record, 5, 1700, "HMN", "TABLE", "host1"), 0);
  EXPECT_TRUE(_server->waitForError("deferred: action 5, "));
  for (int report = 0; report < 2; ++report) kill(_server->processId(), SIGUSR1);
  EXPECT_TRUE(_server->waitForError("zordchd: 1 application(s)\n  HOSTMON: 1 source(s) on line\n"));
  EXPECT_TRUE(_server->waitForError("zordchd: 1 deferral(s)\n  action 5, reference 0x"));
  EXPECT_TRUE(_server->waitForError(", time 1700, key HMN, table TABLE, source host1\n"));
  expectServes(&provider);
}

TEST(ZordchdWithoutActionsTest, StartsNothing) {
  ServerProcess server;
  UdpClient client(server.port());
  client.send(actionMessage("succeed", 1));
  EXPECT_EQ(statusOf(client.ask(actionResultsMessage(1))), DCH_STATUS_UNKNOWN_ACTION);
  EXPECT_EQ(server.stop(SIGTERM), 0);
}

TEST(ZordchdWithoutActionsTest, RefusesAWrongListOfThem) {
  const TemporaryFolder directory;
  const std::string list = directory.path() + "/actions.conf";
  std::ofstream(list) << "good /bin/true\nbad true\n";
  const ProcessResult wrong = runServer({"--actions", list});
  EXPECT_EQ(wrong.exitStatus, 78);
  EXPECT_EQ(wrong.standardOutput, "");
  EXPECT_EQ(wrong.standardError,
            "zordchd: " + list + ":2: program 'true' is not an absolute path\n");
  const ProcessResult missing = runServer({"--actions", "/nowhere/actions.conf"});
  EXPECT_EQ(missing.exitStatus, 78);
  EXPECT_EQ(missing.standardError, "zordchd: /nowhere/actions.conf: No such file or directory\n");
}

}  // namespace
}  // namespace dch::testkit
