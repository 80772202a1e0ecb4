// doorbell.h: wakes a thread that sleeps, and costs next to nothing while it does not.
#ifndef DCH_BETWEEN_DOORBELL_H
#define DCH_BETWEEN_DOORBELL_H

#include <atomic>
#include <functional>
#include <utility>

namespace dch {

// One thread rings, one is woken. No ring is lost: what was put somewhere before ring() is found by
// who looks after await(), or wakes him.
class Doorbell {
 public:
  // What wakes; before the first ring that may come, and null after the last one. The ringer's.
  void setWake(std::function<void()> wake) { _wake = std::move(wake); }

  // Who is to be woken: the next ring wakes. He looks once more then.
  void await() noexcept { _isAwaited.exchange(true, std::memory_order_acq_rel); }

  // Something was put where the other one looks.
  void ring() noexcept {
    if (_isAwaited.exchange(false, std::memory_order_acq_rel) && _wake) _wake();
  }

 private:
  std::function<void()> _wake;
  std::atomic<bool> _isAwaited{false};
};

}  // namespace dch

#endif  // DCH_BETWEEN_DOORBELL_H
