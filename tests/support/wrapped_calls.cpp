#include "tests/support/wrapped_calls.h"

#include <pthread.h>
#include <spawn.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <new>

StandIns standIns;

namespace {

// The mutex that a fault kept from being locked. Code that takes the failure for a success will
// unlock it, which must not be made: nobody may unlock what is not locked.
thread_local const void* refusedMutex = nullptr;

// How long a wait with a time limit takes for the code under test. An answer comes, however busy
// the machine is; but none to a question that was not sent, or not made for want of memory, or that
// went to another port for want of a setting.
timeval waitForAnswer() {
  if (!faultHappened()) return {20, 0};
  switch (plannedCall()) {
    case SystemCall::sendTo:
      return {0, 10'000};
    case SystemCall::memory:
      return {0, 100'000};
    case SystemCall::getEnvironment:
      return {1, 0};
    default:
      return {20, 0};
  }
}

// The trace shows errno even of a call that went well: so it is the same every time.
int withoutErrno(int result) {
  if (result >= 0 && !isUnderTest()) errno = 0;
  return result;
}

}  // namespace

// What begins a function that stands before the real one.
#define WRAPPER(result, function, ...)              \
  extern "C" result __real_##function(__VA_ARGS__); \
  extern "C" result __wrap_##function(__VA_ARGS__); \
  result __wrap_##function(__VA_ARGS__)

// ---- Memory ------------------------------------------------------------------------------------

WRAPPER(void*, malloc, std::size_t size) {
  return failureOf(SystemCall::cMemory) ? nullptr : __real_malloc(size);
}

WRAPPER(void*, calloc, std::size_t count, std::size_t size) {
  return failureOf(SystemCall::cMemory) ? nullptr : __real_calloc(count, size);
}

namespace {

std::atomic<std::size_t> refusedBytes{0};
std::atomic<std::size_t> allocations{0};
std::atomic<long> live{0};

void* allocate(std::size_t size) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  void* const block = __real_malloc(size == 0 ? 1 : size);
  if (block != nullptr) live.fetch_add(1, std::memory_order_relaxed);
  return block;
}

void* allocateOrThrow(std::size_t size) {
  void* const block = isPlannedToFail(SystemCall::memory) ? nullptr : allocate(size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

void* allocateOrNull(std::size_t size) {
  if (!failureOf(SystemCall::memory)) return allocate(size);
  refusedBytes = size;
  return nullptr;
}

void release(void* block) {
  if (block != nullptr) live.fetch_sub(1, std::memory_order_relaxed);
  std::free(block);
}

}  // namespace

std::size_t NoMemory::lastRefusedBytes() {
  return refusedBytes;
}

std::size_t allocationCount() {
  return allocations;
}

long liveAllocations() {
  return live;
}

void* operator new(std::size_t size) {
  return allocateOrThrow(size);
}
void* operator new[](std::size_t size) {
  return allocateOrThrow(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return allocateOrNull(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return allocateOrNull(size);
}
void operator delete(void* block) noexcept {
  release(block);
}
void operator delete[](void* block) noexcept {
  release(block);
}
void operator delete(void* block, std::size_t) noexcept {
  release(block);
}
void operator delete[](void* block, std::size_t) noexcept {
  release(block);
}

// ---- Threads -----------------------------------------------------------------------------------

WRAPPER(int, pthread_create, pthread_t* thread, const pthread_attr_t* attributes,
        void* (*entry)(void*), void* argument) {
  if (const auto error = failureOf(SystemCall::createThread)) return *error;
  return __real_pthread_create(thread, attributes, entry, argument);
}

WRAPPER(int, pthread_mutex_lock, pthread_mutex_t* mutex) {
  if (const auto error = failureOf(SystemCall::lockMutex, mutex)) {
    if (isUnderTest()) refusedMutex = mutex;
    return *error;
  }
  const int result = __real_pthread_mutex_lock(mutex);
  if (result == 0) {
    if (refusedMutex == mutex) refusedMutex = nullptr;
    countLocked();
  }
  return result;
}

WRAPPER(int, pthread_mutex_unlock, pthread_mutex_t* mutex) {
  int result = 0;
  if (refusedMutex == mutex) {
    refusedMutex = nullptr;
  } else {
    result = __real_pthread_mutex_unlock(mutex);
    if (result == 0) countUnlocked();
  }
  return failureOf(SystemCall::unlockMutex, mutex).value_or(result);
}

namespace {

// What waits on a mutex must hold it, even when a fault kept it from that and was not noticed.
void lockIfRefused(pthread_mutex_t* mutex) {
  if (refusedMutex != mutex) return;
  refusedMutex = nullptr;
  if (__real_pthread_mutex_lock(mutex) == 0) countLocked();
}

}  // namespace

WRAPPER(int, pthread_cond_wait, pthread_cond_t* condition, pthread_mutex_t* mutex) {
  if (const auto error = failureOf(SystemCall::waitCondition, condition)) return *error;
  lockIfRefused(mutex);
  return __real_pthread_cond_wait(condition, mutex);
}

WRAPPER(int, pthread_cond_timedwait, pthread_cond_t* condition, pthread_mutex_t* mutex,
        const timespec* deadline) {
  if (standIns.timedWait) return standIns.timedWait(condition, mutex, deadline);
  if (const auto error = failureOf(SystemCall::timedWaitCondition, condition)) return *error;
  lockIfRefused(mutex);
  return __real_pthread_cond_timedwait(condition, mutex, deadline);
}

WRAPPER(int, pthread_cond_signal, pthread_cond_t* condition) {
  if (const auto error = failureOf(SystemCall::signalCondition, condition)) return *error;
  return __real_pthread_cond_signal(condition);
}

// ---- Sockets -----------------------------------------------------------------------------------

WRAPPER(int, socket, int domain, int type, int protocol) {
  return failureOf(SystemCall::openSocket, nullptr, type & ~SOCK_CLOEXEC)
             ? -1
             : __real_socket(domain, type, protocol);
}

WRAPPER(int, bind, int descriptor, const sockaddr* address, socklen_t length) {
  return failureOf(SystemCall::bindSocket) ? -1 : __real_bind(descriptor, address, length);
}

WRAPPER(int, listen, int descriptor, int backlog) {
  return failureOf(SystemCall::listenOnSocket) ? -1
                                               : withoutErrno(__real_listen(descriptor, backlog));
}

WRAPPER(int, accept4, int descriptor, sockaddr* address, socklen_t* length, int flags) {
  return failureOf(SystemCall::acceptConnection)
             ? -1
             : withoutErrno(__real_accept4(descriptor, address, length, flags));
}

WRAPPER(int, select, int count, fd_set* readable, fd_set* writable, fd_set* failed,
        timeval* limit) {
  if (standIns.select) return standIns.select(count, readable, writable, failed, limit);
  if (failureOf(SystemCall::select)) return -1;
  // What a select left of its limit is looked at once more: nothing, as after a time-out.
  if (isUnderTest() && limit != nullptr && (limit->tv_sec != 0 || limit->tv_usec != 0))
    *limit = waitForAnswer();
  return withoutErrno(__real_select(count, readable, writable, failed, limit));
}

WRAPPER(ssize_t, sendto, int descriptor, const void* bytes, std::size_t count, int flags,
        const sockaddr* address, socklen_t length) {
  if (standIns.sendTo) return standIns.sendTo(descriptor, bytes, count, flags, address, length);
  return failureOf(SystemCall::sendTo)
             ? -1
             : __real_sendto(descriptor, bytes, count, flags, address, length);
}

WRAPPER(ssize_t, send, int descriptor, const void* bytes, std::size_t count, int flags) {
  return failureOf(SystemCall::send) ? -1 : __real_send(descriptor, bytes, count, flags);
}

WRAPPER(ssize_t, recvfrom, int descriptor, void* bytes, std::size_t count, int flags,
        sockaddr* address, socklen_t* length) {
  if (standIns.receiveFrom)
    return standIns.receiveFrom(descriptor, bytes, count, flags, address, length);
  return failureOf(SystemCall::receiveFrom)
             ? -1
             : __real_recvfrom(descriptor, bytes, count, flags, address, length);
}

// ---- Processes and files -----------------------------------------------------------------------

WRAPPER(char*, getenv, const char* name) {
  return failureOf(SystemCall::getEnvironment) ? nullptr : __real_getenv(name);
}

extern "C" pid_t __real_fork();
extern "C" pid_t __wrap_fork();
pid_t __wrap_fork() {
  return failureOf(SystemCall::fork) ? -1 : __real_fork();
}

// execvp() does with an array what execlp() does with its arguments.
extern "C" int __wrap_execlp(const char* file, const char* argument, ...);
int __wrap_execlp(const char* file, const char* argument, ...) {
  if (failureOf(SystemCall::execute)) return -1;
  constexpr int mostArguments = 16;
  const char* arguments[mostArguments] = {argument};
  std::va_list others;
  va_start(others, argument);
  for (int i = 1; i < mostArguments && arguments[i - 1] != nullptr; ++i)
    arguments[i] = va_arg(others, const char*);
  va_end(others);
  if (arguments[mostArguments - 1] != nullptr) std::abort();
  return execvp(file, const_cast<char* const*>(arguments));
}

WRAPPER(int, posix_spawn, pid_t* process, const char* path,
        const posix_spawn_file_actions_t* actions, const posix_spawnattr_t* attributes,
        char* const* arguments, char* const* environment) {
  if (const auto error = failureOf(SystemCall::spawn)) return *error;
  return __real_posix_spawn(process, path, actions, attributes, arguments, environment);
}

WRAPPER(ssize_t, write, int descriptor, const void* bytes, std::size_t count) {
  return standIns.write ? standIns.write(descriptor, bytes, count)
                        : __real_write(descriptor, bytes, count);
}

WRAPPER(int, rename, const char* from, const char* to) {
  return failureOf(SystemCall::rename) ? -1 : __real_rename(from, to);
}

WRAPPER(int, fsync, int descriptor) {
  if (failureOf(SystemCall::synchronize)) return -1;
  return isUnderTest() ? 0 : __real_fsync(descriptor);  // no test waits for a disk
}

// Pauses of what is under test take no time: neither between tries nor before a process ends.
WRAPPER(int, clock_nanosleep, clockid_t clock, int flags, const timespec* time, timespec* left) {
  return isUnderTest() ? 0 : __real_clock_nanosleep(clock, flags, time, left);
}
