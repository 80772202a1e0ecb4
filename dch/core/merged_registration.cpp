#include "dch/core/merged_registration.h"

#include <cstddef>
#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace dch {

namespace {

// What is in the groups of a merged registration so far.
class GroupMerger {
 public:
  void add(const suite::RegisteredGroup& group) {
    const auto [known, isNew] = _indexes.emplace(group.name, _groups.size());
    if (isNew) {
      _groups.push_back({group.name, {}});
      _names.emplace_back();
    }
    for (const suite::RegisteredAttribute& attribute : group.attributes)
      if (_names[known->second].insert(attribute.name).second)
        _groups[known->second].attributes.push_back(&attribute);
  }

  std::vector<MergedGroup> take() { return std::move(_groups); }

 private:
  std::vector<MergedGroup> _groups;
  std::unordered_map<std::string_view, std::size_t> _indexes;  // of the groups
  std::vector<std::unordered_set<std::string_view>> _names;    // of the attributes of each
};

// As they are: each name stands there once.
std::vector<MergedGroup> groupsOf(const suite::Registration& registration) {
  std::vector<MergedGroup> groups;
  groups.reserve(registration.groups.size());
  for (const suite::RegisteredGroup& group : registration.groups) {
    MergedGroup& added = groups.emplace_back(MergedGroup{group.name, {}});
    added.attributes.reserve(group.attributes.size());
    for (const suite::RegisteredAttribute& attribute : group.attributes)
      added.attributes.push_back(&attribute);
  }
  return groups;
}

}  // namespace

std::vector<std::string_view> mergedGroupNames(Registrations registrations) {
  std::vector<std::string_view> names;
  names.reserve(registrations.front()->groups.size());
  for (const suite::RegisteredGroup& group : registrations.front()->groups)
    names.push_back(group.name);
  if (registrations.size() == 1) return names;
  std::unordered_set<std::string_view> known(names.begin(), names.end());
  for (const suite::Registration* each : registrations.subspan(1))
    for (const suite::RegisteredGroup& group : each->groups)
      if (known.insert(group.name).second) names.push_back(group.name);
  return names;
}

std::vector<MergedGroup> mergedGroups(Registrations registrations) {
  if (registrations.size() == 1) return groupsOf(*registrations.front());
  GroupMerger merger;
  for (const suite::Registration* each : registrations)
    for (const suite::RegisteredGroup& group : each->groups) merger.add(group);
  return merger.take();
}

std::string_view mergedHelp(Registrations registrations) {
  for (const suite::Registration* each : registrations)
    if (!each->help.empty()) return each->help;
  return {};
}

}  // namespace dch
