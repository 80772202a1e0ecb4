#include "dch/testkit/server_under_fault.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "dch/store/sqlite.h"
#include "dch/testkit/clients.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/server_process.h"
#include "zordchcl/messages.h"
#include "zordchcl/status.h"

namespace dch::testkit {

namespace {

constexpr int mostAttempts = 60;
constexpr int shortWaitMilliseconds = 500;

// Asks as the library's clients do that want to be sure: again, when no answer comes.
class StubbornClient {
 public:
  explicit StubbornClient(int port) : _port(port) {}

  // Until the answer is good, each time anew; the answer, empty when it never came.
  template <typename Client, typename Good>
  std::string ask(const std::string& message, Good isGood) const {
    for (int i = 0; i < mostAttempts; ++i) {
      const Client client(_port);
      client.send(message);
      const auto answer = client.receive(shortWaitMilliseconds);
      if (answer && isGood(*answer)) return *answer;
    }
    return {};
  }

  template <typename Client = UdpClient>
  bool isDone(const std::string& message) const {
    return !ask<Client>(message, [](const std::string& answer) {
              return statusOf(answer) == DCH_STATUS_OK;
            }).empty();
  }

  bool isTold(const std::string& question) const {
    return !ask<UdpClient>(question, [](const std::string& answer) {
              return !textOf(answer).value_or("").empty();
            }).empty();
  }

  ZORA_Long goOnline(const std::string& source) const {
    const auto isOnline = [](const std::string& answer) {
      const auto online = onlineAnswerOf(answer);
      return online && online->status == DCH_STATUS_OK;
    };
    const auto online =
        onlineAnswerOf(ask<UdpClient>(onlineMessage("HOSTMON", "load", source), isOnline));
    return online ? online->handle : 0;
  }

  // Whatever comes of it: the calls of the program that is started fail as well.
  bool startsActions() const {
    for (ZORA_Long id = 1; id <= mostAttempts; ++id) {
      const UdpClient client(_port);
      client.send(actionMessage("succeed", id));
      client.send(actionResultsMessage(id));
      const auto answer = client.receive(shortWaitMilliseconds);
      if (answer && statusOf(*answer)) return true;
    }
    return false;
  }

  // Subscribes again when no row comes.
  bool getsRows(ZORA_Long handle) const {
    const UdpClient subscriber(_port);
    for (int i = 0; i < mostAttempts; ++i) {
      subscriber.send(subscribeMessage("HOSTMON", "load"));
      isDone(dataMessage(handle));
      if (subscriber.receive(shortWaitMilliseconds)) return true;
    }
    return false;
  }

 private:
  const int _port;
};

}  // namespace

ServerUnderFault::ServerUnderFault() {
  std::ofstream(path("actions")) << "succeed /bin/true\n";
}

bool ServerUnderFault::run(const std::string& program, Process::Arguments arguments,
                           const Process::Environment& environment,
                           const std::function<void()>& whenReady) const {
  removeState();
  arguments.insert(arguments.end(),
                   {"--port", "0", "--store", path("state.db"), "--actions", path("actions")});
  // What it cannot say on the one output it says on the other.
  Process server(program, arguments, environment, Process::Output::captured,
                 [] { dup2(STDOUT_FILENO, STDERR_FILENO); });
  const std::optional<int> port = portOf(&server);
  if (!port) {
    expectASentence(&server);
    return false;
  }
  whenReady();
  useAndEnd(&server, *port);
  return true;
}

void ServerUnderFault::removeState() const {
  for (const char* name : {"state.db", "state.db-wal", "state.db-shm", "state.db-lock"})
    std::filesystem::remove(path(name));
}

// Nothing when it ended without being ready.
std::optional<int> ServerUnderFault::portOf(Process* server) {
  try {
    const std::string output = server->waitForOutput("zordchd: state in ");
    return portIn(output.substr(output.find(": ready on ")));
  } catch (const std::runtime_error&) {
    return std::nullopt;
  }
}

void ServerUnderFault::expectASentence(Process* server) {
  const ProcessResult result = server->finish();
  EXPECT_GT(result.exitStatus, 0) << result.standardOutput;
  EXPECT_FALSE(result.standardOutput.empty());
  EXPECT_EQ(result.standardOutput.find("terminate"), std::string::npos) << result.standardOutput;
}

void ServerUnderFault::useAndEnd(Process* server, int port) const {
  const StubbornClient client(port);
  EXPECT_TRUE(client.isDone(registerMessage()));
  const ZORA_Long handle = client.goOnline("host1");
  EXPECT_GT(handle, 0);
  EXPECT_TRUE(client.isDone(dataMessage(handle, {{"load1", 'D', "1"}})));
  EXPECT_TRUE(client.getsRows(handle));
  EXPECT_TRUE(client.isDone<TcpClient>(dataMessage(handle)));
  EXPECT_TRUE(client.isTold(catalogueMessage(DCH_REQUEST_ATTRIBUTES, "HOSTMON")));
  EXPECT_TRUE(client.startsActions());
  server->signal(SIGUSR1);
  EXPECT_TRUE(client.isDone(dataMessage(handle, {{"load1", 'D', "last"}})));
  server->signal(SIGTERM);
  const ProcessResult result = server->finish();
  EXPECT_EQ(result.exitStatus, 0) << result.standardOutput;
  expectEverythingIsKept(handle);
}

void ServerUnderFault::expectEverythingIsKept(ZORA_Long handle) const {
  {
    sqlite::Connection connection(path("state.db"), nullptr);
    // More than one when an answer was lost.
    EXPECT_GE(sqlite::queryNumber(connection,
                                  "SELECT count(*) FROM \"HOSTMON.load\" WHERE load1 = 'last' "
                                  "AND handle = " +
                                      std::to_string(handle)),
              1);
  }
  ServerProcess again({"--store", path("state.db")});
  EXPECT_EQ(StubbornClient(again.port()).goOnline("host1"), handle);
  EXPECT_EQ(again.stop(SIGTERM), 0);
}

}  // namespace dch::testkit
