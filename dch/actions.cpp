#include "dch/actions.h"

#include <algorithm>
#include <new>
#include <system_error>

#include "zordchcl/status.h"

namespace dch {

void Actions::start(std::string_view name, ZORA_Long id) {
  const int shownId = static_cast<int>(id);
  if (_running.contains(id)) {
    _log.write("action %d is running and not started again", shownId);
    return;
  }
  const auto listed = _list.find(name);
  if (listed == _list.end()) {
    _log.write("action %d: %s is not listed", shownId, printable(name).c_str());
    forgetResult(id);
    return;
  }
  if (_running.size() >= _limits.running) {
    _log.write("action %d: %zu actions are running already", shownId, _running.size());
    keepResult(id, DCH_STATUS_NOT_STORED);
    return;
  }
  // Its place comes first: a program that runs cannot be given up for want of memory.
  const auto running = _running.try_emplace(id).first;
  try {
    running->second.program.emplace(listed->second);
    forgetResult(id);
    _log.write("action %d: %s started", shownId, listed->first.c_str());
  } catch (const std::system_error& error) {
    _running.erase(running);
    _log.write("action %d: %s cannot be started: %s", shownId, listed->first.c_str(), error.what());
    keepResult(id, ChildProgram::notStarted);
  } catch (const std::bad_alloc&) {
    _running.erase(running);
    throw;
  }
}

Actions::Result Actions::resultFor(const IncomingMessage& waiter, ZORA_Long id) {
  const auto running = _running.find(id);
  if (running == _running.end()) {
    const auto result = _results.find(id);
    return {true, result != _results.end() ? result->second : ZORA_Long{DCH_STATUS_UNKNOWN_ACTION}};
  }
  std::vector<IncomingMessage>& waiters = running->second.waiters;
  const auto isSame = [&](const IncomingMessage& other) {
    return other.sender == waiter.sender && other.connection == waiter.connection;
  };
  if (std::any_of(waiters.begin(), waiters.end(), isSame)) return {false, 0};
  if (_waiterCount >= _limits.waiters) return {true, DCH_STATUS_NOT_STORED};
  IncomingMessage kept = waiter;
  kept.bytes = nullptr;
  kept.received = 0;
  waiters.push_back(kept);
  ++_waiterCount;
  return {false, 0};
}

void Actions::collect(const Tell& tell) {
  for (auto next = _running.begin(); next != _running.end();) {
    const auto action = next++;
    const auto result = action->second.program->takeResult();
    if (!result) continue;
    const ZORA_Long id = action->first;
    const std::vector<IncomingMessage> waiters = std::move(action->second.waiters);
    _running.erase(action);
    _waiterCount -= waiters.size();
    _log.write("action %d ended with %d", static_cast<int>(id), static_cast<int>(*result));
    try {
      keepResult(id, *result);
    } catch (const std::bad_alloc&) {
      _log.write("action %d: no memory to keep its result", static_cast<int>(id));
    }
    for (const IncomingMessage& waiter : waiters) tell(waiter, *result);
  }
}

void Actions::keepResult(ZORA_Long id, ZORA_Long status) {
  forgetResult(id);
  if (_results.size() >= _limits.results) {
    _results.erase(_resultOrder.front());
    _resultOrder.pop_front();
  }
  _resultOrder.push_back(id);
  _results.emplace(id, status);
}

void Actions::forgetResult(ZORA_Long id) {
  if (_results.erase(id) > 0) std::erase(_resultOrder, id);
}

}  // namespace dch
