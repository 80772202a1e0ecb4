// waitable_flag.h: is set once, and can be waited for.
#ifndef DCH_LINK_WAITABLE_FLAG_H
#define DCH_LINK_WAITABLE_FLAG_H

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace dch {

// Any thread.
class WaitableFlag {
 public:
  void set() noexcept {
    {
      const std::lock_guard lock(_mutex);
      _isSet = true;
    }
    _changed.notify_all();
  }

  bool isSet() const {
    const std::lock_guard lock(_mutex);
    return _isSet;
  }

  // Waits until it is set, so long at most. Returns whether it is.
  bool wait(std::chrono::milliseconds atMost) {
    std::unique_lock lock(_mutex);
    return _changed.wait_for(lock, atMost, [this] { return _isSet; });
  }

 private:
  mutable std::mutex _mutex;
  std::condition_variable _changed;
  bool _isSet = false;
};

}  // namespace dch

#endif  // DCH_LINK_WAITABLE_FLAG_H
