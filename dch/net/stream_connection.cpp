#include "dch/net/stream_connection.h"

#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <utility>

#include "dch/clock.h"

namespace dch {

StreamConnection::StreamConnection(EventLoop& loop, Descriptor socket, const Origin& origin,
                                   std::size_t longest, std::span<char> buffer,
                                   ConnectionOwner& owner)
    : _origin(origin),
      _buffer(buffer),
      _owner(owner),
      _socket(
          loop, std::move(socket),
          [this] {
            if (_isHeldUp) return;  // it was not when the wait began
            receive();
            _owner.worked(*this);
          },
          [this] {
            sendRest();
            _owner.worked(*this);
          }),
      _framer(longest) {}

void StreamConnection::goOn() {
  std::string_view message;
  while (!_hasFailed && !_isBroken && !_isUnderWay && !hasUnsent()) {
    switch (_framer.next(&message)) {
      case StreamFramer::Next::message:
        _isUnderWay = true;
        _owner.received({.bytes = message, .origin = _origin, .receivedAt = now()});
        break;
      case StreamFramer::Next::incomplete:
        if (_isLast && _framer.isInMessage()) endWithBroken();
        return;
      case StreamFramer::Next::broken:
        endWithBroken();
        return;
    }
  }
}

void StreamConnection::waitForMore(bool isHeldUp) {
  if (std::exchange(_isHeldUp, isHeldUp) && !isHeldUp && !hasUnsent()) _lastMoved = Clock::now();
  if (hasEnded()) return;
  if (_isBroken && !hasUnsent()) shutdown(_socket.descriptor(), SHUT_WR);
  if (hasUnsent())
    _socket.waitUntilWritable();
  else if (!_isLast && !_isUnderWay && !isHeldUp)
    _socket.waitUntilReadable();
}

// A client that goes on sending does not keep the server from ending.
void StreamConnection::startToDrain() {
  _bytesToDrain = unreadBytes() + 1;  // the end may be there too
}

bool StreamConnection::drain() {
  bool hasReceived = false;
  while (_bytesToDrain > 0 && !hasEnded() && !_isUnderWay && !hasUnsent()) {
    _bytesToDrain -= std::min(_bytesToDrain, _buffer.size());
    if (!receive()) _bytesToDrain = 0;
    hasReceived = true;
  }
  return hasReceived;
}

bool StreamConnection::endSending() {
  shutdown(_socket.descriptor(), SHUT_WR);
  return unreadBytes() > 0;
}

bool StreamConnection::discard() {
  constexpr int mostAtOnce = 4;
  for (int i = 0; i < mostAtOnce; ++i) {
    const ssize_t count = recv(_socket.descriptor(), _buffer.data(), _buffer.size(), MSG_DONTWAIT);
    if (count <= 0) return count < 0 && (errno == EAGAIN || errno == EINTR);
  }
  return true;
}

bool StreamConnection::send(std::string_view message) noexcept {
  if (_hasFailed) return false;
  try {
    const std::size_t sent = hasUnsent() ? 0 : trySend(message);
    // The caller knows of it: it is not to be found unsent as well.
    if (!_hasFailed) _unsent += message.substr(sent);
  } catch (const std::bad_alloc&) {
    // Without a part of an answer the client would take the next one for its rest.
    _hasFailed = true;
  }
  return !_hasFailed;
}

bool StreamConnection::isStalledSince(Clock::time_point time) const {
  const bool isToSend = (!_isUnderWay && _framer.isInMessage()) || _isBroken;
  return (hasUnsent() || (isToSend && !_isHeldUp)) && _lastMoved < time;
}

// Returns whether something came. To close the connection while something lies there would have the
// system throw away the answers that are on their way: after what is broken it is read on.
bool StreamConnection::receive() {
  const ssize_t count = recv(_socket.descriptor(), _buffer.data(), _buffer.size(), MSG_DONTWAIT);
  if (count < 0) {
    if (errno != EAGAIN && errno != EINTR) _hasFailed = true;
    return false;
  }
  _isLast = count == 0;
  if (_isBroken) return !_isLast;
  _lastMoved = Clock::now();
  try {
    _framer.add({_buffer.data(), static_cast<std::size_t>(count)});
  } catch (const std::bad_alloc&) {
    _hasFailed = true;
  }
  goOn();
  return !_isLast;
}

// What lies with the system.
std::size_t StreamConnection::unreadBytes() const {
  int bytes = 0;
  ioctl(_socket.descriptor(), FIONREAD, &bytes);
  return static_cast<std::size_t>(bytes);
}

void StreamConnection::endWithBroken() {
  _framer.clear();
  _isBroken = true;
  _owner.receivedBroken(_origin);
}

void StreamConnection::sendRest() {
  _unsent.erase(0, trySend(_unsent));
  if (hasUnsent()) return;
  _unsent = std::string();
  goOn();
}

// Returns how much the system took.
std::size_t StreamConnection::trySend(std::string_view bytes) {
  const ssize_t count =
      ::send(_socket.descriptor(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  if (count > 0) {
    _lastMoved = Clock::now();
    return static_cast<std::size_t>(count);
  }
  if (errno != EAGAIN && errno != EINTR) _hasFailed = true;
  return 0;
}

}  // namespace dch
