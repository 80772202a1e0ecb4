// waker.h: lets another thread wake the loop.
#ifndef DCH_NET_WAKER_H
#define DCH_NET_WAKER_H

#include <functional>

#include "dch/net/watched_socket.h"

namespace dch {

class Waker {
 public:
  // `call` is called by the loop after wake(), once for any number of them. Throws
  // std::system_error.
  Waker(EventLoop& loop, std::function<void()> call);

  // Any thread. Does not fail.
  void wake() noexcept;

 private:
  void awake();

  const std::function<void()> _call;
  WatchedSocket _event;
};

}  // namespace dch

#endif  // DCH_NET_WAKER_H
