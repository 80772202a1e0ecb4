// reader_gate.h: keeps those waiting who read the state file in this process, while its log is to
// begin anew.
#ifndef DCH_STORE_READER_GATE_H
#define DCH_STORE_READER_GATE_H

#include <atomic>
#include <chrono>
#include <thread>

namespace dch {

// The log begins anew with the first commit behind a checkpoint of all of it while nobody reads.
// Readers that take turns without a pause would never let it, and it would grow with every row. The
// writer waits for none of them. Any thread.
class ReaderGate {
 public:
  using Clock = std::chrono::steady_clock;

  // Until open(), and no longer than that: there may be nothing more to commit.
  void close(Clock::duration atMost) noexcept { set(Clock::now() + atMost); }
  void open() noexcept { set(Clock::time_point::min()); }

  // Returns when it is open.
  void wait() const {
    constexpr std::chrono::milliseconds pause{1};
    while (Clock::now().time_since_epoch().count() < _closedUntil.load(std::memory_order_acquire))
      std::this_thread::sleep_for(pause);
  }

 private:
  void set(Clock::time_point until) noexcept {
    _closedUntil.store(until.time_since_epoch().count(), std::memory_order_release);
  }

  std::atomic<Clock::rep> _closedUntil{Clock::time_point::min().time_since_epoch().count()};
};

}  // namespace dch

#endif  // DCH_STORE_READER_GATE_H
