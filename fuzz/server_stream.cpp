// The server's stream path: connections that send pieces of every size, and end in both ways.
#include <algorithm>
#include <cerrno>
#include <deque>
#include <map>
#include <vector>

#include "fuzz/support/field_model.h"
#include "fuzz/support/input.h"
#include "fuzz/support/require.h"
#include "fuzz/support/server_run.h"

using namespace fuzz;

namespace {

// In front of each step: the connection, and what happens on it. A step on a connection that has
// ended opens the next one.
constexpr unsigned connectionMask = 0x03;
constexpr unsigned ends = 0x04;         // the peer closes it
constexpr unsigned isReset = 0x08;      // with `ends`: the peer resets it
constexpr unsigned rightLength = 0x80;  // the piece is a message whose length word is made to fit

constexpr std::size_t mostPieces = 1000;  // one message of more would end the server
constexpr std::size_t mostLive = 4;

struct Connection {
  sockaddr_in peer;
  std::deque<std::string> pieces;
  bool isReset = false;
  std::deque<QueueEntry> expected;
};

// What the pieces of a connection come to.
std::deque<QueueEntry> expectedOf(const Connection& connection) {
  const dch::PeerAddress peer(connection.peer);
  std::deque<QueueEntry> all;
  auto piece = connection.pieces.begin();
  for (;;) {
    std::string bytes;
    long long stated = 0;
    while (piece != connection.pieces.end()) {
      if (bytes.empty()) stated = static_cast<std::int32_t>(numberIn(*piece, 4));
      bytes += *piece++;
      if (stated < 1 || stated <= static_cast<long long>(bytes.size())) break;
    }
    const bool cameToEnd =
        bytes.empty() || (stated >= 1 && stated > static_cast<long long>(bytes.size()));
    if (bytes.empty() || (cameToEnd && connection.isReset)) {
      all.push_back({Told::disconnected, "", peer});
      return all;
    }
    if (stated == static_cast<long long>(bytes.size()))
      all.push_back({Told::message, std::move(bytes), peer});
    else
      all.push_back({Told::broken, "", peer});
  }
}

class StreamRun : public ServerRun {
 public:
  explicit StreamRun(Input* input) {
    Connection live[connectionMask + 1];
    unsigned count = 0;
    for (Connection& each : live) each.peer = clientAddress(count++);
    std::size_t pieces = 0;
    while (!input->atEnd() && pieces < mostPieces) {
      const unsigned head = input->takeByte();
      Connection& connection = live[head & connectionMask];
      if ((head & ends) != 0) {
        connection.isReset = (head & isReset) != 0;
        finish(&connection);
        connection = {clientAddress(count++), {}, false, {}};
      } else {
        pieces += takePieces(input, (head & rightLength) != 0, &connection);
      }
    }
    for (Connection& each : live)
      if (!each.pieces.empty()) finish(&each);
  }
  ~StreamRun() override { require(_waiting.empty() && _live.empty(), "all has come"); }

  bool isReadable(int descriptor) override {
    if (descriptor == datagramSocket()) return false;
    if (descriptor == listeningSocket()) return !_waiting.empty() && _live.size() < mostLive;
    return true;
  }

  int accept(sockaddr_in* peer) override {
    const int descriptor = openSocket();
    *peer = _waiting.front().peer;
    _live.insert_or_assign(descriptor, std::move(_waiting.front()));
    _waiting.pop_front();
    return descriptor;
  }

  ssize_t receive(int descriptor, char* bytes, std::size_t capacity, sockaddr_in*) override {
    Connection& connection = _live.at(descriptor);
    if (connection.pieces.empty()) {
      if (!connection.isReset) return 0;
      errno = ECONNRESET;
      return -1;
    }
    const std::string piece = std::move(connection.pieces.front());
    connection.pieces.pop_front();
    require(piece.size() <= capacity, "room for a piece");
    return static_cast<ssize_t>(piece.copy(bytes, capacity));
  }

 protected:
  QueueEntry nextExpected(unsigned descriptor) override {
    const auto found = _live.find(static_cast<int>(descriptor));
    require(found != _live.end() && !found->second.expected.empty(), "no more than was sent");
    const QueueEntry expected = std::move(found->second.expected.front());
    found->second.expected.pop_front();
    // The last one of every connection: the server has closed its end.
    if (expected.told == Told::disconnected) _live.erase(found);
    return expected;
  }

 private:
  // Adds what one send comes to: pieces of at most what the server reads at a time.
  static std::size_t takePieces(Input* input, bool isRightLength, Connection* connection) {
    std::string sent(input->takePiece());
    if (isRightLength) makeLengthRight(&sent);
    std::size_t count = 0;
    for (std::size_t start = 0; start < sent.size(); start += SERVER_PIECE_SIZE, ++count)
      connection->pieces.push_back(sent.substr(start, SERVER_PIECE_SIZE));
    return count;
  }

  void finish(Connection* connection) {
    connection->expected = expectedOf(*connection);
    _waiting.push_back(std::move(*connection));
  }

  std::deque<Connection> _waiting;
  std::map<int, Connection> _live;
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  setUpServer();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
  Input input(bytes, count);
  StreamRun(&input).run();
  return 0;
}
