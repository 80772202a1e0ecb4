#include "tests/support/recorded_sleep.h"

#include <mutex>

namespace {

std::mutex sleepsMutex;
// Never destroyed: a process may end while another of its threads sleeps.
std::vector<int>& sleeps() {
  static auto& recorded = *new std::vector<int>;
  return recorded;
}

}  // namespace

std::vector<int> recordedSleeps() {
  const std::lock_guard lock(sleepsMutex);
  return sleeps();
}

void clearRecordedSleeps() {
  const std::lock_guard lock(sleepsMutex);
  sleeps().clear();
}

// The linker leads calls of OSV1_Sleep(int) here.
extern "C" void __wrap__Z10OSV1_Sleepi(int seconds);
extern "C" void __wrap__Z10OSV1_Sleepi(int seconds) {
  const std::lock_guard lock(sleepsMutex);
  sleeps().push_back(seconds);
}
