#include "dch/net/event_loop.h"

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <utility>

namespace dch {

namespace {

constexpr int oneThread = 1;

}  // namespace

EventLoop::EventLoop() : _context(std::make_unique<boost::asio::io_context>(oneThread)) {}

EventLoop::~EventLoop() = default;

void EventLoop::run() {
  // Also while nothing waits in it.
  const auto work = boost::asio::make_work_guard(*_context);
  _context->run();
}

void EventLoop::stop() {
  _context->stop();
}

void EventLoop::post(std::function<void()> call) {
  boost::asio::post(*_context, std::move(call));
}

}  // namespace dch
