// What sites tell of their providers, in any order and with copies that end, begin anew or break
// off, and this server's own. The model has of each site what it told last, and what is gone but
// may still be there; nothing is there, or refused, for another reason. When all that is gone went,
// the texts for consumers are those that the model makes. Memory fails, too: then nothing changes.
#include "dch/core/remote_providers.h"

#include <algorithm>
#include <cstddef>
#include <map>
#include <memory>
#include <new>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "dch/core/catalogue.h"
#include "fuzz/support/input.h"
#include "fuzz/support/provider_model.h"
#include "fuzz/support/require.h"

namespace {

using fuzz::ProviderEntries;
using fuzz::ProviderEntry;
using fuzz::ProviderKey;
using fuzz::RegistrationModel;
using fuzz::require;
using Kind = dch::ProviderFact::Kind;

// The request for memory that fails, counted from 1; 0: none does.
unsigned failingRequest = 0;

}  // namespace

// operator new, as far as it is called by what is linked here.
extern "C" void* __real__Znwm(std::size_t size);
extern "C" void* __wrap__Znwm(std::size_t size) {
  if (failingRequest > 0 && --failingRequest == 0) throw std::bad_alloc();
  return __real__Znwm(size);
}

namespace {

std::shared_ptr<const suite::Registration> parse(const std::string& text) {
  suite::Registration parsed;
  std::string error;
  require(suite::parseRegistration(text, &parsed, &error), "a registration");
  require(parsed.text == text, "its shortest form");
  return std::make_shared<const suite::Registration>(std::move(parsed));
}

constexpr unsigned siteCount = 20, applicationCount = 12;

std::string siteName(unsigned number) {
  return "site" + std::to_string(number % siteCount);
}

std::string applicationName(unsigned number) {
  return "A" + std::to_string(number % applicationCount);
}

class Run {
 public:
  explicit Run(const fuzz::Input& input)
      : _input(input),
        _limits{_input.takeByte() % 48u + 4, _input.takeByte() * 2u + 4,
                _input.takeByte() * 64u + 400},
        _providers(_limits) {}

  bool atEnd() const { return _input.atEnd(); }
  void step();
  void check();
  void beQuiet();

 private:
  void stepOfSite(unsigned kind);
  void take(const std::string& site);
  void takeWith(const std::string& site, const dch::ProviderFact& fact, ProviderKey&& key,
                ProviderEntry&& entry);
  void end(const std::string& site);
  void registerOwn(unsigned which);
  void goOnlineHere(unsigned which);
  void settle();
  bool fits(const ProviderEntries& entries) const;
  ProviderEntries withoutGone() const;

  fuzz::Input _input;
  const dch::RemoteProviders::Limits _limits;
  dch::Registry _registry;
  dch::RemoteProviders _providers;
  const dch::AllProviders _all{_registry, _providers};
  dch::Catalogue _catalogue{_all};
  ProviderEntries _entries;
  std::set<std::string> _copies;
};

void Run::step() {
  const unsigned kind = _input.takeByte() % 12;
  if (kind < 10) return stepOfSite(kind);
  const unsigned which = _input.takeByte();
  if (kind == 10)
    registerOwn(which);
  else
    goOnlineHere(which);
}

void Run::stepOfSite(unsigned kind) {
  if (kind == 6) return settle();
  const std::string site = siteName(_input.takeByte());
  if (kind < 6) return take(site);
  if (kind == 7) {
    _providers.begin(site);
    _copies.insert(site);
    for (auto& [key, entry] : _entries)
      if (key.site == site) entry.isTold = false;
  } else if (kind == 8) {
    end(site);
  } else {
    _providers.silent(site);
    _copies.erase(site);
    for (auto& [key, entry] : _entries)
      if (key.site == site && key.isSource()) entry.isGone = true;
  }
}

void Run::end(const std::string& site) {
  _providers.end(site);
  if (_copies.erase(site) == 0) return;
  for (auto& [key, entry] : _entries)
    if (key.site == site && !entry.isTold) entry.isGone = true;
}

void Run::take(const std::string& site) {
  const unsigned what = _input.takeByte(), which = _input.takeByte();
  const std::string application = applicationName(what / 4);
  const std::string group = "g" + std::to_string(which % 4), source = std::to_string(which / 4);
  switch (what % 4) {
    case 0: {
      RegistrationModel variant(application, which);
      const dch::ProviderFact fact{Kind::registered, application, {}, {}, parse(variant.text())};
      return takeWith(site, fact, {site, application, {}, {}}, {std::move(variant), true});
    }
    case 1:
      return takeWith(site, {Kind::online, application, group, source},
                      {site, application, group, source}, {{}, true});
    case 2:
      _providers.take(site, {Kind::unregistered, application});
      _entries.erase({site, application, {}, {}});
      return;
    default:
      _providers.take(site, {Kind::offline, application, group, source});
      _entries.erase({site, application, group, source});
  }
}

void Run::takeWith(const std::string& site, const dch::ProviderFact& fact, ProviderKey&& key,
                   ProviderEntry&& entry) {
  const std::uint64_t refused = _providers.refused(), revision = _providers.revision();
  bool hasMemory = true;
  failingRequest = _input.takeByte() % 32;
  try {
    _providers.take(site, fact);
  } catch (const std::bad_alloc&) {
    hasMemory = false;
  }
  failingRequest = 0;
  const bool isRefused = _providers.refused() != refused;
  require((hasMemory && !isRefused) || _providers.revision() == revision,
          "what is not taken changes nothing");
  if (!hasMemory) return;
  ProviderEntries least = withoutGone(), most = _entries;
  least.insert_or_assign(key, entry);
  most.insert_or_assign(key, entry);
  require(isRefused || fits(least), "no more is taken than there is room for");
  require(!isRefused || !fits(most), "what there is room for is taken");
  if (!isRefused) _entries.insert_or_assign(std::move(key), std::move(entry));
}

ProviderEntries Run::withoutGone() const {
  ProviderEntries left = _entries;
  std::erase_if(left, [](const auto& each) { return each.second.isGone; });
  return left;
}

bool Run::fits(const ProviderEntries& entries) const {
  struct Used {
    std::size_t entries = 0, textBytes = 0;
    std::set<std::string> applications;
  };
  Used all;
  std::map<std::string, Used> ofSites;
  std::set<std::string> texts;
  for (const auto& [key, entry] : entries) {
    if (key.site.empty()) continue;
    Used& site = ofSites[key.site];
    for (Used* used : {&all, &site}) {
      ++used->entries;
      used->applications.insert(key.application);
    }
    if (key.isSource()) continue;
    const std::string text = entry.registration->text();
    site.textBytes += text.size();
    if (texts.insert(text).second) all.textBytes += text.size();
  }
  const auto isWithin = [&](const Used& used, std::size_t parts) {
    return used.entries <= _limits.entries / parts && used.textBytes <= _limits.textBytes / parts &&
           used.applications.size() <= _limits.applications / parts;
  };
  return isWithin(all, 1) && std::all_of(ofSites.begin(), ofSites.end(), [&](const auto& each) {
           return isWithin(each.second, 4);
         });
}

void Run::registerOwn(unsigned which) {
  const std::string name = applicationName(which);
  const unsigned number = _input.takeByte();
  const ProviderKey key{{}, name, {}, {}};
  if (number % 4 == 0) {
    const dch::Unregistered change{name};
    _registry.apply(change, _registry.prepare(change));
    std::erase_if(_entries, [&](const auto& each) {
      return each.first.site.empty() && each.first.application == name;
    });
    return;
  }
  RegistrationModel variant(name, number);
  dch::Registered change{*parse(variant.text())};
  dch::Prepared prepared = _registry.prepare(change);
  _registry.apply(std::move(change), std::move(prepared));
  std::erase_if(_entries, [&](const auto& each) {
    const ProviderKey& there = each.first;
    return there.site.empty() && there.application == name && there.isSource() &&
           std::none_of(variant.groups.begin(), variant.groups.end(),
                        [&](const auto& group) { return group.first == there.group; });
  });
  _entries.insert_or_assign(key, ProviderEntry{std::move(variant)});
}

void Run::goOnlineHere(unsigned which) {
  const std::string name = applicationName(which), group = "g" + std::to_string(which / 16 % 4);
  const std::string source = std::to_string(_input.takeByte() % 4);
  const dch::SourceNames names{name, group, source};
  if (_registry.check(names) != DCH_STATUS_OK) return;
  const dch::WentOnline change{name, group, source, _registry.handleFor(names)};
  _registry.apply(change, _registry.prepare(change));
  _entries.insert_or_assign({{}, name, group, source}, ProviderEntry{});
}

void Run::settle() {
  const bool isMore = _providers.settle();
  if (isMore) return;
  std::erase_if(_entries, [](const auto& each) { return each.second.isGone; });
}

void Run::beQuiet() {
  for (unsigned calls = 0; _providers.settle(); ++calls) require(calls < 100, "it comes to an end");
  settle();
  check();
}

void Run::check() {
  const ProviderEntries least = withoutGone();
  for (unsigned i = 0; i < applicationCount; ++i) {
    const std::string name = applicationName(i);
    const dch::RemoteApplication* const known = _providers.find(name);
    const auto isRegistered = [&](const ProviderEntries& entries) {
      return std::any_of(entries.begin(), entries.end(), [&](const auto& each) {
        return !each.first.site.empty() && each.first.application == name && !each.first.isSource();
      });
    };
    require(known != nullptr || !isRegistered(least), "what is registered is there");
    require(known == nullptr || isRegistered(_entries), "nothing else is");
  }
  if (least.size() < _entries.size()) return;
  std::string lines;
  std::vector<std::string> names;
  for (unsigned i = 0; i < applicationCount; ++i) names.push_back(applicationName(i));
  std::sort(names.begin(), names.end());
  for (const std::string& name : names) {
    const fuzz::ProviderTexts texts = fuzz::textsOf(_entries, name);
    lines += texts.line;
    require(dch::applicationLines(_all, name) == texts.line, "the application's line");
    require(_catalogue.attributes(name) == texts.attributes, "its attributes");
    require(dch::helpText(_all, name) == texts.help, "its help");
  }
  require(_catalogue.allApplications() == lines, "all applications");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
  Run run({bytes, count});
  while (!run.atEnd()) {
    run.step();
    run.check();
  }
  run.beQuiet();
  return 0;
}
