#include "dch/core/remote_providers.h"

#include <algorithm>
#include <iterator>
#include <new>
#include <utility>

#include "zordchcl/messages.h"

namespace dch {

namespace {

// How much is looked at in one call of settle().
constexpr std::size_t workAtATime = 100;
// A long registration takes as long to go as some short ones.
constexpr std::size_t textBytesOfOne = 500;

constexpr std::size_t shareOf(std::size_t limit) {
  return limit / 4;
}

bool isOfApplication(ProviderFact::Kind kind) {
  return kind == ProviderFact::Kind::registered || kind == ProviderFact::Kind::unregistered;
}

std::string keyOf(const ProviderFact& fact) {
  return isOfApplication(fact.kind) ? fact.application
                                    : joinNames(fact.application, fact.group, fact.source);
}

// What joinNames() has joined: an application, with or without a group and a source.
SourceNames namesOf(std::string_view key) {
  SourceNames names;
  for (std::string_view* const each : {&names.application, &names.group, &names.source}) {
    const std::size_t end = std::min(key.find('\0'), key.size());
    *each = key.substr(0, end);
    key.remove_prefix(std::min(end + 1, key.size()));
  }
  return names;
}

// Whether one of the two between which `next` is the second is of the application.
template <class Entries, class Iterator>
bool isBesideOneOf(const RemoteApplication* application, Entries& entries, Iterator next) {
  return (next != entries.end() && next->second.application == application) ||
         (next != entries.begin() && std::prev(next)->second.application == application);
}

}  // namespace

void RemoteProviders::begin(std::string_view name) noexcept {
  Site* const site = findSite(name);
  if (site == nullptr) return;  // it has nothing that could be gone at the end
  ++site->round;
  site->isInCopy = true;
}

void RemoteProviders::end(std::string_view name) noexcept {
  Site* const site = findSite(name);
  if (site == nullptr || !std::exchange(site->isInCopy, false)) return;
  site->registrationsSince = site->sourcesSince = site->round;
  settleLater(site);
}

void RemoteProviders::silent(std::string_view name) noexcept {
  Site* const site = findSite(name);
  if (site == nullptr) return;
  site->isInCopy = false;
  site->sourcesSince = ++site->round;
  settleLater(site);
}

void RemoteProviders::take(std::string_view name, const ProviderFact& fact) {
  if (fact.kind == ProviderFact::Kind::registered || fact.kind == ProviderFact::Kind::online) {
    add(name, fact);
    return;
  }
  Site* const site = findSite(name);
  if (site == nullptr) return;
  if (const auto known = site->entries.find(keyOf(fact)); known != site->entries.end())
    remove(site, known);
  dropUnused(name);
}

bool RemoteProviders::settle() noexcept {
  std::size_t left = workAtATime;
  while (left > 0 && !_settling.empty()) {
    Site& site = _settling.front();
    std::size_t work = 1;
    if (site.next == site.entries.end()) {
      site.isSettling = false;
      _sites.splice(_sites.begin(), _settling, _settling.begin());
      dropUnused(site.name);
    } else {
      const RemoteApplication::Shared* const registration = site.next->second.registration;
      if (registration != nullptr) work += registration->registration->text.size() / textBytesOfOne;
      // Subscribers are told of each one that goes: that may take as long as all the rest.
      if (settleOne(&site)) work = left;
    }
    left -= std::min(left, work);
  }
  // One that has very much does not keep the others waiting.
  if (!_settling.empty()) _settling.splice(_settling.end(), _settling, _settling.begin());
  return !_settling.empty();
}

const RemoteApplication* RemoteProviders::find(std::string_view application) const {
  const auto known = _applications.find(application);
  return known != _applications.end() && known->second.isRegistered() ? &known->second : nullptr;
}

const RemoteApplication* RemoteProviders::next(std::string_view application) const {
  const auto next = std::find_if(_applications.upper_bound(application), _applications.end(),
                                 [](const auto& each) { return each.second.isRegistered(); });
  return next != _applications.end() ? &next->second : nullptr;
}

RemoteProviders::Site* RemoteProviders::findSite(std::string_view name) {
  const auto known = _siteOf.find(name);
  return known != _siteOf.end() ? &*known->second : nullptr;
}

RemoteProviders::Site* RemoteProviders::enterSite(std::string_view name) {
  if (Site* const known = findSite(name)) return known;
  Sites created;
  created.emplace_back(name);
  _siteOf.emplace(name, created.begin());
  _sites.splice(_sites.begin(), created);
  return &_sites.front();
}

void RemoteProviders::dropUnused(std::string_view name) noexcept {
  const auto known = _siteOf.find(name);
  if (known == _siteOf.end()) return;
  const Sites::iterator site = known->second;
  if (site->isSettling || !site->entries.empty()) return;
  _siteOf.erase(known);
  _sites.erase(site);
}

void RemoteProviders::settleLater(Site* site) noexcept {
  site->next = site->entries.begin();
  if (std::exchange(site->isSettling, true)) return;
  _settling.splice(_settling.end(), _sites, _siteOf.find(site->name)->second);
}

// Returns whether it has gone.
bool RemoteProviders::settleOne(Site* site) noexcept {
  const Entries::iterator entry = site->next++;
  if (!isGone(*site, entry->second)) return false;
  remove(site, entry);
  return true;
}

bool RemoteProviders::isGone(const Site& site, const Entry& entry) {
  return entry.round <
         (entry.registration != nullptr ? site.registrationsSince : site.sourcesSince);
}

// What needs memory comes first, so that nothing has to be taken back but what is not in use.
void RemoteProviders::add(std::string_view name, const ProviderFact& fact) {
  std::string key = keyOf(fact);
  if (!hasRoom(findSite(name), key, fact)) {
    ++_refused;
    return;
  }
  try {
    RemoteApplication& application =
        _applications.try_emplace(fact.application, fact.application).first->second;
    RemoteApplication::Shared* const registration =
        fact.registration != nullptr ? application.enter(fact.registration) : nullptr;
    Site* const site = enterSite(name);
    const auto [entry, isNew] = enter(site, std::move(key), &application);
    entry->second.round = site->round;
    if (registration != nullptr)
      setRegistration(site, entry, registration);
    else if (isNew)
      addSource(*entry);
  } catch (const std::bad_alloc&) {
    dropUnused(name);
    const auto known = _applications.find(fact.application);
    if (known != _applications.end() && fact.registration != nullptr)
      known->second.dropUnused(fact.registration->text);
    if (known != _applications.end() && !known->second.isInUse()) _applications.erase(known);
    throw;
  }
}

bool RemoteProviders::hasRoom(const Site* site, const std::string& key,
                              const ProviderFact& fact) const {
  const Entry* former = nullptr;
  if (site != nullptr) {
    const auto known = site->entries.find(key);
    if (known != site->entries.end()) former = &known->second;
  }
  return (former != nullptr || hasRoomForEntry(site, key, fact.application)) &&
         (fact.registration == nullptr || hasRoomForText(site, former, fact));
}

bool RemoteProviders::hasRoomForEntry(const Site* site, const std::string& key,
                                      std::string_view name) const {
  const auto known = _applications.find(name);
  const bool isNew = known == _applications.end();
  if (_entries >= _limits.entries || (isNew && _applications.size() >= _limits.applications))
    return false;
  if (site == nullptr) return true;
  const bool isNewAtSite =
      isNew || !isBesideOneOf(&known->second, site->entries, site->entries.lower_bound(key));
  return site->entries.size() < shareOf(_limits.entries) &&
         (!isNewAtSite || site->applications < shareOf(_limits.applications));
}

// `former` is the entry that it replaces, null when there is none.
bool RemoteProviders::hasRoomForText(const Site* site, const Entry* former,
                                     const ProviderFact& fact) const {
  const std::string& text = fact.registration->text;
  std::size_t ofSite = site != nullptr ? site->textBytes : 0, ofAll = _textBytes;
  if (former != nullptr) {
    const std::size_t freed = former->registration->registration->text.size();
    ofSite -= freed;
    if (former->registration->sites == 1) ofAll -= freed;
  }
  const auto known = _applications.find(fact.application);
  const bool isThere = known != _applications.end() && known->second.find(text) != nullptr;
  if (!isThere) ofAll += text.size();
  return ofSite + text.size() <= shareOf(_limits.textBytes) && ofAll <= _limits.textBytes;
}

std::pair<RemoteProviders::Entries::value_type*, bool> RemoteProviders::enter(
    Site* site, std::string&& key, RemoteApplication* application) {
  const auto next = site->entries.lower_bound(key);
  if (next != site->entries.end() && next->first == key) return {&*next, false};
  const bool isNewAtSite = !isBesideOneOf(application, site->entries, next);
  const auto entered = site->entries.emplace_hint(next, std::move(key), Entry{application});
  if (isNewAtSite) ++site->applications;
  ++_entries;
  return {&*entered, true};
}

void RemoteProviders::remove(Site* site, Entries::iterator entry) noexcept {
  RemoteApplication* const application = entry->second.application;
  tell(*entry,
       entry->second.registration != nullptr ? DCH_REQUEST_UNREGISTER : DCH_REQUEST_OFFLINE);
  if (entry->second.registration != nullptr)
    removeRegistration(site, application, entry->second.registration);
  else
    removeSource(application);
  const bool isNext = site->next == entry;
  const auto next = site->entries.erase(entry);
  if (isNext) site->next = next;
  if (!isBesideOneOf(application, site->entries, next)) --site->applications;
  --_entries;
  if (!application->isInUse()) _applications.erase(_applications.find(application->name()));
}

void RemoteProviders::setRegistration(Site* site, Entries::value_type* entry,
                                      RemoteApplication::Shared* registration) noexcept {
  RemoteApplication::Shared* const former = std::exchange(entry->second.registration, registration);
  if (former == registration) return;
  const std::size_t bytes = registration->registration->text.size();
  site->textBytes += bytes;
  if (registration->sites++ == 0) {
    _textBytes += bytes;
    ++_revision;
  }
  if (former != nullptr) removeRegistration(site, entry->second.application, former);
  tell(*entry, DCH_REQUEST_REGISTER);
}

void RemoteProviders::removeRegistration(Site* site, RemoteApplication* application,
                                         RemoteApplication::Shared* registration) noexcept {
  const std::size_t bytes = registration->registration->text.size();
  site->textBytes -= bytes;
  if (registration->sites == 1) {
    _textBytes -= bytes;
    ++_revision;
  }
  application->remove(registration);
}

void RemoteProviders::addSource(const Entries::value_type& entry) noexcept {
  entry.second.application->addSource();
  ++_revision;
  tell(entry, DCH_REQUEST_ONLINE);
}

void RemoteProviders::removeSource(RemoteApplication* application) noexcept {
  application->removeSource();
  ++_revision;
}

// What is gone goes later, and is told to have gone then: until then it is on line for all.
const RemoteProviders::Entries::value_type* RemoteProviders::sourceBehind(const Place& place,
                                                                          const Site** of) const {
  for (auto known = _siteOf.lower_bound(place.site); known != _siteOf.end(); ++known) {
    const Site& site = *known->second;
    const auto first =
        known->first == place.site ? site.entries.upper_bound(place.names) : site.entries.begin();
    const auto found = std::find_if(first, site.entries.end(), [](const auto& each) {
      return each.second.registration == nullptr;
    });
    if (found == site.entries.end()) continue;
    *of = &site;
    return &*found;
  }
  return nullptr;
}

std::optional<SourceNames> RemoteProviders::nextOnline(Place* place) const {
  const Site* site = nullptr;
  const Entries::value_type* const source = sourceBehind(*place, &site);
  if (source == nullptr) return std::nullopt;
  *place = {site->name, source->first};
  return namesOf(source->first);
}

bool RemoteProviders::hasOnlineBehind(const Place& place) const {
  const Site* site = nullptr;
  return sourceBehind(place, &site) != nullptr;
}

void RemoteProviders::tell(const Entries::value_type& entry, short requestCode) const noexcept {
  if (_told) _told(namesOf(entry.first), requestCode);
}

}  // namespace dch
