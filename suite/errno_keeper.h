// errno_keeper.h: calls after which errno is what it was before.
#ifndef SUITE_ERRNO_KEEPER_H
#define SUITE_ERRNO_KEEPER_H

#include <cerrno>

namespace suite {

// A trace line often stands between a system call and its error handling.
class ErrnoKeeper {
 public:
  ErrnoKeeper() = default;
  ~ErrnoKeeper() { errno = _kept; }
  ErrnoKeeper(const ErrnoKeeper&) = delete;
  ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;

 private:
  const int _kept = errno;
};

}  // namespace suite

#endif  // SUITE_ERRNO_KEEPER_H
