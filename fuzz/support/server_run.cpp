#include "fuzz/support/server_run.h"

#include <arpa/inet.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include "fuzz/support/answer_model.h"
#include "fuzz/support/field_model.h"
#include "fuzz/support/null_trace.h"
#include "fuzz/support/programs.h"
#include "fuzz/support/require.h"
#include "zordchcl/messages.h"

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
  forgetPrograms();
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
    const dch::IncomingMessage message = _inbox.receive();
    if (_isReady) {
      check(message);
    } else {
      require(noticeOf(message) == dch::Notice::ready, "the first notice");
      _isReady = true;
    }
    if (noticeOf(message) == dch::Notice::none) handle(message);
  }
}

void ServerRun::check(const dch::IncomingMessage& message) {
  const Expected expected = nextExpected(message.connection);
  require(noticeOf(message) == expected.notice, "a message is not taken for a notice");
  require(message.sender == expected.sender, "the sender of a message");
  if (expected.notice == dch::Notice::none)
    require(message.text() == expected.bytes, "a message as it was sent");
}

// As the server's worker does.
void ServerRun::handle(const dch::IncomingMessage& received) {
  // Exactly as long as the message, so that what is read behind it is found.
  const std::unique_ptr<char[]> bytes(new char[received.received]);
  received.text().copy(bytes.get(), received.received);
  const std::string_view message(bytes.get(), received.received);
  _witness.outcome = {};
  _core.receive({message, received.origin(), 1});
  require(message == received.text(), "a message stays as it was received");
  checkOutcome(message, received.isDatagram(), _witness.outcome);
  if (std::exchange(_witness.isTimerStarted, false)) _core.timeIsUp();
  _programs.collect([this](ZORA_Long id, ZORA_Long result) { _core.programEnded(id, result, 1); });
}

void Witness::send(const dch::Origin&, std::string_view message) noexcept {
  require(lengthWordIsRight(message) && isAnswer(message), "an answer is sent");
  outcome.answers.emplace_back(message);
}

bool Witness::push(std::string_view message, const dch::PeerAddress&) {
  require(lengthWordIsRight(message), "what is pushed is as long as it says");
  outcome.pushed.emplace_back(message);
  return true;
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

// The event log.
ssize_t __real_write(int descriptor, const void* bytes, size_t count);
ssize_t __wrap_write(int descriptor, const void* bytes, size_t count) {
  if (descriptor != STDERR_FILENO) return __real_write(descriptor, bytes, count);
  const std::string_view line(static_cast<const char*>(bytes), count);
  fuzz::require(
      line.ends_with('\n') && std::all_of(line.begin(), line.end() - 1, fuzz::isPrintable),
      "a log line that is fit for a terminal");
  return static_cast<ssize_t>(count);
}

}  // extern "C"
