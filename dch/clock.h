// clock.h: the time of the day.
#ifndef DCH_CLOCK_H
#define DCH_CLOCK_H

#include <chrono>

#include "dch/core/message.h"

namespace dch {

inline Time now() {
  return std::chrono::duration_cast<std::chrono::microseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

}  // namespace dch

#endif  // DCH_CLOCK_H
