#include "dch/link/passed_rows.h"

#include <algorithm>

namespace dch {

namespace {

template <class Ranges>
auto findRange(Ranges& ranges, const Epoch& epoch) {
  return std::find_if(ranges.begin(), ranges.end(),
                      [&](const auto& each) { return each.first.epoch == epoch; });
}

constexpr auto isLower = [](const auto& one, const auto& other) {
  return one.first.number < other.first.number;
};

}  // namespace

void PassedRows::add(std::uint64_t sequence, const RowName& row) {
  const auto range = findRange(_ranges, row.epoch);
  if (range == _ranges.end()) return addEpoch({row, row.number, sequence});
  range->first.number = std::min(range->first.number, row.number);
  range->last = std::max(range->last, row.number);
  range->sequence = std::min(range->sequence, sequence);
}

// Those with the lowest numbers are noted: a hub goes on with these.
void PassedRows::addEpoch(Range range) {
  if (_ranges.size() < _mostEpochs) {
    _ranges.push_back(range);
    return;
  }
  const auto highest = std::max_element(_ranges.begin(), _ranges.end(), isLower);
  if (isLower(range, *highest)) std::swap(range, *highest);
  if (!_further) {
    _further = range;
    return;
  }
  _further->first.number = std::min(_further->first.number, range.first.number);
  _further->sequence = std::min(_further->sequence, range.sequence);
}

void PassedRows::clear() {
  _ranges.clear();
  _further.reset();
}

void PassedRows::removeKnown(const KnownUpTo& knownUpTo) {
  std::erase_if(_ranges,
                [&](const Range& each) { return knownUpTo(each.first.epoch) >= each.last; });
}

std::optional<RowName> PassedRows::lowest() const {
  const auto lowest = std::min_element(_ranges.begin(), _ranges.end(), isLower);
  if (lowest == _ranges.end()) return std::nullopt;
  return lowest->first;
}

std::optional<std::uint64_t> PassedRows::firstSequence() const {
  std::optional<std::uint64_t> first;
  const auto look = [&](const Range& each) {
    first = std::min(first.value_or(each.sequence), each.sequence);
  };
  std::for_each(_ranges.begin(), _ranges.end(), look);
  if (_further) look(*_further);
  return first;
}

bool PassedRows::mayHaveBefore(const RowName& row, std::int64_t knownUpTo) const {
  if (_further && _further->first.number < row.number) return true;
  const auto range = findRange(_ranges, row.epoch);
  if (range == _ranges.end()) return false;
  return range->first.number < row.number && range->last > knownUpTo;
}

bool PassedRows::hasFrom(const RowName& row) const {
  const auto range = findRange(_ranges, row.epoch);
  return range != _ranges.end() && range->last >= row.number;
}

}  // namespace dch
