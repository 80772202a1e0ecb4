#include "dch/store/thinning.h"

#include <algorithm>

namespace dch {

Thinning::Thinning(Time from, Time to, std::size_t buckets, std::size_t attributes)
    : _from(from),
      _to(to),
      _span(static_cast<WideUnsigned>(Wide{to} - from) + 1),
      _attributes(attributes),
      _buckets(buckets),
      _cells(buckets * attributes) {
  findBucket(from);
}

// Those that are nothing but a part of the shortest time there is have none, and stay empty.
void Thinning::findBucket(Time time) {
  const Time inside = std::clamp(time, _from, _to);
  const auto distance = static_cast<WideUnsigned>(Wide{inside} - _from);
  _current = static_cast<std::size_t>(distance * _buckets.size() / _span);
  _currentFrom = startOf(_current);
  _currentTo = _current + 1 < _buckets.size() ? startOf(_current + 1) - 1 : _to;
}

// The first time that belongs to it.
Time Thinning::startOf(std::size_t bucket) const {
  const WideUnsigned distance = (bucket * _span + _buckets.size() - 1) / _buckets.size();
  return static_cast<Time>(_from + static_cast<Wide>(distance));
}

ThinnedNumber Thinning::number(std::size_t bucket, std::size_t attribute) const {
  const Cell& cell = _cells[bucket * _attributes + attribute];
  if (cell.count == 0) return {};
  return {cell.count, cell.minimum, cell.maximum,
          static_cast<double>(static_cast<long double>(cell.sum) /
                              static_cast<long double>(cell.count))};
}

}  // namespace dch
