// The whole server with a log that takes nothing for a while: the log waits, and nothing else.
// ZORD410_HANG_SECONDS sets how long it hangs at least.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <iostream>
#include <string>

#include "dch/net/port.h"
#include "dch/service/server.h"
#include "dch/testkit/bystander.h"
#include "dch/testkit/clients.h"
#include "dch/testkit/log_pipe.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/server_process.h"
#include "dch/testkit/shared.h"
#include "dch/testkit/standstill.h"
#include "dch/testkit/store_test.h"
#include "tests/support/failing_calls.h"
#include "tests/support/process.h"
#include "tests/support/temporary_files.h"
#include "tests/support/text_count.h"
#include "tests/support/variables.h"
#include "tests/support/wait_until.h"
#include "zordchcl/status.h"

namespace dch::testkit {
namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

ZORA_Long goOnline(const UdpClient& client, const std::string& source) {
  return handleOf(client.ask(onlineMessage("HOSTMON", "load", source)));
}

bool isRowKept(const UdpClient& client, ZORA_Long handle) {
  return statusOf(client.ask(dataMessage(handle, {{"load1", 'D', "1"}}))) == DCH_STATUS_OK;
}

class ZordchdLogFileTest : public ::testing::Test {
 protected:
  // Registers, and goes on line when the log takes nothing any more.
  ZordchdLogFileTest() {
    EXPECT_EQ(statusOf(_client.ask(registerMessage())), DCH_STATUS_OK);
    _hang->isOn = true;
    EXPECT_EQ(goOnline(_client, "host0"), 1);
    EXPECT_TRUE(waitUntil([this] { return _hang->isMet.load(); }));
  }
  ~ZordchdLogFileTest() override { _hang->isOn = false; }

  // What the process of the server does.
  int serve() const {
    dup2(open(logPath().c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600), STDERR_FILENO);
    standIns.write = [this](int descriptor, const void* bytes, std::size_t count) {
      if (descriptor == STDERR_FILENO) _hang->wait();
      return __real_write(descriptor, bytes, count);
    };
    Configuration configuration;
    configuration.isVerbose = true;
    Server(openPort({htonl(INADDR_LOOPBACK)}, 0), statePath(), {}, configuration).run();
    return 0;
  }

  std::string logPath() const { return _folder.path() + "/log"; }
  std::string statePath() const { return _folder.path() + "/state.db"; }

  const TemporaryFolder _folder;
  const Shared<Standstill> _hang;  // of the log file
  Process _server{[this] { return serve(); }};
  const int _port = portIn(_server.waitForOutput("\n"));
  const UdpClient _client{_port};
};

TEST_F(ZordchdLogFileTest, ThatHangsHoldsNobodyUpAndGetsAllLinesWhenItGoesOn) {
  const std::chrono::seconds hang(numberFrom("ZORD410_HANG_SECONDS", 0));
  constexpr int sources = 100;
  for (int i = 1; i <= sources; ++i)
    ASSERT_TRUE(isRowKept(_client, goOnline(_client, "host" + std::to_string(i)))) << i;
  Bystander(_port).expectIsServed(nullptr, Bystander::Wants::everything, hang);
  _server.signal(SIGUSR1);

  _hang->isOn = false;
  EXPECT_TRUE(waitUntil(
      [&] { return contentOf(logPath()).find("  changes_waiting ") != std::string::npos; }));
  const std::string log = contentOf(logPath());
  std::size_t at = 0;
  for (int i = 0; i <= sources; ++i) {
    at = log.find("on line: HOSTMON load host" + std::to_string(i) + ", handle", at);
    ASSERT_NE(at, std::string::npos) << i;
  }
  EXPECT_LT(at, log.find("zordchd: 2 application(s)\n"));
  EXPECT_EQ(countOf("  log_lines_dropped 0\n", log), 1);
  _server.signal(SIGTERM);
  EXPECT_EQ(_server.finish().exitStatus, 0);
}

TEST_F(ZordchdLogFileTest, ThatHangsKeepsNoServerFromItsEnd) {
  EXPECT_TRUE(isRowKept(_client, 1));
  const auto told = Clock::now();
  _server.signal(SIGTERM);
  EXPECT_EQ(_server.finish().exitStatus, 0);
  std::cout << "ended in " << secondsSince(told) << " s\n";
  EXPECT_EQ(query(statePath(), "SELECT count(*) FROM \"HOSTMON.load\""), "1\n");
}

TEST(ZordchdLogPipeTest, ThatNobodyReadsKeepsNoServerFromItsEnd) {
  ServerProcess server({"--verbose"}, takeALogThatNobodyReads);
  const UdpClient client(server.port());
  EXPECT_EQ(statusOf(client.ask(registerMessage())), DCH_STATUS_OK);
  for (int i = 1; i <= 100; ++i)
    ASSERT_TRUE(isRowKept(client, goOnline(client, std::to_string(i))));
  EXPECT_EQ(server.stop(SIGTERM), 0);
}

TEST(ZordchdLogThreadTest, IsStartedAgainWhenItCouldNotBeStarted) {
  LogPipe pipe;
  {
    LogOutput output(pipe.descriptor());
    {
      const FailingCall noThread({SystemCall::createThread}, EAGAIN);
      output.write(Priority::info, "lost\n");
    }
    EXPECT_EQ(output.dropped(), 1u);
    output.write(Priority::info, "written\n");
  }
  EXPECT_EQ(pipe.content(), "written\n");
}

}  // namespace
}  // namespace dch::testkit
