#include "dch/free_port.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <string>
#include <system_error>

namespace dch {

namespace {

// Below the ports that Linux gives to sockets that ask for any.
constexpr int lowestPort = 10'000;
constexpr int portCount = 22'000;
constexpr int mostAttempts = 1'000;
// Prime and far from 1, so that processes with neighbouring numbers stay apart.
constexpr int stride = 7'919;

// Connections last for a minute in each of the two states that they may be left in.
constexpr int longestWaitSeconds = 130;

// What bind() or connect() says to a new socket: 0, or the error number.
using SocketCall = int (*)(int descriptor, const sockaddr* address, socklen_t length);
int tryPort(SocketCall call, int type, in_addr address, unsigned short port) {
  const int descriptor = socket(AF_INET, type | SOCK_CLOEXEC, 0);
  if (descriptor < 0) return errno;
  // A server that accepts nothing would hold a connection up for minutes.
  const timeval second{1, 0};
  setsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &second, sizeof second);
  sockaddr_in there{};
  there.sin_family = AF_INET;
  there.sin_addr = address;
  there.sin_port = htons(port);
  const int result = call(descriptor, reinterpret_cast<const sockaddr*>(&there), sizeof there);
  const int error = result == 0 ? 0 : errno;
  close(descriptor);
  return error;
}

// No server that runs has the port, and yet it cannot be bound.
bool isAbandoned(in_addr address, unsigned short port) {
  return tryPort(bind, SOCK_DGRAM, address, port) == 0 &&
         tryPort(bind, SOCK_STREAM, address, port) == EADDRINUSE &&
         tryPort(connect, SOCK_STREAM, address, port) == ECONNREFUSED;
}

}  // namespace

unsigned short findFreePort(in_addr address) {
  int error = EADDRINUSE;
  for (int attempt = 0; attempt < mostAttempts && error == EADDRINUSE; ++attempt) {
    const int offset = (getpid() % portCount + attempt * stride) % portCount;
    const auto port = static_cast<unsigned short>(lowestPort + offset);
    error = tryPort(bind, SOCK_DGRAM, address, port);
    if (error == 0) error = tryPort(bind, SOCK_STREAM, address, port);
    if (error == 0) return port;
  }
  char dotted[INET_ADDRSTRLEN] = "";
  inet_ntop(AF_INET, &address, dotted, sizeof dotted);
  throw std::system_error(error, std::generic_category(),
                          std::string("cannot find a free port of ") + dotted);
}

bool waitForAbandonedPort(in_addr address, unsigned short port) {
  if (!isAbandoned(address, port)) return true;
  std::fprintf(stderr,
               "zordchd: connections to an earlier server still hold port %d: waiting until the "
               "system frees it\n",
               port);
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGTERM);
  sigaddset(&stopSignals, SIGINT);
  constexpr timespec pause{0, 200'000'000};
  const std::time_t end = std::time(nullptr) + longestWaitSeconds;
  while (std::time(nullptr) < end && isAbandoned(address, port))
    if (sigtimedwait(&stopSignals, nullptr, &pause) > 0) return false;
  return true;
}

}  // namespace dch
