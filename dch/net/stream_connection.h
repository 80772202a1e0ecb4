// stream_connection.h: a client's stream connection.
#ifndef DCH_NET_STREAM_CONNECTION_H
#define DCH_NET_STREAM_CONNECTION_H

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <span>
#include <string>
#include <string_view>

#include "dch/core/message.h"
#include "dch/net/stream_framer.h"
#include "dch/net/watched_socket.h"

namespace dch {

class StreamConnection;

class ConnectionOwner {
 public:
  virtual void received(const Message& message) = 0;
  // What came is no whole message.
  virtual void receivedBroken(const Origin& origin) = 0;
  // Has done what the loop called it for; the owner may destroy it now.
  virtual void worked(StreamConnection& connection) = 0;

 protected:
  ~ConnectionOwner() = default;
};

// Hands over messages one by one, and none while the one before waits for the store or its answer
// for the client to read it: answers keep the order of their requests, and a client that does not
// read costs a bounded piece of memory. One thread, the loop's.
class StreamConnection {
 public:
  using Clock = std::chrono::steady_clock;

  // `longest` is the size of a message in bytes. `buffer` is for what comes in at one go; all
  // connections may share it. Throws std::bad_alloc or std::system_error.
  StreamConnection(EventLoop& loop, Descriptor socket, const Origin& origin, std::size_t longest,
                   std::span<char> buffer, ConnectionOwner& owner);

  // Hands over what waits, as far as it may.
  void goOn();

  // Has the loop call it when there is something to do; while it is held up nothing is taken from
  // the system, and the client is not the one that stands still.
  void waitForMore(bool isHeldUp);

  // From now on drain() receives what has come in already, as far as messages are wanted then.
  // Returns whether it received something.
  void startToDrain();
  bool drain();

  // Tells the client that no more answers come. Returns whether it is still sending.
  bool endSending();
  // Throws away some of what has come. Returns whether more may come.
  bool discard();

  // Sends it, now or when the client reads: waitForMore() is to be called. Returns false when the
  // connection has failed.
  bool send(std::string_view message) noexcept;

  // The message that was handed over is done.
  void finished() { _isUnderWay = false; }

  // Whether it has stood still since before `time`: in a message, with an answer to be read, or
  // after a broken message without being closed by the client.
  bool isStalledSince(Clock::time_point time) const;
  void fail() { _hasFailed = true; }

  bool hasEnded() const { return _hasFailed || (_isLast && !_isUnderWay && !hasUnsent()); }
  // What it holds of its client's, beside as much as comes in at one go.
  std::size_t heldBytes() const {
    return _framer.size() - std::min(_framer.size(), _buffer.size());
  }
  bool hasUnsent() const { return !_unsent.empty(); }
  const Origin& origin() const { return _origin; }

 private:
  bool receive();
  std::size_t unreadBytes() const;
  void endWithBroken();
  void sendRest();
  std::size_t trySend(std::string_view bytes);

  const Origin _origin;
  const std::span<char> _buffer;
  ConnectionOwner& _owner;
  WatchedSocket _socket;
  StreamFramer _framer;
  std::string _unsent;
  std::size_t _bytesToDrain = 0;
  Clock::time_point _lastMoved = Clock::now();
  bool _isHeldUp = false;
  bool _isUnderWay = false;  // a message that was handed over
  bool _isLast = false;      // nothing more is received
  bool _isBroken = false;    // what still comes is thrown away
  bool _hasFailed = false;
};

}  // namespace dch

#endif  // DCH_NET_STREAM_CONNECTION_H
