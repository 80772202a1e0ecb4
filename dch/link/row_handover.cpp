#include "dch/link/row_handover.h"

#include <utility>

namespace dch {

namespace {

constexpr std::chrono::milliseconds pauseOfPlaces{1'000};

}  // namespace

std::vector<Change> RowHandover::take() {
  const std::lock_guard lock(_mutex);
  return std::exchange(_changes, {});
}

void RowHandover::taken() noexcept {
  const std::lock_guard lock(_mutex);
  _isUnderWay = false;
  _keptUpTo = std::move(_offeredUpTo);  // asks for no memory
  _rowsKept += std::exchange(_rows, 0);
}

bool RowHandover::isUnderWay() const {
  const std::lock_guard lock(_mutex);
  return _isUnderWay;
}

std::uint64_t RowHandover::rowsKept() const {
  const std::lock_guard lock(_mutex);
  return _rowsKept;
}

bool RowHandover::offer(std::set<CollectedSite*>* touched, std::size_t rows,
                        const StreamPlace& read) {
  const std::lock_guard lock(_mutex);
  if (_isUnderWay) return false;
  std::vector<Change> changes;
  for (CollectedSite* const site : *touched)
    if (auto unkept = site->takeUnkept()) changes.emplace_back(*std::move(unkept));
  touched->clear();
  const auto now = std::chrono::steady_clock::now();
  if (_keptUpTo.sequence != _toldUpTo.sequence && now >= _nextPlace) {
    changes.emplace_back(StreamRead{_keptUpTo.stream, _keptUpTo.sequence});
    _toldUpTo = _keptUpTo;
    _nextPlace = now + pauseOfPlaces;
  }
  if (changes.empty()) {
    _keptUpTo = read;
    return true;
  }
  _offeredUpTo = read;
  _changes = std::move(changes);
  _rows = rows;
  _isUnderWay = true;
  _wake();
  return true;
}

}  // namespace dch
