// request_target.h: takes the address of a request apart.
#ifndef DCH_WEB_REQUEST_TARGET_H
#define DCH_WEB_REQUEST_TARGET_H

#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace dch {

// What stands behind the question mark. Names and values are decoded: any bytes.
class Parameters {
 public:
  // Throws WebError for what cannot be decoded and for a name that comes twice.
  explicit Parameters(std::string_view query);

  // Throws WebError for one that is not among these.
  void allow(std::initializer_list<std::string_view> names) const;

  std::optional<std::string_view> find(std::string_view name) const;

  // The same; throws WebError when it is not there.
  std::string_view get(std::string_view name) const;

  // The number that it gives; throws WebError when it is none from `least` to `most`.
  std::optional<long long> number(std::string_view name, long long least, long long most) const;

  // Whether it is there; throws WebError when it has a value.
  bool flag(std::string_view name) const;

 private:
  std::vector<std::pair<std::string, std::string>> _all;
};

struct RequestTarget {
  std::string_view path;  // as it came
  std::string_view query;
};

// Of what stands between method and version. It need not be an address at all. Throws WebError when
// it is none of this server's.
RequestTarget parseTarget(std::string_view target);

// What an error shows of what came: printable, in quotes, not too long.
std::string shown(std::string_view text);

}  // namespace dch

#endif  // DCH_WEB_REQUEST_TARGET_H
