#include "fuzz/support/network.h"

#include <sys/select.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "fuzz/support/require.h"
#include "suite/sockets.h"

namespace fuzz {

namespace {

Network* current = nullptr;

enum class Socket : unsigned char { closed, open, openOnLoopback };

// Above the descriptors that a fuzzer has open itself, below the size of a plain set.
constexpr int firstDescriptor = 100;
std::array<Socket, 16> sockets{};

Socket& socketOf(int descriptor) {
  require(descriptor >= firstDescriptor &&
              descriptor < firstDescriptor + static_cast<int>(sockets.size()),
          "a descriptor that was never given out");
  return sockets[static_cast<std::size_t>(descriptor - firstDescriptor)];
}

Network& networkFor(int descriptor) {
  require(current != nullptr, "a socket is used outside of a run");
  require(socketOf(descriptor) != Socket::closed, "a socket is used that is not open");
  return *current;
}

int openCount() {
  return static_cast<int>(std::count_if(sockets.begin(), sockets.end(),
                                        [](Socket each) { return each != Socket::closed; }));
}

}  // namespace

Network::Network(int keptSockets) : _keptSockets(keptSockets) {
  current = this;
}

Network::~Network() {
  require(openCount() <= _keptSockets, "a socket was left open");
  current = nullptr;
}

int Network::accept(sockaddr_in*) {
  errno = EINVAL;
  return -1;
}

int openSocket(bool isLoopback) {
  const auto free = std::find(sockets.begin(), sockets.end(), Socket::closed);
  require(free != sockets.end(), "too many sockets");
  *free = isLoopback ? Socket::openOnLoopback : Socket::open;
  return firstDescriptor + static_cast<int>(free - sockets.begin());
}

bool isLoopbackSocket(int descriptor) {
  return socketOf(descriptor) == Socket::openOnLoopback;
}

}  // namespace fuzz

using namespace fuzz;

extern "C" {

int __wrap_select(int limit, fd_set* readable, fd_set*, fd_set*, timeval*) {
  current->beforeWait();
  int count = 0;
  for (int descriptor = firstDescriptor; descriptor < limit; ++descriptor) {
    if (!FD_ISSET(descriptor, readable)) continue;
    if (networkFor(descriptor).isReadable(descriptor))
      ++count;
    else
      FD_CLR(descriptor, readable);
  }
  return count > 0 ? count : current->emptyWait();
}

ssize_t __wrap_recvfrom(int descriptor, void* bytes, size_t capacity, int flags, sockaddr* sender,
                        socklen_t*) {
  if ((flags & MSG_DONTWAIT) != 0) {
    current->beforeWait();
    if (!networkFor(descriptor).isReadable(descriptor)) {
      errno = EAGAIN;
      return -1;
    }
  }
  return networkFor(descriptor)
      .receive(descriptor, static_cast<char*>(bytes), capacity,
               reinterpret_cast<sockaddr_in*>(sender));
}

ssize_t __wrap_sendto(int, const void* bytes, size_t count, int, const sockaddr*, socklen_t) {
  current->send({static_cast<const char*>(bytes), count});
  return static_cast<ssize_t>(count);
}

int __wrap_accept4(int descriptor, sockaddr* peer, socklen_t*, int) {
  return networkFor(descriptor).accept(reinterpret_cast<sockaddr_in*>(peer));
}

int __wrap_listen(int, int) {
  return 0;
}

// ZOR0_OpenLocalSocket, ZOR0_CloseTheSocket, ZOR0_RetrieveSockPort and OSV1_Sleep.

int __wrap__Z20ZOR0_OpenLocalSocketitP11sockaddr_iniPi(int, unsigned short, sockaddr_in*, int flag,
                                                       int* error) {
  *error = 0;
  return openSocket((flag & ZOR0_SOCKET_LOOPBACK) != 0);
}

void __wrap__Z19ZOR0_CloseTheSocketi(int descriptor) {
  if (descriptor < 0) return;
  require(socketOf(descriptor) != Socket::closed, "a socket is closed twice");
  socketOf(descriptor) = Socket::closed;
}

unsigned short __wrap__Z21ZOR0_RetrieveSockPorti(int descriptor) {
  return static_cast<unsigned short>(40000 + descriptor);
}

void __wrap__Z10OSV1_Sleepi(int) {}

}  // extern "C"
