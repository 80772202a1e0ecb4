// groups.h: the applications, groups and sources in the database, and their tables.
#ifndef DCH_POSTGRES_GROUPS_H
#define DCH_POSTGRES_GROUPS_H

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
#include "dch/postgres/connection.h"
#include "dch/postgres/row_table.h"
#include "dch/postgres/typed_columns.h"
#include "dch/store/group_view.h"

namespace dch::pg {

// Writes in the transaction of its caller; after one that did not succeed it is made anew. One
// thread at a time.
class Groups {
 public:
  // Reads what is in the database.
  explicit Groups(Connection& connection);

  // Returns false, and writes nothing that is known, when there is no room for its groups.
  bool write(const Registered& change, std::int64_t position);
  void write(const Unregistered& change);
  // Returns false when there is no such group.
  bool write(const WentOnline& change, std::int64_t position);
  void write(const WentOffline& change);

  // See RemoteTables.
  void makeRoomFor(std::vector<const RemoteRow*>* rows,
                   const std::function<std::size_t()>& mostNew);
  RemoteRowSink& enter(const RemoteRow& row, const std::vector<std::string_view>& attributes);
  void defineEntered();

  // The table for the rows of a source, null when there is no such source. It is flushed by
  // finish().
  RowTable* tableOf(ZORA_Long handle);

  // In the same transaction, behind its last change.
  void finish();

 private:
  struct Group {
    std::int64_t id = 0;
    std::string view;
    std::unique_ptr<TypedColumns> columns;
    std::unique_ptr<RowTable> own;
    std::unique_ptr<RowTable> remote;  // null: other sites have never had rows
    bool isRegistered = false;
    bool hasSources = false;  // that have been on line at any time
    bool isEntered = false;   // and its columns have changed, or its tables are not there yet

    bool isUnused() const { return !isRegistered && !hasSources && !remote; }
  };
  struct Application {
    std::int64_t id = 0;
    bool isRegistered = false;
    std::string text;  // of the last registration
    TextMap<Group> groups;
  };
  using GroupsById = std::unordered_map<std::int64_t, Group*>;

  void readColumns(const GroupsById& groups);
  void readSources(const GroupsById& groups);
  bool makeRoomFor(const suite::Registration& registration);
  std::size_t roomFor(std::size_t newGroups, std::size_t most, const std::set<const Group*>& kept);
  void removeUnused(std::size_t most, const std::set<const Group*>& kept);
  bool remove(const Group& group);
  Group* find(std::string_view application, std::string_view group);
  Application& enterApplication(std::string_view name);
  Group& enterGroup(Application* application, std::string_view applicationName,
                    std::string_view name);
  void makeTables(Group* group, std::vector<AttributeColumn> attributes,
                  std::vector<bool> areNumbers, bool isInDatabase);
  void makeRemoteTable(Group* group, bool isInDatabase);
  bool mayBringColumn(const Group& group) const;
  void define(Group* group);
  RowTable& use(RowTable* table);

  Connection& _connection;
  TextMap<Application> _applications;
  std::size_t _groupCount = 0;
  std::size_t _columnCount = 0;
  std::int64_t _highestApplication = 0;
  std::int64_t _highestGroup = 0;
  std::unordered_map<ZORA_Long, RowTable*> _tableOfSource;
  SqlNames _views{{}, 63};
  std::vector<Group*> _entered;  // since defineEntered()
  std::set<RowTable*> _used;     // since finish()
};

}  // namespace dch::pg

#endif  // DCH_POSTGRES_GROUPS_H
