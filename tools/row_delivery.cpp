#include "tools/row_delivery.h"

#include <utility>

namespace tools {

void DchPresence::isAway(Clock::time_point asked) {
  const std::lock_guard lock(_mutex);
  // Somebody else has had an answer since: what was asked then may have been lost before.
  if (_isAway || asked < _answered) return;
  _isAway = true;
  _say("the DCH does not answer; trying again");
}

void DchPresence::answers() {
  const std::lock_guard lock(_mutex);
  _answered = Clock::now();
  if (std::exchange(_isAway, false)) _say("the DCH answers again");
  if (std::exchange(_storesNothing, false)) _say("the DCH stores rows again");
}

void DchPresence::storesNothing() {
  const std::lock_guard lock(_mutex);
  _answered = Clock::now();
  _isAway = false;
  if (!std::exchange(_storesNothing, true)) _say("the DCH stores no rows; trying again");
}

void DchPresence::hasStartedAnew(Clock::time_point known) {
  const std::lock_guard lock(_mutex);
  _answered = Clock::now();
  _isAway = false;
  // Somebody else has seen the same.
  if (known < _startedAnew) return;
  _startedAnew = _answered;
  _say("the DCH has started anew: registered again");
}

void RowDelivery::deliver(const EncodedRow& row) {
  using Answer = ProviderSource::Answer;
  for (Answer answer = Answer::none; answer != Answer::taken;) {
    _checkEnd();
    const auto asked = DchPresence::Clock::now();
    answer = _source.send(row);
    switch (answer) {
      case Answer::taken:
        _presence.answers();
        break;
      case Answer::none:
        _presence.isAway(asked);
        break;
      case Answer::startedAnew:
        _presence.hasStartedAnew(_known);
        break;
      case Answer::notStored:
        if (!_rest) require("sending a row", DCH_STATUS_NOT_STORED);
        _presence.storesNothing();
        _rest();
    }
    if (answer != Answer::none) _known = DchPresence::Clock::now();
  }
}

}  // namespace tools
