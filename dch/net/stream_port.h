// stream_port.h: the stream connections of clients.
#ifndef DCH_NET_STREAM_PORT_H
#define DCH_NET_STREAM_PORT_H

#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

#include "dch/core/counters.h"
#include "dch/core/log.h"
#include "dch/core/message.h"
#include "dch/net/alarm.h"
#include "dch/net/stream_connection.h"
#include "dch/net/watched_socket.h"

namespace dch {

struct StreamLimits {
  std::size_t connections = 1'024;
  std::size_t messageBytes = 1 << 20;
  // Of messages that have begun and are not whole, of all connections together, beside some 64 KiB
  // for each.
  std::size_t heldBytes = 64 << 20;
  // For how long a message may stand still in the middle, and an answer wait to be read.
  std::chrono::steady_clock::duration stall = std::chrono::seconds(30);
};

class StreamClient {
 public:
  virtual void received(const Message& message) = 0;
  virtual void receivedBroken(const Origin& origin) = 0;
  virtual void closed(const Origin& origin) = 0;
  // What the loop called for is done: settle() is to be called.
  virtual void worked() = 0;
  // Whether a connection of this client is served.
  virtual bool isAllowed(const PeerAddress& peer) = 0;

 protected:
  ~StreamClient() = default;
};

// One thread, the loop's.
class StreamPort : private ConnectionOwner {
 public:
  // Throws std::system_error.
  StreamPort(EventLoop& loop, Descriptor listener, const StreamLimits& limits, StreamClient& client,
             Counters& counters, const Log& log);

  // From now on connections are accepted.
  void start() { _listener.waitUntilReadable(); }

  // An answer for a client that is gone, or that does not read for too long, is dropped and
  // counted.
  void send(const Origin& receiver, std::string_view message) noexcept;

  // A message that was received is done: the next one of its connection may be received.
  void finished(const Origin& asker) noexcept;

  // Lets connections that may go on do so, and removes those that have ended. To be called after
  // each piece of work, and not from within one of the client's functions but worked().
  void settle();

  // While it is held up no message is taken from the system.
  void setHeldUp(bool isHeldUp);

  // Ends the connections that stand still for too long. To be called every now and then.
  void endStalled(StreamConnection::Clock::time_point now);

  // In force for connections that are accepted from now on. Throws std::bad_alloc; nothing has
  // changed then.
  void setLimits(const StreamLimits& limits);

  // Ends the connections that are not allowed any more; settle() is to be called.
  void endNotAllowed();

  std::size_t connectionCount() const { return _connections.size(); }

  // Receives what has come in already, as far as messages are wanted now; the rest of that is
  // received later, by drainRest(), which returns whether it received something.
  void drain();
  bool drainRest();

  // Tells all clients that no more answers come. Those of which something lies there unread have
  // some half a second to stop: to close their connections then would have the system throw away
  // the answers on their way.
  void endSending();

 private:
  struct Entry {
    StreamConnection connection;
    bool isNoted = false;  // among those to be settled
    bool isStillSending = false;
    std::size_t heldBytes = 0;  // counted
  };

  void accept();
  int acceptSome();
  void add(Descriptor socket, const PeerAddress& peer);
  using Buffer = std::array<char, 8'192>;

  void refuse(const PeerAddress& peer);
  void pauseAccepting();
  void note(Entry* entry);
  void limitHeldBytes(Entry* entry);

  void received(const Message& message) override { _client.received(message); }
  void receivedBroken(const Origin& origin) override { _client.receivedBroken(origin); }
  void worked(StreamConnection& connection) override;

  EventLoop& _loop;
  StreamLimits _limits;
  StreamClient& _client;
  Counters& _counters;
  const Log& _log;
  // What one connection sends is done before the next one's turn: some hundred requests at most.
  const std::unique_ptr<Buffer> _buffer;
  std::uint64_t _lastNumber = 0;
  std::unordered_map<std::uint64_t, std::unique_ptr<Entry>> _connections;  // by serial number
  std::vector<std::uint64_t> _noted;                                       // there is room for all
  std::size_t _heldBytes = 0;                                              // of all
  bool _isHeldUp = false;
  Alarm _pause;
  WatchedSocket _listener;
};

}  // namespace dch

#endif  // DCH_NET_STREAM_PORT_H
