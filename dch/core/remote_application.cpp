#include "dch/core/remote_application.h"

#include <algorithm>
#include <new>
#include <utility>

#include "dch/core/merged_registration.h"

namespace dch {

std::vector<const suite::Registration*> RemoteApplication::registrations() const {
  std::vector<const suite::Registration*> few;
  few.reserve(std::min(_registrations.size(), mostToMerge));
  std::size_t bytes = 0;
  for (const auto& [text, shared] : _registrations) {
    bytes += text.size();
    if (few.size() == mostToMerge || (!few.empty() && bytes > mostBytesToMerge)) break;
    few.push_back(shared.registration.get());
  }
  return few;
}

const std::vector<std::string_view>& RemoteApplication::groupNames() const {
  if (!_groupNames) _groupNames = mergedGroupNames(registrations());
  return *_groupNames;
}

bool RemoteApplication::hasOnly(std::string_view text) const {
  return _registrations.size() == 1 && _registrations.begin()->first == text;
}

const RemoteApplication::Shared* RemoteApplication::find(std::string_view text) const {
  const auto known = _registrations.find(text);
  return known != _registrations.end() ? &known->second : nullptr;
}

RemoteApplication::Shared* RemoteApplication::enter(
    const std::shared_ptr<const suite::Registration>& registration) {
  const auto [entered, isNew] =
      _registrations.try_emplace(registration->text, Shared{registration});
  if (isNew) changed();
  return &entered->second;
}

void RemoteApplication::remove(Shared* shared) noexcept {
  --shared->sites;
  dropUnused(shared->registration->text);
}

// The text is a part of what goes, and of what is searched by it.
void RemoteApplication::dropUnused(std::string_view text) noexcept {
  const auto known = _registrations.find(text);
  if (known == _registrations.end() || known->second.sites > 0) return;
  const std::shared_ptr<const suite::Registration> last = std::move(known->second.registration);
  _registrations.erase(known);
  changed();
}

void RemoteApplication::changed() noexcept {
  _groupNames.reset();
  if (!isRegistered()) return;
  try {
    groupNames();
  } catch (const std::bad_alloc&) {
    // When they are asked for.
  }
}

}  // namespace dch
