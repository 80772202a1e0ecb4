#include "dch/net/datagram_port.h"

#include <linux/sock_diag.h>
#include <sys/socket.h>

#include <algorithm>
#include <new>
#include <utility>

#include "dch/clock.h"
#include "dch/net/socket_option.h"

namespace dch {

namespace {

constexpr std::size_t mostAtATime = 16;

// How often it is looked for more before others have their turn.
constexpr int mostRounds = 8;

// Of one socket, and of all of them, before what has come is worked off.
constexpr int mostBatches = 16;
constexpr int mostBatchesOfAll = 128;

// For how long it is worked off what waits before others have their turn.
constexpr std::chrono::milliseconds turnTime{1};

// For how long a burst goes on: after that of each sender only its share is taken, until there has
// been no need for so long.
constexpr std::chrono::milliseconds burstTime{50};

// What the system needs at least for a datagram, beside its bytes.
constexpr std::size_t leastOverhead = 512;

Descriptor openSet() {
  Descriptor set(epoll_create1(EPOLL_CLOEXEC));
  if (!set.isOpen()) throwSystemError("cannot watch over sockets");
  return set;
}

// The memory that holds what `socket` has received, as the system counts it.
std::size_t bytesReceived(int socket) {
  std::array<std::uint32_t, SK_MEMINFO_VARS> memory{};
  socklen_t length = sizeof memory;
  getsockopt(socket, SOL_SOCKET, SO_MEMINFO, memory.data(), &length);
  return memory[SK_MEMINFO_RMEM_ALLOC];
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

void DatagramPort::drain() {
  for (Socket& socket : _sockets) socket.bytesToDrain = bytesReceived(socket.descriptor.get());
  handleAllWaiting();
  for (Socket& socket : _sockets) drain(&socket);
}

// A client that goes on sending does not keep the server from ending.
void DatagramPort::drain(Socket* socket) {
  std::size_t& left = socket->bytesToDrain;
  while (left > 0) {
    const std::size_t received = receiveBatch(socket);
    handleAllWaiting();
    const std::size_t bytes = received * leastOverhead + _batch.byteCount();
    left = received > 0 ? left - std::min(bytes, left) : 0;
  }
}

void DatagramPort::work() {
  for (int round = 0; round < mostRounds && !_isHeldUp && workOnce(); ++round) {
  }
  if (_isHeldUp) return;
  if (_waiting.empty())
    _anyReadable.waitUntilReadable();
  else
    _again.ask();
}

void DatagramPort::setHeldUp(bool isHeldUp) {
  _isHeldUp = isHeldUp;
  if (!isHeldUp) _again.ask();
}

// Returns whether there may be more to do. What the system keeps comes first: it has less room.
bool DatagramPort::workOnce() {
  std::array<epoll_event, mostAtATime> readable;
  const int found = _waiting.isFull()
                        ? 0
                        : epoll_wait(_anyReadable.descriptor(), readable.data(), mostAtATime, 0);
  const std::size_t count = found > 0 ? static_cast<std::size_t>(found) : 0;
  if (count == 0 && _waiting.empty()) return false;
  receiveFrom(std::span(readable).first(count));
  return handleWaitingForAWhile();
}

// They are in the order in which something came. Those that are not reached come first next time.
void DatagramPort::receiveFrom(std::span<epoll_event> readable) {
  const auto first = std::find_if(readable.begin(), readable.end(), [this](const auto& each) {
    return each.data.ptr == _firstNextTime;
  });
  if (first != readable.end()) std::rotate(readable.begin(), first, readable.end());
  _firstNextTime = nullptr;
  int batches = 0;
  for (const epoll_event& each : readable) {
    auto* const socket = static_cast<Socket*>(each.data.ptr);
    if (batches >= mostBatchesOfAll || _waiting.isFull()) {
      _firstNextTime = socket;
      return;
    }
    batches += receiveFrom(socket);
  }
}

// Returns the number of batches.
int DatagramPort::receiveFrom(Socket* socket) {
  int batches = 0;
  while (!_waiting.isFull() && batches < mostBatches) {
    ++batches;
    if (receiveBatch(socket) < DatagramBatch::capacity) break;
  }
  return batches;
}

// Returns how many came.
std::size_t DatagramPort::receiveBatch(Socket* socket) {
  const std::size_t received = _batch.receive(socket->descriptor.get());
  if (received > 0) countThrownAway(socket);
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

void DatagramPort::countThrownAway(Socket* socket) {
  if (!socket->thrownAway) socket->thrownAway = _batch.thrownAwayBefore();
  if (_batch.thrownAway() == 0) return;
  _counters.add(Counter::datagramsThrownAway, _batch.thrownAway() - *socket->thrownAway);
  socket->thrownAway = _batch.thrownAway();
}

void DatagramPort::keepWaiting(std::size_t count) {
  const Alarm::Clock::time_point now = Alarm::Clock::now();
  if (now - std::exchange(_keptWaiting, now) > burstTime) _burstBegan = now;
  _waiting.limitShares(now - _burstBegan > burstTime);
  std::size_t kept = 0;
  try {
    for (std::size_t i = 0; i < count; ++i)
      if (_waiting.add(_messages[i])) ++kept;
  } catch (const std::bad_alloc&) {
    // What is left is lost.
  }
  _counters.add(Counter::datagramsThrownAway, count - kept);
}

void DatagramPort::handleAllWaiting() {
  while (!_waiting.empty()) handleWaiting();
  _worked();
}

// Returns whether it is done with them.
bool DatagramPort::handleWaitingForAWhile() {
  if (_waiting.empty()) {
    _worked();
    return true;
  }
  const Alarm::Clock::time_point end = Alarm::Clock::now() + turnTime;
  do {
    handleWaiting();
    _worked();
  } while (!_waiting.empty() && !_isHeldUp && Alarm::Clock::now() < end);
  return _waiting.empty();
}

void DatagramPort::handleWaiting() {
  const std::size_t count = _waiting.take(_messages);
  _receive(std::span(_messages).first(count));
}

}  // namespace dch
