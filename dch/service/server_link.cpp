#include "dch/service/server_link.h"

#include <algorithm>
#include <chrono>
#include <new>
#include <string>
#include <variant>

#ifdef ZORD410_LINK
#include "dch/core/site_report.h"
#include "dch/link/link_log.h"
#include "dch/link/live_rows.h"
#include "dch/link/row_publisher.h"
#include "dch/link/site_link.h"
#include "dch/link/site_providers.h"
#include "dch/service/server_hub.h"
#include "dch/service/server_live.h"
#include "dch/service/server_providers.h"
#endif

namespace dch {

#ifdef ZORD410_LINK

namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

// What a server that stands still makes of the second in which the rest is published.
constexpr milliseconds longestEnd{2'000};

milliseconds leftUntil(Clock::time_point end) {
  return std::max(std::chrono::duration_cast<milliseconds>(end - Clock::now()), milliseconds(0));
}

// Whether it has ended. If not, the system still looks for the name of a server: the process ends
// without an answer.
template <class Part>
bool waitOrRelease(std::unique_ptr<Part>* part, Clock::time_point end) {
  if (*part == nullptr) return true;
  if ((*part)->waitForEnd(leftUntil(end))) return true;
  static_cast<void>(part->release());
  return false;
}

}  // namespace

ServerLink::ServerLink(EventLoop& loop, ServerStore& store, const Log& log,
                       const LinkSettings& settings, const Epoch& run)
    : _loop(loop),
      _store(store),
      _log(log),
      _settings(settings),
      _run(run),
      _lines(std::make_unique<LinkLog>()) {
  if (settings.servers.empty()) return;
  _liveRows = std::make_shared<LiveRows>(settings.site, run);
  _siteProviders = std::make_shared<SiteProviders>();
}

Observers ServerLink::observersWith(Observer* page) {
  if (_liveRows == nullptr) return page;
  return {page, _liveRows.get(), &_siteProviders->changed};
}

ServerLink::~ServerLink() {
  if (_sites == nullptr) return;
  stop();
  const auto end = Clock::now() + longestEnd;
  if (_publisher != nullptr) {
    _publisher->waitForEnd(leftUntil(end));
    keepPosition();
  }
  const bool hasPublisherEnded = waitOrRelease(&_publisher, end);
  const bool hasHubEnded = waitOrRelease(&_hub, end);
  const bool haveSitesEnded = waitOrRelease(&_sites, end);
  writeEvents();
  if (!hasPublisherEnded || !hasHubEnded || !haveSitesEnded) static_cast<void>(_lines.release());
}

void ServerLink::start(Channel* channel) {
  if (_liveRows == nullptr) return;
  _sites = std::make_unique<SiteLink>(_settings, _run, ZORD410_VERSION, _liveRows, _siteProviders,
                                      *_lines);
  if (channel != nullptr) {
    _live = std::make_unique<ServerLive>(_loop, _liveRows, *channel);
    _providers = std::make_unique<ServerProviders>(_loop, _siteProviders, *channel);
  }
  _rows = _store.keptRows();
  if (!_rows) return _log.warn("link: no rows are published, as the state is in memory");
  _publisher = std::make_unique<RowPublisher>(_settings, *_rows, *_lines);
  if (_settings.storeRemote)
    _hub = std::make_unique<ServerHub>(_loop, _store.store(), _settings, _rows->places, *_lines);
}

void ServerLink::tick() noexcept {
  if (_sites == nullptr) return;
  if (_providers != nullptr) _providers->tick();  // before it is said that this site is there
  heedSites();
  if (_publisher != nullptr) {
    keepPosition();
    tellOfLostRows();
  }
  if (_hub != nullptr) _hub->tick();
  if (_live != nullptr) _live->tick(_log);
  writeEvents();
}

void ServerLink::stop() noexcept {
  _live.reset();
  _providers.reset();
  if (_publisher != nullptr) _publisher->stop();
  if (_hub != nullptr) _hub->stop();
  if (_sites != nullptr) _sites->stop();
}

std::shared_ptr<const std::vector<SiteState>> ServerLink::sites() const {
  if (_sites == nullptr) return nullptr;
  auto sites = _sites->figures().sites;
  if (_hub == nullptr) return sites;
  auto ofHub = std::make_shared<std::vector<SiteState>>(*sites);
  _hub->setUncollected(ofHub.get());
  return ofHub;
}

void ServerLink::setCounters(Counters* counters) const {
  if (_sites == nullptr) return;
  const SiteFigures sites = _sites->figures();
  counters->set(Counter::linkMessagesRefused, sites.messagesRefused);
  counters->set(Counter::linkSiteNameRefused, sites.nameRefused);
  counters->set(Counter::linkAside, sites.isAside ? 1 : 0);
  counters->set(Counter::linkQuestionsRefused, sites.questionsRefused);
  if (_live != nullptr) _live->setCounters(counters);
  if (_providers != nullptr) _providers->setCounters(counters);
  counters->set(Counter::linkSites, sites.sites->size());
  counters->set(Counter::linkSitesSilent,
                static_cast<std::uint64_t>(
                    std::count_if(sites.sites->begin(), sites.sites->end(),
                                  [](const SiteState& each) { return !each.isReachable; })));
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

std::string ServerLink::report() const {
  const auto others = sites();
  return others != nullptr ? siteReport(*others, Clock::now()) : "";
}

// Others are told how far this one is; what they have told says what is to be done here.
void ServerLink::heedSites() noexcept {
  SiteLink::Places places;
  if (_publisher != nullptr)
    places = {.newest = _rows->keptPosition(), .published = _publisher->figures().published};
  _sites->tick(places);
  const SiteFigures figures = _sites->figures();
  if (_publisher != nullptr) _publisher->setAside(figures.isAside);
  if (_hub == nullptr) return;
  _hub->setAside(figures.isAside);
  _hub->setSites(figures.sites);
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
class ServerLive {};
class ServerProviders {};
class SiteLink {};
struct SiteProviders {};

ServerLink::ServerLink(EventLoop& loop, ServerStore& store, const Log& log,
                       const LinkSettings& settings, const Epoch& run)
    : _loop(loop), _store(store), _log(log), _settings(settings), _run(run) {}
ServerLink::~ServerLink() = default;
Observers ServerLink::observersWith(Observer* page) {
  return page;
}
void ServerLink::start(Channel*) {}
void ServerLink::tick() noexcept {}
void ServerLink::stop() noexcept {}
void ServerLink::setCounters(Counters*) const {}
std::shared_ptr<const std::vector<SiteState>> ServerLink::sites() const {
  return nullptr;
}
std::string ServerLink::report() const {
  return "";
}
void ServerLink::conclude(Entry&&, bool) noexcept {}

#endif

}  // namespace dch
