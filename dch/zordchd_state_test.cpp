// What the real program knows after it was killed: all that it has acknowledged.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sysexits.h>

#include <filesystem>
#include <optional>

#include "dch/testkit/clients.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/server_process.h"
#include "dch/testkit/store_test.h"
#include "tests/support/temporary_files.h"
#include "tests/support/wait_until.h"
#include "zordchcl/messages.h"
#include "zordchcl/status.h"

namespace dch::testkit {
namespace {

using ::testing::HasSubstr;

class ZordchdStateTest : public ::testing::Test {
 protected:
  ZordchdStateTest() { start(); }

  void start() {
    _server.emplace(
        ServerProcess::Arguments{"--store", _path, "--actions", _actions.path(), "--verbose"});
  }
  void killAndStart() {
    EXPECT_EQ(_server->stop(SIGKILL), -SIGKILL);
    start();
  }

  std::string ask(const std::string& message) const {
    return UdpClient(_server->port()).ask(message);
  }
  ZORA_Long goOnline(const std::string& source) {
    const auto answer = onlineAnswerOf(ask(onlineMessage("HOSTMON", "load", source)));
    return answer && answer->status == DCH_STATUS_OK ? answer->handle : 0;
  }

  const TemporaryFolder _folder;
  const std::string _path = _folder.path() + "/state.db";
  const TemporaryFile _actions{"succeed /bin/true\nfail /bin/false\n"};
  std::optional<ServerProcess> _server;
};

TEST_F(ZordchdStateTest, SaysWhereItsStateIs) {
  EXPECT_THAT(_server->standardOutput(), HasSubstr("\nzordchd: state in " + _path + "\n"));
}

TEST_F(ZordchdStateTest, KnowsApplicationsAndSourcesAndTheirHandlesAfterItWasKilled) {
  EXPECT_EQ(statusOf(ask(registerMessage())), DCH_STATUS_OK);
  const ZORA_Long first = goOnline("host1"), second = goOnline("host2");
  EXPECT_EQ(statusOf(ask(offlineMessage(first))), DCH_STATUS_OK);
  killAndStart();
  EXPECT_EQ(statusOf(ask(dataMessage(second, {{"load1", 'D', "1"}}))), DCH_STATUS_OK);
  EXPECT_EQ(statusOf(ask(dataMessage(first, {{"load1", 'D', "1"}}))), DCH_STATUS_UNKNOWN_HANDLE);
  EXPECT_GT(goOnline("host3"), second);
  EXPECT_EQ(goOnline("host1"), first);
}

TEST_F(ZordchdStateTest, RefusesRowsThatTheLimitOnTheSizeOfFilesLeavesNoRoomForAndGoesOn) {
  ASSERT_EQ(statusOf(ask(registerMessage())), DCH_STATUS_OK);
  const ZORA_Long handle = goOnline("host1");
  const UdpClient provider(_server->port());
  const auto send = [&] {
    return statusOf(provider.ask(dataMessage(handle, {{"load1", 'D', "1"}})));
  };
  constexpr rlim_t room = 1 << 20;
  rlimit usual;
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &usual), 0);
  const rlimit little{room, usual.rlim_max};
  ASSERT_EQ(prlimit(_server->processId(), RLIMIT_FSIZE, &little, nullptr), 0);
  auto status = send();
  for (rlim_t rows = 0; rows < room / 100 && status == DCH_STATUS_OK; ++rows) status = send();
  EXPECT_EQ(status, DCH_STATUS_NOT_STORED);
  ASSERT_EQ(prlimit(_server->processId(), RLIMIT_FSIZE, &usual, nullptr), 0);
  EXPECT_EQ(send(), DCH_STATUS_OK);
}

TEST_F(ZordchdStateTest, RefusesRowsWhileItsFileIsNotInItsPlaceAndLosesNone) {
  ASSERT_EQ(statusOf(ask(registerMessage())), DCH_STATUS_OK);
  const ZORA_Long handle = goOnline("host1");
  const UdpClient provider(_server->port());
  int kept = 0;
  const auto isKept = [&] {
    const auto status = statusOf(provider.ask(dataMessage(handle, {{"load1", 'D', "1"}})));
    if (status == DCH_STATUS_OK)
      ++kept;
    else
      EXPECT_EQ(status, DCH_STATUS_NOT_STORED);
    return status == DCH_STATUS_OK;
  };
  EXPECT_TRUE(isKept());
  std::filesystem::rename(_path, _path + "-moved");
  EXPECT_TRUE(waitUntil([&] { return !isKept(); }));
  EXPECT_TRUE(_server->waitForError("takes nothing more: it was removed, moved or replaced"));
  EXPECT_FALSE(isKept());
  std::filesystem::rename(_path + "-moved", _path);
  EXPECT_TRUE(waitUntil(isKept));
  EXPECT_TRUE(_server->waitForError("takes changes again"));
  killAndStart();
  EXPECT_EQ(goOnline("host1"), handle);
  EXPECT_EQ(query(_path, "SELECT count(*) FROM \"HOSTMON.load\""), std::to_string(kept) + "\n");
}

TEST_F(ZordchdStateTest, KnowsDeferralsAndResultsAfterItWasKilled) {
  UdpClient(_server->port()).send(deferralMessage(42));
  EXPECT_TRUE(_server->waitForError("deferred: "));
  UdpClient(_server->port()).send(actionMessage("fail", 7, "secret"));
  EXPECT_TRUE(_server->waitForError("action 7: fail started\n"));
  EXPECT_EQ(statusOf(ask(actionResultsMessage(7))), 1);
  killAndStart();
  EXPECT_EQ(query(_path, "SELECT id, name, owner, result, ended IS NOT NULL FROM actions"),
            "7|fail|owner|1|1\n");
  EXPECT_EQ(statusOf(ask(actionResultsMessage(7))), 1);
  EXPECT_EQ(kill(_server->processId(), SIGUSR1), 0);
  EXPECT_TRUE(_server->waitForError("zordchd: 1 deferral(s)\n"));
  // The ID is free again: that of an action which runs would not be.
  UdpClient(_server->port()).send(actionMessage("succeed", 7));
  EXPECT_TRUE(_server->waitForError("action 7: succeed started\n"));
  EXPECT_EQ(statusOf(ask(actionResultsMessage(7))), 0);
}

TEST_F(ZordchdStateTest, AnswersRequestsOfAConnectionInTheirOrder) {
  TcpClient client(_server->port());
  client.send(registerMessage() + unregisterMessage("NONE") + unregisterMessage("HOSTMON") +
              unregisterMessage("HOSTMON"));
  constexpr std::size_t size = 14;  // of an answer with a status
  const std::string answers = client.StreamSocket::receive(4 * size);
  ASSERT_EQ(answers.size(), 4 * size);
  const ZORA_Long statuses[] = {DCH_STATUS_OK, DCH_STATUS_UNKNOWN_APPLICATION, DCH_STATUS_OK,
                                DCH_STATUS_UNKNOWN_APPLICATION};
  for (std::size_t i = 0; i < 4; ++i)
    EXPECT_EQ(statusOf(answers.substr(i * size, size)), statuses[i]) << i;
}

TEST_F(ZordchdStateTest, AnswersAClientThatEndsItsSendingAtOnce) {
  TcpClient client(_server->port());
  client.send(registerMessage());
  client.finishSending();
  EXPECT_EQ(statusOf(client.receive().value_or("")), DCH_STATUS_OK);
}

TEST_F(ZordchdStateTest, KeepsWhatHadComeWhenItIsStopped) {
  UdpClient client(_server->port());
  client.send(registerMessage());
  EXPECT_EQ(_server->stop(SIGTERM), 0) << _server->standardError();
  EXPECT_EQ(statusOf(client.receive().value_or("")), DCH_STATUS_OK);
  start();
  EXPECT_NE(goOnline("host1"), 0);
}

TEST_F(ZordchdStateTest, IsRefusedToASecondServer) {
  const ProcessResult second = runServer({"--port", "0", "--store", _path});
  EXPECT_EQ(second.exitStatus, EX_CONFIG);
  EXPECT_THAT(second.standardError, HasSubstr(_path));
  EXPECT_THAT(second.standardError, HasSubstr("in use by another server"));
}

TEST(ZordchdStateFileTest, SaysWhatIsWrongWithAFileThatIsNone) {
  const TemporaryFile file(std::string(5'000, 'x'));
  const ProcessResult result = runServer({"--port", "0", "--store", file.path()});
  EXPECT_EQ(result.exitStatus, EX_CONFIG);
  EXPECT_THAT(result.standardError, HasSubstr(file.path()));
  EXPECT_EQ(file.content(), std::string(5'000, 'x'));
}

}  // namespace
}  // namespace dch::testkit
