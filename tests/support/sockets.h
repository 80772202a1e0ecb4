// sockets.h: bare sockets of the loopback interface: the other side of an endpoint or of a server.
#ifndef TESTS_SUPPORT_SOCKETS_H
#define TESTS_SUPPORT_SOCKETS_H

#include <netinet/in.h>

#include <optional>
#include <string>
#include <string_view>

// How long is waited for what has to come. What must not come is shown to be absent by something
// that is sent after it, not by waiting.
constexpr int longestWaitMilliseconds = 20'000;

sockaddr_in loopbackAddress(int port);

// What both kinds have in common.
class Socket {
 public:
  ~Socket();
  Socket(Socket&& other) noexcept;
  Socket& operator=(Socket&&) = delete;

  int descriptor() const { return _descriptor; }
  // Its own, also when it is closed.
  sockaddr_in address() const { return _address; }
  unsigned short port() const { return ntohs(_address.sin_port); }

  // The next datagram, or the next bytes of a stream, which are empty at its end; nothing when none
  // came in time. Also tells the sender of a datagram.
  std::optional<std::string> tryReceive(int milliseconds = longestWaitMilliseconds,
                                        sockaddr_in* sender = nullptr) const;

 protected:
  explicit Socket(int descriptor);  // takes it; throws when it is none
  void noteAddress();
  void close();

 private:
  int _descriptor;
  sockaddr_in _address{};
};

class DatagramSocket : public Socket {
 public:
  // On that port, or on one that the system gives. Throws when it cannot be had.
  explicit DatagramSocket(int port = 0);

  // Send one datagram; throw when that cannot be done.
  void sendTo(const sockaddr_in& receiver, std::string_view datagram) const;
  void sendTo(int port, std::string_view datagram) const {
    sendTo(loopbackAddress(port), datagram);
  }

  // The next datagram, and the port that it came from. Without one in time the test fails.
  std::string receive(unsigned short* senderPort = nullptr) const;

  // Whether a datagram is there already.
  bool hasDatagram() const;
};

// Waits for connections on a port that the system gives.
class StreamListener : public Socket {
 public:
  StreamListener();
};

class StreamSocket : public Socket {
 public:
  // Connects to a port of this machine, or takes the next connection of a listener.
  explicit StreamSocket(int port);
  explicit StreamSocket(const StreamListener& listener);

  // Sends all of it. A peer that has gone meanwhile is no failure.
  void send(std::string_view bytes) const;

  // The next `count` bytes that the peer sends; fewer when it closes before, or when they do not
  // come in time.
  std::string receive(std::size_t count) const;

  // Ends what the peer reads; the connection stays.
  void finishSending() const;

  // Closes the connection so that the peer's next read fails.
  void breakOff();
};

// Both ends of a connection: `server` is what an endpoint writes to.
class StreamPair {
 public:
  unsigned int server() const { return static_cast<unsigned int>(_server.descriptor()); }
  const StreamSocket& client() const { return _client; }
  StreamSocket& client() { return _client; }

  void setNonBlocking() const;

  // Writes on the server's end until nothing more goes in; the client does not read meanwhile.
  void fill();
  // Lets the client read all that fill() wrote.
  void drain();

  // Ends the connection and returns what the client has not read yet.
  std::string receiveRest() const;

 private:
  bool fillOnce();

  const StreamListener _listener;
  StreamSocket _client{_listener.port()};
  const StreamSocket _server{_listener};
  std::size_t _filled = 0;
};

#endif  // TESTS_SUPPORT_SOCKETS_H
