#include "dch/kept_descriptor.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace dch {

KeptDescriptor::KeptDescriptor()
    : _nothing(open("/dev/null", O_RDWR | O_CLOEXEC)),
      _kept(fcntl(_nothing, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)) {
  if (_kept >= 0) return;
  const int error = errno;
  if (_nothing >= 0) close(_nothing);
  throw std::system_error(error, std::generic_category(), "cannot keep a descriptor");
}

KeptDescriptor::~KeptDescriptor() {
  close(_kept);
  close(_nothing);
}

// Both of these replace what is behind the number in one step: it is never free for others.

// Another thread may close the descriptor at the same time, and may do so: whoever borrows a copy
// finds out what it leads to. The system call itself, because the thread sanitizer looks at dup3().
int KeptDescriptor::lend(int descriptor) const {
  return static_cast<int>(syscall(SYS_dup3, descriptor, _kept, O_CLOEXEC));
}

void KeptDescriptor::takeBack() const {
  dup3(_nothing, _kept, O_CLOEXEC);
}

}  // namespace dch
