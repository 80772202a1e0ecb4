// store.h: keeps changes, so that what was acknowledged is there after the death of the process.
#ifndef DCH_CORE_STORE_H
#define DCH_CORE_STORE_H

#include <cstddef>
#include <functional>

#include "dch/core/change.h"
#include "dch/core/changes_under_way.h"
#include "dch/core/message.h"
#include "dch/core/registry.h"

namespace dch {

struct RequestType;

// A change on its way into the store, and what is wanted of it then.
struct Entry {
  Change change;
  Origin origin{};                       // who is answered
  const RequestType* request = nullptr;  // what asked for it; null when no request did
  Claim claim{};
  Prepared prepared{};
};

class StoreClient {
 public:
  // An entry comes back: its change is kept, or it is not as far as the store can tell.
  virtual void conclude(Entry&& entry, bool kept) noexcept = 0;

 protected:
  ~StoreClient() = default;
};

// The client gives each entry and gets it back, as it was but for what RemoteSourceSeen says, on
// its own thread, once and in the order of append(): within append() where keeping takes no time.
// One thread.
class Store {
 public:
  virtual ~Store() = default;

  // Takes what is in the entry. Throws std::bad_alloc; the entry is as it was then, and nothing of
  // it is kept.
  virtual void append(Entry* entry, StoreClient* client) = 0;

  // To be called when nothing more is to be appended for the moment: a store that keeps many
  // entries at a time begins to.
  virtual void handOver() {}

  // How many entries are on their way.
  virtual std::size_t waiting() const = 0;

  // Tells the changes that make up what is known, in an order in which they can be applied. Sources
  // that are off line come first: without a registration they have their handles and no more.
  // Throws what the store's own header says, and what `take` throws.
  virtual void load(const std::function<void(Change&&)>& take) = 0;
};

}  // namespace dch

#endif  // DCH_CORE_STORE_H
