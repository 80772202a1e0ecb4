// error.h: what PostgreSQL, or the way to it, has refused.
#ifndef DCH_POSTGRES_ERROR_H
#define DCH_POSTGRES_ERROR_H

#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace dch::pg {

class Error : public std::runtime_error {
 public:
  // `state` is the SQLSTATE of the server's answer, empty when it gave none.
  Error(std::string state, const std::string& message)
      : std::runtime_error(message), _state(std::move(state)) {}

  const std::string& state() const { return _state; }
  // Whether the SQLSTATE is of this class, its first two characters.
  bool isOfClass(std::string_view two) const { return _state.starts_with(two); }

 private:
  std::string _state;
};

}  // namespace dch::pg

#endif  // DCH_POSTGRES_ERROR_H
