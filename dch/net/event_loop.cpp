#include "dch/net/event_loop.h"

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <stdexcept>
#include <vector>

namespace dch {

namespace {

constexpr int oneThread = 1;  // at a time
constexpr std::chrono::seconds longestRing{5};

// The library keeps the alarms that are set in a block that grows with their number. To set one
// must not fail, so the block is made as large as it will be.
void makeRoomForAlarms(boost::asio::io_context* context, std::size_t count) {
  std::vector<boost::asio::steady_timer> alarms;
  for (std::size_t i = 0; i < count; ++i) {
    alarms.emplace_back(*context, std::chrono::hours(1));
    alarms.back().async_wait([](const boost::system::error_code&) {});
  }
  alarms.clear();
  context->poll();
  context->restart();
}

// The library does not say so when the system will not wake it for its clock: no alarm would ever
// ring.
void checkThatAlarmsRing(boost::asio::io_context* context) {
  boost::asio::steady_timer alarm(*context, std::chrono::seconds(0));
  bool hasRung = false;
  alarm.async_wait([&hasRung](const boost::system::error_code&) { hasRung = true; });
  context->run_one_for(longestRing);
  context->restart();
  if (!hasRung) throw std::runtime_error("cannot have the clock wake the loop");
}

}  // namespace

EventLoop::EventLoop(std::size_t moreTimers)
    : _context(std::make_unique<boost::asio::io_context>(oneThread)) {
  makeRoomForAlarms(_context.get(), mostAlarms + moreTimers);
  checkThatAlarmsRing(_context.get());
}

EventLoop::~EventLoop() = default;

void EventLoop::run() {
  // Also while nothing waits in it.
  const auto work = boost::asio::make_work_guard(*_context);
  while (callNext())
    if (_failure) std::rethrow_exception(_failure);
}

void EventLoop::standIn(const std::function<bool()>& isOver) {
  try {
    while (!_failure && callNext() && !isOver()) {
    }
  } catch (...) {
    _failure = std::current_exception();
  }
}

// What a call has put off is everybody's when it has ended: until then the library keeps it for the
// thread of the call. Returns false when the loop is stopped.
bool EventLoop::callNext() {
  if (_context->run_one() == 0) return false;
  _between();
  return true;
}

void EventLoop::stop() {
  _context->stop();
}

}  // namespace dch
