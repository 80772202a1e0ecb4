// providers.h: the applications, groups and sources in the file, and what is needed of them to
// write their rows.
#ifndef DCH_STORE_PROVIDERS_H
#define DCH_STORE_PROVIDERS_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "dch/core/change.h"
#include "dch/core/text_map.h"
#include "dch/store/attribute_columns.h"
#include "dch/store/group_view.h"
#include "dch/store/remote_row_table.h"
#include "dch/store/row_table.h"
#include "dch/store/schema_edits.h"
#include "dch/store/sqlite.h"

namespace dch {

// Writes in the transaction of its caller; after one that did not succeed it is made anew. One
// thread at a time.
class Providers {
 public:
  // How many groups the file takes: those that are registered, and those that are not, or not any
  // more, but have sources, whose handles stay theirs, or rows, or had rows of other sites. Each
  // has a table or two and a view, and what makes another one takes longer with their number. Far
  // above what a suite has.
  static constexpr std::size_t maxGroups = 2'000;
  // Other sites' rows make no more where there are so many: this server's own have room, too. So
  // with attributes, of one group and of all: what makes another one takes longer with their
  // number.
  static constexpr std::size_t maxGroupsWithRemote = 1'500;
  static constexpr std::size_t maxColumnsWithRemote = 256;
  static constexpr std::size_t maxAllColumnsWithRemote = 20'000;

  // Reads what is in the file.
  explicit Providers(sqlite::Connection& connection);

  // Returns false, and writes nothing that is known, when there is no room for its groups.
  bool write(const Registered& change, std::int64_t position);
  void write(const Unregistered& change);
  // Returns false when the file has no such group.
  bool write(const WentOnline& change, std::int64_t position);
  void write(const WentOffline& change);
  // Whether there are groups that are not needed any more.
  bool hasUnused() const;
  // Removes some of them, as many as that at most. Returns how many.
  std::size_t removeUnused(std::size_t most) { return removeUnused(most, {}); }

  // What rows of other sites need, in this order: room for their groups, and those are left out for
  // which there is none; the table for each one, and columns for these attributes; all of that in
  // the file. The tables are in use then.
  // `mostNew` tells how many new groups there may be.
  void makeRoomFor(std::vector<const RemoteRow*>* rows,
                   const std::function<std::size_t()>& mostNew);
  RemoteRowTable& enter(const RemoteRow& row, const std::vector<std::string_view>& attributes);
  void defineEntered();

  // In the same transaction, behind its last change.
  void finish() { _edits.write(); }

  // The table for the rows of a source, null when there is no such source.
  RowTable* tableOf(ZORA_Long handle) const;

  // Of all groups.
  const std::vector<std::unique_ptr<RowTable>>& tables() const { return _tables; }
  // Of those that other sites have had rows of.
  const std::vector<std::unique_ptr<RemoteRowTable>>& remoteTables() const { return _remoteTables; }

 private:
  struct Group {
    std::unique_ptr<AttributeColumns> columns;
    RowTable* table;
    std::string view;
    RemoteRowTable* remoteTable = nullptr;
    bool isRegistered = false;
    bool hasSources = false;  // that have been on line at any time
    bool isEntered = false;   // and its columns have changed, or its tables are not in the file yet

    bool isUnused() const {
      return !isRegistered && !hasSources && remoteTable == nullptr && !table->first();
    }
  };
  struct Application {
    std::int64_t id;
    bool isRegistered;
    std::string text;  // of the last registration
    TextMap<Group> groups;
  };

  void readSources(const std::unordered_map<std::int64_t, Group*>& groups);
  bool makeRoomFor(const suite::Registration& registration);
  std::size_t roomFor(std::size_t newGroups, std::size_t most, const std::set<const Group*>& kept);
  std::size_t removeUnused(std::size_t most, const std::set<const Group*>& kept);
  void remove(const Group& group);
  const Group* find(std::string_view application, std::string_view group) const;
  Application& enterApplication(std::string_view name);
  Group& enterGroup(Application* application, std::string_view applicationName,
                    std::string_view name);
  Group makeGroup(std::int64_t id, std::string view, std::vector<AttributeColumn> attributes,
                  bool isInFile);
  void makeRemoteTable(Group* group, bool isInFile);
  bool mayBringColumn(const Group& group) const;
  void define(const Group& group);
  void setTable(ZORA_Long handle, RowTable* table);

  sqlite::Connection& _connection;
  const std::size_t _mostColumns;  // of a table, or of a view
  SchemaEdits _edits;
  TextMap<Application> _applications;
  std::vector<std::unique_ptr<RowTable>> _tables;
  std::vector<std::unique_ptr<RemoteRowTable>> _remoteTables;
  std::vector<Group*> _entered;           // since defineEntered()
  std::vector<RowTable*> _tableOfSource;  // that of handle 1 comes first; with gaps
  SqlNames _views;
  sqlite::Statement _clearPlaces;
  sqlite::Statement _setPlace;
  sqlite::Statement _setHasRemoteRows;
  sqlite::Statement _setAttribute;
  sqlite::Statement _goOnline;
  sqlite::Statement _goOffline;
};

}  // namespace dch

#endif  // DCH_STORE_PROVIDERS_H
