#include "dch/core/changed_providers.h"

#include <algorithm>
#include <memory>
#include <new>
#include <utility>

namespace dch {

namespace {

ProviderFact currentFact(const Registry& registry, std::string_view application) {
  ProviderFact fact{.kind = ProviderFact::Kind::unregistered,
                    .application = std::string(application)};
  if (const Application* const known = registry.findApplication(application); known != nullptr) {
    fact.kind = ProviderFact::Kind::registered;
    fact.registration = std::make_shared<const suite::Registration>(known->registration);
  }
  return fact;
}

ProviderFact sourceFact(const SourceNames& names, bool isOnline) {
  return {.kind = isOnline ? ProviderFact::Kind::online : ProviderFact::Kind::offline,
          .application = std::string(names.application),
          .group = std::string(names.group),
          .source = std::string(names.source)};
}

ProviderFact currentFact(const Registry& registry, const SourceNames& names) {
  const Source* const source = registry.find(names);
  return sourceFact(names, source != nullptr && source->isOnline);
}

bool areOfASource(std::string_view joined) {
  return joined.find('\0') != std::string_view::npos;
}

SourceNames namesIn(std::string_view joined) {
  const std::size_t first = joined.find('\0'), second = joined.find('\0', first + 1);
  return {joined.substr(0, first), joined.substr(first + 1, second - first - 1),
          joined.substr(second + 1)};
}

}  // namespace

void ChangedProviders::statusChanged(const SourceNames& names, short) noexcept {
  if (_part == Part::begin) return;
  try {
    _changed.insert(names.group.empty() ? std::string(names.application)
                                        : joinNames(names.application, names.group, names.source));
  } catch (const std::bad_alloc&) {
    return beginAnew();
  }
  if (_changed.size() > mostNames) beginAnew();
}

std::optional<ProviderNews> ChangedProviders::take(const Registry& registry, std::size_t most) {
  if (_part == Part::changes && _changed.empty()) return std::nullopt;
  try {
    return next(registry, most);
  } catch (const std::bad_alloc&) {
    beginAnew();
    throw;
  }
}

void ChangedProviders::beginAnew() noexcept {
  _part = Part::begin;
  _changed = {};
}

ProviderNews ChangedProviders::next(const Registry& registry, std::size_t most) {
  ProviderNews news;
  if (_part == Part::begin) {
    news.kind = ProviderNews::Kind::first;
    _lastApplication.clear();
    _lastHandle = 0;
    _part = Part::applications;
  }
  std::size_t left = most;
  if (_part == Part::applications) addApplications(registry, &news, &left);
  if (_part == Part::sources)
    addSources(registry, &news, &left);
  else if (_part == Part::changes)
    addChanges(registry, &news, &left);
  return news;
}

void ChangedProviders::addApplications(const Registry& registry, ProviderNews* news,
                                       std::size_t* left) {
  while (*left > 0) {
    const Application* const application = registry.nextApplication(_lastApplication);
    if (application == nullptr) {
      _part = Part::sources;
      return;
    }
    _lastApplication = application->name;
    addApplication(registry, _lastApplication, news, left);
  }
}

void ChangedProviders::addSources(const Registry& registry, ProviderNews* news, std::size_t* left) {
  for (; *left > 0; --*left) {
    const Source* const source = registry.nextSource(_lastHandle);
    if (source == nullptr) {
      news->isAll = true;
      _part = Part::changes;
      return;
    }
    _lastHandle = source->handle;
    if (source->isOnline) news->facts.push_back(sourceFact(source->names(), true));
  }
}

void ChangedProviders::addChanges(const Registry& registry, ProviderNews* news, std::size_t* left) {
  while (*left > 0 && !_changed.empty()) {
    const std::string joined = std::move(_changed.extract(_changed.begin()).value());
    if (areOfASource(joined)) {
      news->facts.push_back(currentFact(registry, namesIn(joined)));
      --*left;
    } else {
      addApplication(registry, joined, news, left);
    }
  }
}

void ChangedProviders::addApplication(const Registry& registry, std::string_view name,
                                      ProviderNews* news, std::size_t* left) {
  news->facts.push_back(currentFact(registry, name));
  *left -= std::min(*left, factsOfARegistration);
}

}  // namespace dch
