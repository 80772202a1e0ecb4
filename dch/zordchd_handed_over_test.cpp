// The real program with sockets that were handed over to it.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sysexits.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <list>
#include <memory>
#include <stdexcept>
#include <thread>

#include "dch/net/port.h"
#include "dch/testkit/clients.h"
#include "dch/testkit/handed_over_sockets.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/server_process.h"
#include "tests/support/temporary_files.h"
#include "tests/support/wait_until.h"

namespace dch::testkit {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

const Process::Arguments inMemory{"--store", "memory"};

// Whether both kinds of clients are served, as well as datagrams once there was a connection.
void expectToBeServed(int port) {
  EXPECT_EQ(statusOf(UdpClient(port).ask(registerMessage())), 0);
  EXPECT_EQ(statusOf(TcpClient(port).ask(registerMessage())), 0);
  EXPECT_EQ(statusOf(UdpClient(port).ask(registerMessage())), 0);
}

void expectToServe(Process* server, int port) {
  EXPECT_THAT(server->waitForOutput(" state in "),
              HasSubstr(": ready on 127.0.0.1 port " + std::to_string(port) + '\n'));
  expectToBeServed(port);
  server->signal(SIGTERM);
  EXPECT_EQ(server->finish().exitStatus, 0);
}

class ZordchdHandedOverTest : public ::testing::Test {
 protected:
  std::unique_ptr<Process> start(const Process::Arguments& arguments = inMemory,
                                 const Process::Environment& environment = {}) const {
    return startWithDescriptors(_port.sockets(), arguments, environment);
  }
  // The server ends, and says why.
  static void expectRefusal(Process* server, const std::vector<std::string>& reasons) {
    const ProcessResult result = server->finish();
    EXPECT_EQ(result.exitStatus, EX_CONFIG);
    EXPECT_EQ(result.standardOutput, "");
    for (const std::string& reason : reasons) EXPECT_THAT(result.standardError, HasSubstr(reason));
    EXPECT_EQ(std::count(result.standardError.begin(), result.standardError.end(), '\n'), 1);
  }
  static void expectRefusal(const std::vector<int>& descriptors, const std::string& reason) {
    expectRefusal(startWithDescriptors(descriptors, inMemory).get(), {reason, "handed over"});
  }

  const OpenedPort _port;
};

TEST_F(ZordchdHandedOverTest, AreServedInAnyOrder) {
  expectToServe(start().get(), _port.number);
  expectToServe(startWithDescriptors({_port.listener.get(), _port.datagrams.get()}, inMemory).get(),
                _port.number);
  expectToServe(start(inMemory, {{"LISTEN_FDNAMES", "one:other"}}).get(), _port.number);
}

TEST_F(ZordchdHandedOverTest, MayBeSeveralForDatagrams) {
  const ServedPort several = openPort({htonl(INADDR_LOOPBACK)}, 0);
  std::vector<int> descriptors{several.listener.get()};
  for (const Descriptor& each : several.datagramSockets) descriptors.push_back(each.get());
  expectToServe(startWithDescriptors(descriptors, inMemory).get(), ntohs(several.address.port));
}

TEST_F(ZordchdHandedOverTest, MayBeWhatIsAskedFor) {
  const std::string port = std::to_string(_port.number);
  expectToServe(start({"--store", "memory", "--port", port, "--bind", "127.0.0.1"}).get(),
                _port.number);
  expectToServe(start({"--port", "0"}).get(), _port.number);
  expectToServe(start(inMemory, {{"ZORA_DCH_PORT", port}, {"ZOR0_BIND_ADDR", "127.0.0.1"}}).get(),
                _port.number);
}

TEST_F(ZordchdHandedOverTest, AreRefusedWhenSomethingElseIsAskedFor) {
  const std::string port = "port " + std::to_string(_port.number);
  expectRefusal(start({"--port", "1"}).get(), {port, "port 1 is asked for"});
  expectRefusal(start({"--bind", "127.0.0.2"}).get(), {"127.0.0.1", "127.0.0.2 is asked for"});
  expectRefusal(start(inMemory, {{"ZORA_DCH_PORT", "2"}}).get(), {port, "ZORA_DCH_PORT is 2"});
}

TEST_F(ZordchdHandedOverTest, AreRefusedWhenTheyAreNoPort) {
  const int datagrams = _port.datagrams.get(), listener = _port.listener.get();
  const OpenedPort other;
  const Descriptor local(socket(AF_UNIX, SOCK_STREAM, 0)), ipv6(socket(AF_INET6, SOCK_DGRAM, 0)),
      unbound(socket(AF_INET, SOCK_DGRAM, 0)), idle(socket(AF_INET, SOCK_STREAM, 0));
  const TemporaryFile file("");
  const Descriptor noSocket(open(file.path().c_str(), O_RDONLY));
  expectRefusal({datagrams}, "none of them listens");
  expectRefusal({listener}, "none of them is for datagrams");
  expectRefusal({datagrams, listener, other.listener.get()}, "others on 127.0.0.1 port ");
  expectRefusal({datagrams, listener, listener}, "more than one listens");
  expectRefusal({datagrams, local.get()}, "descriptor 4 is no IPv4 socket");
  expectRefusal({ipv6.get(), listener}, "descriptor 3 is no IPv4 socket");
  expectRefusal({unbound.get(), listener}, "descriptor 3 has no port");
  expectRefusal({datagrams, idle.get()}, "descriptor 4 does not listen");
  expectRefusal({datagrams, noSocket.get()}, "descriptor 4 is no socket");
}

TEST_F(ZordchdHandedOverTest, AreRefusedWhenTheyAreNotThere) {
  for (const char* number : {"3", "many"})
    expectRefusal(start(inMemory, {{"LISTEN_FDS", number}}).get(), {"handed over"});
}

TEST_F(ZordchdHandedOverTest, AreLeftToTheProcessThatTheyAreFor) {
  const auto server =
      start({"--port", "0"}, {{"LISTEN_PID", std::to_string(getpid())}, {"LISTEN_FDS", "2"}});
  EXPECT_THAT(server->waitForOutput("ready"), Not(HasSubstr(std::to_string(_port.number))));
}

TEST_F(ZordchdHandedOverTest, AreKeptFromActionsAndFromOtherServers) {
  const TemporaryFile script("env; ls -l /proc/self/fd\n", "script");
  const TemporaryFile actions("look /bin/sh " + script.path() + '\n');
  const auto server = start({"--store", "memory", "--actions", actions.path()});
  server->waitForOutput(" state in ");
  UdpClient client(_port.number);
  client.send(actionMessage("look", 7));
  EXPECT_NE(client.ask(actionResultsMessage(7)), "");
  const std::string output = server->waitForOutput(" 0 -> ");
  EXPECT_THAT(output, AllOf(Not(HasSubstr("LISTEN_")), Not(HasSubstr("socket:"))));
  const ProcessResult other = runServer({"--port", std::to_string(_port.number)});
  EXPECT_EQ(other.exitStatus, 1);
  EXPECT_THAT(other.standardError, HasSubstr("already active"));
}

TEST_F(ZordchdHandedOverTest, DoNotGiveConnectionsTheRoomForDatagrams) {
  constexpr int much = 4 << 20;
  for (const int each : _port.sockets())
    EXPECT_EQ(setsockopt(each, SOL_SOCKET, SO_RCVBUF, &much, sizeof much), 0);
  const auto room = [](const Descriptor& socket) {
    int bytes = 0;
    socklen_t length = sizeof bytes;
    getsockopt(socket.get(), SOL_SOCKET, SO_RCVBUF, &bytes, &length);
    return bytes;
  };
  const int before = room(_port.datagrams);
  const auto server = start();
  server->waitForOutput(" state in ");
  EXPECT_GE(room(_port.datagrams), before);
  EXPECT_LE(room(_port.listener), 256 << 10);
}

TEST_F(ZordchdHandedOverTest, KeepWhatComesWhileNoServerRuns) {
  std::list<UdpClient> clients;
  for (int i = 0; i < 50; ++i) clients.emplace_back(_port.number).send(registerMessage());
  const TcpClient connection(_port.number);
  connection.send(registerMessage());
  for (int round = 0; round < 2; ++round) {
    const auto server = start();
    for (const UdpClient& each : clients) EXPECT_EQ(statusOf(each.receive().value_or("")), 0);
    if (round == 0) {
      EXPECT_EQ(statusOf(connection.receive().value_or("")), 0);
    }
    server->signal(SIGTERM);
    EXPECT_EQ(server->finish().exitStatus, 0);
    for (const UdpClient& each : clients) each.send(registerMessage());
  }
}

// A source that has some rows under way at any time, and waits for all their answers.
class Source {
 public:
  Source(int port, int number) : _client(port) {
    const std::string name = "host" + std::to_string(number);
    const ZORA_Long handle = handleOf(_client.ask(onlineMessage("HOSTMON", "load", name)));
    _row = dataMessage(handle, {{"load1", 'D', "1"}});
    _thread = std::thread([this] { run(); });
  }
  ~Source() { finish(); }

  int answered() const { return _answered; }
  // Returns how many rows were not answered with 0.
  int finish() {
    _isEnding = true;
    if (_thread.joinable()) _thread.join();
    return _sent - _answered;
  }

 private:
  void run() {
    constexpr int atATime = 10;
    while (!_isEnding && _sent == _answered) {
      for (int i = 0; i < atATime; ++i, ++_sent) _client.send(_row);
      for (int i = 0; i < atATime; ++i, ++_answered)
        if (statusOf(_client.receive().value_or("")) != 0) return;
    }
  }

  const UdpClient _client;
  std::string _row;
  int _sent = 0;
  std::atomic<int> _answered = 0;
  std::atomic<bool> _isEnding = false;
  std::thread _thread;
};

#ifdef ZORD410_SQLITE
TEST_F(ZordchdHandedOverTest, LoseNothingWhenTheServerIsStartedAgainUnderLoad) {
  constexpr int restarts = 8, sourceCount = 8;
  const TemporaryFolder folder;
  const Process::Arguments arguments{"--store", folder.path() + "/state.db"};
  auto server = start(arguments);
  EXPECT_EQ(statusOf(UdpClient(_port.number).ask(registerMessage())), 0);
  std::list<Source> sources;
  for (int i = 0; i < sourceCount; ++i) sources.emplace_back(_port.number, i);
  const auto answered = [&] {
    int sum = 0;
    for (const Source& each : sources) sum += each.answered();
    return sum;
  };
  for (int i = 0; i < restarts; ++i) {
    const int before = answered();
    EXPECT_TRUE(waitUntil([&] { return answered() > before + 200; }));
    server->signal(SIGTERM);
    EXPECT_EQ(server->finish().exitStatus, 0);
    server = start(arguments);
  }
  for (Source& each : sources) EXPECT_EQ(each.finish(), 0);
}
#endif

// It opens sockets of one kind, and hands on those that it was handed itself.
TEST_F(ZordchdHandedOverTest, MayComeFromTwoOfSystemdsOwnTool) {
  const std::string tool = "systemd-socket-activate";
  for (int attempt = 0; attempt < 10; ++attempt) try {
      const int port = OpenedPort().number;
      const std::string address = "127.0.0.1:" + std::to_string(port);
      Process server(tool,
                     {"-l", address, tool, "-d", "-l", address, serverPath(), "--store", "memory"});
      server.waitForError("Listening on");
      // Each starts the next one when something comes.
      const TcpClient client(port);
      client.send(registerMessage());
      server.waitForOutput(" state in ");
      EXPECT_EQ(statusOf(client.receive().value_or("")), 0);
      return expectToServe(&server, port);
    } catch (const std::runtime_error& error) {
      // Another test has taken the port meanwhile.
      std::puts(error.what());
    }
  FAIL() << "no port was to be had";
}

}  // namespace
}  // namespace dch::testkit
