// event_loop.h: the loop of the channel thread. What waits for the network, a moment or a signal
// waits in it, and is called by it, one at a time.
#ifndef DCH_NET_EVENT_LOOP_H
#define DCH_NET_EVENT_LOOP_H

#include <cstddef>
#include <exception>
#include <functional>
#include <memory>
#include <utility>

namespace boost::asio {
class io_context;
}

namespace dch {

class EventLoop {
 public:
  // So many can be set at a time without taking memory.
  static constexpr std::size_t mostAlarms = 32;

  // `moreTimers` is how many others wait in it besides. Throws std::runtime_error without the
  // descriptors that it takes, or std::bad_alloc.
  explicit EventLoop(std::size_t moreTimers = 0);
  ~EventLoop();
  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;

  // Calls what is due, on this thread, until stop(). Throws what a call throws, on whichever
  // thread.
  void run();
  void stop();

  // Has run() and standIn() call `between` after each of their calls, and not within one. Before
  // run().
  void setBetween(std::function<void()> between) { _between = std::move(between); }

  // The same as run() on another thread, while the one in run() is held up in `between` and calls
  // nothing else: until `isOver`, which is asked after each call, stop(), or a call that throws.
  void standIn(const std::function<bool()>& isOver);

  boost::asio::io_context& context() { return *_context; }

 private:
  bool callNext();

  const std::unique_ptr<boost::asio::io_context> _context;
  std::function<void()> _between = [] {};
  std::exception_ptr _failure;  // of a call on the thread that stood in
};

}  // namespace dch

#endif  // DCH_NET_EVENT_LOOP_H
