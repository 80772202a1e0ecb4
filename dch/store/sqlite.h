// sqlite.h: SQLite's connection, statement and transaction as objects that clean up after
// themselves and throw what went wrong.
#ifndef DCH_STORE_SQLITE_H
#define DCH_STORE_SQLITE_H

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

namespace dch::sqlite {

class Error : public std::runtime_error {
 public:
  // `code` is SQLite's extended result code, `systemError` the errno behind it or 0.
  Error(int code, int systemError, const std::string& message)
      : std::runtime_error(message), _code(code), _systemError(systemError) {}

  int code() const { return _code; }
  int primaryCode() const { return _code & 0xFF; }
  int systemError() const { return _systemError; }

 private:
  int _code;
  int _systemError;
};

enum class Access { write, read };

// One thread at a time, with its statements.
class Connection {
 public:
  // Opens a file for reading and writing, and makes it when it is not there, or for reading alone;
  // `vfs` is null for the system's own. SQLite looks at what is in it with the first statement.
  Connection(const std::string& path, const char* vfs, Access access = Access::write);
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // Runs statements that have no result.
  void execute(const std::string& statements);

  // The number of rows that the last statement changed.
  std::int64_t changes() const { return sqlite3_changes64(_handle.get()); }
  bool isInTransaction() const { return sqlite3_get_autocommit(_handle.get()) == 0; }

  // Takes back what a transaction has done that has not ended, when there is one. Returns whether
  // there is none any more. It needs no memory that it does not have.
  bool rollBack() noexcept;

  // Whether nothing but a transaction as a whole is committed. For want of memory SQLite may roll
  // one back that is under way and run the next statement by itself.
  void setWholeOnly(bool isWholeOnly) { _isWholeOnly = isWholeOnly; }

  // Throws Error for a result code that is none of success.
  void check(int code) const;

  sqlite3* handle() const { return _handle.get(); }

 private:
  struct Close {
    void operator()(sqlite3* handle) const { sqlite3_close_v2(handle); }
  };
  struct Finalize {
    void operator()(sqlite3_stmt* handle) const { sqlite3_finalize(handle); }
  };
  std::unique_ptr<sqlite3, Close> _handle;
  std::unique_ptr<sqlite3_stmt, Finalize> _rollBack;
  bool _isWholeOnly = false;
};

// A name in SQL.
std::string quoted(std::string_view name);

// Prepared once, run often. Parameters count from 1, columns from 0. Texts and bytes that are bound
// stay with the caller, who keeps them until the statement has run. What is bound stays bound.
class Statement {
 public:
  Statement() = default;
  Statement(Connection& connection, std::string_view sql);

  explicit operator bool() const { return _handle != nullptr; }

  Statement& bind(int parameter, std::int64_t value);
  Statement& bindNull(int parameter);
  Statement& bindBytes(int parameter, std::string_view bytes);
  // What is no UTF-8 is bound as bytes.
  Statement& bindText(int parameter, std::string_view text);
  // A text that is known to be UTF-8.
  Statement& bindUtf8(int parameter, std::string_view text);
  // Of a type that only the functions know that are told it. It stays with the caller, too.
  Statement& bindPointer(int parameter, void* pointer, const char* type);
  void clearBindings() { sqlite3_clear_bindings(_handle.get()); }

  // Runs it to its end, or to its first row, whose values are gone then.
  void run();

  // Steps to the next row. After the last one the statement is ready to be run again, as it is when
  // this throws.
  bool step();
  // The same when no further row is wanted.
  void reset() { sqlite3_reset(_handle.get()); }

  std::int64_t number(int column) const { return sqlite3_column_int64(_handle.get(), column); }
  // One of SQLITE_INTEGER, SQLITE_TEXT and the others.
  int type(int column) const { return sqlite3_column_type(_handle.get(), column); }
  bool isNull(int column) const { return type(column) == SQLITE_NULL; }
  // A text or bytes, valid until the next step.
  std::string_view bytes(int column) const;

 private:
  struct Finalize {
    void operator()(sqlite3_stmt* handle) const { sqlite3_finalize(handle); }
  };
  const Connection* _connection = nullptr;
  std::unique_ptr<sqlite3_stmt, Finalize> _handle;
};

// The number that a query without parameters gives, 0 when it gives none.
std::int64_t queryNumber(Connection& connection, std::string_view sql);

// Rolled back unless it is committed. A commit that throws has rolled back as well, as far as this
// connection can tell; whether the file will have it after the process is gone, it cannot.
class Transaction {
 public:
  explicit Transaction(Connection& connection);
  ~Transaction();
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  void commit();

 private:
  Connection& _connection;
};

}  // namespace dch::sqlite

#endif  // DCH_STORE_SQLITE_H
