#include "tests/network/faulty_network.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <random>
#include <stdexcept>

namespace network {

namespace {

constexpr std::chrono::seconds longestWait{20};

sockaddr_in loopback(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

bool isSame(const sockaddr_in& left, const sockaddr_in& right) {
  return left.sin_port == right.sin_port && left.sin_addr.s_addr == right.sin_addr.s_addr;
}

}  // namespace

// A datagram socket on a loopback port that the system gives.
class FaultyNetwork::Socket {
 public:
  Socket() : descriptor(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    const sockaddr_in address = loopback(0);
    if (descriptor < 0 ||
        bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
      throw std::runtime_error("no socket for the network");
  }
  ~Socket() { close(descriptor); }
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;

  int port() const {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length);
    return ntohs(address.sin_port);
  }

  void send(const std::string& bytes, const sockaddr_in& to) const {
    sendto(descriptor, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&to),
           sizeof to);
  }

  // The next datagram and its sender; nothing when there is none.
  std::optional<std::string> receive(sockaddr_in* sender) const {
    std::array<char, 65536> buffer;
    socklen_t length = sizeof *sender;
    const ssize_t count = recvfrom(descriptor, buffer.data(), buffer.size(), 0,
                                   reinterpret_cast<sockaddr*>(sender), &length);
    if (count < 0) return std::nullopt;
    return std::string(buffer.data(), static_cast<std::size_t>(count));
  }

  const int descriptor;
};

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
    : _dch(loopback(dchPort)),
      _towardsClients(std::make_unique<Socket>()),
      _otherPort(std::make_unique<Socket>()),
      _port(_towardsClients->port()),
      _wakeUp(eventfd(0, EFD_CLOEXEC)),
      _faults(std::move(faults)) {
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
    std::vector<pollfd> watched{{_wakeUp, POLLIN, 0}, {_towardsClients->descriptor, POLLIN, 0}};
    for (const Client& client : _clients)
      watched.push_back({client.towardsDch->descriptor, POLLIN, 0});
    const int wait = millisecondsToNext();
    lock.unlock();
    poll(watched.data(), watched.size(), wait);
    lock.lock();
    sockaddr_in sender{};
    while (const auto bytes = _towardsClients->receive(&sender))
      carry(Direction::toDch, clientAt(sender), *bytes);
    for (std::size_t client = 0; client < _clients.size(); ++client)
      while (const auto bytes = _clients[client].towardsDch->receive(&sender))
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
  _clients.push_back({address, std::make_unique<Socket>()});
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
    client.towardsDch->send(datagram.bytes, _dch);
  else
    (datagram.isFromAnotherPort ? _otherPort : _towardsClients)
        ->send(datagram.bytes, client.address);
}

}  // namespace network
