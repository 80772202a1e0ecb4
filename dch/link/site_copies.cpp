#include "dch/link/site_copies.h"

#include <algorithm>
#include <new>
#include <utility>
#include <vector>

#include "dch/link/provider_lines.h"

namespace dch {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr milliseconds shortPause{250};
// Of questions that are under way at a time. Sites that never answer, such as those that may not,
// leave room for others.
constexpr std::size_t mostDoubtful = SiteCopies::mostUnderWay / 2;
// In that time the changes that an answer has overtaken have come.
constexpr milliseconds overtakenPause{100};
// What was said of an earlier revision was on its way for less.
constexpr seconds lateFor{10};
// Who begins anew says something again before that.
constexpr seconds nothingFor{60};

}  // namespace

SiteCopies::SiteCopies(std::string ownSite, ProviderNewsSink& sink)
    : _ownSite(std::move(ownSite)), _sink(sink) {}

// ---- The sites ---------------------------------------------------------------------------------

SiteCopies::Site* SiteCopies::find(std::string_view name) {
  const auto place = _sites.find(name);
  return place != _sites.end() ? &place->second : nullptr;
}

// Null when there is no room.
SiteCopies::Site* SiteCopies::add(const std::string& name, TimePoint now) {
  if (_sites.size() >= mostSites && !makeRoom(now)) return nullptr;
  Turns place;
  place.emplace(now, nullptr);
  const auto made = _sites.try_emplace(name).first;
  Site& site = made->second;
  site.name = made->first;
  site.resting = place.extract(place.begin());
  site.resting.mapped() = &site;
  return &site;
}

// Forgets a silent site, and has it forgotten. Who makes up names does not have it look through
// them each time.
bool SiteCopies::makeRoom(TimePoint now) {
  if (now < _nextRoom) return false;
  for (auto each = _sites.begin(); each != _sites.end(); ++each) {
    Site& site = each->second;
    if (site.state != Site::State::silent) continue;
    if (site.isTold && !tell(site, ProviderNews::Kind::first, {}, true)) continue;
    rest(site);
    _sites.erase(each);
    return true;
  }
  _nextRoom = now + seconds(1);
  return false;
}

void SiteCopies::move(Site& site, Turns* turns, TimePoint at) {
  rest(site);
  site.resting.key() = at;
  site.turn = turns->insert(std::move(site.resting));
  site.in = turns;
}

void SiteCopies::rest(Site& site) {
  if (site.in == nullptr) return;
  site.resting = site.in->extract(site.turn);
  site.in = nullptr;
}

bool SiteCopies::tell(Site& site, ProviderNews::Kind kind, std::vector<ProviderFact> facts,
                      bool isAll) {
  if (!_sink.put({.site = std::string(site.name),
                  .kind = kind,
                  .facts = std::move(facts),
                  .isAll = isAll}))
    return false;
  site.isTold = true;
  return true;
}

// ---- What they say -----------------------------------------------------------------------------

void SiteCopies::heard(const SiteChanges& changes, TimePoint now) noexcept {
  if (changes.site == _ownSite || changes.from > changes.to) return;
  Site* site = find(changes.site);
  try {
    if (changes.to == 0 && (site == nullptr || site->state == Site::State::silent)) return;
    if (site == nullptr) site = add(changes.site, now);
    if (site != nullptr) take(*site, changes, now);
  } catch (const std::bad_alloc&) {
    if (site != nullptr) begin(*site, now);
  }
}

void SiteCopies::take(Site& site, const SiteChanges& changes, TimePoint now) {
  if (site.run != changes.run) {
    site.run = changes.run;
    site.revision = 0;
    site.saysNothingAt = now;
    forget(site);
  }
  if (site.state == Site::State::copying || site.state == Site::State::following)
    return follow(site, changes, now);
  if (changes.to == 0) return hearNothing(site, now);
  site.revision = std::max(site.revision, changes.to);
  if (site.state == Site::State::silent) forget(site);
  wantCopy(site, now);
}

void SiteCopies::follow(Site& site, const SiteChanges& changes, TimePoint now) {
  if (changes.to < site.revision) {
    // It was on its way for long, or what was said of the revision before was not true.
    if (now - site.currentAt < lateFor) return;
    site.revision = changes.to;
    return begin(site, now);
  }
  site.currentAt = now;
  if (changes.to == site.revision) return;
  const bool isGap = changes.from > site.revision;
  site.revision = changes.to;
  // A copy that is under way is finished first: else one that takes long would never be.
  if (isGap && site.state == Site::State::following) return begin(site, now);
  site.hasGap |= isGap;
  auto facts = changes.text.size() <= mostBytesOfText
                   ? parseProviderLines(changes.text, _registrations)
                   : std::nullopt;
  if (!facts) return leaveAlone(site, now);
  if (!facts->empty() && !tell(site, ProviderNews::Kind::more, *std::move(facts))) begin(site, now);
}

// A run that does not know yet what it has: nothing is asked of it. One that never says anything
// has nothing that is on line.
void SiteCopies::hearNothing(Site& site, TimePoint now) {
  if (site.revision != 0) return;
  if (now - site.saysNothingAt >= nothingFor) return becomeSilent(site, now);
  rest(site);
}

// What is known of it leads nowhere. A copy that was to begin still is.
void SiteCopies::forget(Site& site) {
  if (site.state != Site::State::unknown) rest(site);
  site.state = Site::State::unknown;
  site.key.clear();
}

void SiteCopies::begin(Site& site, TimePoint now) {
  forget(site);
  wantCopy(site, now);
}

void SiteCopies::wantCopy(Site& site, TimePoint now) {
  if (site.in == nullptr) move(site, &_waiting, site.pace.next(now));
}

void SiteCopies::leaveAlone(Site& site, TimePoint now) {
  ++_refused;
  begin(site, now);
  move(site, &_waiting, now + leftAlone);
}

void SiteCopies::silent(std::string_view name, TimePoint now) noexcept {
  Site* const site = find(name);
  if (site != nullptr && site->state != Site::State::silent) becomeSilent(*site, now);
}

void SiteCopies::becomeSilent(Site& site, TimePoint now) {
  site.state = Site::State::silent;
  site.revision = 0;
  site.key.clear();
  rest(site);
  tellSilence(site, now);
}

void SiteCopies::tellSilence(Site& site, TimePoint now) {
  bool isKnown = !site.isTold;
  try {
    isKnown = isKnown || tell(site, ProviderNews::Kind::silent);
  } catch (const std::bad_alloc&) {
    // It is told later.
  }
  if (isKnown) return rest(site);
  move(site, &_waiting, now + shortPause);
}

// ---- What they are asked -----------------------------------------------------------------------

std::optional<SiteCopies::Question> SiteCopies::nextQuestion(TimePoint now) noexcept {
  giveUpWaiting(now);
  while (!_waiting.empty() && _waiting.begin()->first <= now) {
    Site& site = *_waiting.begin()->second;
    if (site.state == Site::State::silent) {
      tellSilence(site, now);
      continue;
    }
    if (!mayAsk(now)) break;
    if (!_sink.hasRoom(site.name) || !mayFail(site)) {
      move(site, &_waiting, now + shortPause);
      continue;
    }
    try {
      return ask(site, now);
    } catch (const std::bad_alloc&) {
      break;
    }
  }
  return std::nullopt;
}

void SiteCopies::giveUpWaiting(TimePoint now) {
  while (!_underWay.empty() && _underWay.begin()->first <= now) {
    Site& site = *_underWay.begin()->second;
    fail(site, now);
  }
}

void SiteCopies::fail(Site& site, TimePoint now) {
  site.hasFailed = true;
  move(site, &_waiting, site.pace.nextAfterFailure(now));
}

bool SiteCopies::mayAsk(TimePoint now) {
  if (_underWay.size() >= mostUnderWay) return false;
  if (_questionsOfSecond < mostQuestionsOfSecond) return true;
  return now >= _secondFrom + seconds(1);
}

bool SiteCopies::mayFail(const Site& site) const {
  if (!site.hasFailed) return true;
  return std::count_if(_underWay.begin(), _underWay.end(), [](const auto& each) {
           return each.second->hasFailed;
         }) < static_cast<std::ptrdiff_t>(mostDoubtful);
}

SiteCopies::Question SiteCopies::ask(Site& site, TimePoint now) {
  Question question{.site = std::string(site.name), .key = site.key, .number = ++_questions};
  if (_questionsOfSecond == 0 || now >= _secondFrom + seconds(1)) {
    _secondFrom = now;
    _questionsOfSecond = 0;
  }
  ++_questionsOfSecond;
  site.question = question.number;
  site.revisionWhenAsked = site.revision;
  move(site, &_underWay, now + patience);
  return question;
}

// The site that was asked; null when it is no longer waited for.
SiteCopies::Site* SiteCopies::endQuestion(std::uint64_t question) {
  for (const auto& [until, site] : _underWay) {
    if (site->question != question) continue;
    rest(*site);
    return site;
  }
  return nullptr;
}

void SiteCopies::unanswered(std::uint64_t question, TimePoint now) noexcept {
  Site* const site = endQuestion(question);
  if (site != nullptr) fail(*site, now);
}

void SiteCopies::answered(std::uint64_t question, const KnownHeader& header, std::string_view text,
                          TimePoint now) noexcept {
  Site* const site = endQuestion(question);
  if (site == nullptr) return;
  site->hasFailed = false;
  if (!isGood(*site, header, now)) return;
  try {
    takePiece(*site, header.isAll, text, now);
  } catch (const std::bad_alloc&) {
    begin(*site, now);
  }
}

// What is to be done instead is done. The first piece says which run it is that answers.
bool SiteCopies::isGood(Site& site, const KnownHeader& header, TimePoint now) {
  const bool isFirst = site.state == Site::State::unknown;
  if (header.run != site.run) {
    if (!isFirst) {
      begin(site, now);
      return false;
    }
    site.run = header.run;
    site.revision = header.revision;
  }
  if (header.revision < site.revision && header.revision >= site.revisionWhenAsked) {
    // Changes have overtaken it: what it says of them is old.
    move(site, &_waiting, now + overtakenPause);
    return false;
  }
  if (header.revision < site.revision && !isFirst) {
    // It had not come so far when it was asked: what was said of its revision was not true.
    site.revision = 0;
    begin(site, now);
    return false;
  }
  if (isFirst) site.revision = header.revision;
  return true;
}

void SiteCopies::takePiece(Site& site, bool isAll, std::string_view text, TimePoint now) {
  auto facts = text.size() <= mostBytesOfText ? parseProviderPiece(text, &site.key, _registrations)
                                              : std::nullopt;
  const bool isFirst = site.state == Site::State::unknown;
  if (isFirst) {
    site.currentAt = now;
    site.hasGap = false;
    site.facts = 0;
  }
  const bool leadsOn = facts && (isAll || !facts->empty());
  if (leadsOn) site.facts += facts->size();
  if (!leadsOn || site.facts > mostFactsOfCopy) return leaveAlone(site, now);
  const auto kind = isFirst ? ProviderNews::Kind::first : ProviderNews::Kind::more;
  if (!tell(site, kind, *std::move(facts), isAll)) return begin(site, now);
  site.state = isAll ? Site::State::following : Site::State::copying;
  if (!isAll) return move(site, &_waiting, now);
  site.key.clear();
  if (site.hasGap) begin(site, now);
}

}  // namespace dch
