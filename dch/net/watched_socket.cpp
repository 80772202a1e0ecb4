#include "dch/net/watched_socket.h"

#include <boost/asio/bind_allocator.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <utility>

#include "dch/net/operation_memory.h"

namespace dch {

using boost::asio::posix::stream_descriptor;

// Each wait holds it, as its call may be on its way already when the owner goes.
struct WatchedSocket::State {
  struct Wait {
    stream_descriptor::wait_type type;
    Call call;
    bool isUnderWay = false;
    OperationMemory memory = {};
  };

  stream_descriptor descriptor;
  Wait readable;
  Wait writable;
  bool isWatched = true;
};

namespace {

template <class State>
void start(const std::shared_ptr<State>& state, typename State::Wait State::*member) {
  typename State::Wait& wait = (*state).*member;
  if (std::exchange(wait.isUnderWay, true)) return;
  // An error other than that of a wait that was ended is told by what the owner does then.
  auto call = [state, member](const boost::system::error_code&) {
    typename State::Wait& done = (*state).*member;
    done.isUnderWay = false;
    if (state->isWatched) done.call();
  };
  state->descriptor.async_wait(
      wait.type,
      boost::asio::bind_allocator(OperationAllocator<std::byte>(wait.memory), std::move(call)));
}

}  // namespace

WatchedSocket::WatchedSocket(EventLoop& loop, Descriptor socket, Call readable, Call writable)
    : _state(new State{stream_descriptor(loop.context()),
                       {stream_descriptor::wait_read, std::move(readable)},
                       {stream_descriptor::wait_write, std::move(writable)}}) {
  _state->descriptor.assign(socket.get());
  socket.release();
}

WatchedSocket::~WatchedSocket() {
  _state->isWatched = false;
  boost::system::error_code ignored;
  _state->descriptor.close(ignored);
}

int WatchedSocket::descriptor() const {
  return _state->descriptor.native_handle();
}

void WatchedSocket::waitUntilReadable() {
  start(_state, &State::readable);
}

void WatchedSocket::waitUntilWritable() {
  start(_state, &State::writable);
}

}  // namespace dch
