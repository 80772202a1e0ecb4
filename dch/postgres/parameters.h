// parameters.h: what stands for $1, $2 and so on in a statement.
#ifndef DCH_POSTGRES_PARAMETERS_H
#define DCH_POSTGRES_PARAMETERS_H

#include <array>
#include <cstdint>
#include <string_view>
#include <vector>

#include "dch/postgres/wire.h"

namespace dch::pg {

// Texts and bytes stay with the caller, who keeps them until the statement has run. One thread.
class Parameters {
 public:
  enum class Type { bigint, bytea, text };

  // Of type bigint.
  Parameters& add(std::int64_t number) {
    _values.push_back({Type::bigint, toWire(number), {}, false});
    return *this;
  }
  Parameters& addNull(Type type) {
    _values.push_back({type, {}, {}, true});
    return *this;
  }
  // Of type bytea: any bytes.
  Parameters& addBytes(std::string_view bytes) {
    _values.push_back({Type::bytea, {}, bytes, false});
    return *this;
  }
  // Of type text: UTF-8 without a zero.
  Parameters& addText(std::string_view text) {
    _values.push_back({Type::text, {}, text, false});
    return *this;
  }

 private:
  friend class Connection;
  struct Value {
    Type type;
    std::array<char, sizeof(std::int64_t)> number;
    std::string_view bytes;
    bool isNull;
  };
  std::vector<Value> _values;
};

}  // namespace dch::pg

#endif  // DCH_POSTGRES_PARAMETERS_H
