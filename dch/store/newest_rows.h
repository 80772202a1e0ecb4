// newest_rows.h: sees to it that the newest row of each source is found without a search, and is
// still there when retention has removed it from its table.
#ifndef DCH_STORE_NEWEST_ROWS_H
#define DCH_STORE_NEWEST_ROWS_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <unordered_map>
#include <vector>

#include "dch/store/providers.h"
#include "dch/store/sqlite.h"

namespace dch {

// The table of the newest rows is not written with every row, which would make a row cost twice as
// much: it may fall behind, and the rows that it does not know are found by their numbers. Some of
// it is written with each group of rows, as much as keeps it from falling further behind. One
// thread at a time.
class NewestRows {
 public:
  // How far it falls behind, in rows. Looking through as many takes 0.1 s when it starts.
  static constexpr std::int64_t mostUnsaved = 250'000;

  // Reads what is in the file.
  NewestRows(sqlite::Connection& connection, const Providers& providers);

  // The highest position that is in use.
  std::int64_t position() const { return _position; }

  // The newest row of a source when the table does not have it, else 0.
  std::int64_t unsavedOf(ZORA_Long handle) const;

  // In a transaction: a row is in its table.
  void add(ZORA_Long handle, std::int64_t number) { _added.push_back({number, handle}); }
  // In a transaction that has used positions up to this one, when `isDue` or the table has fallen
  // too far behind: writes it, and the position.
  void save(std::int64_t position, bool isDue);
  // In a transaction: writes it as far as that takes for no row up to this one to be needed.
  void saveUpTo(std::int64_t number);
  // The transaction is kept.
  void committed();

 private:
  struct Unsaved {
    std::int64_t number;
    ZORA_Long handle;
  };

  void saveFirst();
  void writeState(std::int64_t position);
  void note(const Unsaved& row);

  const Providers& _providers;
  std::int64_t _position = 0;
  std::unordered_map<ZORA_Long, std::int64_t> _newest;  // that is unsaved
  std::deque<Unsaved> _first;                           // the first unsaved row of each source
  std::vector<Unsaved> _added;                          // in this transaction
  std::size_t _savedCount = 0;                          // of `_first`, in this transaction
  std::int64_t _usedPosition = 0;
  sqlite::Statement _writeState;
};

}  // namespace dch

#endif  // DCH_STORE_NEWEST_ROWS_H
