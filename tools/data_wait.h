// data_wait.h: a subscription to the rows of one attribute group, and its end.
#ifndef TOOLS_DATA_WAIT_H
#define TOOLS_DATA_WAIT_H

#include <array>
#include <atomic>
#include <chrono>
#include <mutex>
#include <optional>
#include <span>
#include <string>

#include "tools/common/control_thread.h"
#include "tools/subscription_sender.h"
#include "tools/subscription_upkeep.h"

namespace tools {

// Used by the process's first thread, before it starts another one.
class DataWait {
 public:
  using Clock = ControlThread::Clock;
  enum class Outcome { message, signal, quiet };

  // Subscribes. Without `quietLimit` the wait for a row has no limit. Throws a Failure
  // (EX_UNAVAILABLE).
  DataWait(std::string applName, std::string attrGroup, std::optional<Clock::duration> quietLimit);

  // Ends the subscription.
  ~DataWait();
  DataWait(const DataWait&) = delete;
  DataWait& operator=(const DataWait&) = delete;

  // Waits for the next message, until a signal comes, or until no row has come for the limit. Keeps
  // the subscription alive meanwhile. After a wait that failed it warns and subscribes again;
  // throws a Failure (EX_UNAVAILABLE) when that cannot be done.
  Outcome next();

  // The buffer with the message that next() got; the message's length word tells its end.
  std::span<char> message() { return _buffer; }

  // The last message was a row: the limit counts from now.
  void rowCame() { _lastRow = Clock::now(); }

 private:
  void subscribe();
  void unsubscribe();
  void renew();
  void act(int signal);
  void stop(Outcome why);
  bool isStopped() const { return _stopped != Outcome::message; }
  Clock::time_point quietDeadline() const;
  Clock::time_point deadline() const;

  const std::string _applName;
  const std::string _attrGroup;
  const std::optional<Clock::duration> _quietLimit;
  std::array<char, 32767> _buffer{};  // as much as a wait can be given
  std::atomic<Clock::time_point> _lastRow{Clock::now()};
  std::atomic<Outcome> _stopped{Outcome::message};  // message: goes on
  std::mutex _handleMutex;  // held to cancel, renew and replace the handle, not to wait on it
  void* _handle = nullptr;
  std::optional<SubscriptionSender> _sender;  // of the handle
  SubscriptionUpkeep _upkeep;
  std::optional<ControlThread> _controlThread;
};

}  // namespace tools

#endif  // TOOLS_DATA_WAIT_H
