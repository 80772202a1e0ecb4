// loopback_socket.h: a datagram socket on the loopback interface, the other side of an endpoint.
#ifndef TESTS_SUPPORT_LOOPBACK_SOCKET_H
#define TESTS_SUPPORT_LOOPBACK_SOCKET_H

#include <netinet/in.h>

#include <string>

class LoopbackSocket {
 public:
  // On a port that the system gives.
  LoopbackSocket();
  ~LoopbackSocket();
  LoopbackSocket(const LoopbackSocket&) = delete;
  LoopbackSocket& operator=(const LoopbackSocket&) = delete;

  sockaddr_in address() const { return _address; }
  unsigned short port() const { return ntohs(_address.sin_port); }

  // Sends one datagram to a port of this machine.
  void sendTo(unsigned short port, const std::string& datagram) const;

  // The next datagram, and the port that it came from. Waits up to twenty seconds for it; without
  // one the test fails.
  std::string receive(unsigned short* senderPort = nullptr) const;

  // Whether a datagram is there already.
  bool hasDatagram() const { return waitForDatagram(0); }

 private:
  bool waitForDatagram(int milliseconds) const;

  int _socket;
  sockaddr_in _address{};
};

#endif  // TESTS_SUPPORT_LOOPBACK_SOCKET_H
