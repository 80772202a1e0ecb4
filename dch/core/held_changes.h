// held_changes.h: changes that are kept and wait until there is room to publish what they cause.
#ifndef DCH_CORE_HELD_CHANGES_H
#define DCH_CORE_HELD_CHANGES_H

#include <cstddef>
#include <list>
#include <optional>
#include <string_view>

#include "dch/core/publisher.h"
#include "dch/core/registry.h"
#include "dch/core/store.h"
#include "dch/core/text_map.h"

namespace dch {

// What publishes nothing does not wait, but behind a change of the same application. One thread.
class HeldChanges {
 public:
  // As the store told it.
  struct Concluded {
    Entry entry;
    bool kept;
  };

  HeldChanges(const Registry& registry, const Publisher& publisher)
      : _registry(registry), _publisher(publisher) {}

  // Takes what is in the entry when it has to wait, and returns whether it has to. Throws
  // std::bad_alloc; the entry is as it was then.
  bool take(Entry* entry, bool kept);

  bool empty() const { return _waiting.empty(); }
  std::size_t size() const { return _waiting.size(); }

  // The first one, unless it still has to wait.
  std::optional<Concluded> release() noexcept;

  // The first one all the same. There is one.
  Concluded takeFirst() noexcept;

 private:
  using Counts = TextMap<std::size_t>;
  struct Waiting {
    Concluded concluded;
    Counts::value_type* application;  // stays where it is as long as it is counted
  };

  std::string_view applicationOf(const Entry& entry) const;
  bool hasToWait(const Entry& entry, bool kept) const;

  const Registry& _registry;
  const Publisher& _publisher;
  std::list<Waiting> _waiting;
  Counts _counts;  // how many wait of each application; none is 0
};

}  // namespace dch

#endif  // DCH_CORE_HELD_CHANGES_H
