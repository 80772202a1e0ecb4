// epoch_table.h: from which position on which epoch the changes in the file are of.
#ifndef DCH_STORE_EPOCH_TABLE_H
#define DCH_STORE_EPOCH_TABLE_H

#include <cstdint>

#include "dch/core/epoch.h"
#include "dch/store/sqlite.h"

namespace dch {

// After a transaction that did not succeed it is made anew. One thread at a time.
class EpochTable {
 public:
  // Reads what is in the file. Changes that are kept from now on are of this epoch.
  EpochTable(sqlite::Connection& connection, const Epoch& own);

  // Whether the next change is the first one of its epoch: begin() is called in its transaction. A
  // run that keeps nothing leaves no line.
  bool isDue() const { return _isDue; }
  void begin(std::int64_t position);

  // In a transaction: there is no row before this one.
  void forgetBefore(std::int64_t number);

 private:
  const Epoch _own;
  bool _isDue = true;
  sqlite::Statement _begin;
  sqlite::Statement _forget;
};

void bindEpoch(sqlite::Statement& statement, int parameter, const Epoch& epoch);
// The epoch in a column.
Epoch epochAt(const sqlite::Statement& query, int column);

}  // namespace dch

#endif  // DCH_STORE_EPOCH_TABLE_H
