#include "dch/net/alarm.h"

#include <boost/asio/bind_allocator.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <utility>

#include "dch/net/operation_memory.h"

namespace dch {

// The wait holds it, as its call may be on its way already when the owner goes.
struct Alarm::State {
  boost::asio::steady_timer timer;
  std::function<void()> call;
  OperationMemory memory = {};
  bool isSet = false;
};

Alarm::Alarm(EventLoop& loop, std::function<void()> call)
    : _state(new State{boost::asio::steady_timer(loop.context()), std::move(call)}) {}

Alarm::~Alarm() {
  _state->isSet = false;
  _state->timer.cancel();
}

bool Alarm::isSet() const {
  return _state->isSet;
}

void Alarm::set(Clock::time_point time) {
  _state->isSet = true;
  auto call = [state = _state](const boost::system::error_code&) {
    if (std::exchange(state->isSet, false)) state->call();
  };
  _state->timer.expires_at(time);
  _state->timer.async_wait(
      boost::asio::bind_allocator(OperationAllocator<std::byte>(_state->memory), std::move(call)));
}

}  // namespace dch
