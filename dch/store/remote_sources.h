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

  // May be any bytes.
  struct Names {
    std::string_view site;
    std::string_view application;
    std::string_view group;
    std::string_view source;
  };

  explicit RemoteSources(sqlite::Connection& connection);

  // For good, whatever becomes of the group here. A source that is new gets the next one.
  ZORA_Long handleOf(const Names& names);

 private:
  ZORA_Long findOrAdd(const Names& names);

  sqlite::Connection& _connection;
  sqlite::Statement _find;
  sqlite::Statement _add;
  TextMap<ZORA_Long> _atHand;
  std::string _key;
};

}  // namespace dch

#endif  // DCH_STORE_REMOTE_SOURCES_H
