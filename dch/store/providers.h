// providers.h: the applications, groups and sources in the file, and what is needed of them to
// write their rows.
#ifndef DCH_STORE_PROVIDERS_H
#define DCH_STORE_PROVIDERS_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "dch/core/change.h"
#include "dch/core/text_map.h"
#include "dch/store/group_view.h"
#include "dch/store/row_table.h"
#include "dch/store/schema_edits.h"
#include "dch/store/sqlite.h"

namespace dch {

// Writes in the transaction of its caller; after one that did not succeed it is made anew. One
// thread at a time.
class Providers {
 public:
  // How many groups the file takes: those that are registered, and those that are not any more but
  // have sources, whose handles stay theirs, or rows. Each has a table and a view, and what makes
  // another one takes longer with their number. Far above what a suite has.
  static constexpr std::size_t maxGroups = 2'000;

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
  std::size_t removeUnused(std::size_t most) { return removeUnused(most, {}, {}); }
  // In the same transaction, behind its last change.
  void finish() { _edits.write(); }

  // The table for the rows of a source, null when there is no such source.
  RowTable* tableOf(ZORA_Long handle) const;

  // All of them.
  const std::vector<std::unique_ptr<RowTable>>& tables() const { return _tables; }

 private:
  struct Group {
    RowTable* table;
    std::string view;
    bool isRegistered = false;
    bool hasSources = false;  // that have been on line at any time

    bool isUnused() const { return !isRegistered && !hasSources && !table->first(); }
  };
  struct Application {
    std::int64_t id;
    bool isRegistered;
    std::string text;  // of the last registration
    TextMap<Group> groups;
  };

  void readSources(const std::unordered_map<std::int64_t, Group*>& groups);
  bool makeRoomFor(const suite::Registration& registration);
  std::size_t removeUnused(std::size_t most, std::string_view application,
                           const TextSet& keptGroups);
  void remove(const Group& group);
  Application& enterApplication(const suite::Registration& registration);
  Group& enterGroup(Application* application, const std::string& applicationName,
                    const std::string& name);
  void arrange(const Group& group, const suite::RegisteredGroup& registered);
  void setTable(ZORA_Long handle, RowTable* table);

  sqlite::Connection& _connection;
  SchemaEdits _edits;
  TextMap<Application> _applications;
  std::vector<std::unique_ptr<RowTable>> _tables;
  std::vector<RowTable*> _tableOfSource;  // that of handle 1 comes first; with gaps
  SqlNames _views;
  sqlite::Statement _clearPlaces;
  sqlite::Statement _setPlace;
  sqlite::Statement _setAttribute;
  sqlite::Statement _goOnline;
  sqlite::Statement _goOffline;
};

}  // namespace dch

#endif  // DCH_STORE_PROVIDERS_H
