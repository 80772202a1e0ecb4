#include "dch/store/history.h"

#include <algorithm>
#include <unordered_map>

#include "dch/store/group_view.h"
#include "dch/store/schema.h"
#include "dch/store/thinning_function.h"
#include "suite/registration.h"

namespace dch {

namespace {

// Another connection is about to change the log, and done soon or not at all.
constexpr int lockMilliseconds = 20;

// A statement looks at the clock after so many of its instructions, of which a row takes some tens.
constexpr int instructionsBetweenLooks = 1'000;

// The letters that the last registration of the application gives the attributes of a group.
std::unordered_map<std::string, char> lettersOf(std::string_view registrationText,
                                                std::string_view group) {
  std::unordered_map<std::string, char> letters;
  suite::Registration registration;
  std::string error;
  if (!suite::parseRegistration(registrationText, &registration, &error)) return letters;
  for (const suite::RegisteredGroup& each : registration.groups)
    if (each.name == group)
      for (const suite::RegisteredAttribute& attribute : each.attributes)
        letters.emplace(attribute.name, attribute.letter);
  return letters;
}

}  // namespace

History::History(std::function<StatePlaces()> places, const char* vfs)
    : _places(std::move(places)), _vfs(vfs) {}

std::optional<std::int64_t> History::findApplication(std::string_view name) {
  std::optional<std::int64_t> found;
  read([&](sqlite::Connection& connection) {
    sqlite::Statement query(connection, "SELECT id FROM known_applications WHERE name = ?");
    query.bindText(1, name);
    if (query.step()) found = query.number(0);
  });
  return found;
}

std::optional<HistoryGroup> History::findGroup(std::int64_t application, std::string_view name) {
  std::optional<HistoryGroup> found;
  read([&](sqlite::Connection& connection) {
    sqlite::Statement query(connection, R"(
SELECT g.id, a.text, has_remote_rows
FROM known_groups AS g JOIN known_applications AS a ON a.id = g.application
WHERE g.application = ? AND g.name = ?)");
    query.bind(1, application).bindText(2, name);
    if (!query.step()) return;
    HistoryGroup group{query.number(0), {}};
    const auto letters = lettersOf(query.bytes(1), name);
    const ViewedSites sites = query.number(2) != 0 ? ViewedSites::all : ViewedSites::own;
    sqlite::Statement attributes(
        connection,
        R"(SELECT "column", name FROM known_attributes WHERE "group" = ? ORDER BY place)");
    attributes.bind(1, group.id);
    std::vector<AttributeColumn> columns;
    while (attributes.step())
      columns.push_back({std::string(attributes.bytes(1)), static_cast<int>(attributes.number(0))});
    const int mostColumns = sqlite3_limit(connection.handle(), SQLITE_LIMIT_COLUMN, -1);
    const std::vector<AttributeColumn> named =
        viewColumns(columns, static_cast<std::size_t>(mostColumns), sites);
    for (std::size_t i = 0; i < named.size(); ++i) {
      const auto letter = letters.find(columns[i].name);
      group.columns.push_back(
          {named[i].name, named[i].column, letter != letters.end() ? letter->second : '\0'});
    }
    found = std::move(group);
  });
  return found;
}

// Those that are on line are found by an index.
std::optional<ZORA_Long> History::findSource(const HistoryGroup& group, std::string_view name) {
  std::optional<ZORA_Long> found;
  read([&](sqlite::Connection& connection) {
    for (const char* sql :
         {R"(SELECT handle FROM known_sources WHERE "group" = ? AND name = ? AND is_online)",
          R"(SELECT handle FROM known_sources WHERE "group" = ? AND name = ?)"}) {
      sqlite::Statement query(connection, sql);
      query.bind(1, group.id).bindText(2, name);
      if (!query.step()) continue;
      found = static_cast<ZORA_Long>(query.number(0));
      return;
    }
  });
  return found;
}

void History::close() noexcept {
  std::unique_ptr<sqlite::Connection> closed;
  exchange(&closed);
}

// To open or close one may take as long as the disk does, which is not for who interrupts.
void History::exchange(std::unique_ptr<sqlite::Connection>* connection) noexcept {
  const std::lock_guard lock(_mutex);
  _connection.swap(*connection);
}

void History::interrupt() noexcept {
  const std::lock_guard lock(_mutex);
  if (_connection) sqlite3_interrupt(_connection->handle());
}

void History::open() {
  checkPlaces();
  if (_connection) return;
  try {
    connect();
  } catch (const sqlite::Error& error) {
    close();
    fail(error.what());
  }
  // What was opened was there before and is there now.
  checkPlaces();
}

void History::connect() {
  auto opened = std::make_unique<sqlite::Connection>(_path, _vfs, sqlite::Access::read);
  exchange(&opened);
  sqlite3* const handle = _connection->handle();
  sqlite3_db_config(handle, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
  sqlite3_db_config(handle, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
  sqlite3_busy_timeout(handle, lockMilliseconds);
  sqlite3_progress_handler(
      handle, instructionsBetweenLooks,
      [](void* self) { return static_cast<History*>(self)->isLate() ? 1 : 0; }, this);
  _connection->execute("PRAGMA query_only = ON; PRAGMA cache_size = -2048");
  addThinningFunction(*_connection);
  sqlite::queryNumber(*_connection, "SELECT count(*) FROM clock_steps");  // opens the log
}

// A log in another place would be read together with the index of the server's own.
void History::checkPlaces() {
  const StatePlaces places = _places();
  _path = places.front().path();
  const auto isLost = [](const FilePlace& each) { return each.path().empty() || each.isLost(); };
  if (std::none_of(places.begin(), places.end(), isLost)) return;
  close();
  fail("it, or its log, was removed, moved or replaced");
}

void History::fail(const std::string& reason) const {
  throw HistoryError("the state file " + _path + " cannot be read now: " + reason);
}

bool History::isLate() {
  if (_deadline == Clock::time_point::max() || Clock::now() < _deadline) return false;
  return _isLate = true;
}

}  // namespace dch
