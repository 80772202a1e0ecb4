#include "bench/port_channel.h"

#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>

int startOnPort(std::optional<Worker>* process,
                const std::function<void(const std::function<void(int)>& tellPort)>& serve) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
    throw std::runtime_error("no socket to hear of a port");
  process->emplace([&] {
    close(ends[0]);
    serve([&](int port) { sendAll(ends[1], &port, sizeof port); });
  });
  close(ends[1]);
  int port = 0;
  receiveAll(ends[0], &port, sizeof port);
  close(ends[0]);
  return port;
}

void sendAll(int descriptor, const void* bytes, std::size_t size) {
  if (send(descriptor, bytes, size, MSG_NOSIGNAL) != static_cast<ssize_t>(size))
    throw std::runtime_error("a process of the benchmark is gone");
}

void receiveAll(int descriptor, void* bytes, std::size_t size) {
  if (recv(descriptor, bytes, size, MSG_WAITALL) != static_cast<ssize_t>(size))
    throw std::runtime_error("a process of the benchmark is gone");
}
