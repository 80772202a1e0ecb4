#include "dch/service/descriptor_limit.h"

#include <sys/resource.h>

#include <algorithm>

namespace dch {

ConnectionRoom makeRoomForConnections(const ConnectionRoom& wanted) {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return wanted;
  const rlim_t needed = wanted.channel + wanted.page + ownDescriptors;
  if (limit.rlim_cur < needed) {
    limit.rlim_cur = std::min(needed, limit.rlim_max);
    setrlimit(RLIMIT_NOFILE, &limit);
    // Where it may not be changed it is what it was.
    getrlimit(RLIMIT_NOFILE, &limit);
  }
  if (limit.rlim_cur >= needed) return wanted;
  const rlim_t room = limit.rlim_cur > ownDescriptors ? limit.rlim_cur - ownDescriptors : 0;
  const std::size_t page = std::min<rlim_t>(room / 4, wanted.page);
  return {std::min<rlim_t>(room - page, wanted.channel), page};
}

}  // namespace dch
