// datagram_port.h: the datagrams of clients.
#ifndef DCH_NET_DATAGRAM_PORT_H
#define DCH_NET_DATAGRAM_PORT_H

#include <sys/epoll.h>

#include <array>
#include <functional>
#include <optional>
#include <span>
#include <vector>

#include "dch/core/counters.h"
#include "dch/core/message.h"
#include "dch/net/alarm.h"
#include "dch/net/datagram_batch.h"
#include "dch/net/event_loop.h"
#include "dch/net/next_turn.h"
#include "dch/net/waiting_datagrams.h"
#include "dch/net/watched_socket.h"

namespace dch {

// Sockets that share one address and port: the system gives each client to one of them, and what
// it keeps for them adds up. One thread, the loop's.
class DatagramPort {
 public:
  // Called with what has come at one go, empty datagrams left out; the bytes are valid meanwhile.
  using Receive = std::function<void(std::span<const Message>)>;
  // Called when what had come is received: now the answers are to leave.
  using Worked = std::function<void()>;

  // Throws std::system_error.
  DatagramPort(EventLoop& loop, std::vector<Descriptor> sockets, Receive receive, Worked worked,
               Counters& counters);

  // From now on what comes is received.
  void start() { _anyReadable.waitUntilReadable(); }

  // Has what has come in already handled, and not what comes meanwhile.
  void drain();

  // While it is held up nothing is taken from the system, and what waits goes on waiting.
  void setHeldUp(bool isHeldUp);

  // The socket that answers leave from.
  int descriptor() const { return _sockets.front().descriptor.get(); }

 private:
  struct Socket {
    Descriptor descriptor;
    // As the system told last. What was thrown away before the first datagram is not this server's
    // to count: it was, for an earlier one that had the socket.
    std::optional<std::uint32_t> thrownAway = std::nullopt;
    std::size_t bytesToDrain = 0;  // of the system's memory
  };

  void watch(Socket* socket);
  void work();
  bool workOnce();
  void receiveFrom(std::span<epoll_event> readable);
  int receiveFrom(Socket* socket);
  std::size_t receiveBatch(Socket* socket);
  void countThrownAway(Socket* socket);
  void keepWaiting(std::size_t count);
  void drain(Socket* socket);
  void handleAllWaiting();
  bool handleWaitingForAWhile();
  void handleWaiting();

  const Receive _receive;
  const Worked _worked;
  Counters& _counters;
  DatagramBatch _batch;
  std::array<Message, DatagramBatch::capacity> _messages;
  WaitingDatagrams _waiting;
  Alarm::Clock::time_point _burstBegan;
  Alarm::Clock::time_point _keptWaiting;  // the last ones
  Socket* _firstNextTime = nullptr;
  bool _isHeldUp = false;
  NextTurn _again;
  std::vector<Socket> _sockets;
  // Tells which of them can be read: many at a time, with one call of the system for all.
  WatchedSocket _anyReadable;
};

}  // namespace dch

#endif  // DCH_NET_DATAGRAM_PORT_H
