// row_table.h: rows of one group of attributes in the file.
#ifndef DCH_STORE_ROW_TABLE_H
#define DCH_STORE_ROW_TABLE_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "dch/core/change.h"
#include "dch/store/attribute_columns.h"
#include "dch/store/schema_edits.h"
#include "dch/store/sqlite.h"

namespace dch {

// Writes in the transaction of its caller; after one that did not succeed it is made anew. One
// thread at a time.
class RowTable {
 public:
  // Before those of the attributes: number, time, handle, code, message.
  static constexpr int fixedColumns = 5;

  // Of the group with this ID, by this name. `columns` and `edits` outlive it. `isInFile`: it is
  // there, and has all columns that there are now.
  RowTable(sqlite::Connection& connection, SchemaEdits& edits, std::int64_t group, std::string name,
           const AttributeColumns& columns, bool isInFile);

  std::int64_t group() const { return _group; }
  const std::string& name() const { return _name; }

  // Makes the table, or gives it the columns that it lacks, which are among the edits then. To be
  // called before what uses them.
  void define();

  // Takes the table, which has no rows, out of the file. Nothing else is called then.
  void drop();

  // `isRow`: the message is that of a row. Of another one only the bytes are kept.
  void insert(std::int64_t number, ZORA_Long handle, Time time, std::string_view message,
              bool isRow = true);

  // A row that is in the table.
  std::optional<Row> row(std::int64_t number);

  // Makes the row the newest one of its source.
  void saveNewest(std::int64_t number);

  // Removes rows from `first` up to `last` that are older than `before`. Returns how many.
  std::int64_t remove(std::int64_t first, std::int64_t last, Time before);
  // The number of the last of them; 0 when there are none. A statement is prepared each time.
  std::int64_t lastOf(std::int64_t first, std::int64_t last, Time before);

  // Which place a row has among all.
  struct Place {
    std::int64_t number;
    Time time;
  };
  // The first row, without a search; the first one from that number on; the last one, for which a
  // statement is prepared each time.
  const std::optional<Place>& first();
  std::optional<Place> firstFrom(std::int64_t number);
  std::optional<Place> last();
  // Rows were removed by other means.
  void forgetFirst() { _firstIsKnown = false; }

 private:
  void prepareInsert();
  std::optional<Place> findFirst(std::int64_t number);
  static std::optional<Place> place(sqlite::Statement& query);
  sqlite::Statement& prepared(sqlite::Statement* statement, const std::string& sql);

  sqlite::Connection& _connection;
  SchemaEdits& _edits;
  const std::int64_t _group;
  const std::string _name;
  const AttributeColumns& _columns;
  std::optional<int> _definedColumns;  // none: it is not there
  int _writtenColumns = 0;             // that `_insert` can write
  // Prepared when they are first needed.
  sqlite::Statement _insert;
  sqlite::Statement _row;
  sqlite::Statement _saveNewest;
  sqlite::Statement _remove;
  sqlite::Statement _findFirst;
  std::optional<Place> _first;
  bool _firstIsKnown = false;
};

}  // namespace dch

#endif  // DCH_STORE_ROW_TABLE_H
