// failing_calls.h: makes calls fail that the code under test makes of the system and of the
// language, counts them, or lets a test stand in for them. For programs that link
// zord410_test_failing_calls, whose linker options put wrappers before the real functions.
//
// There are two ways. A Fault is one call, the Nth of its kind, of a thread that is UnderTest, in
// this process and in those that it forks: so a walk takes every call in turn. A FailingCall is
// every call of its kind, or some of them, of any thread of this process: so a test takes the one
// that it is about.
#ifndef TESTS_SUPPORT_FAILING_CALLS_H
#define TESTS_SUPPORT_FAILING_CALLS_H

#include <pthread.h>
#include <sys/select.h>
#include <sys/socket.h>

#include <climits>
#include <cstddef>
#include <functional>
#include <string>

// `memory` stands for new in all its forms, `cMemory` for malloc and calloc.
enum class SystemCall {
  memory,
  cMemory,
  getEnvironment,
  lockMutex,
  unlockMutex,
  waitCondition,
  timedWaitCondition,
  signalCondition,
  createThread,
  openSocket,
  bindSocket,
  listenOnSocket,
  acceptConnection,
  select,
  sendTo,
  send,
  receiveFrom,
  fork,
  execute,
  spawn,
  rename,
  synchronize
};
constexpr int systemCallCount = static_cast<int>(SystemCall::synchronize) + 1;

const char* nameOf(SystemCall call);

// ---- Calls of any thread -----------------------------------------------------------------------

// Calls of one kind.
struct Calls {
  SystemCall kind;
  const void* object = nullptr;  // only those on this mutex or condition
  int socketType = 0;            // only those that open a socket of this type
  // Of those made from now on; from 1.
  int first = 1;
  int last = INT_MAX;
};

constexpr Calls nthCall(SystemCall kind, int number) {
  return {.kind = kind, .first = number, .last = number};
}

// Counts calls while it lives, from the first to the last of their kind, whether they fail or not.
// At most four at a time, with those that fail.
class CallCounter {
 public:
  explicit CallCounter(const Calls& calls);
  ~CallCounter();
  CallCounter(const CallCounter&) = delete;
  CallCounter& operator=(const CallCounter&) = delete;

  // Those included that have not returned yet.
  int count() const;
  // Waits up to twenty seconds for that many.
  bool waitFor(int calls) const;

 protected:
  CallCounter(const Calls& calls, bool fail, int error, int errnoAfter);

 private:
  int _place;
};

// While it lives, the calls report `error` and leave `errnoAfter`, without being made. But an
// unlock is made, so that the mutex can be destroyed; and of allocations those alone fail that may
// answer null, as the library's own may.
class FailingCall : public CallCounter {
 public:
  FailingCall(const Calls& calls, int error, int errnoAfter)
      : CallCounter(calls, true, error, errnoAfter) {}
  FailingCall(const Calls& calls, int error) : FailingCall(calls, error, error) {}
};

// While it lives, there is no memory for the library.
class NoMemory : public FailingCall {
 public:
  NoMemory();
  // What the last allocation that failed had asked for, in bytes.
  static std::size_t lastRefusedBytes();
};

// The number of allocations through operator new so far, in any of its forms but the aligned ones,
// and how many of them are not freed yet.
std::size_t allocationCount();
long liveAllocations();

// ---- Stand-ins ---------------------------------------------------------------------------------

// What stands in for a call of any thread; while empty, the call is made. To be set while no other
// thread makes one.
struct StandIns {
  std::function<int(int, fd_set*, fd_set*, fd_set*, timeval*)> select;
  std::function<ssize_t(int, const void*, std::size_t, int, const sockaddr*, socklen_t)> sendTo;
  std::function<ssize_t(int, void*, std::size_t, int, sockaddr*, socklen_t*)> receiveFrom;
  std::function<int(pthread_cond_t*, pthread_mutex_t*, const timespec*)> timedWait;
  std::function<ssize_t(int, const void*, std::size_t)> write;
};
extern StandIns standIns;

// What they stand in for.
extern "C" {
int __real_select(int count, fd_set* readable, fd_set* writable, fd_set* failed, timeval* limit);
ssize_t __real_write(int descriptor, const void* bytes, std::size_t count);
ssize_t __real_sendto(int descriptor, const void* bytes, std::size_t count, int flags,
                      const sockaddr* address, socklen_t length);
ssize_t __real_recvfrom(int descriptor, void* bytes, std::size_t count, int flags,
                        sockaddr* address, socklen_t* length);
}

// ---- One call of a thread under test -----------------------------------------------------------

struct Fault {
  SystemCall call;
  int number;      // which call of that kind fails, from 1
  int error;       // the error number that the call reports
  int errnoAfter;  // errno after it: a pthread function reports its error without setting errno
};

// "the 2nd sendto, errno 105 (No buffer space available)" for messages of tests.
std::string describe(const Fault& fault);

// Plans one fault, or none, and starts to count anew. Not while a thread is under test.
void planFault(const Fault& fault);
void planNoFault();

// What happened since, in this process and those forked from it.
bool faultHappened();
int callsMade(SystemCall call);

// Mutexes that this process has locked and not unlocked, whoever locked them.
int mutexesHeld();

// The calling thread is under test while it lives. It can be nested.
class UnderTest {
 public:
  UnderTest();
  ~UnderTest();
  UnderTest(const UnderTest&) = delete;
  UnderTest& operator=(const UnderTest&) = delete;
};

#endif  // TESTS_SUPPORT_FAILING_CALLS_H
