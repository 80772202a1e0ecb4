// server_run.h: the server over one input: the library's receive loop and its queue, and the core
// with what it takes from there, all on the fuzzer's own thread.
#ifndef FUZZ_SUPPORT_SERVER_RUN_H
#define FUZZ_SUPPORT_SERVER_RUN_H

#include <map>
#include <string>
#include <vector>

#include "dch/core/core.h"
#include "dch/store/memory_store.h"
#include "fuzz/support/answer_model.h"
#include "fuzz/support/network.h"
#include "fuzz/support/queue_entry.h"
#include "fuzz/support/seeming_programs.h"
#include "zordsock/zordsock.h"

namespace fuzz {

// The addresses that the input's clients have.
sockaddr_in clientAddress(unsigned number);

// The length word of `message` made to fit.
void makeLengthRight(std::string* message);

// What the core works through: it sees what comes of each message.
struct Witness : dch::Answers, dch::RowsOut, dch::Timer, dch::Log {
  void send(const dch::Origin& receiver, std::string_view message) noexcept override;
  bool push(std::string_view message, const dch::PeerAddress& receiver) override;
  void takeGone(std::vector<dch::PeerAddress>*) override {}
  void start() override { isTimerStarted = true; }
  bool isEnabled() const override { return true; }
  void writeLine(std::string_view line) const override;

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
  // What the queue is to hold next: a datagram with connection 0. Its connection is not looked at.
  virtual QueueEntry nextExpected(unsigned connection) = 0;

  int datagramSocket() const { return _server._sockUDP; }
  int listeningSocket() const { return _server._sockTCP; }

 private:
  void drain();
  void check(const QueueEntry& entry);
  void handle(const QueueEntry& entry);
  dch::Origin originOf(const QueueEntry& entry);
  void receiveMessage(const std::string& bytes, const dch::Origin& origin);
  void receiveBroken(const dch::Origin& origin);
  void endConnection(const dch::Origin& origin);
  void passTime();
  void endProgram();
  void checkRow(std::string_view message) const;
  void noteWaiter(std::string_view message, const dch::Origin& origin);

  bool _isReady = false;  // the loop's first notice has come
  ipcSock _server;
  std::map<unsigned, std::uint64_t> _serialNumbers;  // of the connections, by their descriptors
  std::uint64_t _lastSerialNumber = 0;
  // Who is to be told the result of which action.
  std::map<ZORA_Long, std::vector<dch::Origin>> _waiters;
  dch::Counters _counters;
  Witness _witness;
  dch::MemoryStore _store;
  SeemingPrograms _programs;
  const dch::ActionRules _actionRules{
      .list = {{"restart", {"/bin/true"}}, {"broken", {brokenProgram}}}};
  dch::Core _core{
      {_witness, _witness, _store, _witness, _programs}, _actionRules, _counters, _witness};
};

// To be called by LLVMFuzzerInitialize.
void setUpServer();

}  // namespace fuzz

#endif  // FUZZ_SUPPORT_SERVER_RUN_H
