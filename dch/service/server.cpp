#include "dch/service/server.h"

#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <initializer_list>
#include <new>
#include <utility>

#include "dch/service/descriptor_limit.h"

namespace dch {

namespace {

constexpr std::initializer_list<int> handledSignals{SIGTERM, SIGINT, SIGCHLD, SIGUSR1, SIGHUP};

// One that comes while the process ends, such as a second SIGTERM, must not end it another way.
void blockSignals() {
  sigset_t handled;
  sigemptyset(&handled);
  for (const int each : handledSignals) sigaddset(&handled, each);
  sigprocmask(SIG_BLOCK, &handled, nullptr);
}

StreamLimits limitsWithRoom() {
  StreamLimits limits;
  const std::size_t room = makeRoomForConnections(limits.connections);
  if (room < limits.connections)
    std::fprintf(stderr,
                 "zordchd: warning: the limit on open files leaves room for %zu connections, not "
                 "%zu; raise it to %zu\n",
                 room, limits.connections, limits.connections + ownDescriptors);
  limits.connections = room;
  return limits;
}

void announce(const PeerAddress& served, const std::optional<std::string>& statePath) {
  std::printf("zordchd %s: ready on %s port %d\n", ZORD410_VERSION, served.addressText().data(),
              static_cast<int>(ntohs(served.port)));
  if (statePath)
    std::printf("zordchd: state in %s\n", statePath->c_str());
  else
    std::puts("zordchd: state in memory");
  std::fflush(stdout);
}

}  // namespace

Server::Server(ServedPort&& port, const std::optional<std::string>& statePath,
               const ActionList& actions, bool isVerbose)
    : _output(STDERR_FILENO),
      _log(isVerbose, _output),
      _signals(_loop, handledSignals, [this](int signal) { takeSignal(signal); }),
      _address(port.address),
      _statePath(statePath),
      _store(_loop, statePath, _log, [this] { _channel.settle(); }),
      _channel(_loop, std::move(port), limitsWithRoom(), _store.store(), actions, _counters, _log),
      _tick(_loop, [this] { tick(); }) {}

void Server::run() {
  _channel.start();
  _tick.set(tickPause);
  announce(_address, _statePath);
  _loop.run();
  blockSignals();
}

void Server::takeSignal(int signal) {
  switch (signal) {
    case SIGCHLD:
      return _channel.collectPrograms();
    case SIGUSR1:
      return report();
    case SIGHUP:
      // There is nothing to read again.
      return;
    default:
      return stop(signal);
  }
}

void Server::stop(int signal) {
  _log.write("stopping on signal %d", signal);
  do {
    _channel.drain();
    _store.finish();
    _channel.settle();
  } while (_store.store().waiting() > 0);
  _loop.stop();
}

// Also without --verbose: it was asked for.
void Server::report() {
  countDroppedLines();
  try {
    _output.write(_channel.report() + _store.report());
  } catch (const std::bad_alloc&) {
    _log.write("no memory for the report");
  }
}

void Server::tick() {
  _channel.tick();
  _output.flush();
  countDroppedLines();
  _tick.set(tickPause);
}

void Server::countDroppedLines() {
  _counters.add(Counter::logLinesDropped, _output.dropped() - _counters[Counter::logLinesDropped]);
}

}  // namespace dch
