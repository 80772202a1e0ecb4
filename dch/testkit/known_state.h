// known_state.h: what is known after a number of changes, as a text that can be compared.
#ifndef DCH_TESTKIT_KNOWN_STATE_H
#define DCH_TESTKIT_KNOWN_STATE_H

#include <algorithm>
#include <map>
#include <string>
#include <utility>
#include <variant>

#include "dch/core/change.h"
#include "dch/core/deferrals.h"
#include "dch/core/registry.h"
#include "zordchcl/status.h"

namespace dch::testkit {

// Takes changes as the core does when it loads them.
class KnownState {
 public:
  void apply(Change change) {
    if (auto* const deferred = std::get_if<Deferred>(&change))
      _deferrals.add(std::move(deferred->deferral));
    else if (const auto* const started = std::get_if<ActionStarted>(&change))
      _results[started->id] = DCH_STATUS_NOT_STORED;
    else if (const auto* const ended = std::get_if<ActionEnded>(&change))
      _results[ended->id] = ended->status;
    else if (auto* const row = std::get_if<Row>(&change))
      _registry.apply(row);
    else if (auto* const registered = std::get_if<Registered>(&change))
      applyPrepared(std::move(*registered));
    else if (const auto* const unregistered = std::get_if<Unregistered>(&change))
      _registry.apply(*unregistered, _registry.prepare(*unregistered));
    else if (const auto* const online = std::get_if<WentOnline>(&change))
      enter(*online);
    else if (const auto* const offline = std::get_if<WentOffline>(&change))
      _registry.apply(*offline, _registry.prepare(*offline));
  }

  // Whether the core would keep the change now.
  bool isGood(const Change& change) const {
    if (const auto* const row = std::get_if<Row>(&change))
      return _registry.findSource(row->handle) != nullptr;
    if (const auto* const unregistered = std::get_if<Unregistered>(&change))
      return _registry.findApplication(unregistered->application) != nullptr;
    if (const auto* const online = std::get_if<WentOnline>(&change))
      return _registry.check(SourceNames{online->application, online->group, online->source}) ==
             DCH_STATUS_OK;
    if (const auto* const offline = std::get_if<WentOffline>(&change))
      return _registry.findOnline(offline->handle) != nullptr;
    if (const auto* const ended = std::get_if<ActionEnded>(&change))
      return _results.contains(ended->id);
    return true;
  }

  const Registry& registry() const { return _registry; }
  const Deferrals& deferrals() const { return _deferrals; }
  // Of actions, by their IDs.
  const std::map<ZORA_Long, ZORA_Long>& results() const { return _results; }

  std::string text() const {
    std::string result;
    for (const Application* application : _registry.applications())
      result += "registered " + application->registration.text + "\n";
    for (ZORA_Long handle = 1; handle <= _highestHandle; ++handle)
      if (const Source* const source = _registry.findSource(handle); source != nullptr)
        result += "source " + source->group->topic + "/" + source->name + " " +
                  std::to_string(handle) + (source->isOnline ? " on " : " off ") +
                  rowText(*source) + "\n";
    for (const Deferral& deferral : _deferrals.kept()) result += deferral.text() + "\n";
    for (const auto& [id, status] : _results)
      result += "action " + std::to_string(id) + ": " + std::to_string(status) + "\n";
    return result;
  }

 private:
  static std::string rowText(const Source& source) {
    if (!source.row) return "no row";
    const bool isEarlier = source.isOnline && !source.row->isCurrent;
    return (isEarlier ? "earlier " : "") + std::to_string(source.row->time) + " " +
           source.row->message;
  }

  void applyPrepared(Registered&& change) {
    Prepared prepared = _registry.prepare(change);
    _registry.apply(std::move(change), std::move(prepared));
  }

  void enter(const WentOnline& change) {
    _highestHandle = std::max(_highestHandle, change.handle);
    _registry.apply(change, _registry.prepare(change));
  }

  Registry _registry;
  Counters _counters;
  Deferrals _deferrals{_counters};
  std::map<ZORA_Long, ZORA_Long> _results;
  ZORA_Long _highestHandle = 0;
};

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_KNOWN_STATE_H
