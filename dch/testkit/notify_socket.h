// notify_socket.h: the service manager's end of what a server tells it.
#ifndef DCH_TESTKIT_NOTIFY_SOCKET_H
#define DCH_TESTKIT_NOTIFY_SOCKET_H

#include <string>

#include "tests/support/sockets.h"

namespace dch::testkit {

class NotifySocket : public Socket {
 public:
  // Under this name, which is what NOTIFY_SOCKET is to hold: a path, or `@` and any name.
  explicit NotifySocket(const std::string& name);
  ~NotifySocket();

  const std::string& name() const { return _name; }

  // The next message; empty when none came in time.
  std::string receive() const { return tryReceive().value_or(""); }
  // Passes over messages until one begins with `start`, and returns it; empty when none came in
  // time.
  std::string receiveUntil(const std::string& start) const;
  bool hasMessage() const;

  // Sends to itself until nothing more goes in.
  void fill() const;
  // Takes all that is there.
  void empty() const;

 private:
  const std::string _name;
};

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_NOTIFY_SOCKET_H
