#include "dch/link/live_rows.h"

#include <chrono>

namespace dch {

// The link's thread asks for a topic that got its first subscriber at once, and takes its time to
// let one go.
void LiveRows::topicChanged(std::string_view topic, bool isWanted) noexcept {
  _topics.changed(topic, isWanted, std::chrono::steady_clock::now());
  if (isWanted)
    _bell.ring();
  else
    _counts.forget(topic);
}

bool LiveRows::put(OutgoingLiveRow&& row) noexcept {
  if (!_outbox.put(std::move(row))) return false;
  if (_outbox.isOpen()) _bell.ring();
  return true;
}

}  // namespace dch
