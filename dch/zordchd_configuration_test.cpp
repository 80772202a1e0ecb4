// The configuration file of the real program, at its start and when it is read again.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sysexits.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "dch/testkit/clients.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/server_process.h"
#include "tests/support/temporary_files.h"
#include "zordchcl/status.h"

namespace dch::testkit {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

class ZordchdConfigurationTest : public ::testing::Test {
 protected:
  void write(const std::string& text) const { _file.write(text); }
  const std::string& file() const { return _file.path(); }
  std::string beside(const std::string& name) const { return _file.folder().path() + '/' + name; }

  // Has the server read the file with this text; returns whether it says that it has.
  bool reload(ServerProcess* server, const std::string& text) {
    write(text);
    kill(server->processId(), SIGHUP);
    return server->waitForError("zordchd: has read " + file() + " again\n", ++_reloads);
  }

  const TemporaryFile _file{"", "zordchd.toml"};
  int _reloads = 0;
};

TEST_F(ZordchdConfigurationTest, IsCheckedWithoutServing) {
  write("[channel]\nport = 1919\n[store]\npath = '" + beside("state.db") + "\'\n");
  const ProcessResult result = runServer({"--config", file(), "--check"});
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_EQ(result.standardOutput, "zordchd: " + file() + " is in order\n");
  EXPECT_EQ(result.standardError, "");
  EXPECT_FALSE(std::ifstream(beside("state.db")).is_open());
}

TEST_F(ZordchdConfigurationTest, EndsBothAtACheckAndAtAStartWhenItIsWrong) {
  write("[channel]\nport = 70000\nprot = 1\n");
  for (const ServerProcess::Arguments& arguments :
       {ServerProcess::Arguments{"--config", file(), "--check"}, {"--config", file()}}) {
    const ProcessResult result = runServer(arguments);
    EXPECT_EQ(result.exitStatus, EX_CONFIG);
    EXPECT_EQ(result.standardOutput, "");
    EXPECT_THAT(result.standardError,
                AllOf(HasSubstr("zordchd: " + file() + ":2: port in [channel] has to be"),
                      HasSubstr("zordchd: " + file() + ":3: there is no key prot in [channel]")));
  }
}

TEST_F(ZordchdConfigurationTest, IsWrongWhenItsListOfActionsIs) {
  std::ofstream(beside("actions")) << "restart systemctl\n";
  write("[actions]\nfile = '" + beside("actions") + "\'\n");
  const ProcessResult result = runServer({"--config", file(), "--check"});
  EXPECT_EQ(result.exitStatus, EX_CONFIG);
  EXPECT_THAT(result.standardError,
              HasSubstr("/actions:1: program 'systemctl' is not an absolute"));
}

TEST_F(ZordchdConfigurationTest, AHubWithoutServersIsRefused) {
  write("[link]\nsite = 'hub'\nstore_remote = true\n");
  for (const ServerProcess::Arguments& arguments :
       {ServerProcess::Arguments{"--config", file(), "--check"},
        {"--config", file(), "--port", "0"}}) {
    const ProcessResult result = runServer(arguments);
    EXPECT_EQ(result.exitStatus, EX_CONFIG);
    EXPECT_EQ(result.standardOutput, "");
    EXPECT_EQ(result.standardError,
              "zordchd: " + file() +
                  ":3: store_remote in [link] needs servers in [link], from which the rows come\n");
  }
}

TEST_F(ZordchdConfigurationTest, AHubWithItsStateInMemoryIsRefused) {
  const auto expectRefusal = [this](ServerProcess::Arguments arguments) {
    arguments.insert(arguments.begin(), {"--config", file()});
    const ProcessResult result = runServer(arguments);
    EXPECT_EQ(result.exitStatus, EX_CONFIG);
    EXPECT_EQ(result.standardOutput, "");
    EXPECT_EQ(result.standardError,
              "zordchd: store_remote in [link] needs a file for the state, which is in memory: set "
              "path in [store], or give --store FILE\n");
  };
  const std::string hub = "[link]\nservers = ['nats://127.0.0.1:1']\nstore_remote = true\n";
  write(hub);
  expectRefusal({"--port", "0"});
  expectRefusal({"--port", "0", "--store", "memory"});
  expectRefusal({"--store", "memory", "--check"});
  write(hub + "[store]\npath = 'memory'\n");
  expectRefusal({"--check"});
}

TEST_F(ZordchdConfigurationTest, CannotBeCheckedWhenThereIsNone) {
  const ProcessResult result = runServer({"--check"});
  EXPECT_EQ(result.exitStatus, EX_USAGE);
  EXPECT_THAT(result.standardError, HasSubstr("--config"));
}

TEST_F(ZordchdConfigurationTest, GoesBeforeTheEnvironmentAndBehindTheCommandLine) {
  ServerProcess one, other;
  const std::string port = std::to_string(one.port()), otherPort = std::to_string(other.port());
  write("[channel]\nport = " + port + "\n");
  // Each port is in use, and so is named.
  EXPECT_THAT(runServer({"--config", file()}, {{"ZORA_DCH_PORT", "web"}}).standardError,
              HasSubstr("the DCH port " + port));
  EXPECT_THAT(runServer({"--config", file(), "--port", otherPort}).standardError,
              HasSubstr("the DCH port " + otherPort));
  EXPECT_EQ(one.stop(SIGTERM), 0);
  EXPECT_EQ(other.stop(SIGTERM), 0);
}

TEST_F(ZordchdConfigurationTest, SaysWhereTheServerIsAndWhereItsStateIs) {
  write("[channel]\nbind = '127.0.0.1'\nport = 1\n[store]\npath = 'memory'\n");
  ServerProcess server({"--config", file()});
  EXPECT_THAT(server.standardOutput(), HasSubstr("zordchd: state in memory\n"));
  EXPECT_EQ(server.stop(SIGTERM), 0);
  write("[channel]\nbind = '192.0.2.1'\nport = 0\n");
  EXPECT_THAT(runServer({"--config", file()}).standardError, HasSubstr("192.0.2.1"));
}

// The first answer that comes is that of the second request.
TEST_F(ZordchdConfigurationTest, WhoIsNotAllowedGetsNoAnswerUntilItIsReadAgain) {
  write("[channel]\nallow = ['192.0.2.1']\n");
  ServerProcess server({"--config", file(), "--verbose"});
  const UdpClient client(server.port());
  client.send(onlineMessage("HOSTMON", "load", "host1"));
  EXPECT_TRUE(server.waitForError(std::string(client.address().text().data()) + " is not allowed"));
  TcpClient refused(server.port());
  EXPECT_EQ(refused.receive(), "");
  ASSERT_TRUE(reload(&server, "[channel]\nallow = ['127.0.0.0/8']\n"));
  EXPECT_EQ(statusOf(client.ask(registerMessage())), DCH_STATUS_OK);
  TcpClient allowed(server.port());
  EXPECT_EQ(statusOf(allowed.ask(registerMessage())), DCH_STATUS_OK);
  kill(server.processId(), SIGUSR1);
  EXPECT_TRUE(server.waitForError("not_allowed 2\n"));
  EXPECT_EQ(server.stop(SIGTERM), 0);
}

TEST_F(ZordchdConfigurationTest, ConnectionsEndWhenTheyAreNotAllowedAnyMore) {
  ServerProcess server({"--config", file()});
  TcpClient client(server.port());
  EXPECT_EQ(statusOf(client.ask(registerMessage())), DCH_STATUS_OK);
  ASSERT_TRUE(reload(&server, "[channel]\nallow = ['192.0.2.1']\n"));
  EXPECT_EQ(client.receive(), "");
  EXPECT_EQ(server.stop(SIGTERM), 0);
}

TEST_F(ZordchdConfigurationTest, SubscribersAreDroppedWhenTheyAreNotAllowedAnyMore) {
  ServerProcess server({"--config", file()});
  const UdpClient subscriber(server.port());
  subscriber.send(subscribeMessage("HOSTMON", "load"));
  EXPECT_EQ(statusOf(subscriber.ask(registerMessage())), DCH_STATUS_OK);
  ASSERT_TRUE(reload(&server, "[channel]\nallow = ['192.0.2.1']\n"));
  kill(server.processId(), SIGUSR1);
  EXPECT_TRUE(server.waitForError("subscribers_gone 1\n"));
  EXPECT_TRUE(server.waitForError("subscriptions 0\n"));
  EXPECT_EQ(server.stop(SIGTERM), 0);
}

TEST_F(ZordchdConfigurationTest, ActionsAreStartedByTheListThatWasReadLast) {
  const std::string actions = beside("actions");
  std::ofstream(actions) << "first /bin/true\n";
  const std::string text = "[actions]\nfile = '" + actions + "'\n";
  write(text);
  ServerProcess server({"--config", file()});
  const UdpClient client(server.port());
  client.send(actionMessage("first", 1));
  EXPECT_EQ(statusOf(client.ask(actionResultsMessage(1))), 0);

  std::ofstream(actions) << "second /bin/false\n";
  ASSERT_TRUE(reload(&server, text));
  client.send(actionMessage("first", 2));
  EXPECT_EQ(statusOf(client.ask(actionResultsMessage(2))), DCH_STATUS_UNKNOWN_ACTION);
  client.send(actionMessage("second", 3));
  EXPECT_EQ(statusOf(client.ask(actionResultsMessage(3))), 1);

  ASSERT_TRUE(reload(&server, text + "allow = ['192.0.2.1']\n"));
  client.send(actionMessage("second", 4));
  EXPECT_EQ(statusOf(client.ask(actionResultsMessage(4))), DCH_STATUS_UNKNOWN_ACTION);
  EXPECT_EQ(server.stop(SIGTERM), 0);
}

TEST_F(ZordchdConfigurationTest, LimitsOfStreamsAreThoseThatWereReadLast) {
  ServerProcess server({"--config", file()});
  TcpClient first(server.port());
  EXPECT_EQ(statusOf(first.ask(registerMessage())), DCH_STATUS_OK);
  ASSERT_TRUE(reload(&server, "[channel]\nconnections = 1\n"));
  TcpClient refused(server.port());
  EXPECT_EQ(refused.receive(), "");
  ASSERT_TRUE(reload(&server, "[channel]\nstream_message_bytes = 64\n"));
  TcpClient second(server.port());
  EXPECT_EQ(statusOf(second.ask(registerMessage())), DCH_STATUS_MALFORMED);
  EXPECT_EQ(statusOf(first.ask(registerMessage())), DCH_STATUS_OK);
  EXPECT_EQ(server.stop(SIGTERM), 0);
}

TEST_F(ZordchdConfigurationTest, EventsAreToldFromWhenTheyAreWanted) {
  ServerProcess server({"--config", file()});
  const UdpClient client(server.port());
  EXPECT_EQ(statusOf(client.ask(registerMessage())), DCH_STATUS_OK);
  ASSERT_TRUE(reload(&server, "[log]\nverbose = true\n"));
  client.ask(onlineMessage("HOSTMON", "load", "host1"));
  EXPECT_TRUE(server.waitForError("host1"));
  EXPECT_THAT(server.standardError(), Not(HasSubstr("registered")));
  EXPECT_EQ(server.stop(SIGTERM), 0);
}

TEST_F(ZordchdConfigurationTest, SaysWhatStaysAsItIs) {
  write("[store]\npath = 'memory'\n");
  ServerProcess server({"--config", file(), "--bind", "127.0.0.1"});
  ASSERT_TRUE(reload(&server,
                     "[channel]\nbind = '0.0.0.0'\nport = 7\ninstance = 'x'\n"
                     "[store]\npath = '" +
                         beside("state.db") + "'\ndurability = 'power'\nkeep_days = 1\n"));
  for (const char* key : {"instance in [channel]", "path in [store]", "durability in [store]"})
    EXPECT_THAT(server.standardError(), HasSubstr(std::string("zordchd: warning: ") + key +
                                                  " stays as it is until the next start\n"));
  // The command line said these.
  EXPECT_THAT(server.standardError(), Not(HasSubstr("bind in")));
  EXPECT_THAT(server.standardError(), Not(HasSubstr("port in")));
  EXPECT_EQ(server.stop(SIGTERM), 0);
}

TEST_F(ZordchdConfigurationTest, ABadFileChangesNothing) {
  write("[channel]\nallow = ['127.0.0.1']\n");
  ServerProcess server({"--config", file()});
  const UdpClient client(server.port());
  for (const char* text :
       {"[channel]\nallow = ['192.0.2.1']\nport = 'x'\n",
        "[channel]\nallow = ['192.0.2.1']\n[actions]\nfile = '/nowhere/actions'\n", "[channel\n"}) {
    write(text);
    kill(server.processId(), SIGHUP);
    EXPECT_TRUE(server.waitForError("zordchd: nothing has changed\n", ++_reloads)) << text;
    EXPECT_EQ(statusOf(client.ask(registerMessage())), DCH_STATUS_OK) << text;
  }
  EXPECT_THAT(server.standardError(), HasSubstr(file() + ":3: port in [channel]"));
  EXPECT_THAT(server.standardError(), HasSubstr("/nowhere/actions: No such file"));
  EXPECT_EQ(server.stop(SIGTERM), 0);
}

// Nobody writes into the pipe.
TEST_F(ZordchdConfigurationTest, APipeInItsPlaceIsRefusedAndHoldsNothingUp) {
  write("[channel]\nallow = ['127.0.0.1']\n");
  ServerProcess server({"--config", file()});
  const UdpClient client(server.port());
  const auto expectRefusal = [&](const std::string& pipe) {
    const std::string reason = pipe + ": it is no file, but a pipe, a socket or a device";
    kill(server.processId(), SIGHUP);
    EXPECT_TRUE(server.waitForError("zordchd: nothing has changed\n", ++_reloads));
    EXPECT_EQ(statusOf(client.ask(registerMessage())), DCH_STATUS_OK);
    EXPECT_THAT(server.standardError(), HasSubstr(reason));
    const ProcessResult started = runServer({"--config", file()});
    EXPECT_EQ(started.exitStatus, EX_CONFIG);
    EXPECT_EQ(started.standardError, "zordchd: " + reason + "\n");
  };
  ASSERT_EQ(mkfifo(beside("actions").c_str(), 0600), 0);
  write("[actions]\nfile = '" + beside("actions") + "'\n");
  expectRefusal(beside("actions"));
  std::filesystem::remove(file());
  ASSERT_EQ(mkfifo(file().c_str(), 0600), 0);
  expectRefusal(file());
  EXPECT_EQ(server.stop(SIGTERM), 0);
}

TEST_F(ZordchdConfigurationTest, WithoutOneAHangupChangesNothing) {
  const std::string actions = beside("actions");
  std::ofstream(actions) << "first /bin/true\n";
  ServerProcess server({"--actions", actions});
  const UdpClient client(server.port());
  std::ofstream(actions) << "not a list\n";
  kill(server.processId(), SIGHUP);
  kill(server.processId(), SIGUSR1);
  EXPECT_TRUE(server.waitForError("application(s)"));
  client.send(actionMessage("first", 1));
  EXPECT_EQ(statusOf(client.ask(actionResultsMessage(1))), 0);
  EXPECT_THAT(server.standardError(), Not(HasSubstr("not a list")));
  EXPECT_EQ(server.stop(SIGTERM), 0);
}

}  // namespace
}  // namespace dch::testkit
