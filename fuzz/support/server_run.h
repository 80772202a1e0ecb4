// server_run.h: the server over one input: its receive loop, its queue, and what its worker does
// with what it takes from there, all on the fuzzer's own thread.
#ifndef FUZZ_SUPPORT_SERVER_RUN_H
#define FUZZ_SUPPORT_SERVER_RUN_H

#include <deque>
#include <string>

#include "dch/actions.h"
#include "dch/answers.h"
#include "dch/deferrals.h"
#include "dch/incoming_message.h"
#include "dch/memory_registry.h"
#include "dch/publisher.h"
#include "dch/requests.h"
#include "dch/status_snapshots.h"
#include "dch/subscriptions.h"
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

// The derived class has the sockets; it says what they have received and what that is to come to.
class ServerRun : public Network {
 public:
  ServerRun();

  // Runs the loop until no socket has anything to read.
  void run();

  void beforeWait() override { drain(); }
  int emptyWait() override { return -1; }
  void send(std::string_view message) override;

 protected:
  // What the queue is to hold next: a datagram with connection 0.
  virtual Expected nextExpected(unsigned connection) = 0;

  int datagramSocket() const { return _server._sockUDP; }
  int listeningSocket() const { return _server._sockTCP; }

 private:
  void drain();
  void check(const dch::IncomingMessage& message);
  void handle(const dch::IncomingMessage& message);
  void answer(const dch::IncomingMessage& message, const dch::Answer& answer);

  bool _isReady = false;  // the loop's first notice has come
  bool _isAnswering = false;
  int _answersSent = 0;  // to the message that is being handled
  ipcSock _server;
  dch::Inbox _inbox{_server};
  const dch::EventLog _log{true};
  dch::Answers _answers;
  dch::MemoryRegistry _registry;
  dch::Subscriptions _subscriptions;
  dch::Publisher _publisher;
  dch::StatusSnapshots _snapshots{_registry, _publisher};
  const dch::ActionList _actionList{{"restart", {"/bin/true"}}, {"broken", {brokenProgram}}};
  dch::Actions _actions{_actionList, _log};
  dch::Deferrals _deferrals;
  dch::Requests _requests{_registry, _publisher, _snapshots, _actions, _deferrals, _log};
};

// To be called by LLVMFuzzerInitialize.
void setUpServer();

}  // namespace fuzz

#endif  // FUZZ_SUPPORT_SERVER_RUN_H
