// clients.h: raw sockets on the loopback interface that talk to a server.
#ifndef DCH_TESTKIT_CLIENTS_H
#define DCH_TESTKIT_CLIENTS_H

#include <optional>
#include <string>

#include "dch/core/peer_address.h"
#include "tests/support/sockets.h"

namespace dch::testkit {

// For a client that only receives: nothing is sent to its server.
constexpr int noServer = 9;

class UdpClient : public DatagramSocket {
 public:
  // On a port that the system gives, or on `ownPort`. Takes datagrams from anyone. One to which
  // something is sent when it is gone has a port from portToLeave().
  explicit UdpClient(int serverPort, int ownPort = 0)
      : DatagramSocket(ownPort), _serverPort(serverPort) {}

  PeerAddress address() const { return PeerAddress(DatagramSocket::address()); }

  void send(const std::string& bytes) const { sendTo(_serverPort, bytes); }
  // The next datagram; nothing when none came in time.
  std::optional<std::string> receive(int milliseconds = longestWaitMilliseconds) const {
    return tryReceive(milliseconds);
  }
  // Sends, and returns the answer; empty when none came.
  std::string ask(const std::string& bytes) const {
    send(bytes);
    return receive().value_or("");
  }

 private:
  const int _serverPort;
};

// A free port of the loopback interface that the system gives to nobody: what is sent to it later
// does not reach another test.
int portToLeave();

class TcpClient : public StreamSocket {
 public:
  using StreamSocket::StreamSocket;

  PeerAddress address() const { return PeerAddress(StreamSocket::address()); }

  // The next bytes, empty at the end; nothing when none came in time.
  std::optional<std::string> receive(int milliseconds = longestWaitMilliseconds) const {
    return tryReceive(milliseconds);
  }
  std::string ask(const std::string& bytes) const {
    send(bytes);
    return receive().value_or("");
  }
};

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_CLIENTS_H
