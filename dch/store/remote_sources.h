// remote_sources.h: the handles that sources of other sites have in the store, whether or not it
// has rows of theirs.
#ifndef DCH_STORE_REMOTE_SOURCES_H
#define DCH_STORE_REMOTE_SOURCES_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "dch/core/remote_names.h"
#include "dch/core/text_map.h"
#include "dch/store/remote_source_table.h"
#include "zora/zora.h"

namespace dch {

// What has come into the store.
struct SourcesAdded {
  std::int64_t sources = 0;
  std::int64_t nameBytes = 0;
};

// Writes in the transaction of its caller; after one that did not succeed it is made anew. One
// thread at a time.
class RemoteSources {
 public:
  // Of so many it knows the handles at hand: those that send rows now. Others are searched for in
  // the table.
  static constexpr std::size_t mostAtHand = 100'000;
  // Of so many sites it knows at hand how many they have.
  static constexpr std::size_t mostSitesAtHand = 10'000;

  // The table outlives it.
  explicit RemoteSources(RemoteSourceTable& table) : _table(table) {}

  // For good, whatever becomes of the group here. A source that is new gets the next one; 0: there
  // is no room for it, see core/handles.h.
  ZORA_Long handleOf(const RemoteNames& names);

  // How many groups with rows of other sites have sources of this one.
  std::size_t groupsOf(std::string_view site) { return _table.countGroupsOf(site); }

  // Since it was asked last.
  SourcesAdded takeAdded() { return std::exchange(_added, {}); }

 private:
  ZORA_Long findOrAdd(const RemoteNames& names);
  bool hasRoom(std::string_view site);

  RemoteSourceTable& _table;
  TextMap<ZORA_Long> _atHand;
  TextMap<std::size_t> _ofSites;  // how many they have: of sites with new ones
  SourcesAdded _added;
  std::string _key;
};

}  // namespace dch

#endif  // DCH_STORE_REMOTE_SOURCES_H
