#include "dch/link/passed_rows.h"

#include <algorithm>

namespace dch {

namespace {

template <class Ranges>
auto findEpoch(Ranges& ranges, const Epoch& epoch) {
  return std::find_if(ranges.begin(), ranges.end(),
                      [&](const auto& each) { return each.first.epoch == epoch; });
}

}  // namespace

void PassedRows::add(std::uint64_t sequence, const RowName& row) {
  const auto range = findEpoch(_ranges, row.epoch);
  if (range == _ranges.end()) {
    _ranges.push_back({row, row.number, sequence});
    return;
  }
  range->first.number = std::min(range->first.number, row.number);
  range->last = std::max(range->last, row.number);
  range->sequence = std::min(range->sequence, sequence);
}

void PassedRows::removeKnown(const KnownUpTo& knownUpTo) {
  std::erase_if(_ranges,
                [&](const Range& each) { return knownUpTo(each.first.epoch) >= each.last; });
}

RowName PassedRows::lowest() const {
  return std::min_element(_ranges.begin(), _ranges.end(),
                          [](const Range& one, const Range& other) {
                            return one.first.number < other.first.number;
                          })
      ->first;
}

std::uint64_t PassedRows::firstSequence() const {
  return std::min_element(
             _ranges.begin(), _ranges.end(),
             [](const Range& one, const Range& other) { return one.sequence < other.sequence; })
      ->sequence;
}

bool PassedRows::mayHaveBefore(const RowName& row, std::int64_t knownUpTo) const {
  const auto range = findEpoch(_ranges, row.epoch);
  return range != _ranges.end() && range->first.number < row.number && range->last > knownUpTo;
}

bool PassedRows::hasFrom(const RowName& row) const {
  const auto range = findEpoch(_ranges, row.epoch);
  return range != _ranges.end() && range->last >= row.number;
}

}  // namespace dch
