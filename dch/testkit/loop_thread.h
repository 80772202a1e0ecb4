// loop_thread.h: an event loop that runs beside a test.
#ifndef DCH_TESTKIT_LOOP_THREAD_H
#define DCH_TESTKIT_LOOP_THREAD_H

#include <functional>
#include <future>
#include <list>
#include <mutex>
#include <thread>
#include <type_traits>
#include <utility>

#include "dch/net/event_loop.h"
#include "dch/net/waker.h"

namespace dch::testkit {

// Starts when it is made and ends with it; what the loop calls has to outlive it.
class LoopThread {
 public:
  explicit LoopThread(EventLoop& loop)
      : _loop(loop), _waker(loop, [this] { callAll(); }), _thread([&loop] { loop.run(); }) {}
  ~LoopThread() {
    post([this] { _loop.stop(); });
    _thread.join();
  }
  LoopThread(const LoopThread&) = delete;
  LoopThread& operator=(const LoopThread&) = delete;

  // Has the loop call it. Any thread.
  void post(std::function<void()> call) {
    {
      const std::lock_guard lock(_mutex);
      _calls.push_back(std::move(call));
    }
    _waker.wake();
  }

  // Has the loop call it, and waits for what it returns. Any thread but the loop's.
  template <class Call>
  std::invoke_result_t<Call> call(Call call) {
    std::packaged_task<std::invoke_result_t<Call>()> task(std::move(call));
    post([&task] { task(); });
    return task.get_future().get();
  }

 private:
  void callAll() {
    std::list<std::function<void()>> calls;
    {
      const std::lock_guard lock(_mutex);
      calls.swap(_calls);
    }
    for (const auto& each : calls) each();
  }

  EventLoop& _loop;
  std::mutex _mutex;
  std::list<std::function<void()>> _calls;
  Waker _waker;
  std::thread _thread;
};

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_LOOP_THREAD_H
