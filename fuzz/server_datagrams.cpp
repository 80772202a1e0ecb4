// The server's datagram path: what several clients send in turn.
#include <algorithm>
#include <deque>

#include "fuzz/support/input.h"
#include "fuzz/support/require.h"
#include "fuzz/support/server_run.h"

using namespace fuzz;

namespace {

// In front of each datagram: its sender, and whether its length word is made to fit.
constexpr unsigned senderMask = 0x07;
constexpr unsigned rightLength = 0x80;

class DatagramRun : public ServerRun {
 public:
  explicit DatagramRun(Input* input) {
    while (!input->atEnd()) {
      const unsigned head = input->takeByte();
      Datagram datagram{clientAddress(head & senderMask), std::string(input->takePiece())};
      if ((head & rightLength) != 0) makeLengthRight(&datagram.bytes);
      _toReceive.push_back(std::move(datagram));
    }
  }
  ~DatagramRun() override { require(_toReceive.empty() && _received.empty(), "all has come"); }

  bool isReadable(int descriptor) override {
    return descriptor == datagramSocket() && !_toReceive.empty();
  }

  ssize_t receive(int, char* bytes, std::size_t capacity, sockaddr_in* sender) override {
    Datagram datagram = std::move(_toReceive.front());
    _toReceive.pop_front();
    *sender = datagram.sender;
    const std::size_t count = datagram.bytes.copy(bytes, capacity);
    // What does not fit is cut off, and an empty datagram is none.
    datagram.bytes.resize(count);
    if (count > 0) _received.push_back(std::move(datagram));
    return static_cast<ssize_t>(count);
  }

 protected:
  QueueEntry nextExpected(unsigned connection) override {
    require(connection == 0 && !_received.empty(), "one message for each datagram");
    const Datagram datagram = std::move(_received.front());
    _received.pop_front();
    return {Told::message, datagram.bytes, dch::PeerAddress(datagram.sender)};
  }

 private:
  struct Datagram {
    sockaddr_in sender;
    std::string bytes;
  };

  std::deque<Datagram> _toReceive;
  std::deque<Datagram> _received;
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  setUpServer();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
  Input input(bytes, count);
  DatagramRun(&input).run();
  return 0;
}
