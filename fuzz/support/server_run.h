// server_run.h: the server over one input: its receive loop, its queue, and what its worker does
// with what it takes from there, all on the fuzzer's own thread.
#ifndef FUZZ_SUPPORT_SERVER_RUN_H
#define FUZZ_SUPPORT_SERVER_RUN_H

#include <deque>
#include <string>

#include "dch/child_programs.h"
#include "dch/core/core.h"
#include "dch/event_log.h"
#include "dch/incoming_message.h"
#include "dch/store/memory_store.h"
#include "fuzz/support/answer_model.h"
#include "fuzz/support/network.h"
#include "fuzz/support/programs.h"
#include "zordsock/zordsock.h"

namespace fuzz {

// The addresses that the input's clients have.
sockaddr_in clientAddress(unsigned number);

// The length word of `message` made to fit.
void makeLengthRight(std::string* message);

// What is to come out of the queue.
struct Expected {
  dch::Notice notice;
  std::string bytes;
  dch::PeerAddress sender = {};
};

// What the core works through: it sees what comes of each message.
struct Witness : dch::Answers, dch::RowsOut, dch::Timer {
  void send(const dch::Origin& receiver, std::string_view message) noexcept override;
  bool push(std::string_view message, const dch::PeerAddress& receiver) override;
  void takeGone(std::vector<dch::PeerAddress>*) override {}
  void start() override { isTimerStarted = true; }

  Outcome outcome;
  bool isTimerStarted = false;
};

// The derived class has the sockets; it says what they have received and what that is to come to.
class ServerRun : public Network {
 public:
  ServerRun();

  // Runs the loop until no socket has anything to read.
  void run();

  void beforeWait() override { drain(); }
  int emptyWait() override { return -1; }

 protected:
  // What the queue is to hold next: a datagram with connection 0.
  virtual Expected nextExpected(unsigned connection) = 0;

  int datagramSocket() const { return _server._sockUDP; }
  int listeningSocket() const { return _server._sockTCP; }

 private:
  void drain();
  void check(const dch::IncomingMessage& message);
  void handle(const dch::IncomingMessage& message);

  bool _isReady = false;  // the loop's first notice has come
  ipcSock _server;
  dch::Inbox _inbox{_server};
  const dch::EventLog _log{true};
  dch::Counters _counters;
  Witness _witness;
  dch::MemoryStore _store;
  dch::ChildPrograms _programs;
  const dch::ActionList _actionList{{"restart", {"/bin/true"}}, {"broken", {brokenProgram}}};
  dch::Core _core{{_witness, _witness, _store, _witness, _programs}, _actionList, _counters, _log};
};

// To be called by LLVMFuzzerInitialize.
void setUpServer();

}  // namespace fuzz

#endif  // FUZZ_SUPPORT_SERVER_RUN_H
