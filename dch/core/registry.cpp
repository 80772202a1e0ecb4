#include "dch/core/registry.h"

#include <algorithm>
#include <new>
#include <utility>

namespace dch {

namespace {

Attributes attributesOf(const suite::RegisteredGroup& group) {
  Attributes attributes;
  for (const suite::RegisteredAttribute& attribute : group.attributes)
    attributes.insert_or_assign(attribute.name, Attribute{attribute.letter, attribute.size});
  return attributes;
}

// The sources on line of an application, the lowest handle first.
std::vector<const Source*> onlineSources(const Application& application) {
  std::vector<const Source*> sources;
  sources.reserve(application.sourcesOnline);
  for (const auto& [name, group] : application.groups)
    for (const auto& [sourceName, source] : group.sources)
      if (source->isOnline) sources.push_back(source);
  std::sort(sources.begin(), sources.end(),
            [](const Source* left, const Source* right) { return left->handle < right->handle; });
  return sources;
}

std::vector<const Source*> roomForOne() {
  std::vector<const Source*> room;
  room.reserve(1);
  return room;
}

Applied refused(DCH_Status status) {
  return {status, nullptr, {}};
}

}  // namespace

DCH_Status Registry::check(const suite::Registration& registration) const {
  const bool hasRoom =
      _applications.contains(registration.applName) || _applications.size() < _limits.applications;
  return hasRoom ? DCH_STATUS_OK : DCH_STATUS_NOT_STORED;
}

DCH_Status Registry::checkUnregistration(std::string_view application) const {
  return findApplication(application) != nullptr ? DCH_STATUS_OK : DCH_STATUS_UNKNOWN_APPLICATION;
}

DCH_Status Registry::check(const SourceNames& names) const {
  const Application* const application = findApplication(names.application);
  if (application == nullptr) return DCH_STATUS_UNKNOWN_APPLICATION;
  const auto group = application->groups.find(names.group);
  if (group == application->groups.end() || !group->second.isRegistered)
    return DCH_STATUS_UNKNOWN_GROUP;
  const bool hasRoom =
      group->second.sources.contains(names.source) || _sources.size() < _limits.sources;
  return hasRoom ? DCH_STATUS_OK : DCH_STATUS_NOT_STORED;
}

ZORA_Long Registry::handleFor(const SourceNames& names) const {
  const Source* const source = find(names);
  return source != nullptr ? source->handle : static_cast<ZORA_Long>(_sources.size() + 1);
}

Prepared Registry::prepare(const Registered& change) {
  try {
    Application* const application = enterApplication(change.registration.applName);
    Prepared prepared;
    for (const suite::RegisteredGroup& group : change.registration.groups)
      prepared.groups.push_back({enterGroup(application, group.name), attributesOf(group)});
    prepared.moved = onlineSources(*application);
    return prepared;
  } catch (const std::bad_alloc&) {
    abandon(change);
    throw;
  }
}

Prepared Registry::prepare(const Unregistered& change) {
  const Application* const application = findApplication(change.application);
  Prepared prepared;
  if (application != nullptr) prepared.moved = onlineSources(*application);
  return prepared;
}

Prepared Registry::prepare(const WentOnline& change) {
  if (find({change.application, change.group, change.source}) == nullptr) enterSource(change);
  return {{}, roomForOne()};
}

Prepared Registry::prepare(const WentOffline&) {
  return {{}, roomForOne()};
}

void Registry::abandon(const Registered& change) noexcept {
  dropUnused(change.registration.applName);
}

Applied Registry::apply(Registered&& change, Prepared&& prepared) noexcept {
  const auto known = _applications.find(change.registration.applName);
  if (known == _applications.end()) return refused(DCH_STATUS_NOT_STORED);
  Application& application = known->second;
  for (auto& [name, group] : application.groups) group.isRegistered = false;
  for (Prepared::GroupAttributes& each : prepared.groups) {
    each.group->isRegistered = true;
    each.group->attributes.swap(each.attributes);
  }
  std::erase_if(prepared.moved, [](const Source* source) { return source->group->isRegistered; });
  for (const Source* source : prepared.moved) setOnline(source, false);
  application.registration = std::move(change.registration);
  ++_revision;
  dropUnused(application.name);
  return {DCH_STATUS_OK, nullptr, std::move(prepared.moved)};
}

Applied Registry::apply(const Unregistered& change, Prepared&& prepared) noexcept {
  const auto known = _applications.find(change.application);
  if (known == _applications.end() || !known->second.isRegistered())
    return refused(DCH_STATUS_UNKNOWN_APPLICATION);
  for (const Source* source : prepared.moved) setOnline(source, false);
  for (auto& [name, group] : known->second.groups) group.isRegistered = false;
  known->second.registration = {};
  ++_revision;
  dropUnused(change.application);
  return {DCH_STATUS_OK, nullptr, std::move(prepared.moved)};
}

Applied Registry::apply(const WentOnline& change, Prepared&& prepared) noexcept {
  const Source* const source = find({change.application, change.group, change.source});
  if (source == nullptr) return refused(DCH_STATUS_NOT_STORED);
  if (!source->group->application->isRegistered()) return refused(DCH_STATUS_UNKNOWN_APPLICATION);
  if (!source->group->isRegistered) return refused(DCH_STATUS_UNKNOWN_GROUP);
  if (!source->isOnline) {
    setOnline(source, true);
    prepared.moved.push_back(source);
  }
  return {DCH_STATUS_OK, source, std::move(prepared.moved)};
}

Applied Registry::apply(const WentOffline& change, Prepared&& prepared) noexcept {
  const Source* const source = findOnline(change.handle);
  if (source == nullptr) return refused(DCH_STATUS_UNKNOWN_HANDLE);
  setOnline(source, false);
  prepared.moved.push_back(source);
  return {DCH_STATUS_OK, source, std::move(prepared.moved)};
}

Applied Registry::apply(Row* change) noexcept {
  Source* const source = find(change->handle);
  if (source == nullptr) return refused(DCH_STATUS_UNKNOWN_HANDLE);
  if (!source->isOnline)
    _offlineRows.replace(source, change);
  else
    std::swap(source->row ? *source->row : source->row.emplace(), *change);
  return {DCH_STATUS_OK, source, {}};
}

const Source* Registry::findOnline(ZORA_Long handle) const {
  const Source* const source = find(handle);
  return source != nullptr && source->isOnline ? source : nullptr;
}

const Source* Registry::find(const SourceNames& names) const {
  const auto application = _applications.find(names.application);
  if (application == _applications.end()) return nullptr;
  const auto group = application->second.groups.find(names.group);
  if (group == application->second.groups.end()) return nullptr;
  const auto source = group->second.sources.find(names.source);
  return source != group->second.sources.end() ? source->second : nullptr;
}

const Application* Registry::findApplication(std::string_view name) const {
  const auto known = _applications.find(name);
  return known != _applications.end() && known->second.isRegistered() ? &known->second : nullptr;
}

std::vector<const Application*> Registry::applications() const {
  std::vector<const Application*> all;
  for (const auto& [name, application] : _applications)
    if (application.isRegistered()) all.push_back(&application);
  return all;
}

const Application* Registry::nextApplication(std::string_view name) const {
  const auto next = std::find_if(_applications.upper_bound(name), _applications.end(),
                                 [](const auto& each) { return each.second.isRegistered(); });
  return next != _applications.end() ? &next->second : nullptr;
}

RegistryFigures Registry::figures() const {
  RegistryFigures figures;
  for (const auto& [name, application] : _applications) {
    figures.applications += application.isRegistered() ? 1 : 0;
    figures.sourcesOnline += application.sourcesOnline;
    for (const auto& [groupName, group] : application.groups)
      figures.sources += group.sources.size();
  }
  return figures;
}

const Source* Registry::nextOnline(ZORA_Long handle) const {
  // The source of the next handle stands at the index of this one.
  for (auto next = static_cast<std::size_t>(handle); next < _sources.size(); ++next)
    if (_sources[next] != nullptr && _sources[next]->isOnline) return _sources[next].get();
  return nullptr;
}

const Source* Registry::nextSource(ZORA_Long handle) const {
  for (auto next = static_cast<std::size_t>(handle); next < _sources.size(); ++next)
    if (_sources[next] != nullptr) return _sources[next].get();
  return nullptr;
}

// One that is known, or one that is not registered yet.
Application* Registry::enterApplication(std::string_view name) {
  const auto known = _applications.find(name);
  if (known != _applications.end()) return &known->second;
  Application application;
  application.name = name;
  return &_applications.emplace(std::string(name), std::move(application)).first->second;
}

Group* Registry::enterGroup(Application* application, std::string_view name) {
  const auto known = application->groups.find(name);
  if (known != application->groups.end()) return &known->second;
  Group group;
  group.application = application;
  group.name = name;
  group.topic = topicOf(application->name, name);
  return &application->groups.emplace(std::string(name), std::move(group)).first->second;
}

// It is off line, so nobody sees it.
void Registry::enterSource(const WentOnline& change) {
  try {
    auto source = std::make_unique<Source>();
    source->handle = change.handle;
    source->name = change.source;
    source->group = enterGroup(enterApplication(change.application), change.group);
    const auto index = static_cast<std::size_t>(change.handle) - 1;
    if (_sources.size() <= index) _sources.resize(index + 1);
    source->group->sources.emplace(source->name, source.get());
    _sources[index] = std::move(source);
  } catch (const std::bad_alloc&) {
    dropUnused(change.application);
    throw;
  }
}

void Registry::dropUnused(std::string_view name) noexcept {
  const auto known = _applications.find(name);
  if (known == _applications.end()) return;
  std::erase_if(known->second.groups, [](const auto& each) {
    return !each.second.isRegistered && each.second.sources.empty();
  });
  for (auto& [groupName, group] : known->second.groups)
    if (!group.isRegistered) group.attributes.clear();
  if (known->second.groups.empty()) _applications.erase(known);
}

Source* Registry::find(ZORA_Long handle) const {
  if (handle < 1 || static_cast<std::size_t>(handle) > _sources.size()) return nullptr;
  return _sources[static_cast<std::size_t>(handle) - 1].get();
}

void Registry::setOnline(const Source* known, bool isOnline) noexcept {
  Source* const source = find(known->handle);
  source->isOnline = isOnline;
  if (isOnline) {
    _offlineRows.remove(source);
    if (source->row) source->row->isCurrent = false;
  } else {
    _offlineRows.add(source);
  }
  ++_revision;
  std::size_t& count = source->group->application->sourcesOnline;
  count = isOnline ? count + 1 : count - 1;
}

}  // namespace dch
