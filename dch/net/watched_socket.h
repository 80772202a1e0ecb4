// watched_socket.h: a socket whose owner the event loop calls when something can be done with it.
#ifndef DCH_NET_WATCHED_SOCKET_H
#define DCH_NET_WATCHED_SOCKET_H

#include <functional>
#include <memory>

#include "dch/net/descriptor.h"
#include "dch/net/event_loop.h"

namespace dch {

// Owns the socket. What can be done with it, its owner does himself, with calls that do not wait.
// One thread, the loop's.
class WatchedSocket {
 public:
  using Call = std::function<void()>;

  // `readable` and `writable` are called once for each wait that is asked for, never after the
  // object is gone; they may destroy it. The loop outlives it. Throws boost::system::system_error
  // when the socket cannot be watched.
  WatchedSocket(EventLoop& loop, Descriptor socket, Call readable, Call writable = {});
  ~WatchedSocket();
  WatchedSocket(const WatchedSocket&) = delete;
  WatchedSocket& operator=(const WatchedSocket&) = delete;

  int descriptor() const;

  // Asked again before the call, they change nothing. They do not fail.
  void waitUntilReadable();
  void waitUntilWritable();

 private:
  struct State;

  const std::shared_ptr<State> _state;
};

}  // namespace dch

#endif  // DCH_NET_WATCHED_SOCKET_H
