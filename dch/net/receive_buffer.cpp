#include "dch/net/receive_buffer.h"

#include <sys/socket.h>

#include "dch/net/descriptor.h"

namespace dch {

namespace {

constexpr int wantedBytes = 4 << 20;  // the system counts some 800 for the smallest datagram

int sizeOf(int socket) {
  int bytes = 0;
  socklen_t length = sizeof bytes;
  getsockopt(socket, SOL_SOCKET, SO_RCVBUF, &bytes, &length);
  return bytes;
}

void askForWanted(int socket) {
  setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &wantedBytes, sizeof wantedBytes);
}

// What the system gives who asks for what is wanted: it may be less than sockets have unasked.
int sizeToBeHad() {
  const Descriptor trial(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!trial.isOpen()) return 0;
  askForWanted(trial.get());
  return sizeOf(trial.get());
}

}  // namespace

void enlargeReceiveBuffer(int socket) {
  const int bytes = sizeOf(socket);
  if (bytes < wantedBytes && bytes < sizeToBeHad()) askForWanted(socket);
}

}  // namespace dch
