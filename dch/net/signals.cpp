#include "dch/net/signals.h"

#include <boost/asio/bind_allocator.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>
#include <utility>

#include "dch/net/operation_memory.h"

namespace dch {

// The wait holds it, as its call may be on its way already when the owner goes.
struct Signals::State {
  boost::asio::signal_set signals;
  std::function<void(int)> call;
  OperationMemory memory = {};
  bool isWanted = true;

  static void wait(const std::shared_ptr<State>& state) {
    auto call = [state](const boost::system::error_code& error, int signal) {
      if (!state->isWanted) return;
      wait(state);
      if (!error) state->call(signal);
    };
    state->signals.async_wait(
        boost::asio::bind_allocator(OperationAllocator<std::byte>(state->memory), std::move(call)));
  }
};

Signals::Signals(EventLoop& loop, std::initializer_list<int> signals, std::function<void(int)> call)
    : _state(new State{boost::asio::signal_set(loop.context()), std::move(call)}) {
  for (const int signal : signals) _state->signals.add(signal);
  State::wait(_state);
}

Signals::~Signals() {
  _state->isWanted = false;
  _state->signals.cancel();
}

}  // namespace dch
