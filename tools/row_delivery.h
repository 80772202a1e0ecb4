// row_delivery.h: brings a row to the DCH, whatever happens to that meanwhile.
#ifndef TOOLS_ROW_DELIVERY_H
#define TOOLS_ROW_DELIVERY_H

#include <chrono>
#include <functional>
#include <mutex>
#include <string>

#include "tools/provider_source.h"
#include "tools/row_encoder.h"

namespace tools {

// Says that the DCH is away, and that it is there again: once, whoever of several notices. Any
// thread may call.
class DchPresence {
 public:
  using Clock = std::chrono::steady_clock;
  using Say = std::function<void(const std::string& text)>;
  explicit DchPresence(Say say) : _say(std::move(say)) {}

  // It did not answer what it was asked at that time.
  void isAway(Clock::time_point asked);
  void answers();
  // It answered that it could not keep what it was sent.
  void storesNothing();
  // It did not know what it knew at that time.
  void hasStartedAnew(Clock::time_point known);

 private:
  Say _say;
  std::mutex _mutex;
  bool _isAway = false;
  bool _storesNothing = false;
  Clock::time_point _answered = Clock::time_point::min();
  Clock::time_point _startedAnew = Clock::time_point::min();
};

// One thread at a time.
class RowDelivery {
 public:
  // Called before each try; throws to give up.
  using CheckEnd = std::function<void()>;
  // Called before a row is tried again that the DCH could not keep.
  using Rest = std::function<void()>;
  // Keeps references to the first two. The source is on line. Without `rest` a row that the DCH
  // cannot keep is a Failure.
  RowDelivery(ProviderSource& source, DchPresence& presence, CheckEnd checkEnd, Rest rest = nullptr)
      : _source(source),
        _presence(presence),
        _checkEnd(std::move(checkEnd)),
        _rest(std::move(rest)) {}

  // Sends a row until the DCH has it, also one that dies and starts anew in the meantime. A row
  // whose answer got lost is there twice then.
  void deliver(const EncodedRow& row);

 private:
  ProviderSource& _source;
  DchPresence& _presence;
  CheckEnd _checkEnd;
  Rest _rest;
  DchPresence::Clock::time_point _known = DchPresence::Clock::now();
};

}  // namespace tools

#endif  // TOOLS_ROW_DELIVERY_H
