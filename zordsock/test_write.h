// test_write.h: a stream connection to write to, and the lines of a write.
#ifndef ZORDSOCK_TEST_WRITE_H
#define ZORDSOCK_TEST_WRITE_H

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/trace_lines.h"
#include "zordsock/test_endpoint.h"

// Both ends of a stream connection over loopback: `server` is what an endpoint writes to.
class StreamPair {
 public:
  StreamPair() {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    _client = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (bind(listener, generic, length) == 0 && getsockname(listener, generic, &length) == 0 &&
        listen(listener, 1) == 0 && connect(_client, generic, length) == 0)
      _server = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    close(listener);
    if (_server < 0) throw std::runtime_error("no stream connection");
  }
  ~StreamPair() {
    close(_server);
    if (_client >= 0) close(_client);
  }
  StreamPair(const StreamPair&) = delete;
  StreamPair& operator=(const StreamPair&) = delete;

  unsigned int server() const { return static_cast<unsigned int>(_server); }

  void setNonBlocking() const { fcntl(_server, F_SETFL, O_NONBLOCK); }

  // Writes until nothing more goes in; the peer does not read meanwhile.
  void fill() {
    setNonBlocking();
    while (fillOnce()) poll(nullptr, 0, settleMilliseconds);
  }

  // Lets the peer read all that fill() wrote.
  void drain() {
    receive(_filled);
    _filled = 0;
  }

  // The next `size` bytes that the peer reads.
  std::string receive(std::size_t size) const {
    std::string bytes(size, '\0');
    const ssize_t count = recv(_client, bytes.data(), size, MSG_WAITALL);
    bytes.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return bytes;
  }

  // Ends the connection and returns what the peer has not read yet.
  std::string receiveRest() const {
    shutdown(_server, SHUT_WR);
    std::string bytes;
    char block[65536];
    ssize_t count;
    while ((count = recv(_client, block, sizeof block, 0)) > 0)
      bytes.append(block, static_cast<std::size_t>(count));
    return bytes;
  }

  // The peer goes without having read what it got.
  void resetByPeer() {
    const linger atOnce{1, 0};
    setsockopt(_client, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    close(_client);
    _client = -1;
  }

 private:
  // What is on its way to the peer makes room again once it is acknowledged, which the peer's
  // system puts off for up to 40 milliseconds.
  static constexpr int settleMilliseconds = 100;

  bool fillOnce() {
    const std::size_t before = _filled;
    const std::string block(65536, 'f');
    ssize_t count;
    while ((count = send(_server, block.data(), block.size(), MSG_NOSIGNAL)) > 0)
      _filled += static_cast<std::size_t>(count);
    return _filled > before;
  }

  int _server = -1;
  int _client = -1;
  std::size_t _filled = 0;
};

inline ZORA_Long write(ipcSock& endpoint, std::string message, unsigned int connection = 0) {
  return endpoint.ipcWrite(message.data(), static_cast<ZORA_Long>(message.size()), connection);
}

// The lines with which each write begins.
inline std::vector<TraceLine> datagramLines(const ipcSock& endpoint, int length) {
  return {entryLine(),
          detailLine(textOf("[@%p] Using Family=AF_INET, Type=UDP totalLen=%d.\n",
                            TRC1_Pointer(&endpoint), length)),
          detailLine("_sockAddress set to " + tracedAddress(endpoint._sockAddress))};
}

inline std::vector<TraceLine> streamLines(const ipcSock& endpoint, const StreamPair& connection) {
  return {entryLine(),
          detailLine(textOf("[@%p] Using Family=AF_INET, Type=TCP.\n", TRC1_Pointer(&endpoint))),
          detailLine(textOf("connectedSockFD set to %d\n", static_cast<int>(connection.server())))};
}

// And those with which it ends.
inline std::vector<TraceLine> withSuccess(std::vector<TraceLine> lines, const ipcSock& endpoint,
                                          int length) {
  lines.push_back(detailLine(
      textOf("[@%p] Sent %d bytes out of %d\n", TRC1_Pointer(&endpoint), length, length)));
  lines.push_back(exitLine(length));
  return lines;
}

inline std::vector<TraceLine> withFailure(std::vector<TraceLine> lines, const std::string& text) {
  lines.push_back(errorLine(text));
  lines.push_back(exitLine(-1));
  return lines;
}

inline std::string sendFailure(const ipcSock& endpoint, int sent, int length, int systemError) {
  return textOf("Error: [@%p] SEND - Sent %d bytes out of %d: errno=%d\n", TRC1_Pointer(&endpoint),
                sent, length, systemError);
}

inline TraceLine wouldBlockLine(const ipcSock& endpoint, int seconds) {
  return detailLine(textOf("[@%p] SEND would block - waiting on Select for %d seconds.\n",
                           TRC1_Pointer(&endpoint), seconds));
}

#endif  // ZORDSOCK_TEST_WRITE_H
