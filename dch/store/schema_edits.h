// schema_edits.h: changes of many tables and views at the price of one.
#ifndef DCH_STORE_SCHEMA_EDITS_H
#define DCH_STORE_SCHEMA_EDITS_H

#include <string>

#include "dch/core/text_map.h"
#include "dch/store/sqlite.h"

namespace dch {

// Each ALTER TABLE makes SQLite read the whole schema again, each CREATE VIEW and DROP VIEW makes
// it search the schema from end to end, and a client can ask for hundreds with one registration. So
// the definitions are gathered, and written in the way that SQLite's page on ALTER TABLE describes
// for a change that leaves the rows as they are.
//
// To read the schema takes longer than all of that. This connection does so when it is to write
// into columns that are new, and never for the views, which it does not use. In the transaction of
// its caller; after one that did not succeed it is made anew. One thread at a time.
class SchemaEdits {
 public:
  explicit SchemaEdits(sqlite::Connection& connection) : _connection(connection) {}

  // From write() on the table, which is there, has this definition: more columns behind those that
  // it had. A row that ends early has null in the columns behind its end.
  void changeTable(const std::string& name, std::string definition);
  // From write() on the view is there, and as this statement makes it.
  void setView(const std::string& name, std::string statement);
  // From write() on there is no such view.
  void removeView(const std::string& name);
  // The table goes, and what was to be changed in it is not.
  void forgetTable(const std::string& name) { _edits.erase(name); }

  // Writes what was gathered. Others see it with the transaction.
  void write();

  // The same, and this connection knows the tables as they are from then on.
  void writeAndRead();

 private:
  struct Edit {
    bool isView;
    std::string sql;  // empty for what goes
  };

  void writeDefinitions();

  sqlite::Connection& _connection;
  TextMap<Edit> _edits;
  // This connection may know tables as they were, also from before this object was made.
  bool _isReadingDue = true;
};

}  // namespace dch

#endif  // DCH_STORE_SCHEMA_EDITS_H
