// row_table.h: the rows of one group of attributes in the file.
#ifndef DCH_STORE_ROW_TABLE_H
#define DCH_STORE_ROW_TABLE_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "dch/core/change.h"
#include "dch/core/text_map.h"
#include "dch/store/group_view.h"
#include "dch/store/schema_edits.h"
#include "dch/store/sqlite.h"
#include "suite/registration.h"

namespace dch {

// Writes in the transaction of its caller; after one that did not succeed it is made anew. One
// thread at a time.
class RowTable {
 public:
  // Of the group with this ID. Without attributes, which are told in the order of the view, it is
  // not in the file yet: arrange() makes it. `edits` outlive it.
  RowTable(sqlite::Connection& connection, SchemaEdits& edits, std::int64_t group,
           std::vector<AttributeColumn> attributes = {});

  std::int64_t group() const { return _group; }
  const std::vector<AttributeColumn>& attributes() const { return _attributes; }

  // The column of an attribute, 0 when it has none.
  int columnOf(std::string_view attribute) const;

  // Gives the attributes this order in the view, with a column for each new one; those that are
  // named no more stand behind the others. Returns whether that changed anything; columns that are
  // added are among the edits. An attribute for which the table has no room is left out: its values
  // are only in the messages. Every group has attributes.
  bool arrange(const std::vector<suite::RegisteredAttribute>& attributes);

  // Takes the table, which has no rows, out of the file. Nothing else is called then.
  void drop();

  void insert(std::int64_t number, const Row& row);

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

 private:
  void prepareInsert();
  std::optional<Place> findFirst(std::int64_t number);
  static std::optional<Place> place(sqlite::Statement& query);
  sqlite::Statement& prepared(sqlite::Statement* statement, const std::string& sql);

  sqlite::Connection& _connection;
  SchemaEdits& _edits;
  const std::int64_t _group;
  const std::string _name;
  std::vector<AttributeColumn> _attributes;
  TextMap<int> _columns;
  int _writtenColumns = 0;  // that `_insert` can write
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
