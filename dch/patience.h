// patience.h: tries for a moment to get what a server that has just died still holds.
#ifndef DCH_PATIENCE_H
#define DCH_PATIENCE_H

#include <chrono>
#include <thread>

namespace dch {

// Calls `attempt` until it returns true, or for half a second. A program that a server was about to
// start when it was killed has the server's port and lock until it runs: who starts the next one at
// once need not wait for that.
template <class Attempt>
bool tryForAMoment(Attempt attempt) {
  constexpr int attempts = 25;
  for (int i = 0; i < attempts; ++i) {
    if (attempt()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return attempt();
}

}  // namespace dch

#endif  // DCH_PATIENCE_H
