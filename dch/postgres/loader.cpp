#include "dch/postgres/loader.h"

#include <string>
#include <utility>

#include "dch/core/actions.h"
#include "dch/core/deferrals.h"
#include "dch/core/registry.h"

namespace dch::pg {

namespace {

using Take = std::function<void(Change&&)>;

constexpr char unreadableData[] = "XX001";

ZORA_Long longAt(const Result& row, int column) {
  return static_cast<ZORA_Long>(row.number(0, column));
}

void loadSources(Connection& connection, bool areOnline, const Take& take) {
  connection.each(
      std::string(R"(
SELECT a.name, g.name, s.name, handle
FROM known_sources AS s JOIN known_groups AS g ON g.id = s."group"
  JOIN known_applications AS a ON a.id = g.application
WHERE )") +
          (areOnline ? "" : "NOT ") + "is_online ORDER BY handle",
      {}, [&](const Result& row) {
        take(WentOnline{row.text(0, 0), row.text(0, 1), row.text(0, 2), longAt(row, 3)});
      });
}

void loadRegistrations(Connection& connection, const Take& take) {
  connection.each("SELECT text FROM known_applications WHERE is_registered ORDER BY position", {},
                  [&](const Result& row) {
                    Registered change;
                    std::string error;
                    if (!suite::parseRegistration(row.bytes(0, 0), &change.registration, &error))
                      throw Error(unreadableData, "a registration in it cannot be read: " + error);
                    take(std::move(change));
                  });
}

// Those of sources that are off line as far as the registry has room for them, which are the newest
// ones. Those of the sources that were the last to send one come last: they are forgotten last.
void loadNewestRows(Connection& connection, const Take& take) {
  connection.each(
      R"(
SELECT handle, time_us, message, number > online_since FROM
  (SELECT r.*, is_online, online_since,
     sum(length(message)) FILTER (WHERE NOT is_online) OVER (ORDER BY number DESC) AS bytes
   FROM newest_rows AS r JOIN known_sources AS s ON s.handle = r.handle) AS newest
WHERE is_online OR bytes <= $1 ORDER BY is_online DESC, number)",
      Parameters().add(static_cast<std::int64_t>(RegistryLimits().offlineRowBytes)),
      [&](const Result& row) {
        take(Row{longAt(row, 0), row.number(0, 1), row.text(0, 2), row.number(0, 3) != 0});
      });
}

void loadDeferrals(Connection& connection, const Take& take) {
  connection.each(R"(
SELECT action_id, reference, "time", "key", "table", source FROM
  (SELECT * FROM kept_deferrals ORDER BY position DESC LIMIT $1) AS newest ORDER BY position)",
                  Parameters().add(static_cast<std::int64_t>(Deferrals::defaultCapacity)),
                  [&](const Result& row) {
                    Deferred change;
                    change.deferral.push_back({longAt(row, 0), longAt(row, 1), longAt(row, 2),
                                               row.text(0, 3), row.text(0, 4), row.text(0, 5)});
                    take(std::move(change));
                  });
}

// The latest of each ID. Those that ended come in the order of their ends, so that the same ones
// are forgotten first; behind them those of which the end is not known.
void loadActions(Connection& connection, const Take& take) {
  const std::string latest =
      "NOT EXISTS (SELECT 1 FROM kept_actions AS b WHERE b.id = a.id AND b.position > a.position)";
  const Parameters most = Parameters().add(static_cast<std::int64_t>(ActionLimits().results));
  connection.each(
      "SELECT id, ended_us, result FROM (SELECT * FROM kept_actions AS a WHERE end_position IS NOT "
      "NULL AND " +
          latest + " ORDER BY end_position DESC LIMIT $1) AS ended ORDER BY end_position",
      most, [&](const Result& row) {
        take(ActionEnded{longAt(row, 0), row.number(0, 1), longAt(row, 2)});
      });
  connection.each(
      "SELECT id, name, owner, started_us FROM (SELECT * FROM kept_actions AS a WHERE end_position "
      "IS NULL AND " +
          latest + " ORDER BY position DESC LIMIT $1) AS started ORDER BY position",
      most, [&](const Result& row) {
        take(ActionStarted{longAt(row, 0), row.text(0, 1), row.text(0, 2), row.number(0, 3)});
      });
}

}  // namespace

void loadChanges(Connection& connection, const std::function<void(Change&&)>& take) {
  // Without a registration they have their handles and stay off line.
  loadSources(connection, false, take);
  loadRegistrations(connection, take);
  loadSources(connection, true, take);
  loadNewestRows(connection, take);
  loadDeferrals(connection, take);
  loadActions(connection, take);
}

}  // namespace dch::pg
