// running_server.h: a server endpoint on ports that the system gives, whose receive loop a test can
// end. To be used in a program that RECORDS_SLEEPS, or it pauses two seconds before it opens.
#ifndef TESTS_SUPPORT_RUNNING_SERVER_H
#define TESTS_SUPPORT_RUNNING_SERVER_H

#include <netinet/in.h>

#include <functional>
#include <future>
#include <string>

#include "zordsock/zordsock.h"

// One entry of the server's queue.
struct QueuedMessage {
  std::string bytes;
  sockaddr_in sender{};
  ZORA_Long senderLength = 0;
  std::string name;
  unsigned int descriptor = 0;
};

// The name of a sender that gave none.
extern const std::string blankName;

// The oldest entry of a server's queue. Waits up to twenty seconds for it; without one the test
// fails.
QueuedMessage takeMessage(DCHipc& server);

// Runs the loop on a thread of its own, from start() to stop(). The trace's classes are those in
// force at start().
class RunningServer {
 public:
  RunningServer();
  ~RunningServer();
  RunningServer(const RunningServer&) = delete;
  RunningServer& operator=(const RunningServer&) = delete;

  // Starts the loop and waits for the ready notice, which is returned.
  QueuedMessage start();

  // Starts `loop`, which calls the endpoint's IPCServer, and does not wait.
  void launch(const std::function<ZORA_Long()>& loop);

  // Whether a loop that was started has ended.
  bool hasEnded() const;

  // The endpoint. Its fields are the loop's own while that runs, but for the two descriptors, which
  // do not change after start().
  ipcSock& endpoint() { return _endpoint; }
  unsigned short datagramPort() { return _endpoint.sockPortUDP(); }
  unsigned short streamPort() { return _endpoint.sockPortTCP(); }

  QueuedMessage next() { return takeMessage(_endpoint); }

  // Waits for the end of the loop, which a failing select has brought about. Returns its result.
  ZORA_Long waitForEnd() { return _result.get(); }

  // Ends the loop, which must not be reading from a connection that does not end. What is left in
  // the queue stays there, or is dropped when the loop could not end otherwise.
  void stop();

 private:
  ipcSock _endpoint;
  std::future<ZORA_Long> _result;
};

#endif  // TESTS_SUPPORT_RUNNING_SERVER_H
