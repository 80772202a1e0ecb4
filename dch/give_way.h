// give_way.h: lets the channel go first where there is too little time for all threads.
#ifndef DCH_GIVE_WAY_H
#define DCH_GIVE_WAY_H

#include <sys/resource.h>
#include <unistd.h>

namespace dch {

// For the thread that calls it, for good.
inline void giveWay() {
  constexpr int niceness = 10;
  setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), niceness);
}

}  // namespace dch

#endif  // DCH_GIVE_WAY_H
