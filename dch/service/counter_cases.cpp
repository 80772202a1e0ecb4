// What the program around the channel counts.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>

#include "dch/net/port.h"
#include "dch/service/server.h"
#include "dch/testkit/clients.h"
#include "dch/testkit/counter_cases.h"
#include "dch/testkit/log_pipe.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/server_process.h"
#include "tests/support/process.h"
#include "tests/support/text_count.h"
#include "tests/support/wait_until.h"
#include "zordchcl/messages.h"

namespace dch::testkit::counter_cases {

namespace {

// A server whose log goes into a pipe that is read when the test says so.
class ServerWithPipe {
 public:
  ServerWithPipe() {
    fcntl(_pipe.reader(), F_SETFL, O_NONBLOCK);
    _process = std::make_unique<Process>([this] {
      dup2(_pipe.descriptor(), STDERR_FILENO);
      Configuration configuration;
      configuration.isVerbose = true;
      Server(openPort({htonl(INADDR_LOOPBACK)}, 0), std::nullopt, {}, configuration).run();
      return 0;
    });
    port = portIn(_process->waitForOutput("\n"));
  }
  // All that it has written so far, and could write.
  const std::string& readLog() {
    constexpr std::size_t mostInPipe = 65'536;
    _log += _pipe.read(mostInPipe);
    return _log;
  }
  void signal(int number) { _process->signal(number); }

  int port = 0;

 private:
  const LogPipe _pipe;
  std::string _log;
  std::unique_ptr<Process> _process;
};

}  // namespace

void logLinesDropped() {
  ServerWithPipe server;
  const UdpClient client(server.port);
  int told = 0;
  // A line as long as they get for each, and none for the question behind it.
  const auto act = [&](const std::string& name) {
    client.send(actionMessage(name, ++told));
    client.ask(catalogueMessage(DCH_REQUEST_APPLICATIONS));
  };
  for (int i = 0; i < 1'500; ++i) act(std::string(3'000, 'x'));
  // Now somebody reads: sooner or later there is room for a line again.
  EXPECT_TRUE(waitUntil([&] {
    server.readLog();
    act("last");
    return server.readLog().find(": last is not listed") != std::string::npos;
  }));
  server.signal(SIGUSR1);
  EXPECT_TRUE(
      waitUntil([&] { return server.readLog().find("  changes_waiting ") != std::string::npos; }));
  const int dropped = told - countOf(" zordchd: action ", server.readLog());
  EXPECT_GT(dropped, 100);
  const std::size_t at = server.readLog().find("  log_lines_dropped ");
  EXPECT_EQ(server.readLog().substr(at, server.readLog().find('\n', at) - at),
            "  log_lines_dropped " + std::to_string(dropped));
}

}  // namespace dch::testkit::counter_cases
