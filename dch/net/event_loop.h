// event_loop.h: the loop of the channel thread. What waits for the network, a moment or a signal
// waits in it, and is called by it, one at a time.
#ifndef DCH_NET_EVENT_LOOP_H
#define DCH_NET_EVENT_LOOP_H

#include <cstddef>
#include <functional>
#include <memory>

namespace boost::asio {
class io_context;
}

namespace dch {

class EventLoop {
 public:
  // So many can be set at a time without taking memory.
  static constexpr std::size_t mostAlarms = 32;

  // Throws boost::system::system_error without the descriptors that it takes, or std::bad_alloc.
  EventLoop();
  ~EventLoop();
  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;

  // Calls what is due, on this thread, until stop().
  void run();
  void stop();

  // Has `call` called by run(), after what is due already. Any thread. Throws std::bad_alloc.
  void post(std::function<void()> call);

  boost::asio::io_context& context() { return *_context; }

 private:
  const std::unique_ptr<boost::asio::io_context> _context;
};

}  // namespace dch

#endif  // DCH_NET_EVENT_LOOP_H
