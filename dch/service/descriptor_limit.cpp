#include "dch/service/descriptor_limit.h"

#include <sys/resource.h>

#include <algorithm>

namespace dch {

std::size_t makeRoomForConnections(std::size_t wanted) {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return wanted;
  const rlim_t needed = wanted + ownDescriptors;
  if (limit.rlim_cur < needed) {
    limit.rlim_cur = std::min(needed, limit.rlim_max);
    setrlimit(RLIMIT_NOFILE, &limit);
    // Where it may not be changed it is what it was.
    getrlimit(RLIMIT_NOFILE, &limit);
  }
  const rlim_t room = limit.rlim_cur > ownDescriptors ? limit.rlim_cur - ownDescriptors : 0;
  return std::min<rlim_t>(room, wanted);
}

}  // namespace dch
