// remote_row_table.h: the rows of other sites of one group of attributes in the file.
#ifndef DCH_STORE_REMOTE_ROW_TABLE_H
#define DCH_STORE_REMOTE_ROW_TABLE_H

#include <cstdint>
#include <optional>
#include <string_view>

#include "dch/core/message.h"
#include "dch/store/remote_tables.h"
#include "dch/store/row_table.h"

namespace dch {

// Its columns are those of the group's own table. Rows are in the order in which they came here,
// and each site has a clock of its own, which may be wrong: an index finds the old ones, so that
// one does no harm to the others. Writes in the transaction of its caller; after one that did not
// succeed it is made anew. One thread at a time.
class RemoteRowTable : public RemoteRowSink {
 public:
  // See RowTable.
  RemoteRowTable(sqlite::Connection& connection, SchemaEdits& edits, std::int64_t group,
                 const AttributeColumns& columns, bool isInFile);
  void define();
  void insert(std::int64_t number, ZORA_Long handle, Time time, std::string_view message,
              bool isRow) override;
  const std::optional<RowTable::Place>& first() { return _rows.first(); }

  // The time of the row that is the oldest by its time; without a search while none is removed.
  const std::optional<Time>& oldest();

  // Removes rows with numbers up to this one, whatever their times. Returns how many.
  std::int64_t removeUpTo(std::int64_t last);
  // Removes rows that are older than `before`, the oldest ones first, as many as that at most.
  // Returns how many.
  std::int64_t removeOlder(Time before, std::int64_t most);

 private:
  std::int64_t group() const { return _rows.group(); }
  std::int64_t remove(sqlite::Statement* statement);

  sqlite::Connection& _connection;
  RowTable _rows;
  bool _isInFile;
  std::optional<Time> _oldest;
  bool _oldestIsKnown = false;
  // Prepared when they are first needed.
  sqlite::Statement _findOldest;
  sqlite::Statement _removeUpTo;
  sqlite::Statement _removeOlder;
};

}  // namespace dch

#endif  // DCH_STORE_REMOTE_ROW_TABLE_H
