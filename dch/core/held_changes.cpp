#include "dch/core/held_changes.h"

#include <string>
#include <utility>
#include <variant>

#include "dch/core/status_events.h"

namespace dch {

bool HeldChanges::take(Entry* entry, bool kept) {
  if (_waiting.empty() && _publisher.hasRoom()) return false;
  const std::string_view application = applicationOf(*entry);
  auto known = _counts.find(application);
  if (known == _counts.end() && !hasToWait(*entry, kept)) return false;
  std::list<Waiting> added(1);
  if (known == _counts.end()) known = _counts.try_emplace(std::string(application)).first;
  ++known->second;
  added.front() = {{std::move(*entry), kept}, &*known};
  _waiting.splice(_waiting.end(), added);
  return true;
}

std::optional<HeldChanges::Concluded> HeldChanges::release() noexcept {
  if (_waiting.empty()) return std::nullopt;
  const Concluded& first = _waiting.front().concluded;
  if (hasToWait(first.entry, first.kept)) return std::nullopt;
  return takeFirst();
}

HeldChanges::Concluded HeldChanges::takeFirst() noexcept {
  Waiting first = std::move(_waiting.front());
  _waiting.pop_front();
  if (--first.application->second == 0) _counts.erase(_counts.find(first.application->first));
  return std::move(first.concluded);
}

// Empty for what concerns none.
std::string_view HeldChanges::applicationOf(const Entry& entry) const {
  const auto* const row = std::get_if<Row>(&entry.change);
  const Source* const source = row != nullptr ? _registry.findSource(row->handle) : nullptr;
  return source != nullptr ? source->names().application : entry.claim.application;
}

bool HeldChanges::hasToWait(const Entry& entry, bool kept) const {
  if (!kept || _publisher.hasRoom()) return false;
  if (const auto* const row = std::get_if<Row>(&entry.change)) {
    const Source* const source = _registry.findSource(row->handle);
    return source != nullptr && _publisher.hasSubscribers(source->group->topic);
  }
  return !entry.claim.application.empty() && _publisher.hasSubscribers(statusTopic);
}

}  // namespace dch
