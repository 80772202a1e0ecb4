#include "dch/postgres/schema.h"

#include <string>

namespace dch::pg {

namespace {

// What is no text in UTF-8 is shown as the server itself shows bytes. What cannot be a time is
// null: the clock of another site may say anything.
constexpr char functions[] = R"(
CREATE FUNCTION zordchd_text(bytes bytea) RETURNS text LANGUAGE plpgsql IMMUTABLE STRICT AS $$
BEGIN
  RETURN convert_from(bytes, 'UTF8');
EXCEPTION WHEN OTHERS THEN
  RETURN '\x' || encode(bytes, 'hex');
END $$;

CREATE FUNCTION zordchd_time(us bigint) RETURNS text LANGUAGE sql STABLE AS $$
  SELECT CASE WHEN us BETWEEN -62135596800000000 AND 253402300799999999 THEN
    to_char(timestamp '1970-01-01' + us / 1000000 * interval '1 second'
      + us % 1000000 * interval '1 microsecond', 'YYYY-MM-DD"T"HH24:MI:SS.US"Z"') END
$$;
)";

constexpr char tables[] = R"(
CREATE TABLE zordchd_state (
  id bigint PRIMARY KEY CHECK (id = 1),
  version bigint NOT NULL,
  position bigint NOT NULL,
  transaction bigint NOT NULL) WITH (fillfactor = 10);
INSERT INTO zordchd_state VALUES (1, 0, 0, 0);

CREATE TABLE known_applications (
  id bigint PRIMARY KEY,
  name bytea NOT NULL,
  position bigint NOT NULL,
  is_registered boolean NOT NULL,
  key bytea, type bytea, help bytea,
  text bytea NOT NULL);

CREATE TABLE known_groups (
  id bigint PRIMARY KEY,
  application bigint NOT NULL,
  name bytea NOT NULL,
  view text NOT NULL,
  place bigint,
  has_remote_rows boolean NOT NULL DEFAULT false);

CREATE TABLE known_attributes (
  "group" bigint NOT NULL,
  "column" bigint NOT NULL,
  name bytea NOT NULL,
  place bigint NOT NULL,
  is_number boolean NOT NULL,
  PRIMARY KEY ("group", "column"));

CREATE TABLE known_sources (
  handle bigint PRIMARY KEY,
  "group" bigint NOT NULL,
  name bytea NOT NULL,
  is_online boolean NOT NULL,
  online_since bigint NOT NULL,
  shown text GENERATED ALWAYS AS (zordchd_text(name)) STORED);
CREATE INDEX sources_of_group ON known_sources ("group");

CREATE TABLE newest_rows (
  handle bigint PRIMARY KEY,
  number bigint NOT NULL,
  time_us bigint NOT NULL,
  message bytea NOT NULL);

CREATE TABLE epochs (first_position bigint PRIMARY KEY, epoch bytea NOT NULL);

CREATE TABLE publishing (
  id bigint PRIMARY KEY CHECK (id = 1),
  position bigint NOT NULL,
  removed bigint NOT NULL);
INSERT INTO publishing VALUES (1, 0, 0);

CREATE TABLE kept_actions (
  position bigint PRIMARY KEY,
  id bigint NOT NULL,
  name bytea, owner bytea,
  started_us bigint NOT NULL,
  ended_us bigint,
  result bigint,
  end_position bigint);
CREATE INDEX actions_by_id ON kept_actions (id, position);
CREATE INDEX actions_by_end ON kept_actions (end_position);

CREATE TABLE kept_deferrals (
  position bigint PRIMARY KEY,
  action_id bigint NOT NULL,
  reference bigint NOT NULL,
  "time" bigint NOT NULL,
  "key" bytea, "table" bytea, source bytea);
)";

// Names of other sites may be longer than an index takes: it has what stands for them.
constexpr char remoteTables[] = R"(
CREATE TABLE remote_sources (
  handle bigint PRIMARY KEY,
  site bytea NOT NULL,
  application bytea NOT NULL,
  "group" bytea NOT NULL,
  name bytea NOT NULL,
  names_digest bytea NOT NULL UNIQUE,
  shown_site text GENERATED ALWAYS AS (zordchd_text(site)) STORED,
  shown text GENERATED ALWAYS AS (zordchd_text(name)) STORED);
CREATE INDEX remote_sources_of_site ON remote_sources (sha256(site));

CREATE TABLE remote_epochs (
  site bytea NOT NULL,
  epoch bytea NOT NULL,
  number bigint NOT NULL,
  changed bigint NOT NULL);
CREATE UNIQUE INDEX remote_epochs_by_name ON remote_epochs (sha256(site), epoch);
CREATE INDEX remote_epochs_of_site ON remote_epochs (sha256(site), changed);

CREATE TABLE remote_sites (site bytea NOT NULL, passed_from bigint);
CREATE UNIQUE INDEX remote_sites_by_name ON remote_sites (sha256(site));

CREATE TABLE stream_read (
  id bigint PRIMARY KEY CHECK (id = 1),
  stream bytea NOT NULL,
  sequence bigint NOT NULL);
INSERT INTO stream_read VALUES (1, '', 0);
)";

constexpr char views[] = R"(
CREATE VIEW applications AS
  SELECT zordchd_text(name) AS name, zordchd_text(key) AS key, zordchd_text(type) AS type,
    zordchd_text(help) AS help,
    (SELECT string_agg(zordchd_text(g.name), ' ' ORDER BY place) FROM known_groups AS g
      WHERE application = a.id AND place IS NOT NULL) AS "groups",
    (SELECT count(*) FROM known_groups AS g JOIN known_sources ON "group" = g.id
      WHERE application = a.id AND is_online) AS online
  FROM known_applications AS a WHERE is_registered;

CREATE VIEW sources AS
  SELECT zordchd_text(a.name) AS application, zordchd_text(g.name) AS "group", s.shown AS source,
    handle, is_online::int AS online
  FROM known_sources AS s JOIN known_groups AS g ON g.id = s."group"
    JOIN known_applications AS a ON a.id = g.application;

CREATE VIEW actions AS
  SELECT id, zordchd_text(name) AS name, zordchd_text(owner) AS owner,
    zordchd_time(started_us) AS started, zordchd_time(ended_us) AS ended, result, started_us,
    ended_us
  FROM kept_actions;

CREATE VIEW deferrals AS
  SELECT action_id, reference, "time", zordchd_text("key") AS "key",
    zordchd_text("table") AS "table", zordchd_text(source) AS source
  FROM kept_deferrals;
)";

}  // namespace

std::int64_t schemaVersion(Connection& connection) {
  if (connection.run("SELECT to_regclass('zordchd_state')::oid").isNull(0, 0)) return 0;
  const Result result = connection.run("SELECT version FROM zordchd_state");
  return result.rows() == 1 ? result.number(0, 0) : 0;
}

void upgradeSchema(Connection& connection, std::int64_t version) {
  if (version >= newestSchema) return;
  for (const char* sql : {functions, tables, remoteTables, views}) connection.execute(sql);
  connection.execute("UPDATE zordchd_state SET version = " + std::to_string(newestSchema));
}

}  // namespace dch::pg
