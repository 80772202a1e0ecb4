#include "dch/service/server_link.h"

#include <algorithm>
#include <new>
#include <string>
#include <variant>

#ifdef ZORD410_LINK
#include "dch/link/link_log.h"
#include "dch/link/row_publisher.h"
#include "dch/service/server_hub.h"
#endif

namespace dch {

#ifdef ZORD410_LINK

namespace {

// What a server that stands still makes of the second in which the rest is published.
constexpr std::chrono::milliseconds longestEnd{2'000};

}  // namespace

ServerLink::ServerLink(EventLoop& loop, ServerStore& store, const Log& log)
    : _loop(loop), _store(store), _log(log), _lines(std::make_unique<LinkLog>()) {}

ServerLink::~ServerLink() {
  if (_publisher == nullptr) return;
  stop();
  const bool hasEnded = _publisher->waitForEnd(longestEnd);
  const bool hasHubEnded = _hub == nullptr || _hub->waitForEnd(longestEnd);
  keepPosition();
  writeEvents();
  // The system still looks for the name of a server. The process ends without an answer.
  if (!hasEnded) static_cast<void>(_publisher.release());
  if (!hasHubEnded) static_cast<void>(_hub.release());
  if (!hasEnded || !hasHubEnded) static_cast<void>(_lines.release());
}

void ServerLink::start(const LinkSettings& settings) {
  if (settings.servers.empty()) return;
  _rows = _store.keptRows();
  if (!_rows) return _log.warn("link: no rows are published, as the state is in memory");
  _publisher = std::make_unique<RowPublisher>(settings, *_rows, *_lines);
  if (settings.storeRemote)
    _hub = std::make_unique<ServerHub>(_loop, _store.store(), settings, _rows->places, *_lines);
}

void ServerLink::tick() noexcept {
  if (_publisher == nullptr) return;
  keepPosition();
  if (_hub != nullptr) _hub->tick();
  tellOfLostRows();
  writeEvents();
}

void ServerLink::stop() noexcept {
  if (_publisher != nullptr) _publisher->stop();
  if (_hub != nullptr) _hub->stop();
}

void ServerLink::setCounters(Counters* counters) const {
  if (_publisher == nullptr) return;
  const LinkFigures figures = _publisher->figures();
  counters->set(Counter::linkRowsPublished, figures.rowsPublished);
  counters->set(Counter::linkRowsTooLarge, figures.rowsTooLarge);
  counters->set(Counter::linkFailures, figures.failures);
  counters->set(Counter::linkConnected, figures.isConnected ? 1 : 0);
  const std::int64_t behind = _rows->keptPosition() - figures.published.value_or(0);
  counters->set(Counter::linkChangesBehind,
                static_cast<std::uint64_t>(std::max<std::int64_t>(behind, 0)));
  if (_hub != nullptr) _hub->setCounters(counters);
}

// What is published behind it is published again after a sudden death, and told from what is there
// by its name.
void ServerLink::keepPosition() noexcept {
  const std::int64_t position = _publisher->figures().published.value_or(0);
  if (position <= _keptPosition) return;
  try {
    Entry entry{RowsPublished{position}};
    _store.store().append(&entry, this);
    _keptPosition = position;
  } catch (const std::bad_alloc&) {
    // The next tick tries it again.
  }
}

void ServerLink::conclude(Entry&&, bool isKept) noexcept {
  if (!isKept) _keptPosition = 0;  // it is to be kept again
}

// Each time that they are twice as many.
void ServerLink::tellOfLostRows() noexcept {
  const std::uint64_t lost = _store.rowsRemovedUnpublished();
  if (lost < _lostRowsToTell) return;
  _lostRowsToTell = 2 * lost;
  _log.warn(
      "link: %llu rows so far were removed before they were published: the link has been away "
      "for longer than rows are kept",
      static_cast<unsigned long long>(lost));
}

void ServerLink::writeEvents() noexcept {
  for (const std::string& each : _lines->takeLines()) _log.warn("%s", printable(each).c_str());
}

#else

// A build that links no servers; a configuration that wants it is refused.

class LinkLog {};
class RowPublisher {};
class ServerHub {};

ServerLink::ServerLink(EventLoop& loop, ServerStore& store, const Log& log)
    : _loop(loop), _store(store), _log(log) {}
ServerLink::~ServerLink() = default;
void ServerLink::start(const LinkSettings&) {}
void ServerLink::tick() noexcept {}
void ServerLink::stop() noexcept {}
void ServerLink::setCounters(Counters*) const {}
void ServerLink::conclude(Entry&&, bool) noexcept {}

#endif

}  // namespace dch
