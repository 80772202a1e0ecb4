// server_run.h: the server over one input: the library's receive loop and its queue, and the core
// with what it takes from there, all on the fuzzer's own thread.
#ifndef FUZZ_SUPPORT_SERVER_RUN_H
#define FUZZ_SUPPORT_SERVER_RUN_H

#include <map>
#include <string>

#include "fuzz/support/core_run.h"
#include "fuzz/support/network.h"
#include "fuzz/support/queue_entry.h"
#include "zordsock/zordsock.h"

namespace fuzz {

// The derived class has the sockets; it says what they have received and what that is to come to.
class ServerRun : public Network {
 public:
  ServerRun();

  // Runs the loop until no socket has anything to read.
  void run();

  void beforeWait() override { drain(); }
  int emptyWait() override { return -1; }

 protected:
  // What the queue is to hold next: a datagram with connection 0. Its connection is not looked at.
  virtual QueueEntry nextExpected(unsigned connection) = 0;

  int datagramSocket() const { return _server._sockUDP; }
  int listeningSocket() const { return _server._sockTCP; }

 private:
  void drain();
  void check(const QueueEntry& entry);
  void handle(const QueueEntry& entry);
  dch::Origin originOf(const QueueEntry& entry);

  bool _isReady = false;  // the loop's first notice has come
  ipcSock _server;
  std::map<unsigned, std::uint64_t> _serialNumbers;  // of the connections, by their descriptors
  std::uint64_t _lastSerialNumber = 0;
  CoreRun _core;
};

// To be called by LLVMFuzzerInitialize.
void setUpServer();

}  // namespace fuzz

#endif  // FUZZ_SUPPORT_SERVER_RUN_H
