// json.h: texts and values in JSON.
#ifndef DCH_WEB_JSON_H
#define DCH_WEB_JSON_H

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace dch {

using Json = nlohmann::ordered_json;  // members stay in the order in which they were added

// Bytes as people read them: as they are when they are text, else "0x" and their digits.
std::string readable(std::string_view bytes);

// Throws nlohmann::json::type_error for a text that is not readable().
inline std::string textOf(const Json& json) {
  return json.dump();
}

}  // namespace dch

#endif  // DCH_WEB_JSON_H
