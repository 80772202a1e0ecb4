#include "fuzz/support/server_run.h"

#include <cstdlib>
#include <utility>

#include "fuzz/support/null_trace.h"
#include "fuzz/support/require.h"

namespace fuzz {

namespace {

// An endpoint of this type starts no thread: the run plays the part of startup().
constexpr short noService = 0;

}  // namespace

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
  _core.checkReport();
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
  if (entry.told == Told::message) _core.receive(entry.bytes, origin);
  if (entry.told == Told::broken) _core.receiveBroken(origin);
  if (entry.told == Told::disconnected) _core.endConnection(origin);
  _core.goOn();
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
