#include "dch/net/socket_option.h"

#include <sys/socket.h>

#include <cerrno>
#include <system_error>

namespace dch {

void throwSystemError(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

void setOption(int socket, int level, int name, int value) {
  if (setsockopt(socket, level, name, &value, sizeof value) != 0)
    throwSystemError("cannot set an option of a socket");
}

sockaddr_in localAddressOf(int socket) {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  if (getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length) != 0)
    throwSystemError("cannot read the address of a socket");
  return address;
}

}  // namespace dch
