// datagram_sockets.h: bare sockets on the loopback interface.
#ifndef BENCH_DATAGRAM_SOCKETS_H
#define BENCH_DATAGRAM_SOCKETS_H

#include <netinet/in.h>

#include <string_view>

// A datagram socket on a port that the system gives. Throws when there is none.
class DatagramSocket {
 public:
  DatagramSocket();
  ~DatagramSocket();
  DatagramSocket(DatagramSocket&& other) noexcept;
  DatagramSocket& operator=(DatagramSocket&&) = delete;

  int descriptor() const { return _descriptor; }
  const sockaddr_in& address() const { return _address; }
  void sendTo(const sockaddr_in& receiver, std::string_view bytes) const;

 private:
  int _descriptor;
  sockaddr_in _address{};
};

// A port of the loopback interface.
sockaddr_in loopbackAddress(int port);

#endif  // BENCH_DATAGRAM_SOCKETS_H
