#include "dch/free_port.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
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

// 0, or the error number.
int tryPort(int type, in_addr address, unsigned short port) {
  const int descriptor = socket(AF_INET, type | SOCK_CLOEXEC, 0);
  if (descriptor < 0) return errno;
  sockaddr_in local{};
  local.sin_family = AF_INET;
  local.sin_addr = address;
  local.sin_port = htons(port);
  const int result = bind(descriptor, reinterpret_cast<const sockaddr*>(&local), sizeof local);
  const int error = result == 0 ? 0 : errno;
  close(descriptor);
  return error;
}

}  // namespace

unsigned short findFreePort(in_addr address) {
  int error = EADDRINUSE;
  for (int attempt = 0; attempt < mostAttempts && error == EADDRINUSE; ++attempt) {
    const int offset = (getpid() % portCount + attempt * stride) % portCount;
    const auto port = static_cast<unsigned short>(lowestPort + offset);
    error = tryPort(SOCK_DGRAM, address, port);
    if (error == 0) error = tryPort(SOCK_STREAM, address, port);
    if (error == 0) return port;
  }
  char dotted[INET_ADDRSTRLEN] = "";
  inet_ntop(AF_INET, &address, dotted, sizeof dotted);
  throw std::system_error(error, std::generic_category(),
                          std::string("cannot find a free port of ") + dotted);
}

}  // namespace dch
