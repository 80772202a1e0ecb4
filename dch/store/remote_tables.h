// remote_tables.h: where rows of other sites are kept, and how far they are known.
#ifndef DCH_STORE_REMOTE_TABLES_H
#define DCH_STORE_REMOTE_TABLES_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>
#include <vector>

#include "dch/core/change.h"
#include "dch/core/message.h"

namespace dch {

// The rows of other sites of one group.
class RemoteRowSink {
 public:
  virtual ~RemoteRowSink() = default;

  // `isRow`: the message is that of a row. Of another one only the bytes are kept.
  virtual void insert(std::int64_t number, ZORA_Long handle, Time time, std::string_view message,
                      bool isRow) = 0;
};

// Used in the transaction of whoever uses it; throws what its own kind of store throws. One thread.
class RemoteTables {
 public:
  virtual ~RemoteTables() = default;

  // What rows need, in this order: room for their groups, and those are left out for which there is
  // none; the table for each one, and columns for these attributes, as far as there is room; all of
  // that in the store. The tables are in use then. `mostNew` tells how many new groups there may
  // be.
  virtual void makeRoomFor(std::vector<const RemoteRow*>* rows,
                           const std::function<std::size_t()>& mostNew) = 0;
  virtual RemoteRowSink& enter(const RemoteRow& row,
                               const std::vector<std::string_view>& attributes) = 0;
  virtual void defineEntered() = 0;

  // Up to which number the rows of an epoch are known, if any.
  virtual std::optional<std::int64_t> findEpoch(std::string_view site, const Epoch& epoch) = 0;
  // Says so, and the position at which that was changed.
  virtual void setEpoch(std::string_view site, const RowName& known, std::int64_t changed) = 0;
  // But mostKnownEpochs of the site, which were changed last.
  virtual void forgetEpochs(std::string_view site) = 0;

  virtual void setSite(std::string_view site, const std::optional<std::uint64_t>& passedFrom) = 0;
  virtual void setStream(const StreamRead& read) = 0;
};

}  // namespace dch

#endif  // DCH_STORE_REMOTE_TABLES_H
