// zordchd: the suite's data-collection server.
#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/time.h>
#include <sysexits.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>

#include "dch/action_list.h"
#include "dch/descriptor_room.h"
#include "dch/error_filter.h"
#include "dch/event_log.h"
#include "dch/free_port.h"
#include "dch/options.h"
#include "dch/push_socket.h"
#include "dch/receive_buffer.h"
#include "dch/server.h"
#include "dch/store/memory_store.h"
#include "dch/vanished_peers.h"
#include "zora/zora.h"
#include "zordsock/port_choice.h"
#include "zordsock/settings.h"
#include "zordsock/zordsock.h"

namespace {

// With one of them closed a socket would get its number, and 0 does not stand for a socket here.
void keepStandardDescriptorsOpen() {
  int descriptor;
  do descriptor = open("/dev/null", O_RDWR);
  while (descriptor >= 0 && descriptor <= STDERR_FILENO);
  close(descriptor);
}

// Blocked before there is a second thread, the signals wait for the thread that takes them.
sigset_t blockSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGTERM, SIGINT, SIGCHLD, SIGUSR1, SIGALRM}) sigaddset(&signals, signal);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  return signals;
}

void setSetting(const char* name, const std::string& value) {
  if (setenv(name, value.c_str(), 1) != 0) throw std::runtime_error("no memory for the settings");
}

in_addr addressToBind() {
  in_addr address{htonl(INADDR_LOOPBACK)};
  const char* const configured = std::getenv("ZOR0_BIND_ADDR");
  if (configured != nullptr && inet_pton(AF_INET, configured, &address) != 1)
    throw std::runtime_error("ZOR0_BIND_ADDR is not an IPv4 address: " + std::string(configured));
  return address;
}

// The library takes its settings from the environment.
void applyOptions(const dch::Options& options) {
  if (options.bindAddress) setSetting("ZOR0_BIND_ADDR", *options.bindAddress);
  if (options.port) {
    const int port = *options.port != 0 ? *options.port : dch::findFreePort(addressToBind());
    setSetting("ZORA_DCH_PORT", std::to_string(port));
  }
  if (options.instance) ZORA_SetInstanceName(options.instance->c_str());
}

// Waits for the configured port; candidate ports are not worth waiting for. Returns false when the
// server is stopped before.
bool waitForConfiguredPort() {
  const zordsock::PortRule rule =
      zordsock::readPortRule(zordsock::configuredPort(std::getenv("ZORA_DCH_PORT")));
  return rule.hasCandidates() || dch::waitForAbandonedPort(addressToBind(), rule.configuredPort);
}

// The endpoint is never destroyed: its receiver thread runs until the process has ended.
ipcSock& openEndpoint() {
  static ipcSock* const endpoint = new ipcSock(SERVICE_SERVER, 0, 0);
  if (endpoint->_ipcCircularBuffer == nullptr || endpoint->ipcGetError() != 0)
    throw std::runtime_error("cannot start the receiver thread");
  // Each of the two sockets would get a port of its own then, open to every network.
  if (zordsock::_envPortNo == 0) throw std::runtime_error("the configured port is not a number");
  return *endpoint;
}

// On a thread of its own, which uses nothing that ends before the process does.
void takeSignals(ipcSock& endpoint, const sigset_t& signals, const dch::EventLog& log) {
  std::thread([&endpoint, signals, log] {
    for (;;) {
      int signal = 0;
      sigwait(&signals, &signal);
      switch (signal) {
        case SIGCHLD:
          dch::announceEndOfProgram(endpoint);
          break;
        case SIGALRM:
          dch::announceTime(endpoint);
          break;
        case SIGUSR1:
          dch::requestReport(endpoint);
          break;
        default:
          log.write("stopping on signal %d", signal);
          dch::requestStop(endpoint);
          return;
      }
    }
  }).detach();
}

// The address and port that the endpoint serves, once it does; nothing when it is stopped before.
std::optional<dch::PeerAddress> waitUntilReady(dch::Inbox& inbox) {
  for (;;) {
    const dch::IncomingMessage message = inbox.receive();
    const dch::Notice notice = dch::noticeOf(message);
    if (notice == dch::Notice::ready) return message.sender;
    if (notice == dch::Notice::stopRequested) return std::nullopt;
  }
}

class AlarmTimer : public dch::Timer {
 public:
  void start() override {
    constexpr itimerval tenthOfASecond{{0, 0}, {0, 100'000}};
    setitimer(ITIMER_REAL, &tenthOfASecond, nullptr);
  }
};

// A connection that cannot be taken keeps the receive loop from serving the others.
void makeRoomForConnections() {
  constexpr int forTheSystem = 8;  // what its libraries open for a moment
  const dch::DescriptorRoom room = dch::makeDescriptorRoom(MAX_TCP_CLIENTS + forTheSystem);
  const int connections = std::max(0, room.free - forTheSystem);
  if (connections < MAX_TCP_CLIENTS)
    std::fprintf(stderr,
                 "zordchd: warning: the limit on open files leaves room for %d connections, not "
                 "%d; raise it to %d\n",
                 connections, MAX_TCP_CLIENTS, room.limitToAsk);
}

void announce(const dch::PeerAddress& served) {
  const sockaddr_in address = served.socketAddress();
  char dotted[INET_ADDRSTRLEN] = "";
  inet_ntop(AF_INET, &address.sin_addr, dotted, sizeof dotted);
  std::printf("zordchd %s: ready on %s port %d\n", ZORD410_VERSION, dotted,
              static_cast<int>(ntohs(address.sin_port)));
  std::fflush(stdout);
}

void serve(const dch::Options& options, const dch::ActionList& actions, const sigset_t& signals) {
  const dch::EventLog log(options.verbose);
  dch::filterErrors();
  ipcSock& endpoint = openEndpoint();
  takeSignals(endpoint, signals, log);
  dch::Inbox inbox(endpoint);
  const std::optional<dch::PeerAddress> served = waitUntilReady(inbox);
  if (!served) return;
  dch::enlargeReceiveBuffer(endpoint.sockUDP());
  // Only now, so that it does not take the very port that the endpoint is to have.
  dch::PushSocket pushSocket(in_addr{served->address});
  // A client may take answers from the port that it asked only.
  dch::PushSocket answerSocket(endpoint.sockUDP());
  dch::MemoryStore store;
  AlarmTimer timer;
  dch::Server server(endpoint, inbox, pushSocket, answerSocket, store, timer, actions, log);
  dch::endConnectionsOfVanishedPeers(endpoint._sockTCP);
  makeRoomForConnections();
  announce(*served);
  server.run();
}

}  // namespace

int main(int argc, char** argv) {
  keepStandardDescriptorsOpen();
  dch::Options options;
  if (const auto exitStatus = dch::readOptions(argc, argv, &options)) return *exitStatus;
  std::signal(SIGPIPE, SIG_IGN);
  // A parent that ignored it would leave the server without the results of its programs.
  std::signal(SIGCHLD, SIG_DFL);
  const sigset_t signals = blockSignals();
  try {
    dch::ActionList actions;
    if (options.actionsFile) actions = dch::readActionList(*options.actionsFile);
    applyOptions(options);
    // The library would only tell an error number.
    { const dch::PushSocket trial(addressToBind()); }
    if (!waitForConfiguredPort()) return EXIT_SUCCESS;
    serve(options, actions, signals);
  } catch (const dch::ActionListError& error) {
    std::fprintf(stderr, "zordchd: %s\n", error.what());
    return EX_CONFIG;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "zordchd: %s\n", error.what());
    return EXIT_FAILURE;
  }
  return EXIT_SUCCESS;
}
