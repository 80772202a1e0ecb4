// standstill.h: something of the system that does not go on until the test lets it.
#ifndef DCH_TESTKIT_STANDSTILL_H
#define DCH_TESTKIT_STANDSTILL_H

#include <atomic>
#include <chrono>
#include <thread>

namespace dch::testkit {

// The test sets `isOn`; the server, which has it in common with the test, waits.
struct Standstill {
  std::atomic<bool> isOn{false};
  std::atomic<bool> isMet{false};  // somebody waits, or has waited

  void wait() {
    while (isOn) {
      isMet = true;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }
};

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_STANDSTILL_H
