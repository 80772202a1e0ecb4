#include "tests/support/failing_server_calls.h"

#include <sys/select.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <mutex>

namespace {

struct Calls {
  int made = 0;
  int failingNumber = 0;
  int systemError = 0;
};

std::mutex callsMutex;
// Never destroyed: a receive loop may be waiting when the process ends.
std::condition_variable& callMade = *new std::condition_variable;
Calls callsOf[3];

bool fails(ServerCall call) {
  const std::lock_guard lock(callsMutex);
  Calls& calls = callsOf[static_cast<int>(call)];
  callMade.notify_all();
  if (++calls.made != calls.failingNumber) return false;
  errno = calls.systemError;
  return true;
}

int withoutErrno(int result) {
  if (result >= 0) errno = 0;
  return result;
}

}  // namespace

void countServerCalls() {
  const std::lock_guard lock(callsMutex);
  for (Calls& calls : callsOf) calls = {};
}

void failServerCall(ServerCall call, int number, int systemError) {
  const std::lock_guard lock(callsMutex);
  callsOf[static_cast<int>(call)].failingNumber = number;
  callsOf[static_cast<int>(call)].systemError = systemError;
}

int serverCallsMade(ServerCall call) {
  const std::lock_guard lock(callsMutex);
  return callsOf[static_cast<int>(call)].made;
}

bool waitForServerCalls(ServerCall call, int number) {
  std::unique_lock lock(callsMutex);
  return callMade.wait_for(lock, std::chrono::seconds(20),
                           [&] { return callsOf[static_cast<int>(call)].made >= number; });
}

extern "C" {

int __real_select(int, fd_set*, fd_set*, fd_set*, timeval*);
int __real_listen(int, int);
int __real_accept4(int, sockaddr*, socklen_t*, int);

int __wrap_select(int count, fd_set* readable, fd_set* writable, fd_set* failed, timeval* wait) {
  return fails(ServerCall::select)
             ? -1
             : withoutErrno(__real_select(count, readable, writable, failed, wait));
}

int __wrap_listen(int descriptor, int backlog) {
  return fails(ServerCall::listen) ? -1 : withoutErrno(__real_listen(descriptor, backlog));
}

int __wrap_accept4(int descriptor, sockaddr* address, socklen_t* length, int flags) {
  return fails(ServerCall::accept)
             ? -1
             : withoutErrno(__real_accept4(descriptor, address, length, flags));
}

}  // extern "C"
