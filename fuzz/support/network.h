// network.h: a network in the memory of a fuzz target. The calls that the library makes of the
// system's sockets, and its sleeps, lead here: the targets that link network.cpp wrap them.
#ifndef FUZZ_SUPPORT_NETWORK_H
#define FUZZ_SUPPORT_NETWORK_H

#include <netinet/in.h>
#include <sys/types.h>

#include <cstddef>
#include <string_view>

namespace fuzz {

// What the sockets of the process lead to while it lives. One at a time, and one thread.
class Network {
 public:
  // Requires that every socket that was opened meanwhile has been closed.
  virtual ~Network();
  Network(const Network&) = delete;
  Network& operator=(const Network&) = delete;

  // Called before every wait for sockets, and before every look that does not wait.
  virtual void beforeWait() {}
  // Whether a wait reports the socket.
  virtual bool isReadable(int descriptor) = 0;
  // What a wait answers when there is nothing to report: 0 when its time is up, -1 when it failed.
  virtual int emptyWait() { return 0; }

  // As recvfrom: fills `bytes` and `sender`, which may be null.
  virtual ssize_t receive(int descriptor, char* bytes, std::size_t capacity,
                          sockaddr_in* sender) = 0;
  // Takes what is sent.
  virtual void send(std::string_view) {}
  // The next connection on a listening socket.
  virtual int accept(sockaddr_in* peer);

 protected:
  // So many sockets may stay open for as long as the process lives.
  explicit Network(int keptSockets);

 private:
  const int _keptSockets;
};

// A new socket. Descriptors are numbers that only this network knows.
int openSocket(bool isLoopback = false);

// Whether it was opened on the loopback interface alone, as interrupt sockets are.
bool isLoopbackSocket(int descriptor);

}  // namespace fuzz

#endif  // FUZZ_SUPPORT_NETWORK_H
