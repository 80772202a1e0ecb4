#include "dch/store/loader.h"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "dch/core/actions.h"
#include "dch/core/deferrals.h"
#include "dch/core/registry.h"

namespace dch {

namespace {

using Take = std::function<void(Change&&)>;

ZORA_Long longOf(const sqlite::Statement& query, int column) {
  return static_cast<ZORA_Long>(query.number(column));
}

std::string textOf(const sqlite::Statement& query, int column) {
  return std::string(query.bytes(column));
}

void loadSources(sqlite::Connection& connection, bool areOnline, const Take& take) {
  sqlite::Statement query(connection, R"(
SELECT a.name, g.name, s.name, handle
FROM known_sources AS s CROSS JOIN known_groups AS g ON g.id = s."group"
  CROSS JOIN known_applications AS a ON a.id = g.application
WHERE is_online = ? ORDER BY handle)");
  query.bind(1, areOnline ? 1 : 0);
  while (query.step())
    take(WentOnline{textOf(query, 0), textOf(query, 1), textOf(query, 2), longOf(query, 3)});
}

void loadRegistrations(sqlite::Connection& connection, const Take& take) {
  sqlite::Statement query(
      connection, "SELECT text FROM known_applications WHERE is_registered ORDER BY position");
  while (query.step()) {
    Registered change;
    std::string error;
    if (!suite::parseRegistration(query.bytes(0), &change.registration, &error))
      throw sqlite::Error(SQLITE_CORRUPT, 0, "a registration in it cannot be read: " + error);
    take(std::move(change));
  }
}

struct NumberedRow {
  std::int64_t number;
  Row row;
};

bool isNewer(const NumberedRow& left, const NumberedRow& right) {
  return left.number > right.number;
}

// The newest ones of those that come, as many as the registry has room for.
class OfflineRowsOnFile {
 public:
  void add(NumberedRow&& row) {
    _bytes += row.row.message.size();
    _rows.push_back(std::move(row));
    std::push_heap(_rows.begin(), _rows.end(), isNewer);
    while (_bytes > RegistryLimits().offlineRowBytes) {
      std::pop_heap(_rows.begin(), _rows.end(), isNewer);
      _bytes -= _rows.back().row.message.size();
      _rows.pop_back();
    }
  }

  // Those of the sources that were the last to send one come last: they are forgotten last.
  void tell(const Take& take) {
    std::sort(_rows.rbegin(), _rows.rend(), isNewer);
    for (NumberedRow& each : _rows) take(std::move(each.row));
  }

 private:
  std::vector<NumberedRow> _rows;  // a heap: the oldest one in front
  std::size_t _bytes = 0;
};

std::optional<NumberedRow> newestRow(sqlite::Statement* query, const ChangeWriter& writer) {
  const ZORA_Long handle = longOf(*query, 0);
  if (const std::int64_t unsaved = writer.newestRows().unsavedOf(handle); unsaved != 0) {
    RowTable* const table = writer.providers().tableOf(handle);
    std::optional<Row> row = table != nullptr ? table->row(unsaved) : std::nullopt;
    return row ? std::optional(NumberedRow{unsaved, std::move(*row)}) : std::nullopt;
  }
  const std::int64_t number = query->number(3);  // 0: the source has sent none
  if (number == 0) return std::nullopt;
  return NumberedRow{number, {handle, query->number(4), textOf(*query, 5)}};
}

void loadNewestRows(sqlite::Connection& connection, const ChangeWriter& writer, const Take& take) {
  OfflineRowsOnFile offlineRows;
  sqlite::Statement query(connection, R"(
SELECT s.handle, is_online, online_since, number, time_us, message
FROM known_sources AS s LEFT JOIN newest_rows AS r ON r.handle = s.handle ORDER BY s.handle)");
  while (query.step()) {
    std::optional<NumberedRow> newest = newestRow(&query, writer);
    if (!newest) continue;
    newest->row.isCurrent = newest->number > query.number(2);
    if (query.number(1) != 0)
      take(std::move(newest->row));
    else
      offlineRows.add(std::move(*newest));
  }
  offlineRows.tell(take);
}

void loadDeferrals(sqlite::Connection& connection, const Take& take) {
  sqlite::Statement query(connection, R"(
SELECT action_id, reference, "time", "key", "table", source FROM
  (SELECT * FROM kept_deferrals ORDER BY position DESC LIMIT ?) ORDER BY position)");
  query.bind(1, Deferrals::defaultCapacity);
  while (query.step()) {
    Deferred change;
    change.deferral.push_back({longOf(query, 0), longOf(query, 1), longOf(query, 2),
                               textOf(query, 3), textOf(query, 4), textOf(query, 5)});
    take(std::move(change));
  }
}

// The latest of each ID. Those that ended come in the order of their ends, so that the same ones
// are forgotten first; behind them those of which the end is not known.
void loadActions(sqlite::Connection& connection, const Take& take) {
  sqlite::Statement ended(connection, R"(
SELECT id, ended_us, result FROM
  (SELECT * FROM kept_actions AS a WHERE end_position IS NOT NULL AND NOT EXISTS
    (SELECT 1 FROM kept_actions AS b WHERE b.id = a.id AND b.position > a.position)
   ORDER BY end_position DESC LIMIT ?) ORDER BY end_position)");
  ended.bind(1, ActionLimits().results);
  while (ended.step()) take(ActionEnded{longOf(ended, 0), ended.number(1), longOf(ended, 2)});
  sqlite::Statement started(connection, R"(
SELECT id, name, owner, started_us FROM
  (SELECT * FROM kept_actions AS a WHERE end_position IS NULL AND NOT EXISTS
    (SELECT 1 FROM kept_actions AS b WHERE b.id = a.id AND b.position > a.position)
   ORDER BY position DESC LIMIT ?) ORDER BY position)");
  started.bind(1, ActionLimits().results);
  while (started.step())
    take(ActionStarted{longOf(started, 0), textOf(started, 1), textOf(started, 2),
                       started.number(3)});
}

}  // namespace

void loadChanges(sqlite::Connection& connection, const ChangeWriter& writer, const Take& take) {
  // Without a registration they have their handles and stay off line.
  loadSources(connection, false, take);
  loadRegistrations(connection, take);
  loadSources(connection, true, take);
  loadNewestRows(connection, writer, take);
  loadDeferrals(connection, take);
  loadActions(connection, take);
}

}  // namespace dch
