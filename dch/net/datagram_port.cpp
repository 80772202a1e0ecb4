#include "dch/net/datagram_port.h"

#include <sys/epoll.h>

#include <new>
#include <utility>

#include "dch/clock.h"
#include "dch/net/socket_option.h"

namespace dch {

namespace {

constexpr std::size_t mostAtATime = 16;

// How often it is looked for more before others have their turn.
constexpr int mostRounds = 8;

// Of one socket. Empty datagrams, which leave nothing that waits, would have no other end.
constexpr std::size_t mostBatches = WaitingDatagrams::mostDatagrams / DatagramBatch::capacity;

Descriptor openSet() {
  Descriptor set(epoll_create1(EPOLL_CLOEXEC));
  if (!set.isOpen()) throwSystemError("cannot watch over sockets");
  return set;
}

}  // namespace

DatagramPort::DatagramPort(EventLoop& loop, std::vector<Descriptor> sockets, Receive receive,
                           Worked worked, Counters& counters)
    : _receive(std::move(receive)),
      _worked(std::move(worked)),
      _counters(counters),
      _again(loop, [this] { work(); }),
      _anyReadable(loop, openSet(), [this] { work(); }) {
  _sockets.reserve(sockets.size());  // the system keeps their addresses
  for (Descriptor& socket : sockets) watch(&_sockets.emplace_back(Socket{std::move(socket)}));
}

void DatagramPort::watch(Socket* socket) {
  DatagramBatch::askForDetails(socket->descriptor.get());
  epoll_event wanted{};
  wanted.events = EPOLLIN;
  wanted.data.ptr = socket;
  if (epoll_ctl(_anyReadable.descriptor(), EPOLL_CTL_ADD, socket->descriptor.get(), &wanted) != 0)
    throwSystemError("cannot watch over a socket");
}

// Each socket is read once: a client that goes on sending does not keep the server from ending.
void DatagramPort::drain() {
  handleAllWaiting();
  for (Socket& socket : _sockets) {
    receiveFrom(&socket);
    handleAllWaiting();
  }
}

void DatagramPort::work() {
  for (int round = 0; round < mostRounds && !_isHeldUp && workOnce(); ++round) {
  }
  if (_isHeldUp) return;
  if (_waiting.empty())
    _anyReadable.waitUntilReadable();
  else if (!_again.isSet())
    _again.set(Alarm::Clock::now());
}

void DatagramPort::setHeldUp(bool isHeldUp) {
  _isHeldUp = isHeldUp;
  if (!isHeldUp && !_again.isSet()) _again.set(Alarm::Clock::now());
}

// Returns whether there was something to do. What the system keeps comes first: it has less room.
bool DatagramPort::workOnce() {
  std::array<epoll_event, mostAtATime> readable;
  const int count = _waiting.isFull()
                        ? 0
                        : epoll_wait(_anyReadable.descriptor(), readable.data(), mostAtATime, 0);
  for (int i = 0; i < count; ++i)
    receiveFrom(static_cast<Socket*>(readable[static_cast<std::size_t>(i)].data.ptr));
  if (count <= 0 && _waiting.empty()) return false;
  handleWaiting();
  _worked();
  return true;
}

// A few datagrams are handled where they are; of many the system's room is emptied first.
void DatagramPort::receiveFrom(Socket* socket) {
  for (std::size_t batch = 0; batch < mostBatches; ++batch)
    if (receiveBatch(socket) < DatagramBatch::capacity || _waiting.isFull()) break;
}

// Returns how many came.
std::size_t DatagramPort::receiveBatch(Socket* socket) {
  const std::size_t received = _batch.receive(socket->descriptor.get());
  if (_batch.thrownAway() != 0) {
    _counters.add(Counter::datagramsThrownAway, _batch.thrownAway() - socket->thrownAway);
    socket->thrownAway = _batch.thrownAway();
  }
  const Time receivedAt = now();
  std::size_t count = 0;
  for (std::size_t i = 0; i < received; ++i) {
    _messages[count] = _batch.message(i, receivedAt);
    if (_messages[count].bytes.empty())
      _counters.add(Counter::emptyDatagrams);
    else
      ++count;
  }
  if (_waiting.empty() && received < DatagramBatch::capacity)
    _receive(std::span(_messages).first(count));
  else
    keepWaiting(count);
  return received;
}

void DatagramPort::keepWaiting(std::size_t count) {
  std::size_t kept = 0;
  try {
    for (; kept < count; ++kept) _waiting.add(_messages[kept]);
  } catch (const std::bad_alloc&) {
    _counters.add(Counter::datagramsThrownAway, count - kept);
  }
}

void DatagramPort::handleAllWaiting() {
  while (!_waiting.empty()) handleWaiting();
  _worked();
}

void DatagramPort::handleWaiting() {
  const std::size_t count = _waiting.peek(_messages);
  _receive(std::span(_messages).first(count));
  _waiting.remove(count);
}

}  // namespace dch
