// memory_store.h: the store of a server that keeps nothing beyond its own life.
#ifndef DCH_STORE_MEMORY_STORE_H
#define DCH_STORE_MEMORY_STORE_H

#include <utility>

#include "dch/core/remote_handle_table.h"
#include "dch/core/store.h"

namespace dch {

class MemoryStore : public Store {
 public:
  void append(Entry* entry, StoreClient* client) override {
    if (auto* const seen = std::get_if<RemoteSourceSeen>(&entry->change))
      seen->handle = _handles.handleOf(namesOf(*seen));
    client->conclude(std::move(*entry), true);
  }
  std::size_t waiting() const override { return 0; }
  void load(const std::function<void(Change&&)>&) override {}

 private:
  RemoteHandleTable _handles;
};

}  // namespace dch

#endif  // DCH_STORE_MEMORY_STORE_H
