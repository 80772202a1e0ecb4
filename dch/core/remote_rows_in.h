// remote_rows_in.h: pushes rows of other sites to those who have subscribed to them here.
#ifndef DCH_CORE_REMOTE_ROWS_IN_H
#define DCH_CORE_REMOTE_ROWS_IN_H

#include <cstdint>

#include "dch/core/core.h"
#include "dch/core/remote_handles.h"
#include "dch/core/store.h"

namespace dch {

// What it is given was kept at its site. Nothing of it is kept here, but for the handles of the
// sources, by which subscribers tell them apart. One thread.
class RemoteRowsIn final : private StoreClient {
 public:
  struct Figures {
    std::uint64_t pushed = 0;   // to those who had subscribed, whether or not each of them got it
    std::uint64_t refused = 0;  // they are no rows
    std::uint64_t lost = 0;     // there was no room to wait, or the store kept no handle
    std::uint64_t withoutHandle = 0;  // there is no room for their sources
  };

  // Both outlive it, and the store concludes nothing when it is gone.
  RemoteRowsIn(Core& core, Store& store) : _core(core), _store(store) {}
  RemoteRowsIn(const RemoteRowsIn&) = delete;
  RemoteRowsIn& operator=(const RemoteRowsIn&) = delete;

  // Whether more rows may come: else those of this server's own providers would be held up.
  bool hasRoom() const { return _core.hasRoomToPublish(); }

  // Pushes the row, or lets it wait for its handle; one that nobody wants any more goes. The caller
  // hands what is to be kept over to the store, and sees to Core::isPublishing.
  void take(LiveRow&& row) noexcept;

  const Figures& figures() const { return _figures; }

 private:
  void conclude(Entry&& entry, bool isKept) noexcept override;
  void takeWhole(const std::string& topic, LiveRow&& row);
  void ask() noexcept;
  void push(const std::string& topic, LiveRow* row, ZORA_Long handle);

  Core& _core;
  Store& _store;
  RemoteHandles _handles;
  Figures _figures;
  bool _isAsking = false;
};

}  // namespace dch

#endif  // DCH_CORE_REMOTE_ROWS_IN_H
