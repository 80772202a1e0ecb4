// wait_until.h: waits for what nobody announces.
#ifndef TESTS_SUPPORT_WAIT_UNTIL_H
#define TESTS_SUPPORT_WAIT_UNTIL_H

#include <chrono>
#include <thread>

// Looks again and again until the condition holds. Returns false when it does not in time.
template <class Condition>
bool waitUntil(Condition condition, std::chrono::seconds longestWait = std::chrono::seconds(20)) {
  constexpr std::chrono::milliseconds pause{2};
  const auto end = std::chrono::steady_clock::now() + longestWait;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(pause);
  }
  return true;
}

#endif  // TESTS_SUPPORT_WAIT_UNTIL_H
