// actions.h: the programs that consumers have started, and their results.
#ifndef DCH_ACTIONS_H
#define DCH_ACTIONS_H

#include <cstddef>
#include <deque>
#include <functional>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "dch/action_list.h"
#include "dch/child_program.h"
#include "dch/event_log.h"
#include "dch/incoming_message.h"
#include "zora/zora.h"

namespace dch {

struct ActionLimits {
  std::size_t running = 64;
  std::size_t results = 10'000;  // the latest ones are kept
  std::size_t waiters = 1'000;   // of all running actions together
};

// Programs that still run when it is destroyed are ended with SIGTERM. One thread.
class Actions {
 public:
  Actions(const ActionList& list, const EventLog& log, const ActionLimits& limits = {})
      : _list(list), _log(log), _limits(limits) {}

  // Starts the program of the action `name`. Its result is then that of `id`, in place of an
  // earlier one: ChildProgram::notStarted when it could not be started, DCH_STATUS_NOT_STORED when
  // too many run already, and none when there is no such action. While an action runs another one
  // of its ID is not started: it would be the same request that came twice.
  void start(std::string_view name, ZORA_Long id);

  struct Result {
    bool isKnown;
    ZORA_Long status;
  };

  // The result of an action: its program's, DCH_STATUS_UNKNOWN_ACTION when there is none. Not known
  // while it runs: `waiter`, whose bytes are not kept, is then told by the collect() that finds it
  // ended.
  Result resultFor(const IncomingMessage& waiter, ZORA_Long id);

  // Finds the programs that have ended, and calls `tell` for each who waits for one.
  using Tell = std::function<void(const IncomingMessage& waiter, ZORA_Long status)>;
  void collect(const Tell& tell);

 private:
  struct Running {
    std::optional<ChildProgram> program;  // there once it is started
    std::vector<IncomingMessage> waiters;
  };

  void keepResult(ZORA_Long id, ZORA_Long status);
  void forgetResult(ZORA_Long id);

  const ActionList& _list;
  const EventLog& _log;
  const ActionLimits _limits;
  std::unordered_map<ZORA_Long, Running> _running;
  std::size_t _waiterCount = 0;
  std::unordered_map<ZORA_Long, ZORA_Long> _results;
  std::deque<ZORA_Long> _resultOrder;  // the IDs of `_results`, the oldest first
};

}  // namespace dch

#endif  // DCH_ACTIONS_H
