// remote_sources.h: the handles that sources of other sites have in the file, whether or not it has
// rows of theirs.
#ifndef DCH_STORE_REMOTE_SOURCES_H
#define DCH_STORE_REMOTE_SOURCES_H

#include <cstddef>
#include <string>
#include <string_view>

#include "dch/core/text_map.h"
#include "dch/store/sqlite.h"
#include "zora/zora.h"

namespace dch {

// Writes in the transaction of its caller; after one that did not succeed it is made anew. One
// thread at a time.
class RemoteSources {
 public:
  // Of so many it knows the handles at hand: those that send rows now. Others are searched for in
  // the file.
  static constexpr std::size_t mostAtHand = 100'000;

  // How many it takes: for good, so that who makes them up takes no more room.
  static constexpr std::size_t most = 2'000'000;
  static constexpr std::size_t mostOfSite = 100'000;

  // May be any bytes.
  struct Names {
    std::string_view site;
    std::string_view application;
    std::string_view group;
    std::string_view source;
  };

  explicit RemoteSources(sqlite::Connection& connection);

  // For good, whatever becomes of the group here. A source that is new gets the next one; 0: there
  // is no room for it.
  ZORA_Long handleOf(const Names& names);

  // How many groups have sources of this site, or had.
  std::size_t groupsOf(std::string_view site);

 private:
  ZORA_Long findOrAdd(const Names& names);
  bool hasRoom(std::string_view site);

  sqlite::Connection& _connection;
  sqlite::Statement _find;
  sqlite::Statement _add;
  sqlite::Statement _countAll;
  sqlite::Statement _countOfSite;
  sqlite::Statement _countGroups;
  TextMap<ZORA_Long> _atHand;
  TextMap<std::size_t> _ofSites;  // how many they have: of sites with new ones
  std::string _key;
};

}  // namespace dch

#endif  // DCH_STORE_REMOTE_SOURCES_H
