#include "dch/store/sqlite.h"

#include <cstring>
#include <new>

#include "dch/core/utf8.h"

namespace dch::sqlite {

namespace {

[[noreturn]] void fail(sqlite3* handle, int code) {
  if ((code & 0xFF) == SQLITE_NOMEM) throw std::bad_alloc();
  // The connection's own words belong to the last call that failed on it.
  const bool isOwn = handle != nullptr && sqlite3_extended_errcode(handle) == code;
  const bool isSystem = (code & 0xFF) == SQLITE_CANTOPEN || (code & 0xFF) == SQLITE_IOERR;
  const int systemError = handle != nullptr && isSystem ? sqlite3_system_errno(handle) : 0;
  std::string message = isOwn ? sqlite3_errmsg(handle) : sqlite3_errstr(code);
  if (systemError != 0) message += std::string(" (") + std::strerror(systemError) + ")";
  throw Error(code, systemError, message);
}

}  // namespace

Connection::Connection(const std::string& path, const char* vfs, Access access) {
  sqlite3* handle = nullptr;
  const int flags =
      access == Access::read ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
  const int code = sqlite3_open_v2(path.c_str(), &handle,
                                   flags | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE, vfs);
  _handle.reset(handle);
  if (code != SQLITE_OK) fail(handle, code);
  sqlite3_stmt* rollBack = nullptr;
  check(sqlite3_prepare_v3(handle, "ROLLBACK", -1, SQLITE_PREPARE_PERSISTENT, &rollBack, nullptr));
  _rollBack.reset(rollBack);
  // What it answers is whether the commit becomes a rollback.
  sqlite3_commit_hook(
      handle, [](void* self) { return static_cast<Connection*>(self)->_isWholeOnly ? 1 : 0; },
      this);
}

void Connection::execute(const std::string& statements) {
  check(sqlite3_exec(_handle.get(), statements.c_str(), nullptr, nullptr, nullptr));
}

bool Connection::rollBack() noexcept {
  // It has ended by itself after some errors.
  if (isInTransaction()) {
    sqlite3_step(_rollBack.get());
    sqlite3_reset(_rollBack.get());
  }
  return !isInTransaction();
}

void Connection::check(int code) const {
  if (code != SQLITE_OK && code != SQLITE_ROW && code != SQLITE_DONE) fail(_handle.get(), code);
}

std::string quoted(std::string_view name) {
  std::string result = "\"";
  for (const char character : name) {
    if (character == '"') result += '"';
    result += character;
  }
  return result + '"';
}

Statement::Statement(Connection& connection, std::string_view sql) : _connection(&connection) {
  sqlite3_stmt* handle = nullptr;
  connection.check(sqlite3_prepare_v3(connection.handle(), sql.data(), static_cast<int>(sql.size()),
                                      SQLITE_PREPARE_PERSISTENT, &handle, nullptr));
  _handle.reset(handle);
}

Statement& Statement::bind(int parameter, std::int64_t value) {
  _connection->check(sqlite3_bind_int64(_handle.get(), parameter, value));
  return *this;
}

Statement& Statement::bindNull(int parameter) {
  _connection->check(sqlite3_bind_null(_handle.get(), parameter));
  return *this;
}

Statement& Statement::bindBytes(int parameter, std::string_view bytes) {
  // Without an address it would be null instead of empty.
  const char* const address = bytes.data() != nullptr ? bytes.data() : "";
  _connection->check(
      sqlite3_bind_blob64(_handle.get(), parameter, address, bytes.size(), SQLITE_STATIC));
  return *this;
}

Statement& Statement::bindText(int parameter, std::string_view text) {
  return isUtf8(text) ? bindUtf8(parameter, text) : bindBytes(parameter, text);
}

Statement& Statement::bindUtf8(int parameter, std::string_view text) {
  const char* const address = text.data() != nullptr ? text.data() : "";
  _connection->check(sqlite3_bind_text64(_handle.get(), parameter, address, text.size(),
                                         SQLITE_STATIC, SQLITE_UTF8));
  return *this;
}

Statement& Statement::bindPointer(int parameter, void* pointer, const char* type) {
  _connection->check(sqlite3_bind_pointer(_handle.get(), parameter, pointer, type, nullptr));
  return *this;
}

void Statement::run() {
  const int code = sqlite3_step(_handle.get());
  const int result = sqlite3_reset(_handle.get());
  _connection->check(code == SQLITE_ROW || code == SQLITE_DONE ? result : code);
}

bool Statement::step() {
  const int code = sqlite3_step(_handle.get());
  if (code == SQLITE_ROW) return true;
  reset();
  _connection->check(code);
  return false;
}

std::string_view Statement::bytes(int column) const {
  const auto* const address = static_cast<const char*>(sqlite3_column_blob(_handle.get(), column));
  const int size = sqlite3_column_bytes(_handle.get(), column);
  if (address == nullptr && size > 0) throw std::bad_alloc();
  return {address, static_cast<std::size_t>(size)};
}

std::int64_t queryNumber(Connection& connection, std::string_view sql) {
  Statement query(connection, sql);
  return query.step() ? query.number(0) : 0;
}

Transaction::Transaction(Connection& connection) : _connection(connection) {
  connection.execute("BEGIN IMMEDIATE");
  connection.setWholeOnly(true);
}

Transaction::~Transaction() {
  _connection.rollBack();
  _connection.setWholeOnly(false);
}

void Transaction::commit() {
  _connection.setWholeOnly(false);
  _connection.execute("COMMIT");
}

}  // namespace dch::sqlite
