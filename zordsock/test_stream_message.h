// test_stream_message.h: what the tests of a stream message share.
#ifndef ZORDSOCK_TEST_STREAM_MESSAGE_H
#define ZORDSOCK_TEST_STREAM_MESSAGE_H

#include <sys/socket.h>
#include <unistd.h>

#include <functional>
#include <stdexcept>
#include <string>

#include "zordsock/stream_message.h"
#include "zordsock/trace_unit.h"
#include "zordsock/zordsock.h"

// A connection that hands on what is sent together in one read, so that the test decides what the
// pieces are.
class PieceConnection {
 public:
  PieceConnection() {
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, _ends) != 0)
      throw std::runtime_error("socketpair failed");
  }
  ~PieceConnection() {
    closeClient();
    close(_ends[0]);
  }
  PieceConnection(const PieceConnection&) = delete;
  PieceConnection& operator=(const PieceConnection&) = delete;

  int serverEnd() const { return _ends[0]; }

  // Returns false when the server's end does not take it.
  bool send(const std::string& piece) const {
    return ::send(_ends[1], piece.data(), piece.size(), MSG_NOSIGNAL) ==
           static_cast<ssize_t>(piece.size());
  }

  // Drops what the server's end has not read.
  void discardUnread() const {
    char byte;
    while (recv(_ends[0], &byte, 1, MSG_DONTWAIT) > 0) {
    }
  }

  void closeClient() {
    if (_ends[1] >= 0) close(_ends[1]);
    _ends[1] = -1;
  }

  // Closes with unread data, which the server's end takes for a reset.
  void resetClient() {
    if (::send(_ends[0], "x", 1, MSG_NOSIGNAL) != 1) throw std::runtime_error("send failed");
    closeClient();
  }

 private:
  int _ends[2];
};

// Reads one message as the receive loop does, and lets `use` look at it before it is freed.
inline void readMessage(int descriptor,
                        const std::function<void(const zordsock::StreamMessage&)>& use) {
  TRC1_QUIET_FUNCTION("ipcSock::IPCServer");
  const ipcSock server(0, 0, 0);
  zordsock::StreamMessage message(server, trc1Scope);
  message.receive(descriptor);
  use(message);
  message.freePieces();
}

#endif  // ZORDSOCK_TEST_STREAM_MESSAGE_H
