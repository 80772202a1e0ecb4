// earlier_numbers.h: numbers of sources that their newest rows do not have.
#ifndef DCH_WEB_EARLIER_NUMBERS_H
#define DCH_WEB_EARLIER_NUMBERS_H

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "dch/core/registry.h"

namespace dch {

struct NamedNumber {
  std::string name;  // of the attribute
  std::int64_t value;
};

// A program may send some attributes now and others then; the newest number of each is what counts.
// Rows that have all attributes of their group, or the same ones as the row before, cost a walk
// over their names. One thread.
class EarlierNumbers {
 public:
  // `message` is the newest row of the source, `former` the one before, empty when there is none.
  void take(const Source& source, std::string_view message, std::string_view former) noexcept;

  // The source has gone off line.
  void forget(ZORA_Long handle) noexcept { _all.erase(handle); }

  // Those that the newest row of this source does not have; null when it has all that are known.
  const std::vector<NamedNumber>* find(ZORA_Long handle) const;

  bool isEmpty() const { return _all.empty(); }

 private:
  void merge(std::vector<NamedNumber>* numbers, std::string_view message, std::string_view former);

  std::unordered_map<ZORA_Long, std::vector<NamedNumber>> _all;
};

}  // namespace dch

#endif  // DCH_WEB_EARLIER_NUMBERS_H
