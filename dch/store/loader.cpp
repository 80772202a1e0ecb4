#include "dch/store/loader.h"

#include <optional>
#include <string>
#include <utility>

#include "dch/core/actions.h"
#include "dch/core/deferrals.h"

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

// Those that their sources sent since they went on line: the others are not known any more.
void loadNewestRows(sqlite::Connection& connection, const ChangeWriter& writer, const Take& take) {
  sqlite::Statement query(connection, R"(
SELECT s.handle, online_since, number, time_us, message
FROM known_sources AS s LEFT JOIN newest_rows AS r ON r.handle = s.handle
WHERE is_online ORDER BY s.handle)");
  while (query.step()) {
    const ZORA_Long handle = longOf(query, 0);
    const std::int64_t since = query.number(1);
    const std::int64_t unsaved = writer.newestRows().unsavedOf(handle);
    RowTable* const table = writer.providers().tableOf(handle);
    if (unsaved == 0 && query.number(2) > since)
      take(Row{handle, query.number(3), textOf(query, 4)});
    else if (unsaved > since && table != nullptr)
      if (std::optional<Row> row = table->row(unsaved)) take(std::move(*row));
  }
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
