// The core with a store that may be slow, and restarts between any two steps: what was acknowledged
// is known afterwards.
#include <array>

#include "fuzz/support/core_run.h"
#include "fuzz/support/input.h"
#include "fuzz/support/server_run.h"

using namespace fuzz;

namespace {

// A step is a byte, and for a message a piece behind it.
constexpr unsigned kindMask = 0x07;
enum Kind : unsigned {
  connectionEnds = 4,
  storeChanges = 5,
  changeIsConcluded = 6,
  processDies = 7
};

// Of a message, and of the end of a connection.
constexpr unsigned clientShift = 3;
constexpr unsigned clientMask = 0x03;
constexpr unsigned onConnection = 0x20;
constexpr unsigned rightLength = 0x80;
// Of a conclusion.
constexpr unsigned isRefused = 0x80;
// Of a death: how many of the changes that wait are kept.
constexpr unsigned keptShift = 3;

class Steps {
 public:
  explicit Steps(Input* input) : _input(*input) {}

  void run() {
    while (!_input.atEnd()) {
      take(_input.takeByte());
      _core.goOn();
    }
    _core.restart(0);
    _core.checkReport();
  }

 private:
  void take(unsigned step) {
    const unsigned client = step >> clientShift & clientMask;
    switch (step & kindMask) {
      case connectionEnds:
        return endConnection(client);
      case storeChanges:
        return _core.setSlow(!_core.isSlow());
      case changeIsConcluded:
        return _core.conclude((step & isRefused) == 0);
      case processDies:
        _core.restart(step >> keptShift);
        return _connections.fill(0);
      default:
        return receive(client, step);
    }
  }

  void receive(unsigned client, unsigned step) {
    std::string bytes(_input.takePiece());
    if ((step & rightLength) != 0) makeLengthRight(&bytes);
    dch::Origin origin{dch::PeerAddress(clientAddress(client))};
    if ((step & onConnection) != 0) origin.connection = connectionOf(client);
    // A connection is not read before its last request is done.
    if (origin.isDatagram() || !_core.isBusy(origin)) _core.receive(bytes, origin);
  }

  std::uint64_t connectionOf(unsigned client) {
    if (_connections[client] == 0) _connections[client] = ++_lastConnection;
    return _connections[client];
  }

  void endConnection(unsigned client) {
    if (_connections[client] == 0) return;
    _core.endConnection({dch::PeerAddress(clientAddress(client)), _connections[client]});
    _connections[client] = 0;
  }

  Input& _input;
  CoreRun _core;
  std::array<std::uint64_t, clientMask + 1> _connections{};  // their serial numbers, 0 without one
  std::uint64_t _lastConnection = 0;
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  setUpServer();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
  Input input(bytes, count);
  Steps(&input).run();
  return 0;
}
