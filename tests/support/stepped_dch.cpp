#include "tests/support/stepped_dch.h"

#include <sys/socket.h>

#include <cstdlib>
#include <utility>

#include "tests/support/failing_calls.h"

SteppedDch::SteppedDch(Script script) : _script(std::move(script)) {
  setenv("ZORA_DCH_ADDR", "127.0.0.1", 1);
  setenv("ZORA_DCH_PORT", std::to_string(_socket.port()).c_str(), 1);
  standIns.select = [this](int count, fd_set* readSet, fd_set* writeSet, fd_set* otherSet,
                           timeval*) { return select(count, readSet, writeSet, otherSet); };
  standIns.receiveFrom = [this](int descriptor, void* bytes, std::size_t capacity, int flags,
                                sockaddr* sender, socklen_t* length) {
    const ssize_t count = __real_recvfrom(descriptor, bytes, capacity, flags, sender, length);
    if (count >= 0) received(descriptor);
    return count;
  };
}

SteppedDch::~SteppedDch() {
  standIns = {};
}

void SteppedDch::expectRequest() {
  _requestIsComing = true;
  expectWait();
}

void SteppedDch::expectWait() {
  _isDue = true;
  _unread = 0;
}

void SteppedDch::takeRequest() {
  _request = _socket.receive(&_port);
}

void SteppedDch::throwAwayUnread(int descriptor) {
  char byte;
  for (; _unread > 0; --_unread) recv(descriptor, &byte, sizeof byte, 0);
  FD_ZERO(&_waitedFor);
}

int SteppedDch::select(int count, fd_set* readSet, fd_set* writeSet, fd_set* otherSet) {
  if (std::exchange(_requestIsComing, false)) takeRequest();
  if (std::exchange(_isDue, false)) {
    for (const Datagram& datagram : _script(_request, _port)) {
      _socket.sendTo(datagram.port, datagram.bytes);
      _unread += datagram.port == _port;
    }
  }
  // What was sent is there soon; what was not never comes.
  constexpr int longestWaitSeconds = 20;
  timeval limit{_unread > 0 ? longestWaitSeconds : 0, 0};
  _waitedFor = *readSet;
  return __real_select(count, readSet, writeSet, otherSet, &limit);
}

void SteppedDch::received(int descriptor) {
  if (_unread > 0 && FD_ISSET(descriptor, &_waitedFor)) --_unread;
}
