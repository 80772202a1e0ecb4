#include "dch/core/deferrals.h"

#include <cstdio>
#include <utility>

#include "dch/core/log.h"

namespace dch {

std::string Deferral::text() const {
  char numbers[80];
  std::snprintf(numbers, sizeof numbers, "action %d, reference 0x%08x, time %d",
                static_cast<int>(actionId), static_cast<unsigned>(peltaObject),
                static_cast<int>(currentTime));
  return numbers + (", key " + printable(applKey)) + ", table " + printable(tableName) +
         ", source " + printable(sourceName);
}

void Deferrals::add(std::list<Deferral>&& one) noexcept {
  _kept.splice(_kept.end(), one);
  if (_kept.size() <= _capacity) return;
  _kept.pop_front();
  _counters.add(Counter::deferralsForgotten);
}

}  // namespace dch
