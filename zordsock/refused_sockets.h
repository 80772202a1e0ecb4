// refused_sockets.h: makes the system refuse sockets. For test programs that are built with
// WRAP socket. A limit of open files would hit the sanitizers too.
#ifndef ZORDSOCK_REFUSED_SOCKETS_H
#define ZORDSOCK_REFUSED_SOCKETS_H

// While it lives, sockets of `type` cannot be had after `allowed` more: socket() answers -1 with
// errno ENOBUFS. One at a time.
class RefusedSockets {
 public:
  explicit RefusedSockets(int type, int allowed = 0);
  ~RefusedSockets();
  RefusedSockets(const RefusedSockets&) = delete;
  RefusedSockets& operator=(const RefusedSockets&) = delete;
};

#endif  // ZORDSOCK_REFUSED_SOCKETS_H
