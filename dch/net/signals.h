// signals.h: signals as calls of the event loop.
#ifndef DCH_NET_SIGNALS_H
#define DCH_NET_SIGNALS_H

#include <functional>
#include <initializer_list>
#include <memory>

#include "dch/net/event_loop.h"

namespace dch {

// From its construction on these signals do nothing else. One thread, the loop's.
class Signals {
 public:
  // `call` is called with the number of each signal that comes. The loop outlives it. Throws
  // boost::system::system_error.
  Signals(EventLoop& loop, std::initializer_list<int> signals, std::function<void(int)> call);
  ~Signals();
  Signals(const Signals&) = delete;
  Signals& operator=(const Signals&) = delete;

 private:
  struct State;

  const std::shared_ptr<State> _state;
};

}  // namespace dch

#endif  // DCH_NET_SIGNALS_H
