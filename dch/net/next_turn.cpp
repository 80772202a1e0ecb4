#include "dch/net/next_turn.h"

#include <boost/asio/bind_allocator.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <utility>

#include "dch/net/operation_memory.h"

namespace dch {

// What is posted holds it, as it may be on its way when the owner goes.
struct NextTurn::State {
  EventLoop& loop;
  std::function<void()> call;
  OperationMemory memory = {};
  bool isAsked = false;
  bool isWanted = true;
};

NextTurn::NextTurn(EventLoop& loop, std::function<void()> call)
    : _state(new State{loop, std::move(call)}) {}

NextTurn::~NextTurn() {
  _state->isWanted = false;
}

void NextTurn::ask() {
  if (std::exchange(_state->isAsked, true)) return;
  auto call = [state = _state] {
    state->isAsked = false;
    if (state->isWanted) state->call();
  };
  boost::asio::post(
      _state->loop.context(),
      boost::asio::bind_allocator(OperationAllocator<std::byte>(_state->memory), std::move(call)));
}

}  // namespace dch
