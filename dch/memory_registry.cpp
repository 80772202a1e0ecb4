#include "dch/memory_registry.h"

#include <algorithm>
#include <new>
#include <utility>

namespace dch {

namespace {

TextMap<AttributeGroup> groupsOf(const suite::Registration& registration) {
  TextMap<AttributeGroup> groups;
  for (const suite::RegisteredGroup& registered : registration.groups) {
    AttributeGroup& group = groups[registered.name];
    for (const suite::RegisteredAttribute& attribute : registered.attributes)
      group.insert_or_assign(attribute.name, Attribute{attribute.letter, attribute.size});
  }
  return groups;
}

// Makes room for one more element, so that adding it cannot fail.
template <class Element>
void reserveOneMore(std::vector<Element>* elements) {
  if (elements->size() == elements->capacity()) elements->reserve(elements->size() * 2 + 8);
}

// Runs a change that may run out of memory.
template <class Change>
DCH_Status whenMemoryLasts(Change change) {
  try {
    return change();
  } catch (const std::bad_alloc&) {
    return DCH_STATUS_NOT_STORED;
  }
}

}  // namespace

DCH_Status MemoryRegistry::registerApplication(const suite::Registration& registration) {
  return whenMemoryLasts([&] {
    TextMap<AttributeGroup> groups = groupsOf(registration);
    suite::Registration kept = registration;
    auto known = _applications.find(registration.applName);
    if (known == _applications.end()) {
      if (_applications.size() >= _limits.applications) return DCH_STATUS_NOT_STORED;
      known = _applications.try_emplace(registration.applName).first;
    }
    Application& application = known->second;
    application.groups.swap(groups);
    std::swap(application.registration, kept);
    for (Source* source : application.sources) {
      if (source->group == nullptr) continue;
      const auto group = application.groups.find(source->groupName);
      source->group = group != application.groups.end() ? &group->second : nullptr;
    }
    return DCH_STATUS_OK;
  });
}

DCH_Status MemoryRegistry::unregisterApplication(std::string_view name) {
  const auto known = _applications.find(name);
  if (known == _applications.end() || !known->second.isRegistered())
    return DCH_STATUS_UNKNOWN_APPLICATION;
  Application& application = known->second;
  for (Source* source : application.sources) source->group = nullptr;
  if (application.sources.empty()) {
    _applications.erase(known);
  } else {
    application.groups.clear();
    application.registration = {};
  }
  return DCH_STATUS_OK;
}

DCH_Status MemoryRegistry::goOnline(const SourceNames& names, ZORA_Long* handle) {
  const auto known = _applications.find(names.application);
  if (known == _applications.end() || !known->second.isRegistered())
    return DCH_STATUS_UNKNOWN_APPLICATION;
  Application& application = known->second;
  const auto group = application.groups.find(names.group);
  if (group == application.groups.end()) return DCH_STATUS_UNKNOWN_GROUP;
  return whenMemoryLasts([&] {
    const auto given = _handles.find(joinNames(names.application, names.group, names.source));
    if (given == _handles.end() && _sources.size() >= _limits.sources) return DCH_STATUS_NOT_STORED;
    *handle = given != _handles.end() ? given->second : addSource(&application, names);
    find(*handle)->group = &group->second;
    return DCH_STATUS_OK;
  });
}

DCH_Status MemoryRegistry::goOffline(ZORA_Long handle) {
  Source* const source = find(handle);
  if (source == nullptr || source->group == nullptr) return DCH_STATUS_UNKNOWN_HANDLE;
  source->group = nullptr;
  return DCH_STATUS_OK;
}

DCH_Status MemoryRegistry::storeRow(const OnlineSource&, std::string_view) {
  return DCH_STATUS_OK;
}

const OnlineSource* MemoryRegistry::findOnline(ZORA_Long handle) const {
  const Source* const source = find(handle);
  return source != nullptr && source->group != nullptr ? source : nullptr;
}

RegisteredApplication MemoryRegistry::Application::description() const {
  const auto online = std::count_if(sources.begin(), sources.end(),
                                    [](const Source* source) { return source->group != nullptr; });
  return {&registration, static_cast<std::size_t>(online)};
}

std::optional<RegisteredApplication> MemoryRegistry::findApplication(std::string_view name) const {
  const auto known = _applications.find(name);
  if (known == _applications.end() || !known->second.isRegistered()) return std::nullopt;
  return known->second.description();
}

std::vector<RegisteredApplication> MemoryRegistry::applications() const {
  std::vector<RegisteredApplication> all;
  for (const auto& [name, application] : _applications)
    if (application.isRegistered()) all.push_back(application.description());
  std::sort(all.begin(), all.end(), [](const auto& left, const auto& right) {
    return left.registration->applName < right.registration->applName;
  });
  return all;
}

bool MemoryRegistry::isOnline(const SourceNames& names) const {
  const auto given = _handles.find(joinNames(names.application, names.group, names.source));
  return given != _handles.end() && findOnline(given->second) != nullptr;
}

const OnlineSource* MemoryRegistry::nextOnline(ZORA_Long handle) const {
  // The source of the next handle stands at the index of this one.
  for (auto next = static_cast<std::size_t>(handle); next < _sources.size(); ++next)
    if (_sources[next]->group != nullptr) return _sources[next].get();
  return nullptr;
}

void MemoryRegistry::visitOnline(std::string_view application, const SourceVisitor& visitor) const {
  const auto known = _applications.find(application);
  if (known == _applications.end()) return;
  for (const Source* source : known->second.sources)
    if (source->group != nullptr) visitor(*source);
}

MemoryRegistry::Source* MemoryRegistry::find(ZORA_Long handle) const {
  if (handle < 1 || static_cast<std::size_t>(handle) > _sources.size()) return nullptr;
  return _sources[static_cast<std::size_t>(handle) - 1].get();
}

// What may fail comes first, and nothing of it is visible before the last step.
ZORA_Long MemoryRegistry::addSource(Application* application, const SourceNames& names) {
  auto source = std::make_unique<Source>();
  source->application = names.application;
  source->groupName = names.group;
  source->source = names.source;
  source->topic = topicOf(names.application, names.group);
  reserveOneMore(&application->sources);
  reserveOneMore(&_sources);
  const auto handle = static_cast<ZORA_Long>(_sources.size() + 1);
  source->handle = handle;
  _handles.emplace(joinNames(names.application, names.group, names.source), handle);
  application->sources.push_back(source.get());
  _sources.push_back(std::move(source));
  return handle;
}

}  // namespace dch
