#include "dch/descriptor_room.h"

#include <fcntl.h>
#include <sys/resource.h>

#include <algorithm>

namespace dch {

namespace {

bool isOpen(int descriptor) {
  return fcntl(descriptor, F_GETFD) != -1;
}

}  // namespace

// A limit bounds the numbers of descriptors, not how many there are: what is open already, and with
// which numbers, counts.
DescriptorRoom makeDescriptorRoom(int wanted) {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  int free = 0;
  int freeWithinLimit = 0;
  int next = 0;
  for (; free < wanted; ++next) {
    if (isOpen(next)) continue;
    ++free;
    if (static_cast<rlim_t>(next) < limit.rlim_max) ++freeWithinLimit;
  }
  const auto needed = static_cast<rlim_t>(next);
  if (limit.rlim_cur < needed) {
    limit.rlim_cur = std::min(needed, limit.rlim_max);
    setrlimit(RLIMIT_NOFILE, &limit);
  }
  return {freeWithinLimit, next};
}

}  // namespace dch
