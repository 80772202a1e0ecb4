#include "tests/support/failing_calls.h"

#include <sys/mman.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>

#include "tests/support/wait_until.h"
#include "tests/support/wrapped_calls.h"

namespace {

// ---- Calls of any thread -----------------------------------------------------------------------

// Atomic, because threads of a test that have no part in it make such calls all the time.
struct Watch {
  std::atomic<bool> isTaken{false};
  std::atomic<bool> isActive{false};
  std::atomic<SystemCall> kind{};
  std::atomic<const void*> object{};
  std::atomic<int> socketType{};
  std::atomic<int> first{};
  std::atomic<int> last{};
  std::atomic<bool> fails{};
  std::atomic<int> error{};
  std::atomic<int> errnoAfter{};
  std::atomic<int> made{};

  bool covers(SystemCall call, const void* onObject, int ofSocketType) const {
    return isActive.load(std::memory_order_acquire) && kind == call &&
           (object == nullptr || object == onObject) &&
           (socketType == 0 || socketType == ofSocketType);
  }
};

Watch watches[4];

int freePlace() {
  for (int place = 0; place < static_cast<int>(std::size(watches)); ++place)
    if (!watches[place].isTaken.exchange(true)) return place;
  std::abort();
}

// ---- One call of a thread under test -----------------------------------------------------------

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
                                 "malloc",
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
static_assert(std::size(names) == systemCallCount);

}  // namespace

const char* nameOf(SystemCall call) {
  return names[static_cast<int>(call)];
}

CallCounter::CallCounter(const Calls& calls) : CallCounter(calls, false, 0, 0) {}

CallCounter::CallCounter(const Calls& calls, bool fail, int error, int errnoAfter)
    : _place(freePlace()) {
  Watch& watch = watches[_place];
  watch.kind = calls.kind;
  watch.object = calls.object;
  watch.socketType = calls.socketType;
  watch.first = calls.first;
  watch.last = calls.last;
  watch.fails = fail;
  watch.error = error;
  watch.errnoAfter = errnoAfter;
  watch.made = 0;
  watch.isActive.store(true, std::memory_order_release);
}

CallCounter::~CallCounter() {
  watches[_place].isActive.store(false, std::memory_order_release);
  watches[_place].isTaken = false;
}

int CallCounter::count() const {
  return watches[_place].made;
}

bool CallCounter::waitFor(int calls) const {
  return waitUntil([&] { return count() >= calls; });
}

NoMemory::NoMemory() : FailingCall({SystemCall::memory}, ENOMEM, 0) {}

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

// ---- For the wrappers --------------------------------------------------------------------------

std::optional<int> failureOf(SystemCall call, const void* object, int socketType) {
  if (isPlannedToFail(call)) return plan().fault.error;
  std::optional<int> failure;
  for (Watch& watch : watches) {
    if (!watch.covers(call, object, socketType)) continue;
    const int number = ++watch.made;
    if (!watch.fails || number < watch.first || number > watch.last) continue;
    failure = watch.error;
    errno = watch.errnoAfter;
  }
  return failure;
}

bool isPlannedToFail(SystemCall call) {
  if (!isUnderTest()) return false;
  const int number = ++plan().made[static_cast<int>(call)];
  const Fault& fault = plan().fault;
  if (!plan().isSet || fault.call != call || fault.number != number) return false;
  plan().hasHappened = true;
  errno = fault.errnoAfter;
  return true;
}

bool isUnderTest() {
  return underTest > 0;
}

SystemCall plannedCall() {
  return plan().fault.call;
}

void countLocked() {
  ++held;
}

void countUnlocked() {
  --held;
}
