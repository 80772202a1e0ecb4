// locking.h: a lock for code that must not throw. std::lock_guard throws when the mutex cannot be
// had, and what an exported function calls before it can catch anything must not do that.
#ifndef SUITE_LOCKING_H
#define SUITE_LOCKING_H

#include <pthread.h>

#include <mutex>
#include <system_error>

namespace suite {

// Whether the mutex is held now.
inline bool locked(std::mutex& mutex) noexcept {
  try {
    mutex.lock();
  } catch (const std::system_error&) {
    return false;
  }
  return true;
}

// Holds the mutex while it lives, unless it could not be had: isHeld() tells.
class Lock {
 public:
  explicit Lock(std::mutex& mutex) noexcept : _mutex(mutex), _isHeld(locked(mutex)) {}
  ~Lock() {
    if (_isHeld) _mutex.unlock();
  }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

  bool isHeld() const { return _isHeld; }

 private:
  std::mutex& _mutex;
  const bool _isHeld;
};

// Keeps the mutex locked while the process forks: a child must not inherit a lock that a thread of
// its parent holds, and that no thread of its own would release. One for each such mutex.
template <std::mutex& mutex>
class HeldWhileForking {
 public:
  HeldWhileForking() noexcept { pthread_atfork(lock, unlock, unlock); }

 private:
  static void lock() noexcept { _isHeld = locked(mutex); }
  static void unlock() noexcept {
    if (_isHeld) mutex.unlock();
  }

  static inline thread_local bool _isHeld = false;
};

}  // namespace suite

#endif  // SUITE_LOCKING_H
