// result.h: what a statement has given.
#ifndef DCH_POSTGRES_RESULT_H
#define DCH_POSTGRES_RESULT_H

#include <libpq-fe.h>

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "dch/postgres/wire.h"

namespace dch::pg {

// Rows and columns count from 0. One thread.
class Result {
 public:
  explicit Result(PGresult* result = nullptr) : _result(result) {}

  explicit operator bool() const { return _result != nullptr; }
  ExecStatusType status() const { return PQresultStatus(_result.get()); }

  int rows() const { return PQntuples(_result.get()); }
  bool isNull(int row, int column) const { return PQgetisnull(_result.get(), row, column) != 0; }
  // Of an integer or a boolean; 0 for null.
  std::int64_t number(int row, int column) const { return fromWire(bytes(row, column)); }
  // Of a text or bytes, as long as this result is there; empty for null.
  std::string_view bytes(int row, int column) const {
    return {PQgetvalue(_result.get(), row, column),
            static_cast<std::size_t>(PQgetlength(_result.get(), row, column))};
  }
  std::string text(int row, int column) const { return std::string(bytes(row, column)); }

  // The number of rows that the statement changed.
  std::int64_t changes() const {
    const char* const text = PQcmdTuples(_result.get());
    std::int64_t count = 0;
    std::from_chars(text, text + std::strlen(text), count);
    return count;
  }

  const PGresult* handle() const { return _result.get(); }

 private:
  struct Clear {
    void operator()(PGresult* result) const { PQclear(result); }
  };
  std::unique_ptr<PGresult, Clear> _result;
};

}  // namespace dch::pg

#endif  // DCH_POSTGRES_RESULT_H
