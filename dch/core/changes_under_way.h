// changes_under_way.h: which changes are on their way into the store.
#ifndef DCH_CORE_CHANGES_UNDER_WAY_H
#define DCH_CORE_CHANGES_UNDER_WAY_H

#include <string>
#include <string_view>
#include <unordered_set>

#include "dch/core/text_map.h"
#include "zora/zora.h"

namespace dch {

// What a change needs for itself until it is applied: a source, or with handle 0 an application
// with all its sources. What was found when a request was checked is still so then. Sources of one
// application go on line side by side; a row needs nothing for itself. One thread.
struct Claim {
  std::string application;  // empty: nothing
  ZORA_Long handle = 0;
};

class ChangesUnderWay {
 public:
  // Whether a change that needs this has to wait.
  bool holdUp(std::string_view application, ZORA_Long handle = 0) const;

  // Throws std::bad_alloc; nothing has changed then.
  void add(const Claim& claim);
  void remove(const Claim& claim) noexcept;

 private:
  // The handles that are claimed of an application.
  TextMap<std::unordered_set<ZORA_Long>> _applications;
};

}  // namespace dch

#endif  // DCH_CORE_CHANGES_UNDER_WAY_H
