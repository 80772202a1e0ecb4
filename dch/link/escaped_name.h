// escaped_name.h: names of any bytes, written with few characters.
#ifndef DCH_LINK_ESCAPED_NAME_H
#define DCH_LINK_ESCAPED_NAME_H

#include <optional>
#include <string>
#include <string_view>

namespace dch {

// A-Z, a-z, 0-9 and the characters of `plain` stay, other bytes become %XX with capital digits; an
// empty name is "%". No two names are written alike.
std::string escapedName(std::string_view name, std::string_view plain);

// The `plain` of names in headers. A server of NATS looks for the names of its own headers in
// values, too; each has a hyphen between letters, so such a name must not.
inline constexpr std::string_view plainInHeaders = "_";

// Nothing unless escapedName wrote it, with the same `plain`.
std::optional<std::string> unescapedName(std::string_view text, std::string_view plain);

}  // namespace dch

#endif  // DCH_LINK_ESCAPED_NAME_H
