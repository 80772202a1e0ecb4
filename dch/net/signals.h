// signals.h: signals as calls of the event loop.
#ifndef DCH_NET_SIGNALS_H
#define DCH_NET_SIGNALS_H

#include <csignal>
#include <functional>
#include <initializer_list>

#include "dch/net/watched_socket.h"

namespace dch {

// Signals that the server ignores, as the call that causes one fails all the same: a write to a
// connection that is gone, and one behind the limit on the size of files.
constexpr int ignoredSignals[] = {SIGPIPE, SIGXFSZ};

// From its construction on this thread, and those that it starts, hold these signals back for good:
// they do nothing else. One thread, the loop's.
class Signals {
 public:
  // `call` is called with the number of each signal that comes. The loop outlives it. Throws
  // std::runtime_error.
  Signals(EventLoop& loop, std::initializer_list<int> signals, std::function<void(int)> call);

 private:
  void take();

  const std::function<void(int)> _call;
  WatchedSocket _pending;
};

}  // namespace dch

#endif  // DCH_NET_SIGNALS_H
