#include "dch/core/status_snapshots.h"

#include <new>

#include "dch/core/status_events.h"
#include "zordchcl/messages.h"

namespace dch {

void StatusSnapshots::start(const PeerAddress& subscriber) {
  if (_due.capacity() <= _told.size()) _due.reserve(2 * _told.size() + 1);
  const auto told = _told.insert_or_assign(subscriber, Told()).first;
  if (!sendBatch(subscriber, &told->second)) _told.erase(told);
}

void StatusSnapshots::advance() noexcept {
  _due.clear();
  for (const auto& [subscriber, told] : _told) _due.push_back(subscriber);
  advanceOne();
}

void StatusSnapshots::advanceOne() noexcept {
  if (_due.empty()) return;
  const auto told = _told.find(_due.back());
  _due.pop_back();
  if (told != _told.end() && !sendBatch(told->first, &told->second)) _told.erase(told);
}

// Returns whether there is more to tell. For want of memory the rest is not told.
bool StatusSnapshots::sendBatch(const PeerAddress& subscriber, Told* told) try {
  for (std::size_t sent = 0; sent < _batch; ++sent) {
    const std::optional<SourceNames> source = next(told);
    if (!source) return false;
    const StatusEvent event(*source, DCH_REQUEST_ONLINE);
    if (!_publisher.publishTo(statusTopic, subscriber, event.message())) return false;
  }
  return _registry.nextOnline(told->handle) != nullptr || _remote.hasOnlineBehind(told->remote);
} catch (const std::bad_alloc&) {
  return false;
}

std::optional<SourceNames> StatusSnapshots::next(Told* told) const {
  const Source* const source = _registry.nextOnline(told->handle);
  if (source == nullptr) return _remote.nextOnline(&told->remote);
  told->handle = source->handle;
  return source->names();
}

}  // namespace dch
