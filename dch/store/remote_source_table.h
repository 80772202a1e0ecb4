// remote_source_table.h: where the handles of sources of other sites are kept.
#ifndef DCH_STORE_REMOTE_SOURCE_TABLE_H
#define DCH_STORE_REMOTE_SOURCE_TABLE_H

#include <cstddef>
#include <string_view>

#include "dch/core/remote_names.h"
#include "zora/zora.h"

namespace dch {

// Nothing is ever removed. Used in the transaction of whoever uses it; throws what its own kind of
// store throws. One thread.
class RemoteSourceTable {
 public:
  virtual ~RemoteSourceTable() = default;

  // 0 when there is no such source.
  virtual ZORA_Long find(const RemoteNames& names) = 0;
  // Of one that is not there: it gets the handle behind the highest one, or firstRemoteHandle.
  virtual ZORA_Long add(const RemoteNames& names) = 0;

  virtual std::size_t count() = 0;
  virtual std::size_t countOf(std::string_view site) = 0;
  // Of groups with rows of other sites.
  virtual std::size_t countGroupsOf(std::string_view site) = 0;
};

}  // namespace dch

#endif  // DCH_STORE_REMOTE_SOURCE_TABLE_H
