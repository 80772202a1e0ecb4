#include "dch/testkit/store_test.h"

#include <array>
#include <cstddef>
#include <filesystem>
#include <iterator>
#include <sstream>

#include "dch/store/schema.h"
#include "dch/store/sqlite.h"

namespace dch::testkit {

std::string query(const std::string& path, const std::string& sql) {
  sqlite3* handle = nullptr;
  const int code = sqlite3_open_v2(path.c_str(), &handle, SQLITE_OPEN_READONLY, nullptr);
  std::string result;
  const auto addLine = [](void* text, int count, char** values, char**) {
    auto& lines = *static_cast<std::string*>(text);
    for (int column = 0; column < count; ++column)
      lines += std::string(column > 0 ? "|" : "") +
               (values[column] != nullptr ? values[column] : "null");
    lines += "\n";
    return 0;
  };
  if (code != SQLITE_OK ||
      sqlite3_exec(handle, sql.c_str(), addLine, &result, nullptr) != SQLITE_OK)
    result += std::string("error: ") + sqlite3_errmsg(handle);
  sqlite3_close(handle);
  return result;
}

std::vector<std::string> rowTables(const std::string& path) {
  std::istringstream lines(
      query(path, "SELECT name FROM sqlite_schema WHERE type = 'table' AND name GLOB 'rows_*'"));
  return {std::istream_iterator<std::string>(lines), std::istream_iterator<std::string>()};
}

void StoreTest::copyTo(const std::string& copy) const {
  std::filesystem::remove(copy + "-wal");
  std::filesystem::copy(path(), copy, std::filesystem::copy_options::overwrite_existing);
  if (std::filesystem::exists(path() + "-wal"))
    std::filesystem::copy(path() + "-wal", copy + "-wal");
}

void StoreTest::putInPlace(const std::string& copy) const {
  for (const char* suffix : {"", "-wal", "-shm"}) std::filesystem::remove(path() + suffix);
  for (const char* suffix : {"", "-wal"})
    if (std::filesystem::exists(copy + suffix))
      std::filesystem::copy(copy + suffix, path() + suffix);
}

void StoreTest::takeBackTo(int version) const {
  constexpr std::array undo = {
      "DROP TABLE clock_steps",
      "DROP TABLE epochs; DROP TABLE publishing",
      "DROP TABLE remote_sources; DROP TABLE remote_epochs; DROP TABLE remote_sites; "
      "DROP TABLE stream_read; ALTER TABLE known_groups DROP COLUMN has_remote_rows",
  };
  static_assert(undo.size() == newestSchema - 1);
  sqlite::Connection connection(path(), nullptr);
  for (int newest = newestSchema; newest > version; --newest)
    connection.execute(undo[static_cast<std::size_t>(newest) - 2]);
  connection.execute("PRAGMA user_version = " + std::to_string(version));
}

}  // namespace dch::testkit
