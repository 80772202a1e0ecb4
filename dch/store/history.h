// history.h: reads what a state file holds while the server writes it: its groups, and through
// RowsQuery and ThinnedQuery their rows.
#ifndef DCH_STORE_HISTORY_H
#define DCH_STORE_HISTORY_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "dch/store/file_place.h"
#include "dch/store/sqlite.h"
#include "zora/zora.h"

namespace dch {

// How long a step of a query works, about.
inline constexpr std::chrono::milliseconds historyStepTime{10};

// A sentence that says why the file cannot be read now. It may be read later.
class HistoryError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct HistoryColumn {
  std::string name;  // as in the group's view
  int column = 0;    // of the group's table
  char letter = 0;   // of the last registration; 0 when only earlier ones had the attribute
};

struct HistoryGroup {
  std::int64_t id = 0;
  std::vector<HistoryColumn> columns;  // of the attributes, in the order of the view
};

// A connection of its own, which writes nothing and makes no checkpoints. It is opened when it is
// needed. While it is open the server cannot begin a new log in place of one that was taken away,
// and once close() was called, or an error was thrown, it is not. It reads only the file that the
// server writes, never one that has come into its place. One thread, but for what says otherwise;
// the functions that read throw HistoryError.
class History {
 public:
  using Clock = std::chrono::steady_clock;

  // `places` tells where the server's file is at the moment, see SqliteStore; it outlives this.
  // `vfs` is null for the system's own.
  explicit History(std::function<StatePlaces()> places, const char* vfs = nullptr);
  History(const History&) = delete;
  History& operator=(const History&) = delete;

  // The application, registered now or not; nothing when the file has none of this name. It may
  // lack groups that no source ever had and that are registered no more.
  std::optional<std::int64_t> findApplication(std::string_view name);
  std::optional<HistoryGroup> findGroup(std::int64_t application, std::string_view name);
  std::optional<ZORA_Long> findSource(const HistoryGroup& group, std::string_view name);

  // Queries that are under way go on after it, with a connection that is opened anew.
  void close() noexcept;

  // What is being read, if anything, ends with HistoryError. Waits for nothing. Any thread.
  void interrupt() noexcept;

  // For the queries: calls `task` with the connection, of which nothing may be in use when it
  // returns.
  template <class Task>
  void read(Task task) {
    open();
    try {
      task(*_connection);
    } catch (const sqlite::Error& error) {
      close();
      fail(error.what());
    }
  }

  // In a task: calls `part`, and returns whether it came to its end before `deadline`; else the
  // statement that ran was ended by it.
  template <class Part>
  bool runUntil(Clock::time_point deadline, Part part) {
    const Limit limit(this, deadline);
    try {
      part();
    } catch (const sqlite::Error& error) {
      if (!_isLate || error.primaryCode() != SQLITE_INTERRUPT) throw;
    }
    return !_isLate;
  }

 private:
  class Limit {
   public:
    Limit(History* history, Clock::time_point deadline) : _history(history) {
      history->_isLate = false;
      history->_deadline = deadline;
    }
    ~Limit() { _history->_deadline = Clock::time_point::max(); }
    Limit(const Limit&) = delete;
    Limit& operator=(const Limit&) = delete;

   private:
    History* const _history;
  };

  void open();
  void connect();
  void exchange(std::unique_ptr<sqlite::Connection>* connection) noexcept;
  void checkPlaces();
  [[noreturn]] void fail(const std::string& reason) const;
  bool isLate();

  const std::function<StatePlaces()> _places;
  const char* const _vfs;
  std::mutex _mutex;  // while the connection comes or goes, or is interrupted, not while it works
  std::unique_ptr<sqlite::Connection> _connection;
  std::string _path;
  Clock::time_point _deadline = Clock::time_point::max();
  bool _isLate = false;
};

}  // namespace dch

#endif  // DCH_STORE_HISTORY_H
