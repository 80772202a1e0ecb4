// next_turn.h: a call as soon as others have had their turn.
#ifndef DCH_NET_NEXT_TURN_H
#define DCH_NET_NEXT_TURN_H

#include <functional>
#include <memory>

#include "dch/net/event_loop.h"

namespace dch {

// What is left to do and would hold up others. It costs no call of the system, as an Alarm for now
// does. One thread, the loop's.
class NextTurn {
 public:
  // `call` is called when what is due already, and what has come in, has been called; never after
  // the object is gone. The loop outlives it.
  NextTurn(EventLoop& loop, std::function<void()> call);
  ~NextTurn();
  NextTurn(const NextTurn&) = delete;
  NextTurn& operator=(const NextTurn&) = delete;

  // Has it called once, however often it is asked before that. Does not fail.
  void ask();

 private:
  struct State;

  const std::shared_ptr<State> _state;
};

}  // namespace dch

#endif  // DCH_NET_NEXT_TURN_H
