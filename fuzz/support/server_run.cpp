#include "fuzz/support/server_run.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include "fuzz/support/answer_model.h"
#include "fuzz/support/field_model.h"
#include "fuzz/support/null_trace.h"
#include "fuzz/support/require.h"
#include "zordchcl/messages.h"
#include "zordchcl/status.h"

namespace fuzz {

namespace {

// An endpoint of this type starts no thread: the run plays the part of startup().
constexpr short noService = 0;

bool isPrintable(char character) {
  return character >= ' ' && character <= '~';
}

}  // namespace

sockaddr_in clientAddress(unsigned number) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK + number);
  address.sin_port = htons(static_cast<std::uint16_t>(4711 + number));
  return address;
}

void makeLengthRight(std::string* message) {
  const std::uint32_t word = htonl(static_cast<std::uint32_t>(message->size()));
  std::memcpy(message->data(), &word, std::min(message->size(), sizeof word));
}

ServerRun::ServerRun() : Network(0), _server(noService, 0, 0) {
  _server._typeOfService = SERVICE_SERVER;  // so that its queue goes with it
  _server._sockError = 0;
  _server.ipc_new_cb();
}

void ServerRun::run() {
  constexpr ZORA_Long waitFailed = 2;
  require(_server.IPCServer() == waitFailed, "the loop ends with its wait");
  drain();
  require(_isReady, "the loop has started");
  const std::string report = _core.report();
  require(std::all_of(report.begin(), report.end(),
                      [](char each) { return each == '\n' || isPrintable(each); }),
          "a report that is fit for a terminal");
}

void ServerRun::drain() {
  while (_server._ipcCircularBuffer->num_full > 0) {
    const QueueEntry entry = takeEntry(_server);
    if (_isReady) {
      check(entry);
      handle(entry);
    } else {
      require(entry.told == Told::ready, "the first notice");
      _isReady = true;
    }
  }
}

void ServerRun::check(const QueueEntry& entry) {
  const QueueEntry expected = nextExpected(entry.connection);
  require(entry.told == expected.told, "a message is not taken for a notice");
  require(entry.sender == expected.sender, "the sender of a message");
  require(entry.bytes == expected.bytes, "a message as it was sent");
}

void ServerRun::handle(const QueueEntry& entry) {
  const dch::Origin origin = originOf(entry);
  if (entry.told == Told::message) receiveMessage(entry.bytes, origin);
  if (entry.told == Told::broken) receiveBroken(origin);
  if (entry.told == Told::disconnected) endConnection(origin);
  if (std::exchange(_witness.isTimerStarted, false)) passTime();
  endProgram();
}

// A descriptor comes again for a later connection, a serial number does not.
dch::Origin ServerRun::originOf(const QueueEntry& entry) {
  if (entry.connection == 0) return {entry.sender};
  const auto [known, isNew] = _serialNumbers.try_emplace(entry.connection, _lastSerialNumber + 1);
  if (isNew) ++_lastSerialNumber;
  const dch::Origin origin{entry.sender, known->second};
  if (entry.told == Told::disconnected) _serialNumbers.erase(known);
  return origin;
}

void ServerRun::receiveMessage(const std::string& sent, const dch::Origin& origin) {
  // Exactly as long as the message, so that what is read behind it is found.
  const std::unique_ptr<char[]> bytes(new char[sent.size()]);
  sent.copy(bytes.get(), sent.size());
  const std::string_view message(bytes.get(), sent.size());
  _witness.outcome = {};
  _core.receive({message, origin, 1});
  require(message == sent, "a message stays as it was received");
  checkOutcome(message, origin, _witness.outcome);
  checkRow(message);
  noteWaiter(message, origin);
}

void ServerRun::receiveBroken(const dch::Origin& origin) {
  _witness.outcome = {};
  _core.receiveBroken(origin);
  checkBroken(origin, _witness.outcome);
}

void ServerRun::endConnection(const dch::Origin& origin) {
  _witness.outcome = {};
  _core.connectionClosed(origin);
  for (auto& [id, waiters] : _waiters) std::erase(waiters, origin);
  require(_witness.outcome.isEmpty(), "nobody is told that a connection is closed");
}

// A new subscriber of status is told more of what is on line.
void ServerRun::passTime() {
  _witness.outcome = {};
  _core.timeIsUp();
  require(_witness.outcome.answers.empty(), "time answers nobody");
  for (const std::string& pushed : _witness.outcome.pushed)
    require(isStatusEvent(pushed), "events of what is on line");
}

void ServerRun::endProgram() {
  const std::optional<SeemingPrograms::Ended> ended = _programs.takeEnded();
  if (!ended) return;
  _witness.outcome = {};
  _core.programEnded(ended->id, ended->result, 1);
  checkResult(_waiters[ended->id], ended->result, _witness.outcome);
  _waiters.erase(ended->id);
}

// A row that was acknowledged is the newest one of its source.
void ServerRun::checkRow(std::string_view message) const {
  FieldModel fields(message);
  if (fields.nextShort(DCH_requestType) != DCH_REQUEST_DATA || _witness.outcome.answers.empty())
    return;
  FieldModel answer(_witness.outcome.answers.front().bytes);
  if (answer.nextLong(DCH_status) != DCH_STATUS_OK) return;
  const dch::Source* const source =
      _core.registry().findOnline(fields.nextLong(DCH_handle).value());
  require(source != nullptr && source->row && source->row->message == message,
          "a row that is acknowledged is kept");
}

// One that is not answered waits, once even when it asks again.
void ServerRun::noteWaiter(std::string_view message, const dch::Origin& origin) {
  FieldModel fields(message);
  if (fields.nextShort(DCH_requestType) != DCH_REQUEST_ACTION_RESULTS ||
      !_witness.outcome.answers.empty())
    return;
  std::vector<dch::Origin>& waiters = _waiters[fields.nextLong(DCH_actionID).value()];
  if (std::find(waiters.begin(), waiters.end(), origin) == waiters.end()) waiters.push_back(origin);
}

void Witness::send(const dch::Origin& receiver, std::string_view message) noexcept {
  require(lengthWordIsRight(message) && isAnswer(message), "an answer is sent");
  outcome.answers.push_back({receiver, std::string(message)});
}

bool Witness::push(std::string_view message, const dch::PeerAddress&) {
  require(lengthWordIsRight(message), "what is pushed is as long as it says");
  outcome.pushed.emplace_back(message);
  return true;
}

void Witness::writeLine(std::string_view line) const {
  require(std::all_of(line.begin(), line.end(), isPrintable),
          "a log line that is fit for a terminal");
}

void setUpServer() {
  setenv("ZORA_DCH_PORT", "0", 1);
  setenv("ZOR0_PRODUCT_SPEC", "/dev/null", 1);
  unsetenv("ZORA_DCH_IPCTYPE");
  unsetenv("ZORA_VERBOSE");
  traceIntoNothing();
}

}  // namespace fuzz

extern "C" {

// ipcSock::allocateDCHport
ZORA_Long __wrap__ZN7ipcSock15allocateDCHportEv(ipcSock* server) {
  server->_sockUDP = fuzz::openSocket();
  server->_sockTCP = fuzz::openSocket();
  return 1;
}

}  // extern "C"
