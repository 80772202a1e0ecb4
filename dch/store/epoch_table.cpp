#include "dch/store/epoch_table.h"

#include <algorithm>
#include <string_view>

namespace dch {

EpochTable::EpochTable(sqlite::Connection& connection, const Epoch& own)
    : _own(own), _begin(connection, "INSERT INTO epochs VALUES (?, ?)"), _forget(connection, R"(
DELETE FROM epochs WHERE first_position <
  (SELECT max(first_position) FROM epochs WHERE first_position <= ?))") {
  sqlite::Statement newest(connection,
                           "SELECT epoch FROM epochs ORDER BY first_position DESC LIMIT 1");
  if (newest.step()) _isDue = epochAt(newest, 0) != own;
}

void EpochTable::begin(std::int64_t position) {
  _begin.bind(1, position);
  bindEpoch(_begin, 2, _own);
  _begin.run();
  _isDue = false;
}

void EpochTable::forgetBefore(std::int64_t number) {
  _forget.bind(1, number).run();
}

void bindEpoch(sqlite::Statement& statement, int parameter, const Epoch& epoch) {
  statement.bindBytes(parameter,
                      {reinterpret_cast<const char*>(epoch.bytes.data()), epoch.bytes.size()});
}

Epoch epochAt(const sqlite::Statement& query, int column) {
  const std::string_view bytes = query.bytes(column);
  Epoch epoch;
  if (bytes.size() != epoch.bytes.size())
    throw sqlite::Error(SQLITE_CORRUPT, 0,
                        "an epoch has " + std::to_string(bytes.size()) + " bytes");
  std::copy(bytes.begin(), bytes.end(), epoch.bytes.begin());
  return epoch;
}

}  // namespace dch
