// kept_state_test.h: a state in a file or in a database, which is the same to who keeps it.
#ifndef DCH_POSTGRES_KEPT_STATE_TEST_H
#define DCH_POSTGRES_KEPT_STATE_TEST_H

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "dch/postgres/postgres_store.h"
#include "dch/postgres/remote_places.h"
#include "dch/testkit/postgres_server.h"
#include "dch/testkit/remote_rows.h"
#include "dch/testkit/store_test.h"

namespace dch::testkit {

class StateInFile {
 public:
  using Store = SqliteStore;

  std::unique_ptr<Store> open(const Log& log) const {
    return std::make_unique<Store>(
        SqliteStoreSettings{.path = path(), .now = [] { return Time{0}; }}, [] {}, log);
  }
  // Values separated by `|`, a line for each row.
  std::string read(const std::string& sql) const { return query(path(), sql); }
  std::vector<std::string> remoteRows() const { return remoteRowsInFile(path()); }
  RemotePlaces places(const Store& store) const {
    return readRemotePlaces([&] { return store.places(); });
  }

 private:
  std::string path() const { return _folder.path() + "/state.db"; }

  const TemporaryFolder _folder;
};

class StateInDatabase {
 public:
  using Store = PostgresStore;

  virtual ~StateInDatabase() = default;

  std::unique_ptr<Store> open(const Log& log) const {
    return std::make_unique<Store>(
        PostgresStoreSettings{.target = target(), .patience = patience}, [] {}, log);
  }
  std::string read(const std::string& sql) const {
    pg::Connection connection(_server.connectionString(), patience.longestWait);
    try {
      return linesOf(connection.execute(sql));
    } catch (const pg::Error& error) {
      return std::string("error: ") + error.what();
    }
  }
  // See remoteRowsInFile().
  std::vector<std::string> remoteRows() const {
    std::istringstream tables(
        read("SELECT g.id FROM known_groups AS g WHERE has_remote_rows ORDER BY g.id"));
    std::string sql;
    for (std::string id; std::getline(tables, id);)
      sql += std::string(sql.empty() ? "" : " UNION ALL ") +
             "SELECT number, s.shown_site || ' ' || zordchd_text(a.name) || '.' || "
             "zordchd_text(g.name) || '/' || s.shown || ' ' || time_us || ' ' || "
             "upper(encode(message, 'hex')) AS row FROM remote_rows_" +
             id +
             " AS r JOIN remote_sources AS s ON s.handle = r.handle JOIN known_groups AS g ON "
             "g.id = " +
             id +
             " AND g.name = s.\"group\" JOIN known_applications AS a ON a.id = g.application AND "
             "a.name = s.application";
    if (sql.empty()) return {};
    std::istringstream lines(read("SELECT row FROM (" + sql + ") AS rows ORDER BY number"));
    std::vector<std::string> rows;
    for (std::string line; std::getline(lines, line);) rows.push_back(line);
    return rows;
  }
  RemotePlaces places(const Store&) const {
    pg::Connection connection(_server.connectionString(), patience.longestWait);
    return pg::readRemotePlaces(connection);
  }

  // Where the store finds the database.
  virtual std::string target() const { return _server.connectionString(); }

  const PostgresServer& server() const { return _server; }

 private:
  // On a busy machine, too.
  static constexpr pg::Patience patience{std::chrono::milliseconds(60'000),
                                         std::chrono::milliseconds(60'000),
                                         std::chrono::milliseconds(10)};

  static std::string linesOf(const pg::Result& result) {
    std::string lines;
    for (int row = 0; row < result.rows(); ++row) {
      for (int column = 0; column < PQnfields(result.handle()); ++column)
        lines += (column > 0 ? "|" : "") +
                 (result.isNull(row, column) ? "null" : result.text(row, column));
      lines += "\n";
    }
    return lines;
  }

  PostgresServer _server;
};

template <class State>
class StateTest : public ::testing::Test {
 protected:
  ~StateTest() override { _store.reset(); }

  // Opens the store and takes up what it has.
  void start() {
    _known = std::make_unique<KnownState>();
    _store = _state.open(_log);
    _store->load([this](Change&& change) { _known->apply(std::move(change)); });
  }
  void stop() { _store.reset(); }

  void append(Change change) {
    Entry entry;
    entry.change = std::move(change);
    _store->append(&entry, &_client);
  }

  // Whether the change is kept.
  bool keep(Change change) {
    append(std::move(change));
    _store->finish();
    return _client.concluded.back().second;
  }

  // HOSTMON with its groups, and a source of load with handle 1.
  void goOnline() {
    ASSERT_TRUE(keep(registered(hostmonRegistration)));
    ASSERT_TRUE(keep(WentOnline{"HOSTMON", "load", "host1", 1}));
  }

  // The state that the store has when it is opened again.
  std::string knownAfterRestart() {
    stop();
    start();
    return _known->text();
  }

  std::string read(const std::string& sql) const { return _state.read(sql); }
  std::string places() const { return textOf(_state.places(*_store)); }

  State _state;
  RecordingLog _log;
  RecordingClient _client;
  std::unique_ptr<KnownState> _known;
  std::unique_ptr<typename State::Store> _store;
};

}  // namespace dch::testkit

#endif  // DCH_POSTGRES_KEPT_STATE_TEST_H
