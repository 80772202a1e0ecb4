#include "dch/net/stream_port.h"

#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cerrno>
#include <cinttypes>
#include <cstring>
#include <exception>
#include <thread>
#include <utility>

#include "dch/core/answers.h"
#include "dch/net/socket_option.h"

namespace dch {

namespace {

constexpr int mostAtOneGo = 64;
constexpr int mostGoesAtTheEnd = SOMAXCONN / mostAtOneGo;  // for as many as the system lets wait
constexpr int mostLooksAtTheEnd = 50;
constexpr std::chrono::milliseconds pauseOfLooksAtTheEnd{10};
constexpr std::chrono::milliseconds acceptPause{100};
constexpr int unreadAnswerBytes = 128 << 10;  // the longest answer; the system takes twice that

// Has the system end the connections that `listener` accepts when nothing has been heard of their
// peer's machine for a minute and a half: one that lost its power would keep its place.
void watchForVanishedPeers(int listener) {
  setOption(listener, SOL_SOCKET, SO_KEEPALIVE, 1);
  setOption(listener, IPPROTO_TCP, TCP_KEEPIDLE, 60);
  setOption(listener, IPPROTO_TCP, TCP_KEEPINTVL, 10);
  setOption(listener, IPPROTO_TCP, TCP_KEEPCNT, 3);
}

// What the system keeps for a client of `listener` that does not read its answers: else some
// megabytes for each, as long to fill, and a slow client would seem to stand still while it reads.
void limitUnreadAnswers(int listener) {
  setOption(listener, SOL_SOCKET, SO_SNDBUF, unreadAnswerBytes);
}

// Else the answers to requests that follow each other wait for the client's system to confirm the
// first one, which it puts off for 40 ms.
void sendAnswersAtOnce(int listener) {
  setOption(listener, IPPROTO_TCP, TCP_NODELAY, 1);
}

}  // namespace

StreamPort::StreamPort(EventLoop& loop, Descriptor listener, const StreamLimits& limits,
                       StreamClient& client, Counters& counters, const Log& log)
    : _loop(loop),
      _limits(limits),
      _client(client),
      _counters(counters),
      _log(log),
      _buffer(std::make_unique<Buffer>()),
      _pause(loop, [this] { _listener.waitUntilReadable(); }),
      _listener(loop, std::move(listener), [this] { accept(); }) {
  watchForVanishedPeers(_listener.descriptor());
  limitUnreadAnswers(_listener.descriptor());
  sendAnswersAtOnce(_listener.descriptor());
  _noted.reserve(limits.connections);
}

void StreamPort::accept() {
  acceptSome();
  if (!_pause.isSet()) _listener.waitUntilReadable();
}

// Returns how many there were.
int StreamPort::acceptSome() {
  int count = 0;
  for (; count < mostAtOneGo; ++count) {
    sockaddr_in peer{};
    socklen_t length = sizeof peer;
    Descriptor socket(accept4(_listener.descriptor(), reinterpret_cast<sockaddr*>(&peer), &length,
                              SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (!socket.isOpen()) {
      // What else goes wrong is the end of the one that waited.
      if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM)
        pauseAccepting();
      break;
    }
    if (_client.isAllowed(PeerAddress(peer))) add(std::move(socket), PeerAddress(peer));
  }
  return count;
}

void StreamPort::add(Descriptor socket, const PeerAddress& peer) {
  if (_connections.size() >= _limits.connections) return refuse(peer);
  const std::uint64_t number = ++_lastNumber;
  try {
    const Origin origin{.peer = peer, .connection = number};
    std::unique_ptr<Entry> entry(
        new Entry{{_loop, std::move(socket), origin, _limits.messageBytes, *_buffer, *this}});
    StreamConnection& connection = entry->connection;
    _connections.emplace(number, std::move(entry));
    connection.waitForMore(_isHeldUp);
  } catch (const std::exception&) {  // no memory, or the system cannot watch over more
    refuse(peer);
  }
}

void StreamPort::refuse(const PeerAddress& peer) {
  _counters.add(Counter::connectionsRefused);
  const std::uint64_t count = _counters[Counter::connectionsRefused];
  if (isToldAt(count))
    _log.write("connection of %s refused, %" PRIu64 " so far: %zu are open", peer.text().data(),
               count, _connections.size());
}

// One that waits to be accepted makes the loop call again at once, and so without end.
void StreamPort::pauseAccepting() {
  const int error = errno;
  _counters.add(Counter::acceptFailures);
  const std::uint64_t count = _counters[Counter::acceptFailures];
  if (isToldAt(count)) _log.write("connections have to wait: %s", std::strerror(error));
  _pause.set(acceptPause);
}

void StreamPort::send(const Origin& receiver, std::string_view message) noexcept {
  const auto found = _connections.find(receiver.connection);
  const bool isSent = found != _connections.end() && found->second->connection.send(message);
  if (!isSent) countDroppedAnswer(receiver, _counters, _log);
  if (found != _connections.end()) note(found->second.get());
}

void StreamPort::finished(const Origin& asker) noexcept {
  const auto found = _connections.find(asker.connection);
  if (found == _connections.end()) return;
  found->second->connection.finished();
  note(found->second.get());
}

void StreamPort::worked(StreamConnection& connection) {
  note(_connections.find(connection.origin().connection)->second.get());
  _client.worked();
}

void StreamPort::note(Entry* entry) {
  if (std::exchange(entry->isNoted, true)) return;
  _noted.push_back(entry->connection.origin().connection);
}

// What one does may concern others, which are noted then.
void StreamPort::settle() {
  while (!_noted.empty()) {
    const auto found = _connections.find(_noted.back());
    _noted.pop_back();
    Entry& entry = *found->second;
    entry.isNoted = false;
    entry.connection.goOn();
    limitHeldBytes(&entry);
    if (!entry.connection.hasEnded()) {
      entry.connection.waitForMore(_isHeldUp);
      continue;
    }
    const Origin origin = entry.connection.origin();
    if (entry.connection.hasUnsent()) countDroppedAnswer(origin, _counters, _log);
    std::erase(_noted, origin.connection);
    _heldBytes -= entry.heldBytes;
    _connections.erase(found);
    _client.closed(origin);
  }
}

// Long messages that begin on all connections and never end must not take all memory.
void StreamPort::limitHeldBytes(Entry* entry) {
  _heldBytes -= entry->heldBytes;
  entry->heldBytes = entry->connection.heldBytes();
  _heldBytes += entry->heldBytes;
  if (_heldBytes <= _limits.heldBytes || entry->heldBytes == 0) return;
  _counters.add(Counter::crowdedConnections);
  _log.write("connection of %s ended: unfinished messages take too much memory",
             entry->connection.origin().peer.text().data());
  entry->connection.fail();
}

void StreamPort::setHeldUp(bool isHeldUp) {
  _isHeldUp = isHeldUp;
  for (auto& [number, entry] : _connections) entry->connection.waitForMore(isHeldUp);
}

void StreamPort::endStalled(StreamConnection::Clock::time_point now) {
  for (auto& [number, entry] : _connections) {
    if (!entry->connection.isStalledSince(now - _limits.stall)) continue;
    _counters.add(Counter::stalledConnections);
    _log.write("connection of %s stands still: it is ended",
               entry->connection.origin().peer.text().data());
    entry->connection.fail();
    note(entry.get());
  }
}

void StreamPort::setLimits(const StreamLimits& limits) {
  _noted.reserve(limits.connections);
  _limits = limits;
}

void StreamPort::endNotAllowed() {
  for (auto& [number, entry] : _connections) {
    if (_client.isAllowed(entry->connection.origin().peer)) continue;
    entry->connection.fail();
    note(entry.get());
  }
}

void StreamPort::drain() {
  // Clients that go on connecting do not keep the server from ending.
  for (int go = 0; go < mostGoesAtTheEnd && acceptSome() == mostAtOneGo; ++go) {
  }
  for (auto& [number, entry] : _connections) entry->connection.startToDrain();
  drainRest();
}

bool StreamPort::drainRest() {
  bool hasReceived = false;
  for (auto& [number, entry] : _connections) {
    if (entry->connection.drain()) hasReceived = true;
    note(entry.get());
  }
  return hasReceived;
}

void StreamPort::endSending() {
  for (auto& [number, entry] : _connections) entry->isStillSending = entry->connection.endSending();
  for (int look = 0; look < mostLooksAtTheEnd; ++look) {
    bool isSome = false;
    for (auto& [number, entry] : _connections) {
      entry->isStillSending = entry->isStillSending && entry->connection.discard();
      isSome = isSome || entry->isStillSending;
    }
    if (!isSome) return;
    std::this_thread::sleep_for(pauseOfLooksAtTheEnd);
  }
}

}  // namespace dch
