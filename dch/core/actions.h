// actions.h: the programs that consumers have started, and their results.
#ifndef DCH_CORE_ACTIONS_H
#define DCH_CORE_ACTIONS_H

#include <cstddef>
#include <list>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <variant>
#include <vector>

#include "dch/core/change.h"
#include "dch/core/counters.h"
#include "dch/core/log.h"
#include "dch/core/message.h"
#include "dch/core/programs.h"
#include "zora/zora.h"

namespace dch {

struct ActionLimits {
  std::size_t running = 64;
  std::size_t results = 10'000;  // the latest ones are kept
  std::size_t waiters = 1'000;   // of all running actions together
};

// An action runs from when its start is on its way into the store until its end is kept. While it
// runs another one of its ID is not started: it would be the same request that came twice. One
// thread.
class Actions {
 public:
  // What is passed by reference outlives it. The rules may change between two calls.
  Actions(const ActionRules& rules, Programs& programs, Counters& counters, const Log& log,
          const ActionLimits& limits = {})
      : _rules(rules), _programs(programs), _counters(counters), _log(log), _limits(limits) {}

  // Whether there is something to be kept for a request of `asker` to start the action `name`: not
  // when the asker may not, not when one of its ID runs, and not when it is not listed and there is
  // no earlier result to forget. From then on the action runs. Throws std::bad_alloc; nothing has
  // changed then.
  bool request(ZORA_Long id, std::string_view name, const PeerAddress& asker);

  // Starts the program. Its end, when it could not be started: that is to be kept at once.
  std::optional<ActionEnded> apply(const ActionStarted& change) noexcept;
  // A program has ended; its result counts when that is kept.
  void programEnded(ZORA_Long id, ZORA_Long status) noexcept;
  // Who waited for the result.
  std::vector<Origin> apply(const ActionEnded& change) noexcept;
  // The start or the end could not be kept, so the result is DCH_STATUS_NOT_STORED. Who waited.
  std::vector<Origin> abandon(ZORA_Long id) noexcept;

  // An action that ran when the server died: what became of it is not known.
  void restore(const ActionStarted& change);
  void restore(const ActionEnded& change);

  struct Result {
    bool isKnown;
    ZORA_Long status;
  };

  // The result of an action: its program's, DCH_STATUS_UNKNOWN_ACTION when there is none. Not known
  // while it runs: the waiter is among those that its end tells.
  Result resultFor(const Origin& waiter, ZORA_Long id);

  // A connection is closed: nobody waits there any more.
  void forgetWaiters(std::uint64_t connection) noexcept;

 private:
  struct Action {
    bool isRunning = true;
    ZORA_Long status = 0;
    std::vector<Origin> waiters;
    std::list<ZORA_Long>::iterator place;  // in `_running` or `_ended`
  };

  void enter(ZORA_Long id);
  std::optional<ZORA_Long> start(const ActionStarted& change);
  std::vector<Origin> end(ZORA_Long id, ZORA_Long status) noexcept;

  const ActionRules& _rules;
  Programs& _programs;
  Counters& _counters;
  const Log& _log;
  const ActionLimits _limits;
  std::unordered_map<ZORA_Long, Action> _actions;
  std::list<ZORA_Long> _running;
  std::list<ZORA_Long> _ended;  // the oldest first
  std::size_t _programCount = 0;
  std::size_t _waiterCount = 0;
};

}  // namespace dch

#endif  // DCH_CORE_ACTIONS_H
