#include "tests/support/fault_plan.h"

#include <sys/mman.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

// In memory that forked processes share, so that what fails in a child is known in its parent.
struct Plan {
  std::atomic<bool> isSet{false};
  std::atomic<bool> hasHappened{false};
  std::atomic<int> made[systemCallCount] = {};
  Fault fault{};
};

Plan& plan() {
  static Plan* const shared = [] {
    void* const memory =
        mmap(nullptr, sizeof(Plan), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) std::abort();
    return new (memory) Plan;
  }();
  return *shared;
}

thread_local int underTest = 0;
std::atomic<int> held{0};

constexpr const char* names[] = {"allocation",
                                 "getenv",
                                 "pthread_mutex_lock",
                                 "pthread_mutex_unlock",
                                 "pthread_cond_wait",
                                 "pthread_cond_timedwait",
                                 "pthread_cond_signal",
                                 "pthread_create",
                                 "socket",
                                 "bind",
                                 "listen",
                                 "accept",
                                 "select",
                                 "sendto",
                                 "send",
                                 "recvfrom",
                                 "fork",
                                 "execlp",
                                 "posix_spawn",
                                 "rename",
                                 "fsync"};
static_assert(sizeof names / sizeof *names == systemCallCount);

}  // namespace

const char* nameOf(SystemCall call) {
  return names[static_cast<int>(call)];
}

std::string describe(const Fault& fault) {
  std::string text = std::string(nameOf(fault.call)) + " number " + std::to_string(fault.number);
  if (fault.error != 0)
    text += " with error " + std::to_string(fault.error) + " (" + std::strerror(fault.error) +
            "), errno " + std::to_string(fault.errnoAfter);
  return text;
}

void planNoFault() {
  plan().isSet = false;
  plan().hasHappened = false;
  for (auto& count : plan().made) count = 0;
}

void planFault(const Fault& fault) {
  planNoFault();
  plan().fault = fault;
  plan().isSet = true;
}

bool faultHappened() {
  return plan().hasHappened;
}

int callsMade(SystemCall call) {
  return plan().made[static_cast<int>(call)];
}

int mutexesHeld() {
  return held;
}

UnderTest::UnderTest() {
  plan();  // not in the middle of what is tested
  ++underTest;
}

UnderTest::~UnderTest() {
  --underTest;
}

bool isUnderTest() {
  return underTest > 0;
}

bool isToFail(SystemCall call) {
  if (!isUnderTest()) return false;
  const int number = ++plan().made[static_cast<int>(call)];
  const Fault& fault = plan().fault;
  if (!plan().isSet || fault.call != call || fault.number != number) return false;
  plan().hasHappened = true;
  errno = fault.errnoAfter;
  return true;
}

SystemCall plannedCall() {
  return plan().fault.call;
}

int plannedError() {
  return plan().fault.error;
}

void countLocked() {
  ++held;
}

void countUnlocked() {
  --held;
}
