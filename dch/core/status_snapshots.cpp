#include "dch/core/status_snapshots.h"

#include "dch/core/status_events.h"
#include "zordchcl/messages.h"

namespace dch {

void StatusSnapshots::start(const PeerAddress& subscriber) {
  if (_due.capacity() <= _lastTold.size()) _due.reserve(2 * _lastTold.size() + 1);
  const auto told = _lastTold.insert_or_assign(subscriber, 0).first;
  if (!sendBatch(subscriber, &told->second)) _lastTold.erase(told);
}

void StatusSnapshots::advance() noexcept {
  _due.clear();
  for (const auto& [subscriber, told] : _lastTold) _due.push_back(subscriber);
  advanceOne();
}

void StatusSnapshots::advanceOne() noexcept {
  if (_due.empty()) return;
  const auto told = _lastTold.find(_due.back());
  _due.pop_back();
  if (told != _lastTold.end() && !sendBatch(told->first, &told->second)) _lastTold.erase(told);
}

// Returns whether there is more to tell.
bool StatusSnapshots::sendBatch(const PeerAddress& subscriber, ZORA_Long* lastTold) {
  for (std::size_t sent = 0; sent < _batch; ++sent) {
    const Source* const source = _registry.nextOnline(*lastTold);
    if (source == nullptr) return false;
    const StatusEvent event(source->names(), DCH_REQUEST_ONLINE);
    if (!_publisher.publishTo(statusTopic, subscriber, event.message())) return false;
    *lastTold = source->handle;
  }
  return _registry.nextOnline(*lastTold) != nullptr;
}

}  // namespace dch
