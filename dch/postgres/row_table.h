// row_table.h: rows of one group of attributes in the database, of this server or of other sites.
#ifndef DCH_POSTGRES_ROW_TABLE_H
#define DCH_POSTGRES_ROW_TABLE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "dch/core/attribute_value.h"
#include "dch/postgres/connection.h"
#include "dch/postgres/typed_columns.h"
#include "dch/store/remote_tables.h"

namespace dch::pg {

// Rows are gathered, and written together. In the transaction of its caller; after one that did not
// succeed it is made anew. One thread at a time.
class RowTable : public RemoteRowSink {
 public:
  // So many attributes have columns at most: a row has to fit on a page of 8 KB, whatever is in it.
  static constexpr std::size_t mostColumns = 256;

  // `columns` outlive it. `isInDatabase`: it is there, and has all columns that there are now.
  // `noteNewest`: its rows are the newest ones of their sources then.
  RowTable(Connection& connection, std::string name, const TypedColumns& columns, bool isInDatabase,
           bool noteNewest);

  const std::string& name() const { return _name; }

  // Makes the table, or gives it the columns that it lacks. To be called before what uses them.
  void define();

  // Takes the table, which has no rows, out of the database. Nothing else is called then.
  void drop();

  // The row is written by flush().
  void insert(std::int64_t number, ZORA_Long handle, Time time, std::string_view message,
              bool isRow) override;

  void flush();

 private:
  void addValue(int column, const AttributeValue& value);

  Connection& _connection;
  const std::string _name;
  const TypedColumns& _columns;
  const bool _notesNewest;
  std::optional<int> _definedColumns;  // none: it is not there
  CopiedRows _gathered;
  std::int64_t _firstGathered = 0;
  std::vector<AttributeValue> _values;  // of one row, by their columns
};

}  // namespace dch::pg

#endif  // DCH_POSTGRES_ROW_TABLE_H
