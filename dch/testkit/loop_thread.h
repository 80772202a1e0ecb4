// loop_thread.h: an event loop that runs beside a test.
#ifndef DCH_TESTKIT_LOOP_THREAD_H
#define DCH_TESTKIT_LOOP_THREAD_H

#include <future>
#include <thread>
#include <type_traits>

#include "dch/net/event_loop.h"

namespace dch::testkit {

// Starts when it is made and ends with it; what the loop calls has to outlive it.
class LoopThread {
 public:
  explicit LoopThread(EventLoop& loop) : _loop(loop), _thread([&loop] { loop.run(); }) {}
  ~LoopThread() {
    _loop.post([this] { _loop.stop(); });
    _thread.join();
  }
  LoopThread(const LoopThread&) = delete;
  LoopThread& operator=(const LoopThread&) = delete;

  // Has the loop call it, and waits for what it returns.
  template <class Call>
  std::invoke_result_t<Call> call(Call call) {
    std::packaged_task<std::invoke_result_t<Call>()> task(std::move(call));
    _loop.post([&task] { task(); });
    return task.get_future().get();
  }

 private:
  EventLoop& _loop;
  std::thread _thread;
};

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_LOOP_THREAD_H
