// stepped_dch.h: a DCH that acts when the library, in the same thread, begins to wait: it takes the
// request and sends what is to come. So the order of all datagrams is the test's alone, and no wait
// for what does not come takes time.
#ifndef TESTS_SUPPORT_STEPPED_DCH_H
#define TESTS_SUPPORT_STEPPED_DCH_H

#include <sys/select.h>

#include <functional>
#include <string>
#include <vector>

#include "tests/support/sockets.h"

// One at a time. For programs that link zord410_test_failing_calls.
class SteppedDch {
 public:
  struct Datagram {
    unsigned short port;
    std::string bytes;
  };
  // What is sent when the library waits after `request`, which came from `port`.
  using Script =
      std::function<std::vector<Datagram>(const std::string& request, unsigned short port)>;

  // Points ZORA_DCH_ADDR and ZORA_DCH_PORT of this process to its socket.
  explicit SteppedDch(Script script);
  ~SteppedDch();
  SteppedDch(const SteppedDch&) = delete;
  SteppedDch& operator=(const SteppedDch&) = delete;

  // The script runs once, at the next wait: for the request that the library sends before it, or
  // for the one that was taken last.
  void expectRequest();
  void expectWait();

  // Takes a request after which the library does not wait.
  void takeRequest();

  // Takes what the library has not read of the last answer out of its socket.
  void throwAwayUnread(int descriptor);

 private:
  // In place of the library's waits; and what they lead to.
  int select(int count, fd_set* readSet, fd_set* writeSet, fd_set* otherSet);
  void received(int descriptor);

  const Script _script;
  const DatagramSocket _socket;
  bool _requestIsComing = false;
  bool _isDue = false;
  std::string _request;
  unsigned short _port = 0;
  int _unread = 0;      // datagrams that were sent to the port of the last request
  fd_set _waitedFor{};  // by the library, the last time
};

#endif  // TESTS_SUPPORT_STEPPED_DCH_H
