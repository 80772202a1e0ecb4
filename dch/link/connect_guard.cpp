#include "dch/link/connect_guard.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <charconv>
#include <exception>
#include <filesystem>
#include <string>
#include <system_error>

#include "dch/net/descriptor.h"

namespace dch {

namespace {

constexpr std::chrono::milliseconds pause{100};

// -1: the descriptor is of no connection over IP.
int peerPort(int socket) {
  sockaddr_storage peer{};
  socklen_t length = sizeof peer;
  if (getpeername(socket, reinterpret_cast<sockaddr*>(&peer), &length) != 0) return -1;
  if (peer.ss_family == AF_INET) return ntohs(reinterpret_cast<sockaddr_in&>(peer).sin_port);
  if (peer.ss_family == AF_INET6) return ntohs(reinterpret_cast<sockaddr_in6&>(peer).sin6_port);
  return -1;
}

// All of ours: the library does not care what the programs inherit that a server starts.
bool isClosedOnExec(int descriptor) {
  return (fcntl(descriptor, F_GETFD) & FD_CLOEXEC) != 0;
}

// Calls take(socket, cookie) for each socket of the library that leads to the port. Other threads
// open and close theirs meanwhile, so it is a descriptor of its own that is looked at and given.
// Throws std::system_error when it cannot look at all of them.
template <class Take>
void forSocketsTo(int port, Take take) {
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    const std::string name = entry.path().filename();
    int number = -1;
    std::from_chars(name.data(), name.data() + name.size(), number);
    if (isClosedOnExec(number) || peerPort(number) != port) continue;
    const Descriptor socket(fcntl(number, F_DUPFD_CLOEXEC, 0));
    if (!socket.isOpen() && errno != EBADF)
      throw std::system_error(errno, std::generic_category(), "a socket cannot be looked at");
    std::uint64_t cookie = 0;
    socklen_t length = sizeof cookie;
    if (peerPort(socket.get()) == port &&
        getsockopt(socket.get(), SOL_SOCKET, SO_COOKIE, &cookie, &length) == 0)
      take(socket.get(), cookie);
  }
}

std::set<std::uint64_t> cookiesOf(int port) {
  std::set<std::uint64_t> cookies;
  forSocketsTo(port, [&](int, std::uint64_t cookie) { cookies.insert(cookie); });
  return cookies;
}

struct Turns {
  struct OfPort {
    std::uint64_t taken = 0;
    std::uint64_t over = 0;
  };
  std::mutex mutex;
  std::condition_variable changed;
  std::map<int, OfPort> ofPorts;
};

// For ever: at the end of the process a thread may still connect.
Turns& allTurns() {
  static Turns& turns = *new Turns;
  return turns;
}

}  // namespace

ConnectGuard::Turn::Turn(int port) : _port(port) {
  Turns& turns = allTurns();
  std::unique_lock lock(turns.mutex);
  Turns::OfPort& here = turns.ofPorts[port];
  const std::uint64_t own = here.taken++;
  turns.changed.wait(lock, [&] { return here.over == own; });
}

ConnectGuard::Turn::~Turn() {
  Turns& turns = allTurns();
  {
    const std::lock_guard lock(turns.mutex);
    ++turns.ofPorts.at(_port).over;
  }
  turns.changed.notify_all();
}

ConnectGuard::ConnectGuard(int port, std::chrono::milliseconds longest)
    : _turn(port), _port(port), _longest(longest), _earlier(cookiesOf(port)), _thread([this] {
        run();
      }) {}

void ConnectGuard::end() {
  {
    const std::lock_guard lock(_mutex);
    _isEnding = true;
  }
  _end.notify_one();
  if (_thread.joinable()) _thread.join();
}

bool ConnectGuard::hasShutDown() const {
  const std::lock_guard lock(_mutex);
  return _hasShutDown;
}

void ConnectGuard::run() {
  std::unique_lock lock(_mutex);
  while (!_end.wait_for(lock, pause, [this] { return _isEnding; })) {
    try {
      look(std::chrono::steady_clock::now());
    } catch (const std::exception&) {
      // No memory or no descriptor: the next look finds the same.
    }
  }
}

void ConnectGuard::look(TimePoint now) {
  forSocketsTo(_port, [&](int socket, Cookie cookie) {
    if (_earlier.contains(cookie)) return;
    const TimePoint firstSeen = _firstSeen.try_emplace(cookie, now).first->second;
    if (now - firstSeen < _longest) return;
    _hasShutDown = true;
    shutdown(socket, SHUT_RDWR);
  });
}

}  // namespace dch
