// The calls that fail by fault_plan.h only. The others are in failing_calls.cpp and
// failing_memory.cpp.
#include <pthread.h>
#include <spawn.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "tests/support/fault_plan.h"

namespace {

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

}  // namespace

extern "C" {

void* __real_malloc(std::size_t size);
void* __wrap_malloc(std::size_t size);
void* __wrap_malloc(std::size_t size) {
  return isToFail(SystemCall::memory) ? nullptr : __real_malloc(size);
}

void* __real_calloc(std::size_t count, std::size_t size);
void* __wrap_calloc(std::size_t count, std::size_t size);
void* __wrap_calloc(std::size_t count, std::size_t size) {
  return isToFail(SystemCall::memory) ? nullptr : __real_calloc(count, size);
}

char* __real_getenv(const char* name);
char* __wrap_getenv(const char* name);
char* __wrap_getenv(const char* name) {
  return isToFail(SystemCall::getEnvironment) ? nullptr : __real_getenv(name);
}

int __real_socket(int domain, int type, int protocol);
int __wrap_socket(int domain, int type, int protocol);
int __wrap_socket(int domain, int type, int protocol) {
  return isToFail(SystemCall::openSocket) ? -1 : __real_socket(domain, type, protocol);
}

int __real_bind(int descriptor, const sockaddr* address, socklen_t length);
int __wrap_bind(int descriptor, const sockaddr* address, socklen_t length);
int __wrap_bind(int descriptor, const sockaddr* address, socklen_t length) {
  return isToFail(SystemCall::bindSocket) ? -1 : __real_bind(descriptor, address, length);
}

int __real_listen(int descriptor, int backlog);
int __wrap_listen(int descriptor, int backlog);
int __wrap_listen(int descriptor, int backlog) {
  return isToFail(SystemCall::listenOnSocket) ? -1 : __real_listen(descriptor, backlog);
}

int __real_accept4(int descriptor, sockaddr* address, socklen_t* length, int flags);
int __wrap_accept4(int descriptor, sockaddr* address, socklen_t* length, int flags);
int __wrap_accept4(int descriptor, sockaddr* address, socklen_t* length, int flags) {
  return isToFail(SystemCall::acceptConnection)
             ? -1
             : __real_accept4(descriptor, address, length, flags);
}

int __real_select(int count, fd_set* readable, fd_set* writable, fd_set* failed, timeval* limit);
int __wrap_select(int count, fd_set* readable, fd_set* writable, fd_set* failed, timeval* limit);
int __wrap_select(int count, fd_set* readable, fd_set* writable, fd_set* failed, timeval* limit) {
  if (isToFail(SystemCall::select)) return -1;
  // What a select left of its limit is looked at once more: nothing, as after a time-out.
  if (isUnderTest() && limit != nullptr && (limit->tv_sec != 0 || limit->tv_usec != 0))
    *limit = waitForAnswer();
  return __real_select(count, readable, writable, failed, limit);
}

ssize_t __real_sendto(int descriptor, const void* bytes, std::size_t count, int flags,
                      const sockaddr* address, socklen_t length);
ssize_t __wrap_sendto(int descriptor, const void* bytes, std::size_t count, int flags,
                      const sockaddr* address, socklen_t length);
ssize_t __wrap_sendto(int descriptor, const void* bytes, std::size_t count, int flags,
                      const sockaddr* address, socklen_t length) {
  return isToFail(SystemCall::sendTo)
             ? -1
             : __real_sendto(descriptor, bytes, count, flags, address, length);
}

ssize_t __real_send(int descriptor, const void* bytes, std::size_t count, int flags);
ssize_t __wrap_send(int descriptor, const void* bytes, std::size_t count, int flags);
ssize_t __wrap_send(int descriptor, const void* bytes, std::size_t count, int flags) {
  return isToFail(SystemCall::send) ? -1 : __real_send(descriptor, bytes, count, flags);
}

ssize_t __real_recvfrom(int descriptor, void* bytes, std::size_t count, int flags,
                        sockaddr* address, socklen_t* length);
ssize_t __wrap_recvfrom(int descriptor, void* bytes, std::size_t count, int flags,
                        sockaddr* address, socklen_t* length);
ssize_t __wrap_recvfrom(int descriptor, void* bytes, std::size_t count, int flags,
                        sockaddr* address, socklen_t* length) {
  return isToFail(SystemCall::receiveFrom)
             ? -1
             : __real_recvfrom(descriptor, bytes, count, flags, address, length);
}

int __real_pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                  const timespec* deadline);
int __wrap_pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                  const timespec* deadline);
int __wrap_pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                  const timespec* deadline) {
  if (isToFail(SystemCall::timedWaitCondition)) return plannedError();
  lockIfRefused(mutex);
  return __real_pthread_cond_timedwait(condition, mutex, deadline);
}

// execvp() does with an array what execlp() does with its arguments.
int __wrap_execlp(const char* file, const char* argument, ...);
int __wrap_execlp(const char* file, const char* argument, ...) {
  if (isToFail(SystemCall::execute)) return -1;
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

int __real_posix_spawn(pid_t* process, const char* path, const posix_spawn_file_actions_t* actions,
                       const posix_spawnattr_t* attributes, char* const* arguments,
                       char* const* environment);
int __wrap_posix_spawn(pid_t* process, const char* path, const posix_spawn_file_actions_t* actions,
                       const posix_spawnattr_t* attributes, char* const* arguments,
                       char* const* environment);
int __wrap_posix_spawn(pid_t* process, const char* path, const posix_spawn_file_actions_t* actions,
                       const posix_spawnattr_t* attributes, char* const* arguments,
                       char* const* environment) {
  return isToFail(SystemCall::spawn)
             ? plannedError()
             : __real_posix_spawn(process, path, actions, attributes, arguments, environment);
}

int __real_rename(const char* from, const char* to);
int __wrap_rename(const char* from, const char* to);
int __wrap_rename(const char* from, const char* to) {
  return isToFail(SystemCall::rename) ? -1 : __real_rename(from, to);
}

int __real_fsync(int descriptor);
int __wrap_fsync(int descriptor);
int __wrap_fsync(int descriptor) {
  if (isToFail(SystemCall::synchronize)) return -1;
  return isUnderTest() ? 0 : __real_fsync(descriptor);  // no test waits for a disk
}

// Pauses take no time: neither between tries nor before a process ends.
int __wrap_clock_nanosleep(clockid_t clock, int flags, const timespec* time, timespec* left);
int __wrap_clock_nanosleep(clockid_t, int, const timespec*, timespec*) {
  return 0;
}

}  // extern "C"
