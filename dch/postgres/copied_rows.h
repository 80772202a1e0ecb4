// copied_rows.h: rows for a table as COPY takes them in binary form.
#ifndef DCH_POSTGRES_COPIED_ROWS_H
#define DCH_POSTGRES_COPIED_ROWS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "dch/postgres/wire.h"

namespace dch::pg {

// Gathers rows that all have the same columns. After an exception it is of no more use. One thread.
class CopiedRows {
 public:
  void begin(int columns) {
    append(static_cast<std::int16_t>(columns));
    ++_count;
  }
  // For a column of type bigint.
  void add(std::int64_t number) {
    append(std::int32_t{sizeof number});
    append(number);
  }
  // For a column of type bytea, or a text: UTF-8 without a zero.
  void add(std::string_view bytes) {
    append(static_cast<std::int32_t>(bytes.size()));
    _bytes += bytes;
  }
  void addNull() { append(std::int32_t{-1}); }

  void clear() {
    _bytes.clear();
    _count = 0;
  }

  bool isEmpty() const { return _count == 0; }
  std::size_t count() const { return _count; }
  // Of all rows, without what stands before and behind them.
  std::string_view bytes() const { return _bytes; }

 private:
  template <class Integer>
  void append(Integer value) {
    const auto bytes = toWire(value);
    _bytes.append(bytes.data(), bytes.size());
  }

  std::string _bytes;
  std::size_t _count = 0;
};

}  // namespace dch::pg

#endif  // DCH_POSTGRES_COPIED_ROWS_H
