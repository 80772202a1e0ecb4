// deferrals.h: the report requests that consumers have deferred.
#ifndef DCH_CORE_DEFERRALS_H
#define DCH_CORE_DEFERRALS_H

#include <cstddef>
#include <list>
#include <string>

#include "dch/core/counters.h"
#include "zora/zora.h"

namespace dch {

// The values are the consumer's own; the server gives them no meaning.
struct Deferral {
  ZORA_Long actionId = 0;
  ZORA_Long peltaObject = 0;
  ZORA_Long currentTime = 0;
  std::string applKey;
  std::string tableName;
  std::string sourceName;

  // One line without its end; what a client sent cannot break it.
  std::string text() const;
};

// Keeps the latest ones. One thread.
class Deferrals {
 public:
  static constexpr std::size_t defaultCapacity = 10'000;

  // The counters outlive it.
  explicit Deferrals(Counters& counters, std::size_t capacity = defaultCapacity)
      : _counters(counters), _capacity(capacity) {}

  // Takes the one that is in the list, and forgets the oldest one when there are too many.
  void add(std::list<Deferral>&& one) noexcept;

  // The oldest first.
  const std::list<Deferral>& kept() const { return _kept; }

 private:
  Counters& _counters;
  const std::size_t _capacity;
  std::list<Deferral> _kept;
};

}  // namespace dch

#endif  // DCH_CORE_DEFERRALS_H
