// remote_handle_table.h: the handles that sources of other sites have in memory.
#ifndef DCH_CORE_REMOTE_HANDLE_TABLE_H
#define DCH_CORE_REMOTE_HANDLE_TABLE_H

#include <cstddef>
#include <string>

#include "dch/core/remote_names.h"
#include "dch/core/text_map.h"
#include "zora/zora.h"

namespace dch {

// One thread.
class RemoteHandleTable {
 public:
  // That of the source, which is its for as long as this lives, or else the next one. 0: there is
  // no room for it, see core/handles.h. Throws std::bad_alloc; nothing has changed then.
  ZORA_Long handleOf(const RemoteNames& names);

 private:
  TextMap<ZORA_Long> _handles;
  TextMap<std::size_t> _ofSites;  // how many they have
  std::string _key;
};

}  // namespace dch

#endif  // DCH_CORE_REMOTE_HANDLE_TABLE_H
