// utf8.h: whether bytes are text.
#ifndef DCH_CORE_UTF8_H
#define DCH_CORE_UTF8_H

#include <string>
#include <string_view>

namespace dch {

// Whether the text is well-formed UTF-8.
bool isUtf8(std::string_view text);
// The same text, each byte that is no part of a character replaced by U+FFFD.
std::string asUtf8(std::string_view text);

}  // namespace dch

#endif  // DCH_CORE_UTF8_H
