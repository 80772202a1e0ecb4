#include "tests/support/failing_server_calls.h"

#include <sys/select.h>
#include <sys/socket.h>

#include <atomic>
#include <cerrno>

namespace {

std::atomic<int> madeCalls[3];
std::atomic<ServerCall> failingCall{ServerCall::select};
std::atomic<int> failingNumber{0};
std::atomic<int> failingError{0};

bool fails(ServerCall call) {
  const int number = ++madeCalls[static_cast<int>(call)];
  if (call != failingCall || number != failingNumber) return false;
  errno = failingError;
  return true;
}

int withoutErrno(int result) {
  if (result >= 0) errno = 0;
  return result;
}

}  // namespace

void failServerCall(ServerCall call, int number, int systemError) {
  failingCall = call;
  failingNumber = number;
  failingError = systemError;
  for (std::atomic<int>& count : madeCalls) count = 0;
}

int serverCallsMade(ServerCall call) {
  return madeCalls[static_cast<int>(call)];
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
