#include "zordsock/refused_sockets.h"

#include <sys/socket.h>

#include <cerrno>

namespace {

int refusedType = 0;  // 0: none
int socketsAllowed = 0;

}  // namespace

RefusedSockets::RefusedSockets(int type, int allowed) {
  refusedType = type;
  socketsAllowed = allowed;
}

RefusedSockets::~RefusedSockets() {
  refusedType = 0;
}

extern "C" {

int __real_socket(int domain, int type, int protocol);
int __wrap_socket(int domain, int type, int protocol);
int __wrap_socket(int domain, int type, int protocol) {
  const bool isRefused =
      refusedType != 0 && (type & ~SOCK_CLOEXEC) == refusedType && socketsAllowed-- <= 0;
  if (!isRefused) return __real_socket(domain, type, protocol);
  errno = ENOBUFS;
  return -1;
}

}  // extern "C"
