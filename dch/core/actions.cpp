#include "dch/core/actions.h"

#include <algorithm>
#include <new>
#include <utility>

#include "zordchcl/status.h"

namespace dch {

namespace {

// Result of a program that could not be started, as shells have it.
constexpr ZORA_Long notStarted = 127;

}  // namespace

bool Actions::request(ZORA_Long id, std::string_view name, const PeerAddress& asker) {
  if (!_rules.allowed.contains(asker)) {
    _counters.add(Counter::actionsNotAllowed);
    _log.write("action %d: %s may not start any", static_cast<int>(id), asker.text().data());
    return false;
  }
  const auto known = _actions.find(id);
  if (known != _actions.end() && known->second.isRunning) {
    _counters.add(Counter::actionsNotStarted);
    _log.write("action %d is running and not started again", static_cast<int>(id));
    return false;
  }
  if (known == _actions.end() && !_rules.list.contains(name)) {
    _counters.add(Counter::actionsNotStarted);
    _log.write("action %d: %s is not listed", static_cast<int>(id), printable(name).c_str());
    return false;
  }
  enter(id);
  return true;
}

std::optional<ActionEnded> Actions::apply(const ActionStarted& change) noexcept {
  std::optional<ZORA_Long> failure;
  try {
    failure = start(change);
  } catch (const std::bad_alloc&) {
    _log.write("action %d: no memory to start it", static_cast<int>(change.id));
    failure = DCH_STATUS_NOT_STORED;
  }
  if (!failure) {
    ++_programCount;
    return std::nullopt;
  }
  _counters.add(Counter::actionsNotStarted);
  return ActionEnded{change.id, change.time, *failure};
}

// The result when there is no program to wait for.
std::optional<ZORA_Long> Actions::start(const ActionStarted& change) {
  const int shownId = static_cast<int>(change.id);
  const auto listed = _rules.list.find(change.name);
  if (listed == _rules.list.end()) {
    _log.write("action %d: %s is not listed", shownId, printable(change.name).c_str());
    return DCH_STATUS_UNKNOWN_ACTION;
  }
  if (_programCount >= _limits.running) {
    _log.write("action %d: %zu actions are running already", shownId, _programCount);
    return DCH_STATUS_NOT_STORED;
  }
  const std::string reason = _programs.start(change.id, listed->second);
  if (!reason.empty()) {
    _log.write("action %d: %s cannot be started: %s", shownId, listed->first.c_str(),
               reason.c_str());
    return notStarted;
  }
  _log.write("action %d: %s started", shownId, listed->first.c_str());
  return std::nullopt;
}

void Actions::programEnded(ZORA_Long id, ZORA_Long status) noexcept {
  --_programCount;
  _log.write("action %d ended with %d", static_cast<int>(id), static_cast<int>(status));
}

std::vector<Origin> Actions::apply(const ActionEnded& change) noexcept {
  return end(change.id, change.status);
}

std::vector<Origin> Actions::abandon(ZORA_Long id) noexcept {
  return end(id, DCH_STATUS_NOT_STORED);
}

void Actions::restore(const ActionStarted& change) {
  enter(change.id);
  end(change.id, DCH_STATUS_NOT_STORED);
}

void Actions::restore(const ActionEnded& change) {
  enter(change.id);
  end(change.id, change.status);
}

Actions::Result Actions::resultFor(const Origin& waiter, ZORA_Long id) {
  const auto known = _actions.find(id);
  if (known == _actions.end()) return {true, DCH_STATUS_UNKNOWN_ACTION};
  Action& action = known->second;
  if (!action.isRunning) return {true, action.status};
  if (std::find(action.waiters.begin(), action.waiters.end(), waiter) != action.waiters.end())
    return {false, 0};
  if (_waiterCount >= _limits.waiters) return {true, DCH_STATUS_NOT_STORED};
  action.waiters.push_back(waiter);
  ++_waiterCount;
  return {false, 0};
}

void Actions::forgetWaiters(std::uint64_t connection) noexcept {
  for (const ZORA_Long id : _running) {
    const std::size_t count =
        std::erase_if(_actions.find(id)->second.waiters,
                      [=](const Origin& waiter) { return waiter.connection == connection; });
    _waiterCount -= count;
    _counters.add(Counter::waitersForgotten, count);
  }
}

void Actions::enter(ZORA_Long id) {
  const auto known = _actions.find(id);
  if (known != _actions.end()) {
    _running.splice(_running.end(), _ended, known->second.place);
    known->second.isRunning = true;
    return;
  }
  std::list<ZORA_Long> place{id};
  _actions.emplace(id, Action{true, 0, {}, place.begin()});
  _running.splice(_running.end(), place);
}

std::vector<Origin> Actions::end(ZORA_Long id, ZORA_Long status) noexcept {
  const auto known = _actions.find(id);
  if (known == _actions.end() || !known->second.isRunning) return {};
  Action& action = known->second;
  std::vector<Origin> waiters = std::exchange(action.waiters, {});
  _waiterCount -= waiters.size();
  action.isRunning = false;
  action.status = status;
  _ended.splice(_ended.end(), _running, action.place);
  if (_ended.size() > _limits.results) {
    _actions.erase(_ended.front());
    _ended.pop_front();
    _counters.add(Counter::resultsForgotten);
  }
  return waiters;
}

}  // namespace dch
