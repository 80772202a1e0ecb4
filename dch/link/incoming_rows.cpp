#include "dch/link/incoming_rows.h"

#include <algorithm>
#include <utility>

namespace dch {

namespace {

template <class Names>
auto findName(Names& names, const Epoch& epoch) {
  return std::find_if(names.begin(), names.end(),
                      [&](const RowName& each) { return each.epoch == epoch; });
}

}  // namespace

IncomingRows::IncomingRows(State state, std::size_t passedEpochs)
    : _state(std::move(state)),
      _phase(_state.passedFrom ? Phase::toFetch : Phase::following),
      _passed(passedEpochs),
      _passedBefore(passedEpochs),
      _across(passedEpochs) {
  forgetOldest();
}

bool IncomingRows::fromStream(std::uint64_t sequence, const RowHeader& row) {
  if (knows(row.name)) return false;
  if (fits(row)) return keep(row.name);
  passOver(sequence, row);
  return false;
}

bool IncomingRows::again(std::uint64_t sequence, const RowHeader& row) {
  if (_phase != Phase::rereading || knows(row.name)) return false;
  if (fits(row)) return keep(row.name);
  if (isNextAcross(row.name)) {
    ++_gaps;
    return keep(row.name);
  }
  passOver(sequence, row);
  return false;
}

bool IncomingRows::fetched(const RowHeader& row) {
  if (_phase != Phase::fetching) return false;
  ++_rowsFetched;
  if (knows(row.name)) {
    // The next request is to begin there, however many runs of the site were told of since.
    setKnown({row.name.epoch, knownUpTo(row.name.epoch)});
    return false;
  }
  if (_toldBelow != all) return false;  // behind one that was left
  if (!fits(row)) {
    _isRowMissing = true;
    return false;
  }
  if (row.name.number - 1 != row.previous.number && !mayLeaveOut(row)) {
    _toldBelow = row.name.number;
    return false;
  }
  return keep(row.name);
}

// Whether the stream has no row between it and the one before it.
bool IncomingRows::mayLeaveOut(const RowHeader& row) const {
  return _isPassedComplete && !_passed.mayHaveBefore(row.name, knownUpTo(row.name.epoch));
}

IncomingRows::Wants IncomingRows::wants() const {
  switch (_phase) {
    case Phase::toFetch:
      return Wants::fetch;
    case Phase::toReread:
      return Wants::reread;
    default:
      return Wants::nothing;
  }
}

std::vector<RowName> IncomingRows::beginFetch() {
  if (_phase == Phase::following) _isPassedComplete = true;
  _phase = Phase::fetching;
  _passedBefore = _passed;
  _rowsFetched = 0;
  _isRowMissing = false;
  _toldBelow = all;
  const std::size_t count = std::min(_state.have.size(), mostFetchNames);
  return {_state.have.begin(), _state.have.begin() + static_cast<std::ptrdiff_t>(count)};
}

bool IncomingRows::fetchEnded(const FetchEnd& end, bool isAlone) {
  if (_phase != Phase::fetching) return false;
  if (_isRowMissing || _rowsFetched != end.rows) {
    fetchFailed();
    return false;
  }
  if (_toldBelow == all && !end.isAll) {
    _phase = Phase::toFetch;
    return true;
  }
  _isOfOne = isAlone;
  if (isAlone) _waitsForOne = false;
  readAgainIfUseful(isAlone);
  return true;
}

// When the site does not answer, the stream can have what was missing all the same.
void IncomingRows::fetchFailed() {
  if (_phase != Phase::fetching) return;
  _toldBelow = 0;
  readAgainIfUseful(false);
}

void IncomingRows::readAgainIfUseful(bool mayTakeAcross) {
  if (!_state.passedFrom)
    _phase = Phase::following;
  else
    _phase = mayTakeAcross || _hasKept ? Phase::toReread : Phase::toFetch;
}

std::uint64_t IncomingRows::beginReread() {
  _phase = Phase::rereading;
  _passed.clear();
  _hasKept = false;
  return *_state.passedFrom;
}

void IncomingRows::rereadEnded() {
  if (_phase != Phase::rereading) return;
  _passed.removeKnown([this](const Epoch& epoch) { return knownUpTo(epoch); });
  _isPassedComplete = true;
  _across.clear();
  _state.passedFrom = _passed.firstSequence();
  _waitsForOne = false;
  if (!_state.passedFrom) {
    _phase = Phase::following;
    return;
  }
  const auto lowest = _passed.lowest();
  const bool isNowhere = lowest && isToldOf(*lowest);
  const bool isAcross = isNowhere && _isOfOne;
  _waitsForOne = isNowhere && !_isOfOne;
  if (isAcross) _across = _passed;
  _phase = isAcross ? Phase::toReread : Phase::toFetch;
}

void IncomingRows::rereadFailed() {
  if (_phase == Phase::rereading) _phase = Phase::toReread;
}

void IncomingRows::streamBeganAnew() {
  if (_state.passedFrom) _state.passedFrom = 0;
  rereadFailed();
}

std::int64_t IncomingRows::knownUpTo(const Epoch& epoch) const {
  const auto known = findName(_state.have, epoch);
  return known == _state.have.end() ? 0 : known->number;
}

// Whether the site would have told what is before it. It has if it was asked when that was passed
// over, or something behind it.
bool IncomingRows::isToldOf(const RowName& name) const {
  return name.number < _toldBelow && _passedBefore.hasFrom(name);
}

bool IncomingRows::isNextAcross(const RowName& name) {
  _across.removeKnown([this](const Epoch& epoch) { return knownUpTo(epoch); });
  return _isOfOne && _across.lowest() == name && isToldOf(name);
}

bool IncomingRows::keep(const RowName& name) {
  _hasKept = true;
  setKnown(name);
  return true;
}

void IncomingRows::setKnown(const RowName& name) {
  const auto known = findName(_state.have, name.epoch);
  if (known == _state.have.end()) {
    _state.have.insert(_state.have.begin(), name);
    return forgetOldest();
  }
  known->number = name.number;
  std::rotate(_state.have.begin(), known, known + 1);
}

// A row of one that is forgotten is not to be had any more, unless somebody makes it up; the site
// tells again what is behind it.
void IncomingRows::forgetOldest() {
  if (_state.have.size() > mostKnownEpochs) _state.have.resize(mostKnownEpochs);
}

void IncomingRows::passOver(std::uint64_t sequence, const RowHeader& row) {
  if (!_state.passedFrom) {
    _state.passedFrom = sequence;
    _isPassedComplete = false;
    if (_phase == Phase::following) _phase = Phase::toFetch;
  }
  // A server that has lost the end of the stream gives these again.
  _state.passedFrom = std::min(*_state.passedFrom, sequence);
  _passed.add(sequence, row.name);
}

}  // namespace dch
