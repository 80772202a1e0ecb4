#include "tests/network/faulty_network.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <random>

namespace network {

namespace {

constexpr std::chrono::seconds longestWait{20};

bool isSame(const sockaddr_in& left, const sockaddr_in& right) {
  return left.sin_port == right.sin_port && left.sin_addr.s_addr == right.sin_addr.s_addr;
}

}  // namespace

Faults noFaults() {
  return [](const Passing&) { return once; };
}

Faults faultOf(Direction direction, std::size_t number, Arrivals arrivals) {
  return [=](const Passing& passing) {
    return passing.direction == direction && passing.number == number ? arrivals : once;
  };
}

Faults faultOfAll(Direction direction, Arrivals arrivals) {
  return [=](const Passing& passing) { return passing.direction == direction ? arrivals : once; };
}

Faults randomFaults(unsigned seed, const Chances& chances) {
  return [chances, random = std::mt19937(seed)](const Passing&) mutable {
    const auto happens = [&](double chance) {
      return std::uniform_real_distribution<>(0, 1)(random) < chance;
    };
    const auto delay = [&] {
      if (!happens(chances.delay)) return std::chrono::milliseconds(0);
      return std::chrono::milliseconds(std::uniform_int_distribution<>(
          0, static_cast<int>(chances.longestDelay.count()))(random));
    };
    Arrivals arrivals;
    if (!happens(chances.loss)) arrivals.push_back(Arrival{.delay = delay()});
    if (happens(chances.repetition)) arrivals.push_back(Arrival{.delay = delay()});
    return arrivals;
  };
}

FaultyNetwork::FaultyNetwork(int dchPort, Faults faults)
    : _wakeUp(eventfd(0, EFD_CLOEXEC)), _dch(loopbackAddress(dchPort)), _faults(std::move(faults)) {
  _thread = std::thread([this] { run(); });
}

FaultyNetwork::~FaultyNetwork() {
  {
    const std::lock_guard lock(_mutex);
    _isEnding = true;
  }
  eventfd_write(_wakeUp, 1);
  _thread.join();
  close(_wakeUp);
}

void FaultyNetwork::setFaults(Faults faults) {
  const std::lock_guard lock(_mutex);
  _faults = std::move(faults);
}

void FaultyNetwork::leadTo(int dchPort) {
  const std::lock_guard lock(_mutex);
  _dch = loopbackAddress(dchPort);
}

bool FaultyNetwork::waitFor(Direction direction, std::size_t count) const {
  std::unique_lock lock(_mutex);
  return _came.wait_for(lock, longestWait, [&] {
    const auto counted = _counts.find(direction);
    return counted != _counts.end() && counted->second >= count;
  });
}

void FaultyNetwork::release() {
  std::unique_lock lock(_mutex);
  _came.wait_for(lock, longestWait, [&] { return !_held.empty(); });
  for (const OnItsWay& datagram : _held) deliver(datagram);
  _held.clear();
}

void FaultyNetwork::run() {
  std::unique_lock lock(_mutex);
  while (!_isEnding) {
    std::vector<pollfd> watched{{_wakeUp, POLLIN, 0}, {_towardsClients.descriptor(), POLLIN, 0}};
    for (const Client& client : _clients)
      watched.push_back({client.towardsDch.descriptor(), POLLIN, 0});
    const int wait = millisecondsToNext();
    lock.unlock();
    poll(watched.data(), watched.size(), wait);
    lock.lock();
    sockaddr_in sender{};
    while (const auto bytes = _towardsClients.tryReceive(0, &sender))
      carry(Direction::toDch, clientAt(sender), *bytes);
    for (std::size_t client = 0; client < _clients.size(); ++client)
      while (const auto bytes = _clients[client].towardsDch.tryReceive(0, &sender))
        carry(Direction::toClient, client, *bytes);
    deliverWhatIsDue();
    _came.notify_all();
  }
}

int FaultyNetwork::millisecondsToNext() const {
  constexpr int noLimit = -1;
  if (_delayed.empty()) return noLimit;
  const auto left =
      std::chrono::ceil<std::chrono::milliseconds>(_delayed.begin()->first - Clock::now());
  return std::max(0, static_cast<int>(left.count()));
}

void FaultyNetwork::deliverWhatIsDue() {
  while (!_delayed.empty() && _delayed.begin()->first <= Clock::now()) {
    deliver(_delayed.begin()->second);
    _delayed.erase(_delayed.begin());
  }
}

std::size_t FaultyNetwork::clientAt(const sockaddr_in& address) {
  const auto known = std::find_if(_clients.begin(), _clients.end(), [&](const Client& client) {
    return isSame(client.address, address);
  });
  if (known != _clients.end()) return static_cast<std::size_t>(known - _clients.begin());
  _clients.push_back({address, DatagramSocket()});
  return _clients.size() - 1;
}

void FaultyNetwork::carry(Direction direction, std::size_t client, const std::string& bytes) {
  const std::size_t number = _counts[direction]++;
  for (const Arrival& arrival : _faults({direction, client, number, bytes})) {
    const OnItsWay copy{direction, arrival.client.value_or(client), arrival.isFromAnotherPort,
                        bytes};
    if (arrival.isHeld)
      _held.push_back(copy);
    else if (arrival.delay.count() > 0)
      _delayed.emplace(Clock::now() + arrival.delay, copy);
    else
      deliver(copy);
  }
}

void FaultyNetwork::deliver(const OnItsWay& datagram) const {
  const Client& client = _clients.at(datagram.client);
  if (datagram.direction == Direction::toDch)
    client.towardsDch.sendTo(_dch, datagram.bytes);
  else
    (datagram.isFromAnotherPort ? _otherPort : _towardsClients)
        .sendTo(client.address, datagram.bytes);
}

}  // namespace network
