// stream_client.h: the other side of a server's stream connection.
#ifndef TESTS_SUPPORT_STREAM_CLIENT_H
#define TESTS_SUPPORT_STREAM_CLIENT_H

#include <netinet/in.h>

#include <string>

class StreamClient {
 public:
  // Connects to a port of this machine.
  explicit StreamClient(unsigned short port);
  ~StreamClient();
  StreamClient(const StreamClient&) = delete;
  StreamClient& operator=(const StreamClient&) = delete;

  // The address that the server sees.
  sockaddr_in address() const { return _address; }

  // Sends all of it. A server that has gone meanwhile is no failure.
  void send(const std::string& bytes) const;

  // The next `count` bytes that the server sends; fewer when it closes before or after
  // twenty seconds.
  std::string receive(std::size_t count) const;

  // Ends what the server reads; the connection stays.
  void finishSending() const;

  // Closes the connection so that the server's next read fails.
  void breakOff();

 private:
  int _socket;
  sockaddr_in _address{};
};

#endif  // TESTS_SUPPORT_STREAM_CLIENT_H
