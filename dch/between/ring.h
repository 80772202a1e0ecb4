// ring.h: a bounded queue between two threads.
#ifndef DCH_BETWEEN_RING_H
#define DCH_BETWEEN_RING_H

#include <atomic>
#include <cstddef>
#include <vector>

namespace dch {

// One thread puts in, one takes out; neither ever waits for the other. Slots are filled in place
// and keep what they have when they are taken out, so that their strings keep their memory.
template <class Slot>
class Ring {
 public:
  // `capacity` is a power of two: the numbers of slots go round. Throws std::bad_alloc.
  explicit Ring(std::size_t capacity) : _slots(capacity) {}
  Ring(const Ring&) = delete;
  Ring& operator=(const Ring&) = delete;

  std::size_t capacity() const { return _slots.size(); }

  // Who puts in: the slot to be filled, with what was in it before, null while there is no room;
  // then put() hands it over.
  Slot* room() noexcept {
    const std::size_t put = _put.load(std::memory_order_relaxed);
    if (put - _takenSeen == _slots.size()) {
      _takenSeen = _taken.load(std::memory_order_acquire);
      if (put - _takenSeen == _slots.size()) return nullptr;
    }
    return &_slots[put % _slots.size()];
  }
  void put() noexcept {
    _put.store(_put.load(std::memory_order_relaxed) + 1, std::memory_order_release);
  }

  // Who takes out: the oldest slot, null when there is none; take() gives it back.
  Slot* first() noexcept {
    const std::size_t taken = _taken.load(std::memory_order_relaxed);
    if (taken == _putSeen) {
      _putSeen = _put.load(std::memory_order_acquire);
      if (taken == _putSeen) return nullptr;
    }
    return &_slots[taken % _slots.size()];
  }
  void take() noexcept {
    _taken.store(_taken.load(std::memory_order_relaxed) + 1, std::memory_order_release);
  }

 private:
  // What each side writes lies apart from what the other one does.
  static constexpr std::size_t cacheLine = 64;

  std::vector<Slot> _slots;
  alignas(cacheLine) std::atomic<std::size_t> _put{0};  // so many in all
  std::size_t _takenSeen = 0;                           // by who puts in
  alignas(cacheLine) std::atomic<std::size_t> _taken{0};
  std::size_t _putSeen = 0;  // by who takes out
};

}  // namespace dch

#endif  // DCH_BETWEEN_RING_H
