#include "tests/faults/fault_table.h"

#include <cerrno>
#include <initializer_list>
#include <stdexcept>

// The errors are those of the manual pages of Linux and of POSIX, but for what is told of other
// kinds of socket or file than the library has.

namespace {

std::vector<Failing> setsErrno(std::initializer_list<int> errors) {
  std::vector<Failing> failures;
  for (const int error : errors) failures.push_back({error, error});
  return failures;
}

// These answer the error and leave errno as it was. Who looks at errno finds an older error, which
// may be any, or none.
std::vector<Failing> leavesErrno(std::initializer_list<int> errors) {
  std::vector<Failing> failures = setsErrno(errors);
  failures.push_back({*errors.begin(), 0});
  return failures;
}

std::vector<Failing> listFailures(SystemCall call) {
  switch (call) {
    case SystemCall::memory:
    case SystemCall::cMemory:
      return setsErrno({ENOMEM});
    case SystemCall::getEnvironment:
      return {{0, 0}};  // it answers null, which is no error
    // Without EOWNERDEAD: the mutex is locked then, and none of the library's is robust.
    case SystemCall::lockMutex:
      return leavesErrno({EINVAL, EAGAIN, EDEADLK, ENOTRECOVERABLE});
    case SystemCall::unlockMutex:
      return leavesErrno({EPERM, EINVAL});
    case SystemCall::waitCondition:
      return leavesErrno({EINVAL, EPERM, ENOTRECOVERABLE});
    case SystemCall::timedWaitCondition:
      return leavesErrno({ETIMEDOUT, EINVAL, EPERM, EINTR, ENOTRECOVERABLE});
    case SystemCall::signalCondition:
      return leavesErrno({EINVAL});
    case SystemCall::createThread:
      return leavesErrno({EAGAIN, EINVAL, EPERM});
    case SystemCall::openSocket:
      return setsErrno(
          {EMFILE, ENFILE, ENOBUFS, ENOMEM, EACCES, EAFNOSUPPORT, EINVAL, EPROTONOSUPPORT});
    case SystemCall::bindSocket:
      return setsErrno({EADDRINUSE, EACCES, EADDRNOTAVAIL, EBADF, EFAULT, EINVAL, ENOTSOCK});
    case SystemCall::listenOnSocket:
      return setsErrno({EADDRINUSE, EBADF, ENOTSOCK, EOPNOTSUPP});
    case SystemCall::acceptConnection:
      return setsErrno({EMFILE,       EAGAIN,      EBADF,  ECONNABORTED, EFAULT,
                        EINTR,        EINVAL,      ENFILE, ENOBUFS,      ENOMEM,
                        ENOTSOCK,     EOPNOTSUPP,  EPERM,  EPROTO,       ENETDOWN,
                        EHOSTUNREACH, ENETUNREACH, ENONET, ENOPROTOOPT,  EHOSTDOWN});
    case SystemCall::select:
      return setsErrno({EINTR, EBADF, EINVAL, ENOMEM});
    case SystemCall::sendTo:
    case SystemCall::send:
      return setsErrno({ENOBUFS,    EACCES,       EAGAIN,   EALREADY,     EBADF,  ECONNREFUSED,
                        ECONNRESET, EDESTADDRREQ, EFAULT,   EHOSTUNREACH, EINTR,  EINVAL,
                        EISCONN,    EMSGSIZE,     ENETDOWN, ENETUNREACH,  ENOMEM, ENOTCONN,
                        ENOTSOCK,   EOPNOTSUPP,   EPERM,    EPIPE});
    case SystemCall::receiveFrom:
      return setsErrno({ECONNREFUSED, EAGAIN, EBADF, ECONNRESET, EFAULT, EINTR, EINVAL, ENOBUFS,
                        ENOMEM, ENOTCONN, ENOTSOCK, EOPNOTSUPP, ETIMEDOUT});
    case SystemCall::fork:
      return setsErrno({EAGAIN, ENOMEM, ENOSYS});
    case SystemCall::execute:
      return setsErrno({ENOENT, E2BIG, EACCES, EAGAIN, EFAULT, EINVAL, EIO, EISDIR, ELIBBAD, ELOOP,
                        EMFILE, ENAMETOOLONG, ENFILE, ENOEXEC, ENOMEM, ENOTDIR, EPERM, ETXTBSY});
    case SystemCall::spawn:
      return leavesErrno({EAGAIN, ENOMEM, EINVAL, ENOENT, EACCES, E2BIG, ENOEXEC, EMFILE});
    case SystemCall::rename:
      return setsErrno({ENOSPC, EACCES, EBUSY, EDQUOT, EEXIST, EFAULT, EINVAL, EISDIR, ELOOP,
                        EMLINK, ENAMETOOLONG, ENOENT, ENOMEM, ENOTDIR, ENOTEMPTY, EPERM, EROFS,
                        EXDEV});
    case SystemCall::synchronize:
      return setsErrno({EIO, EBADF, EDQUOT, EINTR, EINVAL, ENOSPC, EROFS});
  }
  throw std::logic_error("no failures are listed for this call");
}

}  // namespace

const std::vector<Failing>& failuresOf(SystemCall call) {
  static const std::vector<std::vector<Failing>> table = [] {
    std::vector<std::vector<Failing>> lists;
    for (int i = 0; i < systemCallCount; ++i)
      lists.push_back(listFailures(static_cast<SystemCall>(i)));
    return lists;
  }();
  return table[static_cast<std::size_t>(call)];
}
