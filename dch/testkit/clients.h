// clients.h: raw sockets on the loopback interface that talk to a server.
#ifndef DCH_TESTKIT_CLIENTS_H
#define DCH_TESTKIT_CLIENTS_H

#include <optional>
#include <string>

#include "dch/peer_address.h"

namespace dch::testkit {

// How long a client waits for what has to come. What must not come is shown to be absent by
// something that is sent after it, not by waiting.
constexpr int longestWaitMilliseconds = 20'000;

class Socket {
 public:
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;
  ~Socket();

  PeerAddress address() const;
  void send(const std::string& bytes);

  // The next datagram, or the next bytes of a stream, which are empty at its end; nothing when none
  // came in time.
  std::optional<std::string> receive(int milliseconds = longestWaitMilliseconds);

 protected:
  explicit Socket(int type);
  void connectTo(int port);

  int _descriptor;
};

// For a client that only receives: nothing is sent to its server.
constexpr int noServer = 9;

class UdpClient : public Socket {
 public:
  // On a port that the system gives, or on `ownPort`. Takes datagrams from anyone. One to which
  // something is sent when it is gone has a port from portToLeave().
  explicit UdpClient(int serverPort, int ownPort = 0);

  void send(const std::string& bytes);
  // Sends, and returns the answer; empty when none came.
  std::string ask(const std::string& bytes);

 private:
  const int _serverPort;
};

// A free port of the loopback interface that the system gives to nobody: what is sent to it later
// does not reach another test.
int portToLeave();

class TcpClient : public Socket {
 public:
  explicit TcpClient(int serverPort);

  std::string ask(const std::string& bytes);
  // Ends the sending direction; the other end sees the end of the stream.
  void endSending();
};

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_CLIENTS_H
