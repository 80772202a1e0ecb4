#include "dch/service/server.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <new>
#include <utility>

#include "dch/journal.h"
#include "dch/service/descriptor_limit.h"

namespace dch {

namespace {

constexpr char inMemory[] = "memory";
constexpr std::initializer_list<int> handledSignals{SIGTERM, SIGINT, SIGCHLD, SIGUSR1, SIGHUP};

std::string announcement(const PeerAddress& served, const std::optional<std::string>& statePath) {
  return std::string("zordchd ") + ZORD410_VERSION + ": ready on " + served.addressText().data() +
         " port " + std::to_string(ntohs(served.port)) + "\nzordchd: state in " +
         statePath.value_or(inMemory) + '\n';
}

}  // namespace

Server::Server(ServedPort&& port, const std::optional<std::string>& statePath,
               const Options& options, Configuration configuration)
    : _options(options),
      _configuration(std::move(configuration)),
      _output(STDERR_FILENO),
      _log(_configuration.isVerbose, _output),
      _manager(_loop),
      _signals(_loop, handledSignals, [this](int signal) { takeSignal(signal); }),
      _address(port.address),
      _portSettings(std::move(port.settings)),
      _statePath(statePath),
      _store(_loop, statePath, _epoch, _configuration.durability, _configuration.retention,
             !_configuration.link.servers.empty(), _log, [this] { _channel.settle(); }),
      _link(_loop, _store, _log, _configuration.link, _epoch),
      _page(_loop, _counters, _configuration.webAddress),
      _channel(_loop, std::move(port), limitsWithRoom(_configuration), _store.store(),
               _configuration.actions, _counters, _log, _link.observersWith(_page.observer())),
      _tick(_loop, [this] { tick(); }) {}

Server::~Server() {
  _page.stop();
}

void Server::run() {
  _channel.start();
  _link.start(&_channel);  // before the page, which asks it for the other sites
  _page.start(_channel.core(),
              [this] {
                setCounters();
                _channel.setGauges();
              },
              {_configuration.webAccess, _webConnections, _statePath.value_or(inMemory),
               _store.places(), [this] { return _link.sites(); }});
  _tick.set(tickPause);
  publish(_portSettings);
  announce();
  _manager.ready();
  showStatus();
  _loop.run();
}

// Where standard output takes nothing it serves all the same, and whoever looks for the reason
// finds what it would have said.
void Server::announce() {
  const std::string lines = announcement(_address, _statePath) + _page.announcement();
  pollfd output{STDOUT_FILENO, POLLOUT, 0};
  const bool isTaken = poll(&output, 1, 0) != 0;  // a pipe that nobody reads is full one day
  if (isTaken && std::fputs(lines.c_str(), stdout) >= 0 && std::fflush(stdout) == 0) return;
  const std::string reason = isTaken ? std::strerror(errno) : "nobody reads it";
  _output.write(Priority::warning,
                withName("warning: cannot write to standard output: " + reason) + lines);
}

void Server::takeSignal(int signal) {
  switch (signal) {
    case SIGCHLD:
      return _channel.collectPrograms();
    case SIGUSR1:
      return report();
    case SIGHUP:
      return reload();
    default:
      return stop(signal);
  }
}

void Server::stop(int signal) {
  _log.write("stopping on signal %d", signal);
  _manager.stopping();
  _manager.showStatus("stopping");
  _channel.drain();
  do {
    // The disk may take its time.
    _store.finish([this] { _manager.alive(); });
    _channel.finishPublishing();
  } while (_channel.drainRest() || _store.store().waiting() > 0);
  _link.stop();
  _channel.endSending();
  _loop.stop();
}

void Server::reload() {
  _manager.reloading();
  if (_options.configurationFile) readAgain();
  _manager.ready();
}

void Server::readAgain() {
  try {
    apply(readConfiguration(_options));
    say(Priority::notice, "has read " + *_options.configurationFile + " again");
  } catch (const std::exception& error) {
    say(Priority::error, std::string(error.what()) + "\nnothing has changed");
  }
}

// All of it or, when this throws, nothing.
void Server::apply(Configuration&& fresh) {
  for (const std::string& each : keepWhatCannotChange(_configuration, &fresh))
    say(Priority::warning, "warning: " + each + " stays as it is until the next start");
  for (const std::string& each : fresh.warnings) say(Priority::warning, "warning: " + each);
  _channel.setLimits(limitsWithRoom(fresh));
  _store.setRetention(fresh.retention);
  _page.setAccess(fresh.webAccess);
  _log.setEnabled(fresh.isVerbose);
  _configuration = std::move(fresh);
}

// As many connections as there can be.
ChannelLimits Server::limitsWithRoom(const Configuration& configuration) {
  ChannelLimits limits = configuration.limits;
  std::size_t& connections = limits.streams.connections;
  const ConnectionRoom wanted = {connections,
                                 configuration.webAddress ? WebLimits().connections : 0};
  const ConnectionRoom room = makeRoomForConnections(wanted);
  if (room.channel < wanted.channel)
    say(Priority::warning, "warning: the limit on open files leaves room for " +
                               std::to_string(room.channel) + " connections, not " +
                               std::to_string(wanted.channel) + "; raise it to " +
                               std::to_string(wanted.channel + wanted.page + ownDescriptors));
  connections = room.channel;
  _webConnections = room.page;
  return limits;
}

// Also without --verbose: the operator is to know.
void Server::say(Priority priority, const std::string& sentences) {
  _output.write(priority, withName(sentences));
}

// Also without --verbose: it was asked for.
void Server::report() {
  setCounters();
  try {
    _output.write(Priority::notice, _channel.report() + _link.report());
  } catch (const std::bad_alloc&) {
    _log.write("no memory for the report");
  }
}

void Server::tick() {
  _store.collect();
  _link.tick();
  _channel.tick();
  countDroppedLines();
  _page.tick(_store.health());
  _manager.flush();
  if (++_ticks % ticksBetweenStatus == 0) showStatus();
  _tick.set(tickPause);
}

void Server::showStatus() {
  if (!_manager.isThere()) return;
  try {
    _manager.showStatus(_channel.statusLine());
  } catch (const std::bad_alloc&) {
    // It goes on showing the last one.
  }
}

void Server::setCounters() {
  countDroppedLines();
  _store.setCounters(&_counters);
  _link.setCounters(&_counters);
}

void Server::countDroppedLines() {
  _counters.set(Counter::logLinesDropped, _output.dropped());
}

}  // namespace dch
