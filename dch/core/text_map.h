// text_map.h: a hash map with text keys that is searched without making a std::string of the key.
#ifndef DCH_CORE_TEXT_MAP_H
#define DCH_CORE_TEXT_MAP_H

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

namespace dch {

struct TextHash {
  using is_transparent = void;
  std::size_t operator()(std::string_view text) const {
    return std::hash<std::string_view>()(text);
  }
};

template <class Value>
using TextMap = std::unordered_map<std::string, Value, TextHash, std::equal_to<>>;

using TextSet = std::unordered_set<std::string, TextHash, std::equal_to<>>;

// One key made of several names. Names hold no zero, so different names make different keys.
template <class... Names>
std::string joinNames(std::string_view first, Names... others) {
  std::string key(first);
  ((key.append(1, '\0').append(others)), ...);
  return key;
}

}  // namespace dch

#endif  // DCH_CORE_TEXT_MAP_H
