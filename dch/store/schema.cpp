#include "dch/store/schema.h"

#include <array>

namespace dch {

namespace {

constexpr char tables[] = R"(
CREATE TABLE state (
  id INTEGER PRIMARY KEY CHECK (id = 1),
  position INTEGER NOT NULL,
  newest_from INTEGER NOT NULL);
INSERT INTO state VALUES (1, 0, 1);

CREATE TABLE known_applications (
  id INTEGER PRIMARY KEY,
  name NOT NULL UNIQUE,
  position INTEGER NOT NULL,  -- of the last registration
  is_registered INTEGER NOT NULL,
  key, type, help,
  text NOT NULL);

CREATE TABLE known_groups (
  id INTEGER PRIMARY KEY,
  application INTEGER NOT NULL,
  name NOT NULL,
  view TEXT NOT NULL,
  place INTEGER,  -- in the registration
  UNIQUE (application, name));

CREATE TABLE known_attributes (
  "group" INTEGER NOT NULL,
  "column" INTEGER NOT NULL,
  name NOT NULL,
  place INTEGER NOT NULL,  -- in the view
  PRIMARY KEY ("group", "column")) WITHOUT ROWID;

CREATE TABLE known_sources (
  handle INTEGER PRIMARY KEY,
  "group" INTEGER NOT NULL,
  name NOT NULL,
  is_online INTEGER NOT NULL,
  online_since INTEGER NOT NULL);  -- the position at which it went on line
CREATE INDEX online_sources ON known_sources ("group") WHERE is_online;

CREATE TABLE newest_rows (
  handle INTEGER PRIMARY KEY,
  number INTEGER NOT NULL,
  time_us INTEGER NOT NULL,
  message BLOB NOT NULL);

CREATE TABLE kept_actions (
  position INTEGER PRIMARY KEY,
  id INTEGER NOT NULL,
  name, owner,
  started_us INTEGER NOT NULL,
  ended_us INTEGER,
  result INTEGER,
  end_position INTEGER);
CREATE INDEX actions_by_id ON kept_actions (id, position);
CREATE INDEX actions_by_end ON kept_actions (end_position);

CREATE TABLE kept_deferrals (
  position INTEGER PRIMARY KEY,
  action_id INTEGER NOT NULL,
  reference INTEGER NOT NULL,
  "time" INTEGER NOT NULL,
  "key", "table", source);
)";

std::string views() {
  return R"(
CREATE VIEW applications AS
  SELECT name, key, type, help,
    (SELECT group_concat(name, ' ') FROM (SELECT name FROM known_groups
      WHERE application = a.id AND place IS NOT NULL ORDER BY place)) AS "groups",
    (SELECT count(*) FROM known_groups AS g JOIN known_sources ON "group" = g.id
      WHERE application = a.id AND is_online) AS online
  FROM known_applications AS a WHERE is_registered;

CREATE VIEW sources AS
  SELECT a.name AS application, g.name AS "group", s.name AS source, handle, is_online AS online
  FROM known_sources AS s JOIN known_groups AS g ON g.id = s."group"
    JOIN known_applications AS a ON a.id = g.application;

CREATE VIEW actions AS
  SELECT id, name, owner, )" +
         timeText("started_us") + " AS started, " + timeText("ended_us") + R"( AS ended, result,
    started_us, ended_us
  FROM kept_actions;

CREATE VIEW deferrals AS
  SELECT action_id, reference, "time", "key", "table", source FROM kept_deferrals;
)";
}

void makeFirstSchema(sqlite::Connection& connection) {
  connection.execute(tables);
  connection.execute(views());
  connection.execute("PRAGMA application_id = " + std::to_string(stateFileId));
}

void addClockSteps(sqlite::Connection& connection) {
  connection.execute("CREATE TABLE clock_steps (number INTEGER PRIMARY KEY)");
}

// What is in the file already is of an epoch, too.
void addEpochs(sqlite::Connection& connection) {
  connection.execute(R"(
CREATE TABLE epochs (first_position INTEGER PRIMARY KEY, epoch BLOB NOT NULL);
INSERT INTO epochs VALUES (0, randomblob(16));
CREATE TABLE publishing (
  id INTEGER PRIMARY KEY CHECK (id = 1),
  position INTEGER NOT NULL,
  removed INTEGER NOT NULL);
INSERT INTO publishing VALUES (1, 0, 0))");
}

// The rows of other sites have tables of their own, which nobody reads by mistake who wants those
// of this server.
void addRemoteRows(sqlite::Connection& connection) {
  connection.execute(R"(
ALTER TABLE known_groups ADD COLUMN has_remote_rows INTEGER NOT NULL DEFAULT 0;

CREATE TABLE remote_sources (
  handle INTEGER PRIMARY KEY,
  site NOT NULL,
  application NOT NULL,
  "group" NOT NULL,
  name NOT NULL,
  UNIQUE (site, application, "group", name));

CREATE TABLE remote_epochs (
  site NOT NULL,
  epoch BLOB NOT NULL,
  number INTEGER NOT NULL,
  changed INTEGER NOT NULL,
  PRIMARY KEY (site, epoch)) WITHOUT ROWID;
CREATE INDEX epochs_of_site ON remote_epochs (site, changed);

CREATE TABLE remote_sites (site PRIMARY KEY, passed_from INTEGER) WITHOUT ROWID;

CREATE TABLE stream_read (
  id INTEGER PRIMARY KEY CHECK (id = 1),
  stream NOT NULL,
  sequence INTEGER NOT NULL);
INSERT INTO stream_read VALUES (1, '', 0))");
}

// The step from each version to the next.
constexpr std::array steps = {makeFirstSchema, addClockSteps, addEpochs, addRemoteRows};
static_assert(steps.size() == newestSchema);

}  // namespace

void upgradeSchema(sqlite::Connection& connection, int version) {
  for (; version < newestSchema; ++version) {
    sqlite::Transaction transaction(connection);
    steps[static_cast<std::size_t>(version)](connection);
    connection.execute("PRAGMA user_version = " + std::to_string(version + 1));
    transaction.commit();
  }
}

std::string timeText(std::string_view microseconds) {
  const std::string time(microseconds);
  return "strftime('%Y-%m-%dT%H:%M:%S', " + time + " / 1000000, 'unixepoch') || printf('.%06dZ', " +
         time + " % 1000000)";
}

}  // namespace dch
