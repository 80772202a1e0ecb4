#include "dch/service/server_hub.h"

#include <algorithm>
#include <new>
#include <utility>

namespace dch {

ServerHub::ServerHub(EventLoop& loop, Store& store, const LinkSettings& settings,
                     std::function<StatePlaces()> places, LinkLog& log)
    : _store(store),
      _waker(loop, [this] { append(_collector.take()); }),
      _collector(
          settings, std::move(places), [this] { _waker.wake(); }, log) {}

void ServerHub::tick() noexcept {
  if (_underWay == 0) append(std::exchange(_notKept, {}));
}

// Nothing else comes until all of it is kept: a place behind rows that are not would lose them.
void ServerHub::append(std::vector<Change>&& changes) noexcept {
  if (changes.empty()) return;
  try {
    _notKept.reserve(changes.size());  // so that conclude() asks for no memory
  } catch (const std::bad_alloc&) {
    _notKept = std::move(changes);
    return;
  }
  _underWay = changes.size();
  for (Change& each : changes) {
    Entry entry{std::move(each)};
    try {
      _store.append(&entry, this);
    } catch (const std::bad_alloc&) {
      conclude(std::move(entry), false);
    }
  }
  _store.handOver();
}

void ServerHub::conclude(Entry&& entry, bool isKept) noexcept {
  if (!isKept) _notKept.push_back(std::move(entry.change));
  if (--_underWay == 0 && _notKept.empty()) _collector.taken();
}

// The site may have gone on by a second since.
void ServerHub::setUncollected(std::vector<SiteState>* sites) const {
  const auto collected = _collector.figures().collected;
  if (collected == nullptr) return;
  for (SiteState& each : *sites) {
    const auto place = collected->find(each.name);
    if (place != collected->end() && place->second.epoch == each.run && each.newest)
      each.uncollected = std::max<std::int64_t>(*each.newest - place->second.number, 0);
  }
}

void ServerHub::setCounters(Counters* counters) const {
  const CollectorFigures figures = _collector.figures();
  counters->set(Counter::linkRowsCollected, figures.rowsCollected);
  counters->set(Counter::linkRowsFetched, figures.rowsFetched);
  counters->set(Counter::linkRowsAfterGaps, figures.rowsAfterGaps);
  counters->set(Counter::linkRowsRefused, figures.rowsRefused);
}

}  // namespace dch
