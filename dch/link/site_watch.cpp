#include "dch/link/site_watch.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace dch {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using State = AliveMessage::State;

// Runs of one site whose messages may still be on their way.
constexpr std::size_t mostRuns = 4;
// With so many servers of one name something is wrong that nobody here can mend.
constexpr std::size_t mostRivals = 64;
// In that time one that was there has answered, also when its machine stood still for a while.
constexpr seconds newcomerFor = SiteWatch::silentAfter;
// After that a look every second comes late.
constexpr seconds lateAfter{5};
constexpr seconds answerPause{1};

milliseconds termOf(milliseconds period) {
  period = std::clamp<milliseconds>(period, seconds(1), seconds(120));
  return std::max<milliseconds>(SiteWatch::silentAfter, 3 * period);
}

std::optional<std::int64_t> difference(std::optional<std::int64_t> newest,
                                       std::optional<std::int64_t> published) {
  if (!newest || !published) return std::nullopt;
  return std::max<std::int64_t>(*newest - *published, 0);
}

}  // namespace

SiteWatch::SiteWatch(std::string ownSite, const Epoch& ownRun)
    : _ownSite(std::move(ownSite)), _ownRun(ownRun) {}

void SiteWatch::connected(TimePoint now) {
  _now = _listeningSince = now;
  _awaySince.reset();
  if (!_isAside) becomeNewcomer();
}

// ---- Other sites -------------------------------------------------------------------------------

SiteWatch::Heard SiteWatch::heard(const std::string& site, const AliveMessage& message,
                                  TimePoint now) {
  _now = now;
  if (site == _ownSite) return heardOfThisName(message);
  auto place = _sites.find(site);
  if (message.state == State::aside) {
    if (place != _sites.end()) place->second.aloneFrom = now + place->second.term;
    return Heard::aside;
  }
  const bool isUnknown = place == _sites.end();
  if (isUnknown) {
    if (_sites.size() >= mostSites && !makeRoom()) return Heard::noRoom;
    Site made;
    made.runs.reserve(mostRuns + 1);
    made.since = now;
    place = _sites.emplace(site, std::move(made)).first;
  }
  return take(place->second, message);
}

// Who makes up names does not have it look through them each time.
bool SiteWatch::makeRoom() {
  if (_now < _nextRoom) return false;
  auto longest = _sites.end();
  for (auto each = _sites.begin(); each != _sites.end(); ++each)
    if (!each->second.isReachable &&
        (longest == _sites.end() || each->second.since < longest->second.since))
      longest = each;
  if (longest == _sites.end()) {
    _nextRoom = _now + seconds(1);
    return false;
  }
  _sites.erase(longest);
  return true;
}

SiteWatch::Heard SiteWatch::take(Site& site, const AliveMessage& message) {
  std::vector<Run>& runs = site.runs;
  const auto run = std::find_if(runs.begin(), runs.end(),
                                [&](const Run& each) { return each.epoch == message.run; });
  if (run != runs.end() && message.count <= run->count) return Heard::old;
  site.version = message.version;
  const Heard heard = runs.empty()          ? Heard::appeared
                      : !site.isReachable   ? Heard::isBack
                      : run != runs.begin() ? Heard::newRun
                                            : Heard::known;
  if (run != runs.end()) runs.erase(run);
  runs.insert(runs.begin(), {message.run, message.count});
  if (runs.size() > mostRuns) runs.pop_back();
  const bool isStopping = message.state == State::stopping;
  if (heard == Heard::isBack || isStopping != site.isStopping) site.since = _now;
  site.isReachable = true;
  site.isStopping = isStopping;
  site.heardAt = _now;
  site.term = termOf(message.period);
  if (heard != Heard::known || message.hears) site.aloneFrom = _now + site.term;
  site.newest = message.newest;
  site.published = message.published;
  return heard;
}

bool SiteWatch::isOver(TimePoint heardAt, milliseconds term) const {
  return _now - std::max(heardAt, _listeningSince) >= term;
}

std::vector<std::string> SiteWatch::fallenSilent(TimePoint now, bool isConnected) {
  const bool isLate = _lastLook && now - *_lastLook > lateAfter;
  _now = now;
  _lastLook = now;
  if (isLate || !isConnected) _listeningSince = now;
  if (isConnected) _awaySince.reset();
  if (!isConnected && !_awaySince) _awaySince = now;
  const bool isCutOff = _awaySince && now - *_awaySince >= silentAfter;

  std::vector<std::string> silent;
  for (auto& [name, site] : _sites) {
    if (!site.isReachable || !(isCutOff || isOver(site.heardAt, site.term))) continue;
    silent.push_back(name);
    site.isReachable = false;
    site.since = now;
  }
  std::erase_if(_rivals, [&](const Rival& each) { return isOver(each.heardAt, each.term); });
  takeNameUpIfFree();
  return silent;
}

bool SiteWatch::isAlone(const Site& site) const {
  return site.isReachable && _now >= std::max(site.aloneFrom, _listeningSince + site.term);
}

bool SiteWatch::isAlone(std::string_view site) const {
  const auto place = _sites.find(site);
  return place != _sites.end() && isAlone(place->second);
}

std::vector<SiteState> SiteWatch::states() const {
  std::vector<SiteState> states;
  states.reserve(_sites.size());
  for (const auto& [name, site] : _sites)
    states.push_back({.name = name,
                      .run = site.runs.front().epoch,
                      .isReachable = site.isReachable,
                      .isStopping = site.isStopping,
                      .isAlone = isAlone(site),
                      .since = site.since,
                      .version = site.version,
                      .newest = site.newest,
                      .published = site.published,
                      .behind = difference(site.newest, site.published)});
  return states;
}

// ---- This site's name --------------------------------------------------------------------------

SiteWatch::Heard SiteWatch::heardOfThisName(const AliveMessage& message) {
  Rival* const rival = rivalOf(message);
  if (rival == nullptr) return Heard::old;
  rival->run.count = message.count;
  rival->state = message.state;
  rival->heardAt = _now;
  // Both hear the same sites, so their periods are alike: whoever makes one up gains no time.
  rival->term = termOf(std::min(message.period, ownPeriod()));
  rival->hearsThis |= message.hears == _ownRun;
  if (message.state == State::newcomer) _isAsked = true;
  if (_isAside) {
    takeNameUpIfFree();
  } else if (yieldsTo(*rival)) {
    _isAside = true;
    _isAsked = true;
  }
  return Heard::otherOfThisName;
}

// None when the message says nothing new.
SiteWatch::Rival* SiteWatch::rivalOf(const AliveMessage& message) {
  const auto place = std::find_if(_rivals.begin(), _rivals.end(),
                                  [&](const Rival& each) { return each.run.epoch == message.run; });
  if (place != _rivals.end()) return message.count > place->run.count ? &*place : nullptr;
  const bool isPast = message.run == _ownRun || message.state == State::stopping;
  if (isPast) return nullptr;
  if (_rivals.size() == mostRivals)
    _rivals.erase(
        std::min_element(_rivals.begin(), _rivals.end(),
                         [](const Rival& a, const Rival& b) { return a.heardAt < b.heardAt; }));
  _rivals.emplace_back();
  _rivals.back().run.epoch = message.run;
  _isAsked = true;
  return &_rivals.back();
}

bool SiteWatch::yieldsTo(const Rival& rival) const {
  if (!rival.hearsThis) return false;
  const bool isLower = _ownRun.bytes < rival.run.epoch.bytes;
  if (rival.state == State::newcomer) return _isNewcomer && isLower;
  return rival.state == State::here && (_isNewcomer || isLower);
}

// Of several that all stand aside the one with the highest run takes the name up.
bool SiteWatch::isNameFree() const {
  return std::all_of(_rivals.begin(), _rivals.end(), [&](const Rival& each) {
    return each.state == State::aside && each.run.epoch.bytes < _ownRun.bytes;
  });
}

void SiteWatch::takeNameUpIfFree() {
  if (!_isAside || !isNameFree()) return;
  _isAside = false;
  _isAsked = true;
  becomeNewcomer();
}

void SiteWatch::becomeNewcomer() {
  _isNewcomer = true;
  _newcomerUntil = _now + newcomerFor;
}

bool SiteWatch::hasRival() const {
  return std::any_of(_rivals.begin(), _rivals.end(),
                     [](const Rival& each) { return each.hearsThis; });
}

// Each of them in turn, those first that use the name.
std::optional<Epoch> SiteWatch::nextHeard() {
  std::vector<Epoch> heard;
  for (const bool isAside : {false, true}) {
    for (const Rival& each : _rivals)
      if ((each.state == State::aside) == isAside) heard.push_back(each.run.epoch);
    if (!heard.empty()) return heard[_heardTurn++ % heard.size()];
  }
  return std::nullopt;
}

milliseconds SiteWatch::ownPeriod() const {
  const auto reachable = std::count_if(_sites.begin(), _sites.end(),
                                       [](const auto& each) { return each.second.isReachable; });
  return std::max<milliseconds>(seconds(1), reachable * milliseconds(10));
}

SiteWatch::Speech SiteWatch::speak(TimePoint now) {
  _now = now;
  Speech speech;
  speech.period = ownPeriod();
  speech.untilChanges = std::max<milliseconds>(seconds(1), speech.period / 2);
  speech.state = _isAside ? State::aside : _isNewcomer ? State::newcomer : State::here;
  speech.hears = nextHeard();
  if (now >= _newcomerUntil) _isNewcomer = false;
  return speech;
}

bool SiteWatch::mustSpeakNow(TimePoint now) {
  _now = now;
  if (!_isAsked || (_lastAnswer && now - *_lastAnswer < answerPause)) return false;
  _isAsked = false;
  _lastAnswer = now;
  return true;
}

}  // namespace dch
